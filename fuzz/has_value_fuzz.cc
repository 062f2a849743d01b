// has_value on fuzzed lists and tokens, against plain membership in the
// "|"-separated list, where the empty token is a member of a list that has
// an empty member; and the verdict's own pass over the list against
// has_value.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kx_response.pb.h"
#include "wire.h"

namespace {

// The verdict finds its tokens in the list (cut at 511 bytes, as every value)
// in one pass of its own: its codes are those of the decision table asking
// has_value.
void verdict_agrees(const std::string& list) {
  const std::string kx = list.substr(0, 511);
  const auto in = [&kx](const char* token) {
    return has_value(kx.c_str(), token) == 1;
  };
  // Level 60: "sc=110" and then the first sub-code, or the second.
  const auto level_60 = [&](const char* first, const char* second,
                            int32_t otherwise) {
    return !in("sc=110") ? otherwise
           : in(first)   ? 6
           : in(second)  ? 7
                         : otherwise;
  };
  const struct {
    int32_t level, sub_type, code;
  } rows[] = {{50, 0, in("sc=101") ? 2 : 1},
              {60, 10, level_60("ssc=11020", "ssc=11021", 3)},
              {60, 30, level_60("ssc=11012", "ssc=11011", 2)}};
  linkward::info::resp::MD5Result result;
  linkward::info::StringPair* pair = result.add_values();
  pair->set_key("kx.info");
  pair->set_value(list);
  for (const auto& row : rows) {
    result.set_level(row.level);
    result.set_sub_type(row.sub_type);
    char record[LINKWARD_RECORD_SIZE];
    parser_one_result(result, record, sizeof record);
    int32_t code;
    std::memcpy(&code, record, sizeof code);
    require(code == row.code, "the verdict agrees with has_value");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  // Both are texts: the library reads them up to their first NUL.
  const std::string token = input.ConsumeRandomLengthString(40).c_str();
  const std::string list = input.ConsumeRemainingBytesAsString().c_str();
  verdict_agrees(list);
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
