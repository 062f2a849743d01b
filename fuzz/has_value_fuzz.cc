// has_value on fuzzed lists and tokens, against plain membership in the
// "|"-separated list, where the empty token is a member of a list that has
// an empty member.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <string>
#include <vector>

#include "wire.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  // Both are texts: the library reads them up to their first NUL.
  const std::string token = input.ConsumeRandomLengthString(40).c_str();
  const std::string list = input.ConsumeRemainingBytesAsString().c_str();
  // A token holding "|" spans members, where the search's restart after a
  // whole false hit is the definition; the unit tests hold it.
  if (token.find('|') != std::string::npos) return 0;

  // Without a bar, the token is a member when "|token|" is in "|list|". Each
  // text is copied to an allocation of its own size, so that reading past its
  // NUL is caught.
  const bool member =
      ("|" + list + "|").find("|" + token + "|") != std::string::npos;
  const std::vector<char> l(list.c_str(), list.c_str() + list.size() + 1),
      t(token.c_str(), token.c_str() + token.size() + 1);
  require(has_value(l.data(), t.data()) == member,
          "has_value agrees with plain membership");
  return 0;
}
