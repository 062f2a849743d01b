/* linkward-verdict: what the library makes of an answer the service sent,
 * read from a file. A firmware component does the same with the bytes its
 * transport received; the record is read with linkward.h's reader, never by
 * offset.
 *
 *   linkward-verdict ANSWER_FILE    (try it on answer.bin beside this file)
 */
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "linkward.h"

#if LINKWARD_VERSION < 10000
#error "linkward 1.0 or later is needed"
#endif

int main(int argc, char** argv) {
  /* far more than an answer takes; the byte beyond tells a longer file */
  static char answer[64 * 1024 + 1];
  char record[LINKWARD_RECORD_SIZE];
  int32_t record_len = 0, rc;
  linkward_verdict verdict;
  size_t size;
  FILE* file;

  if (argc != 2) {
    fprintf(stderr, "usage: linkward-verdict ANSWER_FILE\n");
    return 2;
  }
  if ((file = fopen(argv[1], "rb")) == NULL) {
    fprintf(stderr, "linkward-verdict: cannot open %s: %s\n", argv[1],
            strerror(errno));
    return 2;
  }
  size = fread(answer, 1, sizeof answer, file);
  if (ferror(file) || size == sizeof answer) {
    if (ferror(file))
      fprintf(stderr, "linkward-verdict: cannot read %s: %s\n", argv[1],
              strerror(errno));
    else
      fprintf(stderr, "linkward-verdict: %s is longer than %u bytes\n", argv[1],
              (unsigned)(sizeof answer - 1));
    fclose(file);
    return 2;
  }
  fclose(file);

  rc = parser_proto_response(record, &record_len, sizeof record, answer,
                             (int32_t)size);
  if (rc != LINKWARD_OK) {
    printf("refused: %d, %s\n", (int)rc,
           rc == LINKWARD_ERR_SERVICE ? "the service reported an error"
                                      : "no results");
    return 1;
  }
  if (linkward_read_record(record, record_len, sizeof record, &verdict) != 0) {
    printf("no verdict: no result holds a per-hash result\n");
    return 1;
  }
  printf("verdict %d, level %d, sub-type %d", (int)verdict.code,
         (int)verdict.level, (int)verdict.sub_type);
  if (verdict.text != NULL)
    printf(", text \"%s\"%s", verdict.text, verdict.text_cut ? " (cut)" : "");
  printf("\n");
  return 0;
}
