// The answer: the refusals, the walk to the first per-hash result, and
// answers cut short or malformed, whose record holds what arrived before the
// fault, read the classic way (a nested message never reads past the one
// holding it, a value cut short keeps the bytes that came, a tag may take
// ten bytes); the parse names the first fault's byte.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "answer_parse.h"
#include "wire.h"

namespace resp = linkward::info::resp;

namespace {

struct Answer {
  const char* what;
  std::string bytes;
  std::string told;  // what the caller is told
  // "whole"; or "stops at N", N the byte of the field where the parse
  // stopped; or "reaches past at N", N where a message's length first
  // reached past the message holding it or the bytes, the parse reading on.
  const char* parse;
  int32_t capacity = 534;
};

std::string parsed(const std::string& bytes) {
  resp::Response response;
  const linkward::ParseReport report = linkward::parse_answer(
      bytes.data(), static_cast<int>(bytes.size()), response);
  return report.fault == linkward::ParseFault::kNone ? "whole"
         : report.stopped ? "stops at " + std::to_string(report.offset)
                          : "reaches past at " + std::to_string(report.offset);
}

// One result whose per-hash result has level 70 and, after it, `tail`
// among its unknown fields.
std::string level_70_then(const std::string& tail) {
  resp::Response response;
  resp::MD5Result* md5_result = response.add_results()->add_md5_results();
  md5_result->set_level(70);
  md5_result->mutable_unknown_fields()->append(tail);
  return response.SerializePartialAsString();
}

const std::string kLevel70 = "12 06 10 01 22 02 10 46";  // a result, code 5

std::vector<Answer> answers() {
  const auto hex = from_hex;
  const std::string mebibyte(1 << 20, 'x'), bnet = "code 8, bnet.info=";
  const std::string large_bnet = one_pair_answer(50, "bnet.info", mebibyte);
  return {
      // Refusals.
      {"a service error, however many results",
       hex("08 01 " + kLevel70 + kLevel70), "refused -3", "whole"},
      {"kPCSlimitError", hex("08 06"), "refused -3", "whole"},
      {"an error code read before a cut", hex("08 02 12 0a 10"), "refused -3",
       "stops at 4"},
      {"the error code's key in six bytes", hex("88 80 80 80 80 00 05"),
       "refused -3", "whole"},
      {"no bytes", "", "refused -4", "whole"},
      {"no results", hex("08 00"), "refused -4", "whole"},
      {"nothing that parses", hex("ff ff"), "refused -4", "stops at 0"},
      {"pairs of the answer's own, no result", hex("08 00 1a 03 0a 01 6b"),
       "refused -4", "whole"},
      {"a field of no result", hex("08 00 0a 05 01"), "refused -4",
       "stops at 2"},
      {"a tag of 0 ends the answer before its results",
       hex("08 00 00 " + kLevel70), "refused -4", "stops at 2"},
      // The walk.
      {"an error code outside the enumeration reads as none",
       hex("08 09 " + kLevel70), "code 5", "whole"},
      {"in ten bytes", hex("08 ff ff ff ff ff ff ff ff ff 01 " + kLevel70),
       "code 5", "whole"},
      {"no error code", hex(kLevel70), "code 5", "whole"},
      {"results without a per-hash result are passed over; a result's own "
       "error code is not looked at",
       hex("12 02 10 01 12 0a 08 01 22 02 10 46 22 02 10 00 12 04 22 02 10 32"),
       "code 5", "whole"},
      {"merged_result before md5_results, whatever its code",
       hex("12 08 22 02 10 46 1a 02 10 00"), "code 0", "whole"},
      {"a merged_result without a level is there all the same",
       hex("08 00 12 04 10 02 1a 00 " + kLevel70), "code 0", "whole"},
      {"no result holds a per-hash result",
       hex("12 02 10 01 12 05 2a 03 0a 01 6b"), "no record", "whole"},
      // Lengths that reach past the message holding them, at each level.
      {"a result past the bytes", hex("08 00 12 7f 10 01 22 02 10 46"),
       "code 5", "reaches past at 2"},
      {"a per-hash result past its result: the pair after is not its own",
       hex("08 00 12 06 10 01 22 0f 10 00 42 0b 0a 09") + "bnet.info", "code 0",
       "reaches past at 6"},
      {"a pair past its per-hash result: the value after is not its own",
       hex("08 00 12 16 10 01 22 0d 10 32 42 0c 0a 07") + "kx.info" +
           hex("12 03") + "sc=",
       "code 1", "reaches past at 10"},
      {"a leak count past its web-scan result",
       hex("08 00 12 0c 10 01 22 08 10 46 4a 04 0a 05 08 01"), "code 5",
       "reaches past at 12"},
      // Values cut short keep the bytes that arrived.
      {"a kx.info value cut by the end of the bytes",
       hex("08 00 12 7f 10 01 22 7f 10 32 42 7f 0a 07") + "kx.info" +
           hex("12 64") + "sc=101",
       "code 2, kx.info=sc=101", "stops at 21"},
      {"a kx.info value cut by the end of its pair",
       hex("08 00 12 19 10 01 22 15 10 32 42 11 0a 07") + "kx.info" +
           hex("12 64") + "sc=101",
       "code 2, kx.info=sc=101", "stops at 21"},
      {"a key cut short is not kx.info",
       hex("08 00 12 10 10 01 22 0c 10 32 42 08 0a 07") + "kx.inf", "code 1",
       "stops at 12"},
      {"an md5 cut short swallows the level after it",
       hex("08 00 12 09 10 01 22 05 0a 10 61 10 46"), "code 0", "stops at 8"},
      {"a key of the answer's own pairs cut after the result",
       hex(kLevel70 + " 1a 04 0a 07 6b 78"), "code 5", "stops at 10"},
      {"a number cut short", hex("08 00 " + kLevel70 + " 12 03 22 01 10"),
       "code 5", "stops at 14"},
      // Keys: ten bytes at most, the low 32 bits count.
      {"a result's id under a ten-byte key",
       hex("08 00 12 0f 90 80 80 80 80 80 80 80 80 00 01 22 02 10 46"),
       "code 5", "whole"},
      {"a key of eleven bytes ends the answer",
       hex(kLevel70 + " 80 80 80 80 80 80 80 80 80 80 01"), "code 5",
       "stops at 8"},
      {"a key cut short", hex(kLevel70 + " 88"), "code 5", "stops at 8"},
      // A known number under a wire type not its own is kept aside.
      {"a level as bytes, values as a number",
       hex("08 00 12 09 10 01 22 05 12 01 46 40 00"), "code 0", "whole"},
      // Keys that end or stop a message.
      {"a tag of 0 ends a per-hash result early",
       hex("08 00 12 07 10 01 22 03 00 10 46"), "code 0", "stops at 8"},
      {"an end-group key stops a per-hash result before its sub-type",
       hex("08 00 12 09 10 01 22 05 10 3c 0c 28 0a"), "code 2", "stops at 10"},
      {"a wire type that does not exist", hex(kLevel70 + " 0e 01"), "code 5",
       "stops at 8"},
      {"a tag of 0 in a pair stops the parse: the next result is not read",
       hex("08 00 12 04 2a 02 00 00 " + kLevel70), "no record", "stops at 6"},
      // Lengths a 32-bit count cannot hold.
      {"a result of 2^31-1 bytes is read up to the end",
       hex("08 00 12 ff ff ff ff 07 10 01 22 02 10 46"), "code 5",
       "reaches past at 2"},
      {"a result of 2^32-1 bytes is refused and stays empty",
       hex("08 00 12 ff ff ff ff 0f 10 01 22 02 10 46"), "no record",
       "stops at 2"},
      {"a result of 2^64-1 bytes is refused and stays empty",
       hex("08 00 12 ff ff ff ff ff ff ff ff ff 01 10 01 22 02 10 46"),
       "no record", "stops at 2"},
      {"a kx.info value of 2^32-1 bytes is negative and stays empty",
       hex("08 00 12 17 10 01 22 13 10 32 42 0f 0a 07") + "kx.info" +
           hex("12 ff ff ff ff 0f"),
       "code 1", "stops at 21"},
      // Nesting: 100 levels are followed, the 101st stops the parse.
      {"groups 100 deep before a result", groups(100) + hex(kLevel70), "code 5",
       "whole"},
      {"groups 101 deep before a result", groups(101) + hex(kLevel70),
       "refused -4", "stops at 0"},
      // A per-hash result is two messages deep: 98 levels are left in it.
      {"groups 98 deep after the level", level_70_then(groups(98)), "code 5",
       "whole"},
      {"groups 99 deep after the level", level_70_then(groups(99)), "code 5",
       "stops at 8"},
      // Large answers: the first per-hash result counts however far in it
      // is; of a value only its first 511 bytes; 534 bytes hold the longest
      // record, and a smaller capacity cuts it.
      {"20,000 results first", crowded_answer(),
       "code 7, kx.info=sc=110|ssc=11011", "whole"},
      {"a member past 511 bytes",
       one_pair_answer(50, "kx.info", mebibyte + "|sc=101"),
       "code 1, kx.info=" + mebibyte.substr(0, 511), "whole"},
      {"1 MiB of bnet.info", large_bnet, bnet + mebibyte.substr(0, 511),
       "whole"},
      {"in 533 bytes", large_bnet,
       bnet + mebibyte.substr(0, 510) + " (cut from 521)", "whole", 533},
      {"in the head alone", large_bnet, "code 8 (cut from 521)", "whole", 12},
  };
}

TEST(Answer, WhatTheCallerIsTold) {
  for (const Answer& a : answers()) {
    const Outcome o = parse(a.bytes, a.capacity);
    EXPECT_EQ(broken_promise(o), "") << a.what;
    EXPECT_EQ(told(o), a.told) << a.what;
    EXPECT_EQ(parsed(a.bytes), a.parse) << a.what;
  }
}

TEST(Answer, RefusesNullPointersWithoutWriting) {
  std::vector<char> buffer(16, kGuard);
  int32_t length = kUnsetLength;
  const std::string data = typical_answer();
  const int32_t size = static_cast<int32_t>(data.size());
  EXPECT_EQ(parser_proto_response(nullptr, &length, 16, data.data(), size), -1);
  EXPECT_EQ(
      parser_proto_response(buffer.data(), nullptr, 16, data.data(), size), -1);
  EXPECT_EQ(parser_proto_response(buffer.data(), &length, 16, nullptr, size),
            -1);
  EXPECT_TRUE(length == kUnsetLength && untouched_from(buffer));
}

// A negative size is a caller's error no answer can cause: it stops on the
// runtime's fatal check before a byte is read.
TEST(AnswerDeathTest, NegativeSizeStopsOnTheRuntimeCheck) {
  const std::string answer = typical_answer();
  for (int32_t size : {-1, INT32_MIN})
    EXPECT_DEATH(uncaught([&] { parse(answer.data(), size); }),
                 "CHECK failed: \\(size\\) >= \\(0\\)")
        << size;
}

// The message a parse leaves, serialised again: a field is present from the
// moment its read starts, a message is added before its bytes are read, and
// what arrived of a value or of an unknown field stays.
TEST(Answer, WhatAPartialParseKeeps) {
  const struct {
    const char* what;
    const char* bytes;
    const char* kept;
  } cases[] = {
      {"an error code outside its enumeration, in ten bytes",
       "08 ff ff ff ff ff ff ff ff ff 01", "08 ff ff ff ff 0f"},
      {"a level cut short", "12 03 22 01 10", "12 04 22 02 10 00"},
      {"a level's low 32 bits", "12 08 22 06 10 ff ff ff ff 0f",
       "12 0d 22 0b 10 ff ff ff ff ff ff ff ff ff 01"},
      {"an md5 cut short", "12 05 22 03 0a 05 61", "12 05 22 03 0a 01 61"},
      {"a result whose length is refused", "12 ff ff ff ff 0f", "12 00"},
      {"an unknown field cut short", "7a 05 61", "7a 05"},
      {"a flag in two bytes", "12 09 22 07 10 00 4a 03 50 80 01",
       "12 08 22 06 10 00 4a 02 50 01"},
      {"a merged result in two parts", "12 0a 1a 02 10 3c 1a 04 28 0a 10 46",
       "12 06 1a 04 10 46 28 0a"},
  };
  for (const auto& c : cases) {
    const std::string bytes = from_hex(c.bytes);
    resp::Response response;
    linkward::parse_answer(bytes.data(), static_cast<int>(bytes.size()),
                           response);
    EXPECT_EQ(to_hex(response.SerializePartialAsString()), c.kept) << c.what;
  }
}

// Every cut of the typical answer (a result, id 1, whose per-hash result has
// level 60, sub-type 10 and the list "sc=110|ssc=11021"): byte 2 is the
// result's key, 6 the per-hash result's, 9 the level, 11 the sub-type, 14 to
// 22 the pair's key, 23 the value's key, 24 its length, 25 on the list.
TEST(Answer, EveryCutOfTheTypicalAnswer) {
  const std::string answer = typical_answer();
  for (size_t cut = 0; cut <= answer.size(); ++cut) {
    const Outcome o = parse(answer.substr(0, cut));
    EXPECT_EQ(broken_promise(o), "") << cut;
    // No result yet; then a result without a per-hash result; then level 0
    // until it arrives, sub-type 0 until it arrives, no list until its
    // first byte, then the list as far as it came.
    const int code = cut < 10 ? 0 : cut < 12 ? 2 : cut < answer.size() ? 3 : 7;
    const std::string record =
        "code " + std::to_string(code) +
        (cut < 26 ? "" : ", kx.info=" + answer.substr(25, cut - 25));
    EXPECT_EQ(told(o), cut < 3   ? "refused -4"
                       : cut < 7 ? "no record"
                                 : record)
        << cut;
  }
}

}  // namespace
