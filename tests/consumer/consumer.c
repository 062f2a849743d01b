/* A C caller that found linkward through pkg-config: asks about one URL and
 * reads the verdict of an answer. */
#include <stdio.h>
#include <string.h>

#include "linkward.h"

int main(void) {
  char query[128];
  int32_t query_len = 0;
  if (create_proto_request(query, &query_len, sizeof query, 1, "abc", "M1",
                           "\x01\x02", 2) != 0 ||
      query_len != 46 + 3 + 2 + 2) {
    fprintf(stderr, "the query is wrong (length %d)\n", query_len);
    return 1;
  }

  /* ec 0; one result, id 1, with one per-hash result at level 50. */
  static const char answer[] = "\x08\x00\x12\x06\x10\x01\x22\x02\x10\x32";
  char record[534];
  int32_t record_len = 0;
  int32_t head[3] = {-1, -1, -1};
  if (parser_proto_response(record, &record_len, sizeof record, answer,
                            sizeof answer - 1) == 0)
    memcpy(head, record, sizeof head);
  if (record_len != 12 || head[0] != 1 || head[1] != 50 || head[2] != 0) {
    fprintf(stderr, "the verdict is wrong: %d %d %d, length %d\n", head[0],
            head[1], head[2], record_len);
    return 1;
  }
  printf("pkg-config consumer: query %d bytes, verdict %d\n", query_len,
         head[0]);
  return 0;
}
