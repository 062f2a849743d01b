/* The router's firmware loads liblinkward.so with dlopen and binds the four
 * entry points by their symbol names. This program does the same, in plain C
 * and without the library's header, and checks what each call gives byte for
 * byte. Both processors it runs on are little-endian, so the verdict record's
 * integers are spelled out low byte first.
 *
 *   loader_test <path of liblinkward.so> */
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

/* The entry points as the firmware declares them. The two C++ ones are bound
 * by their mangled names; a C++ reference travels as a pointer. */
typedef int32_t (*create_proto_request_fn)(char* out_buf, int32_t* out_len,
                                           int32_t out_size, uint32_t enable,
                                           const char* url, const char* mid,
                                           const void* vk, uint32_t vk_len);
typedef int32_t (*parser_proto_response_fn)(char* out_buf, int32_t* out_len,
                                            int32_t out_size, const void* data,
                                            int32_t size);
typedef int (*parser_one_result_fn)(const void* md5_result, char* out_buf,
                                    int out_size);
typedef int (*has_value_fn)(const char* list, const char* token);

#define GUARD 0x5a
#define RECORD_SIZE 534

/* clang-format off */
/* The query for "http://example.com/" with mid "M1" and vk 01 02. */
static const char kQuery[] =
    "\x0a\x19"                     /* urls, 25 bytes */
    "\x08\x00\x12\x15\x0a\x13"     /* id 0; url, 21 bytes; its text */
    "http://example.com/"
    "\x18\x03"                     /* uv 3 */
    "\x2a\x07" "smarthw"           /* product */
    "\x32\x08" "firewall"          /* combo */
    "\x3a\x02\x01\x02"             /* vk */
    "\x42\x03" "url"               /* src */
    "\x4a\x02" "M1"                /* mid */
    "\x6a\x06" "kxid:1";           /* rule_group_id */

/* ec 0; one result, id 7, holding one per-hash result: level 70, sub-type 5,
 * "bnet.info" = "phish". */
static const char kAnswer[] =
    "\x08\x00\x12\x1c"             /* ec; results, 28 bytes */
    "\x10\x07\x22\x18"             /* id 7; md5_results, 24 bytes */
    "\x10\x46\x28\x05\x42\x12"     /* level, sub_type; values, 18 bytes */
    "\x0a\x09" "bnet.info" "\x12\x05" "phish";

/* Verdict 8, level 70, sub-type 5, then the text and its NUL. */
static const char kRecord[] =
    "\x08\x00\x00\x00\x46\x00\x00\x00\x05\x00\x00\x00"
    "bnet.info=phish";
/* clang-format on */

static int failures;

static void expect(int ok, const char* what) {
  if (!ok) {
    fprintf(stderr, "FAILED: %s\n", what);
    ++failures;
  }
}

static int untouched(const char* buffer, size_t from, size_t size) {
  for (size_t i = from; i < size; ++i)
    if ((unsigned char)buffer[i] != GUARD) return 0;
  return 1;
}

static void* bind(void* library, const char* symbol) {
  void* address = dlsym(library, symbol);
  if (address == NULL) fprintf(stderr, "FAILED: %s: %s\n", symbol, dlerror());
  return address;
}

static void check_query(create_proto_request_fn create_proto_request) {
  char query[128];
  int32_t length = -7;
  memset(query, GUARD, sizeof query);
  int32_t rc = create_proto_request(query, &length, sizeof query, 1,
                                    "http://example.com/", "M1", "\x01\x02", 2);
  expect(rc == 0, "create_proto_request returns 0");
  expect((size_t)length == sizeof kQuery - 1, "the query is 69 bytes");
  expect(memcmp(query, kQuery, sizeof kQuery - 1) == 0,
         "the query's bytes are exact");
  expect(untouched(query, sizeof kQuery - 1, sizeof query),
         "nothing is written after the query");
}

static void check_answers(parser_proto_response_fn parser_proto_response) {
  char record[RECORD_SIZE];
  int32_t length = -7;
  memset(record, GUARD, sizeof record);
  int32_t rc = parser_proto_response(record, &length, sizeof record, kAnswer,
                                     sizeof kAnswer - 1);
  expect(rc == 0, "parser_proto_response returns 0");
  expect((size_t)length == sizeof kRecord - 1, "the record is 27 bytes");
  expect(memcmp(record, kRecord, sizeof kRecord) == 0,
         "the record's bytes are exact");
  expect(untouched(record, sizeof kRecord, sizeof record),
         "nothing is written after the record");

  memset(record, GUARD, sizeof record);
  length = -7;
  rc = parser_proto_response(record, &length, sizeof record, "\x08\x03", 2);
  expect(rc == -3, "a service error code gives -3");
  expect(length == -7 && untouched(record, 0, sizeof record),
         "a service error writes nothing");
}

/* C cannot build an MD5Result, but the library holds one: the message
 * class's default instance, which is what an absent per-hash result reads
 * as. Its level is 0, so its record is verdict 0 with no text. */
static void check_one_result(parser_one_result_fn parser_one_result,
                             const void* empty_md5_result) {
  static const char kEmptyRecord[12] = {0};
  char record[RECORD_SIZE];
  memset(record, GUARD, sizeof record);
  expect(parser_one_result(empty_md5_result, record, sizeof record) == 12,
         "parser_one_result of an empty result returns 12");
  expect(memcmp(record, kEmptyRecord, sizeof kEmptyRecord) == 0 &&
             untouched(record, sizeof kEmptyRecord, sizeof record),
         "an empty result's record is twelve zero bytes");
}

static void check_tokens(has_value_fn has_value) {
  expect(has_value("sc=110|ssc=11021", "ssc=11021") == 1,
         "has_value finds a whole member");
  expect(has_value("sc=1100|ssc=11021", "sc=110") == 0,
         "has_value rejects part of a member");
}

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s <path of liblinkward.so>\n", argv[0]);
    return 2;
  }
  void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (library == NULL) {
    fprintf(stderr, "FAILED: dlopen: %s\n", dlerror());
    return 1;
  }
  create_proto_request_fn create_proto_request =
      (create_proto_request_fn)bind(library, "create_proto_request");
  parser_proto_response_fn parser_proto_response =
      (parser_proto_response_fn)bind(library, "parser_proto_response");
  parser_one_result_fn parser_one_result = (parser_one_result_fn)bind(
      library, "_Z17parser_one_resultRKN8linkward4info4resp9MD5ResultEPci");
  has_value_fn has_value = (has_value_fn)bind(library, "_Z9has_valuePKcS0_");
  const void* empty_md5_result =
      bind(library, "_ZN8linkward4info4resp28_MD5Result_default_instance_E");
  if (!create_proto_request || !parser_proto_response || !parser_one_result ||
      !has_value || !empty_md5_result)
    return 1;

  check_query(create_proto_request);
  check_answers(parser_proto_response);
  check_one_result(parser_one_result, empty_md5_result);
  check_tokens(has_value);

  if (dlclose(library) != 0) expect(0, "dlclose");
  if (failures != 0) {
    fprintf(stderr, "%d loader checks failed\n", failures);
    return 1;
  }
  printf("four entry points bound by name; every answer exact\n");
  return 0;
}
