// The verdict of one per-hash result: token membership, the decision table
// and the record in the caller's buffer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "kx_response.pb.h"
#include "linkward.h"
#include "wire.h"

namespace resp = linkward::info::resp;

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

resp::MD5Result make_result(int32_t level, int32_t sub_type,
                            const Pairs& values = {}) {
  resp::MD5Result result;
  result.set_level(level);
  result.set_sub_type(sub_type);
  for (const auto& [key, value] : values) {
    auto* pair = result.add_values();
    pair->set_key(key);
    pair->set_value(value);
  }
  return result;
}

struct Record {
  int length;
  int32_t code, level, sub_type;
  std::string text;  // up to its NUL, when one was written
  std::vector<char> buffer;
};

Record classify(const resp::MD5Result& result, int capacity = 534) {
  Record r{};
  r.buffer.assign(capacity, kGuard);
  r.length = parser_one_result(result, r.buffer.data(), capacity);
  std::memcpy(&r.code, r.buffer.data(), 4);
  std::memcpy(&r.level, r.buffer.data() + 4, 4);
  std::memcpy(&r.sub_type, r.buffer.data() + 8, 4);
  if (r.length > 12 && capacity > 12) r.text = r.buffer.data() + 12;
  return r;
}

int32_t code_of(int32_t level, int32_t sub_type, const std::string& kx) {
  return classify(make_result(level, sub_type, {{"kx.info", kx}})).code;
}

TEST(HasValue, MatchesWholeMembersOnly) {
  struct Case {
    const char* list;
    const char* token;
    int expected;
  } cases[] = {
      {"a", "a", 1},
      {"ba|a", "a", 1},
      {"ab|ba", "a", 0},
      {"|a|", "a", 1},
      {"", "a", 0},
      {"ssc=11020", "sc=110", 0},
      {"sc=1101", "sc=110", 0},
      {"ssc=11020|sc=110", "sc=110", 1},
      {"sc=110|ssc=11020", "sc=110", 1},
      {"a| sc=110", "sc=110", 0},
      {"SC=110", "sc=110", 0},
      {"aa|a", "aa", 1},
      // The search resumes after a whole false hit: "aaa" is found at 0
      // (not a member), then at 3, where it is.
      {"aaaa|aaa", "aaa", 1},
      {"xaaaa", "aa", 0},
  };
  for (const Case& c : cases)
    EXPECT_EQ(has_value(c.list, c.token), c.expected)
        << c.list << " / " << c.token;
  EXPECT_EQ(has_value(nullptr, "a"), 0);
  EXPECT_EQ(has_value("a", nullptr), 0);
  EXPECT_EQ(has_value("", ""), 1);
  EXPECT_EQ(has_value("|a", ""), 1);
}

TEST(Verdict, DecisionTable) {
  struct Row {
    int32_t level, sub_type;
    const char* kx;
    int32_t code;
  } rows[] = {
      {0, 0, "", 0},
      {0, 77, "sc=101", 0},
      {50, 0, "", 1},
      {50, 0, "sc=101", 2},
      {50, 0, "xsc=101", 1},
      {50, 3, "a|sc=101|b", 2},
      {49, 0, "", 2},
      {1, 0, "", 2},
      {-1, 0, "", 2},
      {-2147483647 - 1, 0, "", 2},
      {51, 0, "", 2},
      {61, 10, "sc=110|ssc=11020", 2},
      {71, 0, "", 2},
      {70, 10, "sc=110|ssc=11020", 5},
      {70, 0, "", 5},
      {2147483647, 0, "", 2},
      // level 60, sub-type 10: 1102x sub-codes, falls back to 3
      {60, 10, "sc=110|ssc=11021", 7},
      {60, 10, "sc=110|ssc=11020|ssc=11021", 6},
      {60, 10, "ssc=11021|ssc=11020|sc=110", 6},
      {60, 10, "ssc=11020", 3},
      {60, 10, "sc=110", 3},
      {60, 10, "", 3},
      {60, 10, "sc=110|ssc=11012", 3},
      // level 60, sub-type 30: 1101x sub-codes, falls back to 2
      {60, 30, "sc=110|ssc=11011", 7},
      {60, 30, "sc=110|ssc=11011|ssc=11012", 6},
      {60, 30, "ssc=11012", 2},
      {60, 30, "sc=110", 2},
      {60, 30, "sc=110|ssc=11020", 2},
      {60, 20, "", 4},
      {60, 20, "sc=110|ssc=11020", 4},
      {60, 0, "sc=110|ssc=11020", 2},
      {60, 40, "", 2},
      {60, -10, "", 2},
  };
  for (const Row& row : rows)
    EXPECT_EQ(code_of(row.level, row.sub_type, row.kx), row.code)
        << row.level << "/" << row.sub_type << " " << row.kx;
}

TEST(Verdict, BnetInfoDecidesAndStopsTheScan) {
  Record r = classify(make_result(70, 20,
                                  {{"kx.info", "k1"},
                                   {"bnet.info", "first"},
                                   {"kx.info", "k2"},
                                   {"bnet.info", "second"}}));
  EXPECT_EQ(r.code, 8);
  EXPECT_EQ(r.level, 70);
  EXPECT_EQ(r.sub_type, 20);
  EXPECT_EQ(r.text, "bnet.info=first");
  EXPECT_EQ(r.length, 12 + 15);

  // An empty bnet value still gives 8; the kx text read before it is shown.
  r = classify(make_result(0, 0, {{"kx.info", "abc"}, {"bnet.info", ""}}));
  EXPECT_EQ(r.code, 8);
  EXPECT_EQ(r.text, "kx.info=abc");

  r = classify(make_result(0, 0, {{"bnet.info", ""}}));
  EXPECT_EQ(r.code, 8);
  EXPECT_EQ(r.length, 12);
}

TEST(Verdict, KeysMatchExactly) {
  for (const char* key :
       {"bnet.info ", "BNET.INFO", "bnet.infoo", "bnet.inf"}) {
    Record r = classify(make_result(0, 0, {{key, "x"}}));
    EXPECT_EQ(r.code, 0) << key;
    EXPECT_EQ(r.length, 12) << key;
  }
  resp::MD5Result nul_key = make_result(0, 0);
  auto* pair = nul_key.add_values();
  pair->set_key(std::string("bnet.info\0", 10));
  pair->set_value("x");
  EXPECT_EQ(classify(nul_key).code, 0);
}

TEST(Verdict, TheLastKxInfoIsTheList) {
  Record r = classify(make_result(60, 10,
                                  {{"kx.info", "sc=110|ssc=11020"},
                                   {"other", "sc=101"},
                                   {"kx.info", "sc=110|ssc=11021"}}));
  EXPECT_EQ(r.code, 7);
  EXPECT_EQ(r.text, "kx.info=sc=110|ssc=11021");

  // A later, shorter or empty value replaces the earlier one completely.
  r = classify(make_result(
      60, 10, {{"kx.info", "sc=110|ssc=11020"}, {"kx.info", "sc"}}));
  EXPECT_EQ(r.code, 3);
  EXPECT_EQ(r.text, "kx.info=sc");
  r = classify(make_result(50, 0, {{"kx.info", "sc=101"}, {"kx.info", ""}}));
  EXPECT_EQ(r.code, 1);
  EXPECT_EQ(r.length, 12);
}

TEST(Verdict, ValuesAreCutAtZeroByteAnd511Bytes) {
  Record r =
      classify(make_result(50, 0, {{"kx.info", std::string("ab\0sc=101", 9)}}));
  EXPECT_EQ(r.code, 1);
  EXPECT_EQ(r.text, "kx.info=ab");

  const std::string long_value = std::string(505, 'x') + "|sc=101";  // 512
  r = classify(make_result(50, 0, {{"kx.info", long_value}}));
  EXPECT_EQ(r.text, "kx.info=" + long_value.substr(0, 511));
  EXPECT_EQ(r.code, 1);  // the member was cut to "sc=10"
  EXPECT_EQ(r.length, 12 + 8 + 511);

  r = classify(make_result(0, 0, {{"bnet.info", std::string(600, 'b')}}));
  EXPECT_EQ(r.length, 12 + 10 + 511);
  EXPECT_EQ(r.text, "bnet.info=" + std::string(511, 'b'));
  EXPECT_EQ(r.buffer[533], '\0');
}

TEST(Record, HeadIsNativeAndNothingElseIsWrittenWithoutText) {
  resp::MD5Result empty;
  Record r = classify(empty);
  EXPECT_EQ(r.length, 12);
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.level, 0);
  EXPECT_EQ(r.sub_type, 0);
  EXPECT_TRUE(untouched_from(r.buffer, 12));

  r = classify(make_result(-5, 0x01020304));
  const unsigned char little_endian[] = {2,    0,    0, 0, 0xfb, 0xff,
                                         0xff, 0xff, 4, 3, 2,    1};
  EXPECT_EQ(std::memcmp(r.buffer.data(), little_endian, 12), 0);
}

TEST(Record, TextIsCutToTheBufferWhileTheLengthCountsAllOfIt) {
  const resp::MD5Result ten = make_result(0, 0, {{"kx.info", "0123456789"}});
  Record r = classify(ten, 20);
  EXPECT_EQ(r.length, 30);
  EXPECT_EQ(r.text, "kx.info");

  r = classify(ten, 12);
  EXPECT_EQ(r.length, 30);
  EXPECT_EQ(r.code, 0);

  r = classify(ten, 13);
  EXPECT_EQ(r.buffer[12], '\0');

  r = classify(ten, 30);  // one byte short of the NUL
  EXPECT_EQ(r.text, "kx.info=012345678");
  r = classify(ten, 31);
  EXPECT_EQ(r.text, "kx.info=0123456789");
}

// The record's text is held to snprintf's contract at every cut, inside the
// label included: as much as fits beside the NUL, nothing written after it,
// and the whole length counted.
TEST(Record, TextIsCutAsTheFormatterWouldCutIt) {
  for (const char* key : {"bnet.info", "kx.info"}) {
    const std::string text = std::string(key) + "=0123456789";
    for (size_t capacity = 12; capacity <= 12 + text.size() + 2; ++capacity) {
      const Record r =
          classify(make_result(0, 0, {{key, "0123456789"}}), capacity);
      std::vector<char> expected(capacity, kGuard);
      const int length = std::snprintf(expected.data() + 12, capacity - 12,
                                       "%s", text.c_str());
      EXPECT_EQ(r.length, 12 + length) << key << " " << capacity;
      EXPECT_TRUE(std::equal(expected.begin() + 12, expected.end(),
                             r.buffer.begin() + 12))
          << key << " " << capacity;
    }
  }
}

}  // namespace
