// The schema's top-level messages through the generated classes: parse,
// serialise, parse again, serialise again; the two serialisations must be
// equal. The first byte of the input chooses the message, the rest is parsed
// without the required-field check, since hostile bytes lack them as often as
// not. Bytes that fail to parse are serialised too, for memory safety, but
// promise no round trip: the runtime keeps what it read before the fault, and
// that may end in the start of a group whose end never came, which does not
// parse again.
#include <cstdint>
#include <string>

#include "check.h"
#include "kx_common.pb.h"
#include "kx_request.pb.h"
#include "kx_response.pb.h"

namespace {

template <typename Message>
void round_trip(const uint8_t* data, size_t size) {
  Message first;
  const bool parsed = first.ParsePartialFromArray(data, static_cast<int>(size));
  const std::string once = first.SerializePartialAsString();
  if (!parsed) return;
  Message second;
  require(second.ParsePartialFromString(once),
          "what was serialised parses again");
  require(second.SerializePartialAsString() == once,
          "the second serialisation equals the first");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const uint8_t choice = data[0];
  ++data;
  --size;
  switch (choice % 5) {
    case 0:
      round_trip<linkward::info::req::Request>(data, size);
      break;
    case 1:
      round_trip<linkward::info::resp::Response>(data, size);
      break;
    case 2:
      round_trip<linkward::info::StringPair>(data, size);
      break;
    case 3:
      round_trip<linkward::info::LeakCount>(data, size);
      break;
    case 4:
      round_trip<linkward::info::WebScanResult>(data, size);
      break;
  }
  return 0;
}
