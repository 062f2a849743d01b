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
  const char* parse = "whole";
  // What the parse left in the message, serialised again, where given: a
  // field is present from the moment its read starts, a message is added
  // before its bytes are read, and what arrived of a value stays.
  const char* kept = nullptr;
  int32_t capacity = 534;
};

std::string parsed(const std::string& bytes, resp::Response& response) {
  const linkward::ParseReport report = linkward::parse_answer(
      bytes.data(), static_cast<int>(bytes.size()), response);
  return report.fault == linkward::ParseFault::kNone ? "whole"
         : report.stopped ? "stops at " + std::to_string(report.offset)
                          : "reaches past at " + std::to_string(report.offset);
}

const std::string kLevel70 = "12 06 10 01 22 02 10 46";  // a result, code 5

std::vector<Answer> answers() {
  const auto hex = from_hex;
  // One result whose per-hash result has level 70 and, after it, `tail`.
  const auto level_70_then = [](const std::string& tail) {
    return nested(2, nested(4, from_hex("10 46") + tail));
  };
  const std::string mebibyte(1 << 20, 'x'), bnet = "code 8, bnet.info=";
  const std::string large_bnet = one_pair_answer(50, "bnet.info", mebibyte);
  return {
      // Refusals.
      {"an error, two results", hex("08 01 " + kLevel70 + kLevel70),
       "refused -3"},
      {"the last error code", hex("08 06"), "refused -3"},
      {"an error, then a cut", hex("08 02 12 0a 10"), "refused -3",
       "stops at 4"},
      {"a six-byte key", hex("88 80 80 80 80 00 05"), "refused -3"},
      {"no bytes", "", "refused -4"},
      {"no results", hex("08 00"), "refused -4"},
      {"nothing that parses", hex("ff ff"), "refused -4", "stops at 0"},
      {"pairs of its own", hex("08 00 1a 03 0a 01 6b"), "refused -4"},
      {"field 1 as bytes", hex("08 00 0a 05 01"), "refused -4", "stops at 2"},
      {"a tag of 0 first", hex("08 00 00 " + kLevel70), "refused -4",
       "stops at 2"},
      // The walk: an error code outside the enumeration (here in ten bytes)
      // reads as none; results without a per-hash result are passed over, a
      // result's own error code is not looked at, and the first per-hash
      // result decides; merged_result comes first, whatever its code, and is
      // there without a level too.
      {"ec out of range", hex("08 ff ff ff ff ff ff ff ff ff 01 " + kLevel70),
       "code 5", "whole", "12 06 10 01 22 02 10 46 08 ff ff ff ff 0f"},
      {"no error code", hex(kLevel70), "code 5"},
      {"passed over",
       hex("12 02 10 01 12 0a 08 01 22 02 10 46 22 02 10 00 12 04 22 02 10 32"),
       "code 5"},
      {"merged first", hex("12 08 22 02 10 46 1a 02 10 00"), "code 0"},
      {"merged, no level", hex("08 00 12 04 10 02 1a 00 " + kLevel70),
       "code 0"},
      {"no per-hash result", hex("12 02 10 01 12 05 2a 03 0a 01 6b"),
       "no record"},
      // Lengths that reach past the message holding them, at each level: what
      // follows is not the inner message's.
      {"a result", hex("08 00 12 7f 10 01 22 02 10 46"), "code 5",
       "reaches past at 2"},
      {"a per-hash result",
       hex("08 00 12 06 10 01 22 0f 10 00 42 0b 0a 09") + "bnet.info", "code 0",
       "reaches past at 6"},
      {"a pair",
       hex("08 00 12 16 10 01 22 0d 10 32 42 0c 0a 07") + "kx.info" +
           hex("12 03") + "sc=",
       "code 1", "reaches past at 10"},
      {"a leak count", hex("08 00 12 0c 10 01 22 08 10 46 4a 04 0a 05 08 01"),
       "code 5", "reaches past at 12"},
      // Values cut short keep the bytes that arrived; a key cut short is not
      // kx.info; an md5 cut short swallows the level after it.
      {"cut by the bytes",
       hex("08 00 12 7f 10 01 22 7f 10 32 42 7f 0a 07") + "kx.info" +
           hex("12 64") + "sc=101",
       "code 2, kx.info=sc=101", "stops at 21"},
      {"cut by its pair",
       hex("08 00 12 19 10 01 22 15 10 32 42 11 0a 07") + "kx.info" +
           hex("12 64") + "sc=101",
       "code 2, kx.info=sc=101", "stops at 21"},
      {"a key", hex("08 00 12 10 10 01 22 0c 10 32 42 08 0a 07") + "kx.inf",
       "code 1", "stops at 12"},
      {"an md5", hex("08 00 12 09 10 01 22 05 0a 10 61 10 46"), "code 0",
       "stops at 8", "08 00 12 09 10 01 22 05 0a 03 61 10 46"},
      {"a pair's key after the result", hex(kLevel70 + " 1a 04 0a 07 6b 78"),
       "code 5", "stops at 10"},
      {"a number", hex("08 00 " + kLevel70 + " 12 03 22 01 10"), "code 5",
       "stops at 14", "08 00 12 06 10 01 22 02 10 46 12 04 22 02 10 00"},
      {"an unknown field", hex("7a 05 61"), "refused -4", "stops at 0",
       "7a 05"},
      // Keys: ten bytes at most, the low 32 bits count.
      {"a ten-byte key",
       hex("08 00 12 0f 90 80 80 80 80 80 80 80 80 00 01 22 02 10 46"),
       "code 5"},
      {"an eleven-byte key",
       hex(kLevel70 + " 80 80 80 80 80 80 80 80 80 80 01"), "code 5",
       "stops at 8"},
      {"a key cut short", hex(kLevel70 + " 88"), "code 5", "stops at 8"},
      // A known number under a wire type not its own is kept aside: a level
      // as bytes, values as a number.
      {"wrong wire types", hex("08 00 12 09 10 01 22 05 12 01 46 40 00"),
       "code 0"},
      // Of a number, the low 32 bits count; a flag is set by any value; a
      // message that comes in parts is merged.
      {"a level of -1 in five bytes", hex("12 08 22 06 10 ff ff ff ff 0f"),
       "code 2", "whole", "12 0d 22 0b 10 ff ff ff ff ff ff ff ff ff 01"},
      {"a flag of 128", hex("12 09 22 07 10 00 4a 03 50 80 01"), "code 0",
       "whole", "12 08 22 06 10 00 4a 02 50 01"},
      {"a merged result in two parts",
       hex("12 0c 1a 04 10 3c 18 05 1a 04 28 0a 10 46"), "code 5", "whole",
       "12 08 1a 06 10 46 18 05 28 0a"},
      // Keys that end or stop a message: a tag of 0 ends a per-hash result
      // early, an end-group key stops one before its sub-type; a tag of 0 in
      // a pair stops the parse, and the next result is not read.
      {"a tag of 0", hex("08 00 12 07 10 01 22 03 00 10 46"), "code 0",
       "stops at 8"},
      {"an end-group key", hex("08 00 12 09 10 01 22 05 10 3c 0c 28 0a"),
       "code 2", "stops at 10"},
      {"wire type 6", hex(kLevel70 + " 0e 01"), "code 5", "stops at 8"},
      {"a tag of 0 in a pair", hex("08 00 12 04 2a 02 00 00 " + kLevel70),
       "no record", "stops at 6"},
      // Lengths a 32-bit count cannot hold: 2^31-1 bytes are read up to the
      // end, 2^32-1 are refused, and the message stays empty.
      {"2^31-1", hex("08 00 12 ff ff ff ff 07 10 01 22 02 10 46"), "code 5",
       "reaches past at 2"},
      {"2^32-1", hex("08 00 12 ff ff ff ff 0f 10 01 22 02 10 46"), "no record",
       "stops at 2", "08 00 12 00"},
      {"a value of 2^32-1",
       hex("08 00 12 17 10 01 22 13 10 32 42 0f 0a 07") + "kx.info" +
           hex("12 ff ff ff ff 0f"),
       "code 1", "stops at 21"},
      // Nesting: 100 levels are followed, the 101st stops the parse; a
      // per-hash result is two messages deep, with 98 levels left in it.
      {"100 deep", groups(100) + hex(kLevel70), "code 5"},
      {"101 deep", groups(101) + hex(kLevel70), "refused -4", "stops at 0"},
      {"98 deep inside", level_70_then(groups(98)), "code 5"},
      {"99 deep inside", level_70_then(groups(99)), "code 5", "stops at 8"},
      // Large answers: the first per-hash result counts however far in it
      // is; of a value only its first 511 bytes; 534 bytes hold the longest
      // record, and a smaller capacity cuts it.
      {"20,000 results first", crowded_answer(),
       "code 7, kx.info=sc=110|ssc=11011"},
      {"a member past 511 bytes",
       one_pair_answer(50, "kx.info", mebibyte + "|sc=101"),
       "code 1, kx.info=" + mebibyte.substr(0, 511)},
      {"1 MiB of bnet.info", large_bnet, bnet + mebibyte.substr(0, 511)},
      {"in 533 bytes", large_bnet,
       bnet + mebibyte.substr(0, 510) + " (cut from 521)", "whole", nullptr,
       533},
  };
}

TEST(Answer, WhatTheCallerIsTold) {
  for (const Answer& a : answers()) {
    const Outcome o = parse(a.bytes, a.capacity);
    resp::Response response;
    EXPECT_EQ(broken_promise(o), "") << a.what;
    EXPECT_EQ(told(o), a.told) << a.what;
    EXPECT_EQ(parsed(a.bytes, response), a.parse) << a.what;
    if (a.kept) {
      EXPECT_EQ(to_hex(response.SerializePartialAsString()), a.kept) << a.what;
    }
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

}  // namespace
