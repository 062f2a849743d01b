/* linkward: builds the encoded query for one URL and turns the URL-reputation
 * service's encoded answer into a verdict record. No I/O, no state: every
 * buffer belongs to the caller.
 *
 * Usable from C for create_proto_request, parser_proto_response and the
 * record reader; the two classifier functions are C++ and keep their mangled
 * names. */
#ifndef LINKWARD_H
#define LINKWARD_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

/* The version of this header and of the library built with it. The build
 * reads these three lines. LINKWARD_VERSION is for #if:
 * 10000 * major + 100 * minor + patch. */
#define LINKWARD_VERSION_MAJOR 1
#define LINKWARD_VERSION_MINOR 0
#define LINKWARD_VERSION_PATCH 0
#define LINKWARD_VERSION                                           \
  (LINKWARD_VERSION_MAJOR * 10000 + LINKWARD_VERSION_MINOR * 100 + \
   LINKWARD_VERSION_PATCH)

/* The verdict record: the code, level and sub-type as native signed 32-bit
 * integers (the head), then an optional NUL-terminated text. A buffer of
 * LINKWARD_RECORD_SIZE bytes always holds the whole record. */
#define LINKWARD_RECORD_HEAD_SIZE 12
#define LINKWARD_RECORD_SIZE 534

#ifdef __cplusplus
extern "C" {
#endif

/* Writes the encoded query for `url` into out_buf and its length into
 * *out_len.
 *   0  written;
 *  -1  out_buf, out_len or mid is NULL, or enable is 0 (nothing written);
 *  -2  out_size is smaller than the query (nothing written).
 * url must not be NULL; vk may be NULL only when vk_len is 0. */
int32_t create_proto_request(char* out_buf, int32_t* out_len, int32_t out_size,
                             uint32_t enable, const char* url, const char* mid,
                             const void* vk, uint32_t vk_len);

/* Decodes the answer `data` of `size` bytes and writes the verdict record of
 * its first per-hash result at the start of out_buf, its length into *out_len.
 *   0  a record was written, or the answer held no per-hash result at all
 *      (then *out_len is 0 and out_buf untouched);
 *  -1  out_buf, out_len or data is NULL;
 *  -3  the answer carries a service error code;
 *  -4  the answer holds no results.
 * On -1, -3 and -4 neither out_buf nor *out_len is touched. out_size must be
 * at least 12; 534 bytes always hold the whole record. */
int32_t parser_proto_response(char* out_buf, int32_t* out_len, int32_t out_size,
                              const void* data, int32_t size);

/* A verdict record as linkward_read_record finds it. */
typedef struct linkward_verdict {
  int32_t code;     /* 0 to 8 */
  int32_t level;    /* the service's level, as received */
  int32_t sub_type; /* the service's sub_type, as received */
  /* NULL when the record has no text; else the NUL-terminated text inside
   * the record buffer, "" when the buffer had no room for any of it. */
  const char* text;
  int text_cut; /* 1 when the buffer cut the text */
} linkward_verdict;

/* Reads the record that parser_proto_response (or parser_one_result) wrote
 * into `record`, a buffer of `record_size` bytes, given the length it
 * reported. Returns 0, or -1 when there is no record to read: record_len
 * below 12 (0 is an answer without a per-hash result), record_size below 12
 * or a NULL pointer. Inline, so that it costs the library no symbol. */
static inline int linkward_read_record(const char* record, int32_t record_len,
                                       int32_t record_size,
                                       linkward_verdict* verdict) {
  if (record == NULL || verdict == NULL ||
      record_len < LINKWARD_RECORD_HEAD_SIZE ||
      record_size < LINKWARD_RECORD_HEAD_SIZE)
    return -1;
  memcpy(&verdict->code, record, 4);
  memcpy(&verdict->level, record + 4, 4);
  memcpy(&verdict->sub_type, record + 8, 4);
  verdict->text = NULL;
  verdict->text_cut = 0;
  if (record_len > LINKWARD_RECORD_HEAD_SIZE) {
    /* The length counts the whole text; the buffer keeps what fitted. */
    verdict->text_cut = record_len >= record_size;
    verdict->text = record_size > LINKWARD_RECORD_HEAD_SIZE
                        ? record + LINKWARD_RECORD_HEAD_SIZE
                        : "";
  }
  return 0;
}

#ifdef __cplusplus
}

namespace linkward::info::resp {
class MD5Result;
}

/* Writes the verdict record of one per-hash result at the start of out_buf
 * and returns its whole length, which exceeds out_size - 1 when the text was
 * cut. out_size must be at least 12. */
int parser_one_result(const linkward::info::resp::MD5Result& result,
                      char* out_buf, int out_size);

/* 1 when `token` is a whole member of the "|"-separated `list`, else 0;
 * 0 when either is NULL. token must not be empty. */
int has_value(const char* list, const char* token);
#endif

#endif
