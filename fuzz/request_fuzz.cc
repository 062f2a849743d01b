// create_proto_request with fuzzed URL, mid and vk bytes: the query written
// decodes through the generated classes, complete and in their own form, to
// one entity (id 0) and the caller's values.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <string>

#include "kx_request.pb.h"
#include "wire.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  // The URL and mid are texts: the library sees them up to their first NUL.
  const std::string url = input.ConsumeRandomLengthString(400).c_str();
  const std::string mid = input.ConsumeRandomLengthString(200).c_str();
  const std::string vk = input.ConsumeRemainingBytesAsString();

  const Query q =
      make_query(url, mid, vk, url.size() + mid.size() + vk.size() + 256);
  linkward::info::req::Request got;
  require(q.rc == 0 && got.ParseFromString(q.bytes) &&
              got.SerializeAsString() == q.bytes && got.urls_size() == 1 &&
              got.urls(0).has_id() && got.urls(0).id() == 0 &&
              got.urls(0).url().url() == url && got.mid() == mid &&
              got.vk() == vk,
          "the query decodes to one entity and the caller's values");
  return 0;
}
