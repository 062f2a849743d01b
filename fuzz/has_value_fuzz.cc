// has_value on fuzzed lists and non-empty tokens, against a plain reference.
// An empty token is never given: the library documents that the call does
// not return for one, and no caller passes it.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "check.h"
#include "linkward.h"

namespace {

// Whether the token is one of the list's "|"-separated members.
bool is_member(const std::string& list, const std::string& token) {
  size_t start = 0;
  for (;;) {
    const size_t bar = list.find('|', start);
    if (list.substr(start, bar - start) == token) return true;
    if (bar == std::string::npos) return false;
    start = bar + 1;
  }
}

// A token that holds "|" spans members. The search then resumes after each
// whole hit that does not stand between separators, so a hit overlapping an
// earlier false one is never seen.
bool spans_members(const std::string& list, const std::string& token) {
  for (size_t hit = list.find(token); hit != std::string::npos;
       hit = list.find(token, hit + token.size())) {
    const size_t end = hit + token.size();
    if ((hit == 0 || list[hit - 1] == '|') &&
        (end == list.size() || list[end] == '|'))
      return true;
  }
  return false;
}

// A text in an allocation of its own size, so that reading past its NUL is
// caught.
std::unique_ptr<char[]> exact_copy(const std::string& text) {
  std::unique_ptr<char[]> copy(new char[text.size() + 1]);
  std::memcpy(copy.get(), text.c_str(), text.size() + 1);
  return copy;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  // Both are texts: the library reads them up to their first NUL.
  const std::string token = input.ConsumeRandomLengthString(40).c_str();
  const std::string list = input.ConsumeRemainingBytesAsString().c_str();
  if (token.empty()) return 0;

  const bool expected = token.find('|') == std::string::npos
                            ? is_member(list, token)
                            : spans_members(list, token);
  require(has_value(exact_copy(list).get(), exact_copy(token).get()) ==
              (expected ? 1 : 0),
          "has_value agrees with the reference");
  return 0;
}
