// Answer bytes from the network into parser_proto_response. The first two
// bytes of the input choose the buffer's capacity (12 to 640), the rest is the
// answer. Whatever the bytes, the call returns one of its documented codes and
// writes nothing but the record, its text cut inside the capacity.
#include <cstdint>
#include <string>

#include "wire.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const int32_t capacity = 12 + (data[0] << 8 | data[1]) % 629;
  // libFuzzer's input is an allocation of its own size: reading past it stops.
  const std::string broken =
      broken_promise(parse(data + 2, static_cast<int32_t>(size - 2), capacity));
  require(broken.empty(), broken.c_str());
  return 0;
}
