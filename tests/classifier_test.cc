// The verdict of one per-hash result: token membership, the decision table,
// the scan of the pairs, and the record in the caller's buffer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "kx_response.pb.h"
#include "wire.h"

namespace {

using namespace std::string_literals;

// "key=value;key=value": the pairs in order, each split at its first '='.
linkward::info::resp::MD5Result make_result(int32_t level, int32_t sub_type,
                                            const std::string& pairs) {
  linkward::info::resp::MD5Result result;
  result.set_level(level);
  result.set_sub_type(sub_type);
  for (size_t at = 0; at < pairs.size();) {
    const size_t end = std::min(pairs.find(';', at), pairs.size());
    const size_t equals = pairs.find('=', at);
    auto* pair = result.add_values();
    pair->set_key(pairs.substr(at, equals - at));
    pair->set_value(pairs.substr(equals + 1, end - equals - 1));
    at = end + 1;
  }
  return result;
}

// The record parser_one_result writes into a guarded buffer of `capacity`.
Outcome classify(int32_t level, int32_t sub_type, const std::string& pairs,
                 int32_t capacity = 534) {
  Outcome o{0, 0, capacity, std::vector<char>(capacity + kGuardTail, kGuard)};
  o.length = parser_one_result(make_result(level, sub_type, pairs),
                               o.buffer.data(), capacity);
  return o;
}

TEST(HasValue, MatchesWholeMembersOnly) {
  const struct {
    const char *list, *token;
    int member;
  } cases[] = {
      {"a", "a", 1},
      {"ba|a", "a", 1},
      {"ssc=11020", "sc=110", 0},
      {"sc=1101", "sc=110", 0},
      // The search resumes after a whole false hit: "aaa" is found at 0
      // (not a member), then at 5, where it is.
      {"aaaa|aaa", "aaa", 1},
      {"xaaaa", "aa", 0},
      {"xa|a|a", "a|a", 0},  // the hit at 3 overlaps the false one at 1
      {nullptr, "a", 0},
      {"a", nullptr, 0},
      // The empty token is a member where the list has an empty one.
      {"", "", 1},
      {"|a", "", 1},
      {"a|", "", 1},
      {"a||b", "", 1},
      {"a|b", "", 0}};
  for (const auto& c : cases)
    EXPECT_EQ(has_value(c.list, c.token), c.member)
        << (c.list ? c.list : "null") << " / " << (c.token ? c.token : "null");
}

// The code and the record's text of one per-hash result, and its level and
// sub-type as received. The text is the pairs as written where the row gives
// none.
TEST(Verdict, DecisionTableAndPairs) {
  const std::string list = std::string(505, 'x') + "|sc=101";
  const struct {
    int32_t level, sub_type;
    std::string pairs;
    int32_t code;
    std::optional<std::string> text = {};
  } rows[] = {
      {0, 0, "", 0},
      {0, 77, "kx.info=sc=101", 0},
      {50, 0, "", 1},
      {50, 0, "kx.info=sc=101", 2},
      {50, 0, "kx.info=xsc=101", 1},
      {50, 3, "kx.info=a|sc=101|b", 2},
      {49, 0, "", 2},
      {-1, 0, "", 2},
      {51, 0, "", 2},
      {61, 10, "kx.info=sc=110|ssc=11020", 2},
      {71, 0, "", 2},
      {70, 10, "kx.info=sc=110|ssc=11020", 5},
      // Level 60, sub-type 10: the 1102x sub-codes, 11020 first, else 3.
      {60, 10, "kx.info=sc=110|ssc=11021", 7},
      {60, 10, "kx.info=ssc=11021|ssc=11020|sc=110", 6},
      {60, 10, "kx.info=ssc=11020", 3},
      {60, 10, "kx.info=sc=110", 3},
      {60, 10, "kx.info=sc=110|ssc=11012", 3},
      {60, 10, "kx.info=sc=1101|ssc=110201", 3},  // tokens as prefixes only
      // Level 60, sub-type 30: the 1101x sub-codes, 11012 first, else 2.
      {60, 30, "kx.info=sc=110|ssc=11011", 7},
      {60, 30, "kx.info=sc=110|ssc=11011|ssc=11012", 6},
      {60, 30, "kx.info=ssc=11012", 2},
      {60, 30, "kx.info=sc=110", 2},
      {60, 30, "kx.info=sc=110|ssc=11020", 2},
      {60, 20, "", 4},
      {60, 0, "kx.info=sc=110|ssc=11020", 2},
      {60, 40, "", 2},
      // The first bnet.info decides, whatever the level, and ends the scan.
      {70, 20, "kx.info=k1;bnet.info=first;kx.info=k2;bnet.info=second", 8,
       "bnet.info=first"},
      // An empty bnet.info value still decides; the list read before it is
      // the text, and no later one.
      {0, 0, "kx.info=abc;bnet.info=;kx.info=zzz", 8, "kx.info=abc"},
      {0, 0, "bnet.info=", 8, ""},
      // Keys match exactly.
      {0, 0, "bnet.info =x;BNET.INFO=x;bnet.infoo=x;bnet.inf=x;kx.inf=x", 0,
       ""},
      {50, 0, "kx.info=ab\0sc=101;bnet.info\0=x"s, 1, "kx.info=ab"},
      // The last kx.info is the list; a later, shorter or empty one
      // replaces an earlier one whole.
      {60, 10, "kx.info=sc=110|ssc=11020;other=sc=101;kx.info=sc=110|ssc=11021",
       7, "kx.info=sc=110|ssc=11021"},
      {60, 10, "kx.info=sc=110|ssc=11020;kx.info=sc", 3, "kx.info=sc"},
      {50, 0, "kx.info=sc=101;kx.info=", 1, ""},
      // A value counts up to 511 bytes: the member is cut to "sc=10".
      {50, 0, "kx.info=" + list, 1, "kx.info=" + list.substr(0, 511)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.level) + "/" +
                 std::to_string(row.sub_type) + " " + row.pairs);
    const Outcome o = classify(row.level, row.sub_type, row.pairs);
    const std::string text = row.text.value_or(row.pairs);
    EXPECT_EQ(broken_promise(o), "");
    EXPECT_EQ(told(o), "code " + std::to_string(row.code) +
                           (text.empty() ? "" : ", " + text));
    EXPECT_TRUE(o.head(1) == row.level && o.head(2) == row.sub_type);
  }
}

// The text is cut to the room left as snprintf cuts it, at every length,
// inside the label too: as much as fits beside the NUL, nothing after it,
// and the whole length counted.
TEST(Record, TextIsCutAsTheFormatterWouldCutIt) {
  for (const std::string text : {"bnet.info=0123456789", "kx.info=012345"}) {
    for (int32_t capacity = 12; capacity <= 14 + int32_t(text.size());
         ++capacity) {
      SCOPED_TRACE(text + " in " + std::to_string(capacity));
      const Outcome o = classify(0, 0, text, capacity);
      std::vector<char> expected(capacity + kGuardTail, kGuard);
      const int length = std::snprintf(expected.data() + 12, capacity - 12,
                                       "%s", text.c_str());
      EXPECT_EQ(o.length, 12 + length);
      EXPECT_TRUE(std::equal(expected.begin() + 12, expected.end(),
                             o.buffer.begin() + 12));
    }
  }
}

}  // namespace
