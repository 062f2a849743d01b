// create_proto_request with fuzzed enable, capacity, URL, mid and vk bytes.
// A query written must decode through the generated classes to the caller's
// values, and come out the same whatever room and whatever enable but 0 it
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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const uint32_t enable = input.ConsumeIntegral<uint32_t>();
  // The capacity is either within 3 of the query's size, where the -2
  // boundary is, or anything at all, negative included.
  const bool near_size = input.ConsumeBool();
  const int32_t capacity_choice = input.ConsumeIntegral<int32_t>();
  // The URL and mid are texts: the library sees them up to their first NUL.
  const std::string url = input.ConsumeRandomLengthString(400).c_str();
  const std::string mid = input.ConsumeRandomLengthString(200).c_str();
  const bool null_vk_when_empty = input.ConsumeBool();
  const std::string vk = input.ConsumeRemainingBytesAsString();

  // Written with room to spare: the bytes any capacity must give.
  const size_t room = url.size() + mid.size() + vk.size() + 256;
  const Query whole = make_query(url, mid, vk, static_cast<int32_t>(room));
  linkward::info::req::Request got;
  require(whole.rc == 0 && got.ParseFromString(whole.bytes) &&
              got.SerializeAsString() == whole.bytes && got.urls_size() == 1,
          "the query is written, parses complete, and has one entity");
  const auto& entity = got.urls(0);
  require(got.mid() == mid && got.vk() == vk && entity.url().url() == url &&
              entity.has_id() && entity.id() == 0,
          "mid, vk and the URL as given, the entity's id 0");

  // The library may write only the query, so a buffer of the query's size
  // and a guard tail of 64 bytes stands for any larger capacity; an empty vk
  // may come as a null pointer.
  const int32_t capacity =
      near_size ? whole.length + capacity_choice % 4 : capacity_choice;
  std::vector<char> out(std::clamp(capacity, 0, whole.length) + 64, kGuard);
  int32_t length = kUnsetLength;
  const int32_t rc = create_proto_request(
      out.data(), &length, capacity, enable, url.c_str(), mid.c_str(),
      vk.empty() && null_vk_when_empty ? nullptr : vk.data(),
      static_cast<uint32_t>(vk.size()));
  if (enable == 0)
    require(rc == -1 && length == kUnsetLength && untouched_from(out),
            "enable 0 is refused and writes nothing");
  else if (capacity < whole.length)
    require(rc == -2 && length == kUnsetLength && untouched_from(out),
            "too little room is refused and writes nothing");
  else
    require(rc == 0 && length == whole.length &&
                untouched_from(out, whole.bytes.size()) &&
                std::string(out.data(), length) == whole.bytes,
            "any room that holds the query gets the same bytes");
  return 0;
}
