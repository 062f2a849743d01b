/* linkward: builds the encoded query for one URL and turns the URL-reputation
 * service's encoded answer into a verdict record. No I/O, no state: every
 * buffer belongs to the caller.
 *
 * Usable from C for create_proto_request and parser_proto_response; the two
 * classifier functions are C++ and keep their mangled names. */
#ifndef LINKWARD_H
#define LINKWARD_H

#include <stdint.h>

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
