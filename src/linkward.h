/* linkward: the query for one URL to a cloud URL-reputation service, and the
 * verdict record made from the service's answer.
 *
 * The library does no I/O and keeps no state: the caller sends the query
 * bytes over its own transport and hands the answer bytes back. Every buffer
 * belongs to the caller; inputs are copied and never kept.
 *
 * From C: create_proto_request, parser_proto_response and the record reader
 * linkward_read_record. From C++ also parser_one_result and has_value, which
 * keep their C++ (mangled) names. The header is C99 and C++11 or later.
 *
 * What can escape to a C caller. The library catches no exception and logs
 * nothing of its own. A caller's broken precondition, and memory running
 * out, end a call with a C++ exception; in a C program, or any caller that
 * does not catch it, the process ends (std::terminate, then abort):
 *   - std::bad_alloc          memory ran out (any call that builds or parses
 *                             a message). Everything the call made is freed;
 *                             out_buf and *out_len are as they were, or
 *                             (parser_proto_response only) already hold the
 *                             whole record.
 *   - std::logic_error        create_proto_request with vk NULL and vk_len
 *                             above 0. Nothing is written.
 *   - a fatal check           create_proto_request with url NULL, or
 *                             parser_proto_response with a negative size:
 *                             the protobuf runtime logs "[libprotobuf FATAL
 *                             ...] CHECK failed: ..." on stderr and throws
 *                             google::protobuf::FatalException. Nothing is
 *                             written.
 * No answer bytes, however malformed, cause any of these but bad_alloc.
 *
 * Threads: any number of threads may call any function at once; the calls
 * share nothing of their own. Concurrent calls must not share an out_buf or
 * an out_len. The protobuf runtime sets up its default messages on first use
 * under its own lock. */
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

/* Return codes. The numbers are the interface: -1 and -2 come only from
 * create_proto_request, -1, -3 and -4 only from parser_proto_response. */
#define LINKWARD_OK 0
#define LINKWARD_ERR_ARGUMENT (-1)   /* a required pointer NULL, or enable 0 */
#define LINKWARD_ERR_TOO_SMALL (-2)  /* the query does not fit out_size */
#define LINKWARD_ERR_SERVICE (-3)    /* the answer carries a service error */
#define LINKWARD_ERR_NO_RESULTS (-4) /* the answer holds no results */

/* Verdict codes, the record's first integer, named for the rule that gives
 * them. L is the service's level, S its sub-type, T the "|"-separated token
 * list of the last "kx.info" pair before the first "bnet.info" pair. What
 * each code means for the traffic is the caller's policy. */
#define LINKWARD_VERDICT_LEVEL_0 0  /* L is 0 */
#define LINKWARD_VERDICT_LEVEL_50 1 /* L is 50 and "sc=101" is not in T */
#define LINKWARD_VERDICT_DEFAULT 2  /* no other rule applies */
/* L 60, S 10, and not both "sc=110" and one of "ssc=11020", "ssc=11021" */
#define LINKWARD_VERDICT_LEVEL_60_SUB_10 3
#define LINKWARD_VERDICT_LEVEL_60_SUB_20 4 /* L 60, S 20, whatever T holds */
#define LINKWARD_VERDICT_LEVEL_70 5        /* L 70, whatever S and T hold */
/* L 60 and "sc=110" in T, with S 10 and "ssc=11020", or S 30 and "ssc=11012" */
#define LINKWARD_VERDICT_SSC_FIRST 6
/* L 60 and "sc=110" in T, with S 10 and "ssc=11021" but not "ssc=11020", or
 * S 30 and "ssc=11011" but not "ssc=11012" */
#define LINKWARD_VERDICT_SSC_SECOND 7
/* a "bnet.info" pair is present; L, S and T are then not looked at */
#define LINKWARD_VERDICT_BNET_INFO 8

/* The verdict record, written at the start of the caller's buffer:
 *   offset 0   verdict code, signed 32-bit, native byte order
 *   offset 4   the service's level, as received (0 when absent)
 *   offset 8   the service's sub-type, as received (0 when absent)
 *   offset 12  optional text, NUL-terminated: "bnet.info=" and the first
 *              "bnet.info" value when that is not empty, else "kx.info=" and
 *              T when T is not empty; values count up to their first zero
 *              byte and at most 511 bytes. With no text nothing is written
 *              from offset 12 on.
 * Its length is returned, never stored in it, and counts the whole text even
 * where the buffer cut it: a length of out_size or more means the text was
 * cut (it stays NUL-terminated inside out_size). A buffer of
 * LINKWARD_RECORD_SIZE bytes always holds the whole record; one of fewer than
 * LINKWARD_RECORD_HEAD_SIZE bytes is overrun, undetected. */
#define LINKWARD_RECORD_HEAD_SIZE 12
#define LINKWARD_RECORD_SIZE 534

#ifdef __cplusplus
extern "C" {
#endif

/* Writes the encoded query about `url` at the start of out_buf and its length
 * into *out_len. Exactly that many bytes are written, with no terminator; the
 * query takes 46 bytes plus the lengths of url, mid and vk (a few more once
 * one of them passes 121 to 127 bytes).
 *   out_buf   where the query goes. Must not be NULL.
 *   out_len   receives the query's length, on LINKWARD_OK only. Not NULL.
 *   out_size  the bytes out_buf holds, compared as a signed number.
 *   enable    any value but 0, which refuses the call. The library reads
 *             nothing else from it: pass your own switch for the lookup.
 *   url       the URL to be judged, a NUL-terminated text sent as it is.
 *             Must not be NULL (a fatal check, see above); not validated.
 *   mid       the client identifier the reputation service knows this
 *             router by, a NUL-terminated text; may be empty, not NULL.
 *   vk, vk_len  the client key from the same service account: vk_len bytes
 *             sent exactly as given, zero bytes included. vk may be NULL
 *             only when vk_len is 0 (else std::logic_error, see above).
 * mid and vk come from the service's provisioning; the library copies them
 * into the query and never interprets them.
 * Returns LINKWARD_OK; LINKWARD_ERR_ARGUMENT (-1) when out_buf, out_len or
 * mid is NULL or enable is 0; LINKWARD_ERR_TOO_SMALL (-2) when out_size is
 * below the query's length (negative included). On -1 and -2 neither out_buf
 * nor *out_len is touched, and the needed size is not reported. */
int32_t create_proto_request(char* out_buf, int32_t* out_len, int32_t out_size,
                             uint32_t enable, const char* url, const char* mid,
                             const void* vk, uint32_t vk_len);

/* Decodes the service's answer, the `size` bytes at `data`, and writes the
 * verdict record of its first per-hash result at the start of out_buf, its
 * length into *out_len.
 *   out_buf, out_size  the record's buffer and the bytes it holds: at least
 *             LINKWARD_RECORD_HEAD_SIZE (12; fewer is overrun, undetected),
 *             and LINKWARD_RECORD_SIZE (534) to be sure of the whole text.
 *   out_len   receives the record's length, or 0 when no result held a
 *             per-hash result (then out_buf is untouched): look at it before
 *             reading the record.
 *   data, size  one encoded answer as received. size must not be negative
 *             (a fatal check, see above) and data must hold size bytes; no
 *             byte past them is read.
 * An answer cut short or malformed is not refused: it is read as far as it
 * goes, and what was read is walked.
 * Returns LINKWARD_OK; LINKWARD_ERR_ARGUMENT (-1) when out_buf, out_len or
 * data is NULL; LINKWARD_ERR_SERVICE (-3) when the answer's error code is not
 * 0 (one the schema does not know reads as 0); LINKWARD_ERR_NO_RESULTS (-4)
 * when it holds no results. On -1, -3 and -4 neither out_buf nor *out_len is
 * touched. */
int32_t parser_proto_response(char* out_buf, int32_t* out_len, int32_t out_size,
                              const void* data, int32_t size);

/* A verdict record as linkward_read_record finds it. */
typedef struct linkward_verdict {
  int32_t code;     /* a LINKWARD_VERDICT_ code, 0 to 8 */
  int32_t level;    /* the service's level, as received */
  int32_t sub_type; /* the service's sub-type, as received */
  /* NULL when the record has no text; else the NUL-terminated text inside
   * the record buffer, "" when the buffer had no room for any of it. */
  const char* text;
  int text_cut; /* 1 when the buffer cut the text */
} linkward_verdict;

/* Reads the record that parser_proto_response (or parser_one_result) wrote
 * into `record`, a buffer of `record_size` bytes, given the length it
 * reported, so that no caller reads the record by offset. Returns 0, or -1
 * when there is no record to read: record_len below 12 (0 is an answer
 * without a per-hash result), record_size below 12 or a NULL pointer.
 * verdict->text points into `record`. Inline, so that it costs the library no
 * symbol. */
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

namespace linkward {
namespace info {
namespace resp {
class MD5Result;
}
}  // namespace info
}  // namespace linkward

/* Writes the verdict record of one per-hash result (kx_response.pb.h) at the
 * start of out_buf and returns its whole length, 12 or more; neither out_buf
 * nor out_size is checked: out_size must be at least 12, and a return of
 * out_size or more means the text was cut. Never fails otherwise. */
int parser_one_result(const linkward::info::resp::MD5Result& result,
                      char* out_buf, int out_size);

/* 1 when `token` is a whole member of the "|"-separated `list` (byte-exact,
 * blanks not trimmed), else 0; 0 when either is NULL. Both are NUL-terminated
 * texts. The empty token is a member when the list has an empty member: the
 * list is empty, or has a "|" at its start, at its end or two in a row. */
int has_value(const char* list, const char* token);
#endif

#endif
