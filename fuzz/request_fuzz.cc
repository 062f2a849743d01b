// create_proto_request with fuzzed enable, capacity, URL, mid and vk bytes.
// Every query written must decode through the generated classes to exactly
// the caller's values; a refused call writes nothing.
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

// The capacity is either close to the query's size, where the -2 boundary
// is, or anything at all, negative included.
struct CapacityChoice {
  bool near_size;
  int32_t value;  // offset from the size, or the capacity itself

  int32_t resolve(int32_t query_size) const {
    return near_size ? query_size + value : value;
  }
};

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
  CapacityChoice choice{input.ConsumeBool(), 0};
  choice.value = choice.near_size ? input.ConsumeIntegralInRange(-3, 3)
                                  : input.ConsumeIntegral<int32_t>();
  // The URL and mid are texts: the library sees them up to their first NUL.
  const std::string url_arg = input.ConsumeRandomLengthString(400);
  const std::string mid_arg = input.ConsumeRandomLengthString(200);
  const std::string url = url_arg.c_str();
  const std::string mid = mid_arg.c_str();
  const bool null_vk_when_empty = input.ConsumeBool();
  const std::vector<uint8_t> vk_bytes = input.ConsumeRemainingBytes<uint8_t>();
  const std::string vk(vk_bytes.begin(), vk_bytes.end());
  const void* vk_arg = vk_bytes.empty() && null_vk_when_empty
                           ? nullptr
                           : static_cast<const void*>(vk_bytes.data());

  req::Request expected;
  expected.set_uv(req::Request::kUV3_ProtobufEncrypt);
  expected.set_product("smarthw");
  expected.set_combo("firewall");
  expected.set_vk(vk);
  expected.set_src("url");
  expected.set_mid(mid);
  expected.set_rule_group_id("kxid:1");
  req::URLEntity* entity = expected.add_urls();
  entity->set_id(0);
  entity->mutable_url()->set_url(url);
  const int32_t query_size = static_cast<int32_t>(expected.ByteSizeLong());

  const int32_t capacity = choice.resolve(query_size);
  // The library may write only the query, so a buffer of the query's size
  // and a guard tail stands for any larger capacity.
  const size_t room = static_cast<size_t>(std::clamp(capacity, 0, query_size));
  std::vector<char> out(room + kTail, kGuard);
  int32_t length = kUnset;
  const int32_t rc = create_proto_request(
      out.data(), &length, capacity, enable, url_arg.c_str(), mid_arg.c_str(),
      vk_arg, static_cast<uint32_t>(vk_bytes.size()));

  if (enable == 0 || capacity < query_size) {
    require(rc == (enable == 0 ? -1 : -2), "a refusal with its code");
    require(length == kUnset && untouched_from(out),
            "a refusal writes nothing");
    return 0;
  }
  require(rc == 0 && length == query_size, "written, with its size");
  require(untouched_from(out, query_size), "nothing after the query");
  const std::string bytes(out.data(), length);
  require(bytes == expected.SerializeAsString(), "the expected bytes");
  check_decodes_to(bytes, url, mid, vk);
  return 0;
}
