// Any bytes into the library's answer parse and into the runtime's own. The
// two differ on cut and malformed bytes by design, so only one direction is
// promised: where the runtime reads the bytes whole, the library does too,
// and both messages serialise to the same bytes.
#include <cstdint>

#include "answer_parse.h"
#include "wire.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const int length = static_cast<int>(size);
  linkward::info::resp::Response ours, runtimes;
  const linkward::ParseReport parse =
      linkward::parse_message(data, length, ours);
  if (!runtimes.ParsePartialFromArray(data, length)) return 0;
  require(parse.fault == linkward::ParseFault::kNone &&
              ours.SerializePartialAsString() ==
                  runtimes.SerializePartialAsString(),
          "what the runtime reads whole, the library reads alike");
  return 0;
}
