/* Binds the library's four entry points by symbol name with dlopen and dlsym,
 * in plain C without its header, as the router's firmware does, and checks
 * each call's result byte for byte (integers low byte first on both CPUs). */
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

/* The query for "http://example.com/" with mid "M1" and vk 01 02: urls (id 0
 * and the url), uv 3, product, combo, vk, src, mid and rule_group_id. */
static const char kQuery[] =
    "\x0a\x19\x08\x00\x12\x15\x0a\x13http://example.com/\x18\x03\x2a\x07smarthw"
    "\x32\010firewall\x3a\x02\x01\x02\x42\x03url\x4a\x02M1\x6a\x06kxid:1";
/* ec 0, one result (id 7) holding one per-hash result: level 70, sub-type 5,
 * bnet.info=phish. Its record: verdict 8, level 70, sub-type 5, the text. */
static const char kAnswer[] =
    "\x08\x00\x12\x1c\x10\x07\x22\x18\x10\x46\x28\x05\x42\x12\x0a\x09"
    "bnet.info\x12\x05phish";
static const char kRecord[] = "\x08\0\0\0\x46\0\0\0\x05\0\0\0bnet.info=phish";

static char buffer[534]; /* a record's room */
static int32_t length;
static int failures;

/* After a call given the buffer full of 0x5a and the length at -7: it must have
 * returned `want_rc`, reported `want_length` and written `want` and no more. */
static void check(const char* call, long rc, long want_rc, long want_length,
                  const char* want, size_t size) {
  size_t end = size;
  while (end < sizeof buffer && buffer[end] == 0x5a) ++end;
  if (rc == want_rc && length == want_length && end == sizeof buffer &&
      memcmp(buffer, want, size) == 0)
    return;
  fprintf(stderr, "FAILED: %s: returned %ld, length %ld\n", call, rc,
          (long)length);
  ++failures;
}
/* Says what the loader reports when `address` is NULL; gives it back. */
static void* found(void* address) {
  if (address == NULL) fprintf(stderr, "FAILED: %s\n", dlerror());
  return address;
}

#define EXPECT(call, ...)                            \
  (memset(buffer, 0x5a, sizeof buffer), length = -7, \
   check(#call, call, __VA_ARGS__))

int main(int argc, char** argv) {
  void* lib = found(dlopen(argc > 1 ? argv[1] : "liblinkward.so", RTLD_NOW));
  /* As the firmware declares them; a C++ reference travels as a pointer. */
  int32_t (*create_proto_request)(char*, int32_t*, int32_t, uint32_t,
                                  const char*, const char*, const void*,
                                  uint32_t);
  int32_t (*parser_proto_response)(char*, int32_t*, int32_t, const void*,
                                   int32_t);
  int (*parser_one_result)(const void* md5_result, char*, int);
  int (*has_value)(const char* list, const char* token);
  *(void**)&create_proto_request = found(dlsym(lib, "create_proto_request"));
  *(void**)&parser_proto_response = found(dlsym(lib, "parser_proto_response"));
  *(void**)&parser_one_result = found(
      dlsym(lib, "_Z17parser_one_resultRKN8linkward4info4resp9MD5ResultEPci"));
  *(void**)&has_value = found(dlsym(lib, "_Z9has_valuePKcS0_"));
  const void* empty_md5_result = found(
      dlsym(lib, "_ZN8linkward4info4resp28_MD5Result_default_instance_E"));
  if (!lib || !create_proto_request || !parser_proto_response ||
      !parser_one_result || !has_value || !empty_md5_result)
    return 1;

  EXPECT(create_proto_request(buffer, &length, sizeof buffer, 1,
                              "http://example.com/", "M1", "\x01\x02", 2),
         0, sizeof kQuery - 1, kQuery, sizeof kQuery - 1);
  EXPECT(parser_proto_response(buffer, &length, sizeof buffer, kAnswer,
                               sizeof kAnswer - 1),
         0, sizeof kRecord - 1, kRecord, sizeof kRecord);
  /* MD5Result's default instance, an empty per-hash result: verdict 0. */
  EXPECT(parser_one_result(empty_md5_result, buffer, sizeof buffer), 12, -7,
         "\0\0\0\0\0\0\0\0\0\0\0", 12);
  EXPECT(has_value("sc=110|ssc=11021", "ssc=11021"), 1, -7, "", 0);
  return dlclose(lib) != 0 || failures != 0;
}
