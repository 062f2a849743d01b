// create_proto_request with fuzzed enable, capacity, URL, mid and vk bytes.
// A query written must decode through the generated classes to exactly the
// caller's values and the fixed ones, and come out the same whatever room it
// was given; a refused call writes nothing.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "check.h"
#include "kx_request.pb.h"
#include "linkward.h"
#include "wire.h"

namespace req = linkward::info::req;

namespace {

constexpr int32_t kUnset = -7;
constexpr size_t kTail = 64;  // guard bytes after the bytes we expect

void check_decodes_to(const std::string& bytes, const std::string& url,
                      const std::string& mid, const std::string& vk) {
  req::Request got;
  require(got.ParseFromString(bytes), "the query parses and is complete");
  require(got.uv() == req::Request::kUV3_ProtobufEncrypt, "uv 3");
  require(got.product() == "smarthw" && got.combo() == "firewall" &&
              got.src() == "url" && got.rule_group_id() == "kxid:1",
          "the fixed strings");
  require(got.mid() == mid, "mid as given");
  require(got.vk() == vk, "vk as given");
  require(got.urls_size() == 1 && got.urls(0).has_id() &&
              got.urls(0).id() == 0 && got.urls(0).has_url(),
          "one entity with id 0 and a URL");
  require(got.urls(0).url().url() == url, "the URL as given");
  require(got.SerializeAsString() == bytes, "nothing but those fields");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const uint32_t enable = input.ConsumeIntegral<uint32_t>();
  // The capacity is either close to the query's size, where the -2 boundary
  // is, or anything at all, negative included.
  const bool near_size = input.ConsumeBool();
  const int32_t capacity_choice = near_size
                                      ? input.ConsumeIntegralInRange(-3, 3)
                                      : input.ConsumeIntegral<int32_t>();
  // The URL and mid are texts: the library sees them up to their first NUL.
  const std::string url_arg = input.ConsumeRandomLengthString(400);
  const std::string mid_arg = input.ConsumeRandomLengthString(200);
  const bool null_vk_when_empty = input.ConsumeBool();
  const std::vector<uint8_t> vk = input.ConsumeRemainingBytes<uint8_t>();
  const void* vk_arg = vk.empty() && null_vk_when_empty
                           ? nullptr
                           : static_cast<const void*>(vk.data());
  const auto query = [&](std::vector<char>& out, int32_t capacity,
                         int32_t& length) {
    return create_proto_request(out.data(), &length, capacity, enable,
                                url_arg.c_str(), mid_arg.c_str(), vk_arg,
                                static_cast<uint32_t>(vk.size()));
  };

  // With room to spare: its size, and the bytes any capacity must give.
  std::vector<char> whole(url_arg.size() + mid_arg.size() + vk.size() + 256,
                          kGuard);
  int32_t query_size = kUnset;
  const int32_t enabled_rc =
      query(whole, static_cast<int32_t>(whole.size()), query_size);
  if (enable == 0) {
    require(enabled_rc == -1 && query_size == kUnset && untouched_from(whole),
            "enable 0 is refused and writes nothing");
    return 0;
  }
  require(enabled_rc == 0 && query_size > 0, "written, with its size");
  require(untouched_from(whole, query_size), "nothing after the query");
  const std::string bytes(whole.data(), query_size);
  check_decodes_to(bytes, url_arg.c_str(), mid_arg.c_str(),
                   std::string(vk.begin(), vk.end()));

  // The library may write only the query, so a buffer of the query's size
  // and a guard tail stands for any larger capacity.
  const int32_t capacity =
      near_size ? query_size + capacity_choice : capacity_choice;
  const size_t room = static_cast<size_t>(std::clamp(capacity, 0, query_size));
  std::vector<char> out(room + kTail, kGuard);
  int32_t length = kUnset;
  const int32_t rc = query(out, capacity, length);
  if (capacity < query_size) {
    require(rc == -2 && length == kUnset && untouched_from(out),
            "too little room is refused and writes nothing");
    return 0;
  }
  require(rc == 0 && length == query_size && untouched_from(out, query_size) &&
              std::string(out.data(), length) == bytes,
          "any room that holds the query gets the same bytes");
  return 0;
}
