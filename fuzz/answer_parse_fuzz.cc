// Any bytes into the library's answer parse and into the runtime's own. The
// two differ on cut and malformed bytes by design, so only one direction is
// promised: where the runtime reads the bytes whole, the library does too,
// and both messages serialise to the same bytes. Where the library finds a
// fault, it says at which byte, inside the answer.
#include <cstdint>
#include <string>

#include "answer_parse.h"
#include "check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const int length = static_cast<int>(size);
  linkward::info::resp::Response ours;
  const linkward::ParseReport parse =
      linkward::parse_answer(data, length, ours);
  const bool whole = parse.fault == linkward::ParseFault::kNone;
  require(whole ? parse.offset == length && !parse.stopped
                : parse.offset >= 0 && parse.offset < length,
          "a parse is whole, or names a fault inside the bytes");

  linkward::info::resp::Response runtimes;
  if (!runtimes.ParsePartialFromArray(data, length)) return 0;
  require(whole, "what the runtime reads whole, the library does too");
  require(
      ours.SerializePartialAsString() == runtimes.SerializePartialAsString(),
      "both parses give the same message");
  return 0;
}
