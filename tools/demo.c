/* Shows the library's round trip: the query for an example URL, an example
 * answer, and the verdict record the library makes of it. */
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "linkward.h"

static void print_hex(const char* title, const unsigned char* bytes,
                      int length) {
  printf("%s (%d bytes):\n", title, length);
  for (int i = 0; i < length; ++i)
    printf("%02x%c", bytes[i], (i % 16 == 15 || i + 1 == length) ? '\n' : ' ');
}

int main(void) {
  const char url[] = "http://example.com/";
  const unsigned char vk[] = {0x01, 0x02};
  char query[256];
  int32_t query_len = 0;
  int32_t rc = create_proto_request(query, &query_len, sizeof query, 1, url,
                                    "M1", vk, sizeof vk);
  if (rc != 0) {
    fprintf(stderr, "create_proto_request failed: %d\n", rc);
    return 1;
  }
  printf("URL %s, mid M1, vk 01 02\n", url);
  print_hex("query", (const unsigned char*)query, query_len);

  /* ec kOK; one result (id 1) holding one per-hash result: level 60,
   * sub-type 10, "kx.info" = "sc=110|ssc=11021". */
  static const unsigned char answer[] = {
      0x08, 0x00, 0x12, 0x25, 0x10, 0x01, 0x22, 0x21, 0x10, 0x3c, 0x28,
      0x0a, 0x42, 0x1b, 0x0a, 0x07, 'k',  'x',  '.',  'i',  'n',  'f',
      'o',  0x12, 0x10, 's',  'c',  '=',  '1',  '1',  '0',  '|',  's',
      's',  'c',  '=',  '1',  '1',  '0',  '2',  '1'};
  print_hex("answer", answer, sizeof answer);

  char record[534];
  int32_t record_len = 0;
  rc = parser_proto_response(record, &record_len, sizeof record, answer,
                             sizeof answer);
  if (rc != 0) {
    fprintf(stderr, "parser_proto_response failed: %d\n", rc);
    return 1;
  }
  int32_t head[3];
  memcpy(head, record, sizeof head);
  printf("verdict: code %d, level %d, sub-type %d, text \"%s\"\n", head[0],
         head[1], head[2], record_len > 12 ? record + 12 : "");
  return 0;
}
