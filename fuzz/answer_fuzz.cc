// Answer bytes from the network into parser_proto_response. The first two
// bytes of the input choose the buffer's capacity (12 to 640), the rest is the
// answer. The call must return one of its documented codes, write nothing
// past the record (nor past the capacity when the text was cut), and, for an
// answer that is well-formed, write the record of its first per-hash result.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "answer.h"
#include "check.h"
#include "kx_response.pb.h"

namespace resp = linkward::info::resp;

namespace {

constexpr size_t kWorkTextMax = 511;

const resp::MD5Result* first_per_hash_result(const resp::Response& response) {
  for (const resp::Result& result : response.results()) {
    if (result.has_merged_result()) return &result.merged_result();
    if (result.md5_results_size() > 0) return &result.md5_results(0);
  }
  return nullptr;
}

// A value as the record carries it: up to its first zero byte, 511 at most.
std::string work_text(const std::string& value) {
  return std::string(value.c_str(), strnlen(value.c_str(), kWorkTextMax));
}

// The record's whole text for one per-hash result, written out plainly.
std::string expected_text(const resp::MD5Result& result) {
  std::string kx;
  for (const linkward::info::StringPair& pair : result.values()) {
    if (pair.key() == "bnet.info") {
      const std::string bnet = work_text(pair.value());
      if (!bnet.empty()) return "bnet.info=" + bnet;
      break;
    }
    if (pair.key() == "kx.info") kx = work_text(pair.value());
  }
  return kx.empty() ? "" : "kx.info=" + kx;
}

bool has_bnet_pair(const resp::MD5Result& result) {
  for (const linkward::info::StringPair& pair : result.values())
    if (pair.key() == "bnet.info") return true;
  return false;
}

// The record against the result it came from; how it sits in the buffer is
// broken_promise's to judge.
void check_record(const resp::MD5Result& result, const Outcome& o) {
  const std::string text = expected_text(result);
  require(o.length == 12 + static_cast<int32_t>(text.size()),
          "the length counts the head and the whole text");
  require((o.code() == 8) == has_bnet_pair(result), "8 means a bnet.info pair");
  require(o.level() == result.level() && o.sub_type() == result.sub_type(),
          "level and sub_type as received");
  require(text.compare(0, o.text().size(), o.text()) == 0,
          "the text, or its start when it was cut");
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
      parse_bytes(answer.get(), static_cast<int32_t>(answer_size), capacity);
  const std::string broken = broken_promise(o);
  require(broken.empty(), broken.c_str());

  // Bytes the runtime's own parser reads whole are read alike by the
  // library's, so its message tells what the record must be; on cut or
  // malformed bytes the two differ by design, and the promises above are all.
  resp::Response response;
  if (!response.ParsePartialFromArray(answer.get(),
                                      static_cast<int>(answer_size)))
    return 0;
  if (response.ec() != resp::Response::kOK) {
    require(o.rc == -3, "a service error gives -3");
  } else if (response.results_size() == 0) {
    require(o.rc == -4, "no results gives -4");
  } else {
    require(o.rc == 0, "results give 0");
  }
  const resp::MD5Result* decisive = first_per_hash_result(response);
  if (o.rc == 0)
    require((o.length > 0) == (decisive != nullptr),
            "a record exactly when a per-hash result exists");
  if (o.rc == 0 && decisive != nullptr) check_record(*decisive, o);
  return 0;
}
