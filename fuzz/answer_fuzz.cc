// Answer bytes from the network into parser_proto_response. The first two
// bytes of the input choose the buffer's capacity (12 to 640), the rest is the
// answer. Whatever the bytes, the call returns one of its documented codes and
// writes nothing but the record, its text cut inside the capacity. On bytes
// the runtime's own parser reads whole (which the library's parse reads
// alike, as the answer_parse target holds), the codes follow the error code
// and the results, the record is the one the classifier writes for the first
// per-hash result, and its text comes from a pair of that result.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "check.h"
#include "kx_response.pb.h"
#include "wire.h"

namespace resp = linkward::info::resp;

namespace {

const resp::MD5Result* first_per_hash_result(const resp::Response& response) {
  for (const resp::Result& result : response.results()) {
    if (result.has_merged_result()) return &result.merged_result();
    if (result.md5_results_size() > 0) return &result.md5_results(0);
  }
  return nullptr;
}

// The text as far as it was written is a label and the start of the value
// of a pair with that key, and 8 says that a "bnet.info" pair is there.
void check_provenance(const resp::MD5Result& result, const Outcome& o) {
  bool has_bnet = false, from_a_pair = o.text().empty();
  for (const linkward::info::StringPair& pair : result.values()) {
    has_bnet = has_bnet || pair.key() == "bnet.info";
    const std::string text = pair.key() + "=" + pair.value();
    from_a_pair =
        from_a_pair || text.compare(0, o.text().size(), o.text()) == 0;
  }
  require((o.head(0) == 8) == has_bnet, "8 means a bnet.info pair");
  require(from_a_pair, "the text is a pair's key and value");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const int32_t capacity = 12 + (data[0] << 8 | data[1]) % 629;
  // The answer in an allocation of its own size, so that reading past its
  // end is caught; new[] gives a pointer also for an empty answer.
  const size_t answer_size = size - 2;
  std::unique_ptr<uint8_t[]> answer(new uint8_t[answer_size]);
  std::memcpy(answer.get(), data + 2, answer_size);

  const Outcome o =
      parse(answer.get(), static_cast<int32_t>(answer_size), capacity);
  const std::string broken = broken_promise(o);
  require(broken.empty(), broken.c_str());

  resp::Response response;
  if (!response.ParsePartialFromArray(answer.get(),
                                      static_cast<int>(answer_size)))
    return 0;
  const int32_t rc = response.ec() != resp::Response::kOK ? -3
                     : response.results_size() == 0       ? -4
                                                          : 0;
  require(o.rc == rc, "-3 for an error code, -4 for no results, else 0");
  const resp::MD5Result* decisive = first_per_hash_result(response);
  if (rc != 0 || decisive == nullptr) {
    require(rc != 0 || o.length == 0, "no per-hash result, no record");
    return 0;
  }
  std::vector<char> record(capacity + kGuardTail, kGuard);
  require(parser_one_result(*decisive, record.data(), capacity) == o.length &&
              record == o.buffer,
          "the record of the first per-hash result");
  check_provenance(*decisive, o);
  return 0;
}
