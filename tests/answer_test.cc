// The answer: the refusals, the walk to the first per-hash result, and
// answers cut short or malformed, whose record holds what arrived before the
// fault, read the classic way (a nested message never reads past the one
// holding it, a value cut short keeps the bytes that came, a tag may take
// ten bytes); the parse names the first fault's byte.
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "kx_response.pb.h"
#include "message_parse.h"
#include "wire.h"

namespace resp = linkward::info::resp;

namespace {

struct Answer {
  std::string bytes;
  std::string told;  // what the caller is told
  // "whole", "stops at N" (the field where the parse stopped) or "reaches
  // past at N" (where a length first reached too far, the parse reading on).
  const char* parse = "whole";
  // What the parse left in the message, serialised again, where given.
  const char* kept = nullptr;
  int32_t capacity = 534;
};

std::string parsed(const std::string& bytes, resp::Response& response) {
  const linkward::ParseReport report = linkward::parse_message(
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
      // Refusals: a service error, with results, as the last code, or read
      // before a cut; no bytes, no results, nothing that parses, pairs of the
      // answer's own, field 1 as bytes, a tag of 0 before the results.
      {hex("08 06 " + kLevel70 + kLevel70), "refused -3"},
      {hex("08 02 12 0a 10"), "refused -3", "stops at 4"},
      {"", "refused -4"},
      {hex("08 00"), "refused -4"},
      {hex("ff ff"), "refused -4", "stops at 0"},
      {hex("08 00 1a 03 0a 01 6b"), "refused -4"},
      {hex("08 00 0a 05 01"), "refused -4", "stops at 2"},
      {hex("08 00 00 " + kLevel70), "refused -4", "stops at 2"},
      // The walk: an error code outside the enumeration (here in ten bytes)
      // reads as none; results without a per-hash result are passed over, a
      // result's own error code is not looked at, and the first per-hash
      // result decides; merged_result comes first, whatever its code, and is
      // there without a level too.
      {hex("08 ff ff ff ff ff ff ff ff ff 01 " + kLevel70), "code 5", "whole",
       "12 06 10 01 22 02 10 46 08 ff ff ff ff 0f"},
      {hex(kLevel70), "code 5"},
      {hex("12 02 10 01 12 0a 08 01 22 02 10 46 22 02 10 00 12 04 22 02 10 32"),
       "code 5"},
      {hex("12 08 22 02 10 46 1a 02 10 00"), "code 0"},
      {hex("08 00 12 04 10 02 1a 00 " + kLevel70), "code 0"},
      {hex("12 02 10 01 12 05 2a 03 0a 01 6b"), "no record"},
      // Lengths that reach past the message holding them, at each level (a
      // result's below, at 2^31-1): what follows is not the inner message's.
      {hex("08 00 12 06 10 01 22 0f 10 00 42 0b 0a 09") + "bnet.info", "code 0",
       "reaches past at 6"},
      {hex("08 00 12 16 10 01 22 0d 10 32 42 0c 0a 07") + "kx.info" +
           hex("12 03") + "sc=",
       "code 1", "reaches past at 10"},
      {hex("08 00 12 0c 10 01 22 08 10 46 4a 04 0a 05 08 01"), "code 5",
       "reaches past at 12"},
      // Values cut short keep the bytes that arrived, cut by the end of the
      // bytes or of their pair; a key cut short is not kx.info; an md5 cut
      // short swallows the level after it; a number and an unknown field cut.
      {hex("08 00 12 7f 10 01 22 7f 10 32 42 7f 0a 07") + "kx.info" +
           hex("12 64") + "sc=101",
       "code 2, kx.info=sc=101", "stops at 21"},
      {hex("08 00 12 19 10 01 22 15 10 32 42 11 0a 07") + "kx.info" +
           hex("12 64") + "sc=101",
       "code 2, kx.info=sc=101", "stops at 21"},
      {hex("08 00 12 10 10 01 22 0c 10 32 42 08 0a 07") + "kx.inf", "code 1",
       "stops at 12"},
      {hex("08 00 12 09 10 01 22 05 0a 10 61 10 46"), "code 0", "stops at 8",
       "08 00 12 09 10 01 22 05 0a 03 61 10 46"},
      {hex("08 00 " + kLevel70 + " 12 03 22 01 10"), "code 5", "stops at 14",
       "08 00 12 06 10 01 22 02 10 46 12 04 22 02 10 00"},
      {hex("7a 05 61"), "refused -4", "stops at 0", "7a 05"},
      // Keys: ten bytes at most (a result's id under ten, then eleven), the
      // low 32 bits count; a key cut short.
      {hex("08 00 12 0f 90 80 80 80 80 80 80 80 80 00 01 22 02 10 46"),
       "code 5"},
      {hex(kLevel70 + " 80 80 80 80 80 80 80 80 80 80 01"), "code 5",
       "stops at 8"},
      {hex(kLevel70 + " 88"), "code 5", "stops at 8"},
      // An unknown number keeps all its bits, an unknown fixed64 and fixed32
      // their eight and four bytes.
      {hex("08 00 78 ff ff ff ff ff ff ff ff ff 01"), "refused -4", "whole",
       "08 00 78 ff ff ff ff ff ff ff ff ff 01"},
      {hex("08 00 79 01 02 03 04 05 06 07 08 7d 01 02 03 04"), "refused -4",
       "whole", "08 00 79 01 02 03 04 05 06 07 08 7d 01 02 03 04"},
      // A known number under a wire type not its own is kept aside: a level
      // as bytes, values as a number.
      {hex("08 00 12 09 10 01 22 05 12 01 46 40 00"), "code 0"},
      // Of a number (a level of -1 in five bytes), the low 32 bits count; a
      // flag is set by any value (256 here); a message that comes in parts is
      // merged.
      {hex("12 08 22 06 10 ff ff ff ff 0f"), "code 2", "whole",
       "12 0d 22 0b 10 ff ff ff ff ff ff ff ff ff 01"},
      {hex("12 09 22 07 10 00 4a 03 50 80 02"), "code 0", "whole",
       "12 08 22 06 10 00 4a 02 50 01"},
      {hex("12 0c 1a 04 10 3c 18 05 1a 04 28 0a 10 46"), "code 5", "whole",
       "12 08 1a 06 10 46 18 05 28 0a"},
      // Keys that end or stop a message: a tag of 0 ends a per-hash result
      // early, an end-group key stops one before its sub-type, as does wire
      // type 6; a tag of 0 in a pair stops the parse, and the next result is
      // not read.
      {hex("08 00 12 07 10 01 22 03 00 10 46"), "code 0", "stops at 8"},
      {hex("08 00 12 09 10 01 22 05 10 3c 0c 28 0a"), "code 2", "stops at 10"},
      {hex(kLevel70 + " 0e 01"), "code 5", "stops at 8"},
      {hex("08 00 12 04 2a 02 00 00 " + kLevel70), "no record", "stops at 6"},
      // Lengths a 32-bit count cannot hold: 2^31-1 bytes are read up to the
      // end, 2^32-1 are refused, and the message (a result, a value) stays
      // empty.
      {hex("08 00 12 ff ff ff ff 07 10 01 22 02 10 46"), "code 5",
       "reaches past at 2"},
      {hex("08 00 12 ff ff ff ff 0f 10 01 22 02 10 46"), "no record",
       "stops at 2", "08 00 12 00"},
      {hex("08 00 12 1d 10 01 22 19 10 32 42 15 0a 07") + "kx.info" +
           hex("12 ff ff ff ff 0f") + "sc=101",
       "code 1", "stops at 21"},
      // Nesting: 100 levels are followed, the 101st stops the parse; a
      // per-hash result is two messages deep, with 98 levels left in it.
      {groups(100) + hex(kLevel70), "code 5"},
      {groups(101) + hex(kLevel70), "refused -4", "stops at 0"},
      {level_70_then(groups(98)), "code 5"},
      {level_70_then(groups(99)), "code 5", "stops at 8"},
      // Large answers: the first per-hash result counts however far in it
      // is (after 20,000 results); of a value only its first 511 bytes; 534
      // bytes hold the longest record, the head alone none of its text.
      {crowded_answer(), "code 7, kx.info=sc=110|ssc=11011"},
      {large_bnet, bnet + mebibyte.substr(0, 511)},
      {large_bnet, "code 8 (cut from 521)", "whole", nullptr, 12},
  };
}

TEST(Answer, WhatTheCallerIsTold) {
  const std::vector<Answer> rows = answers();
  for (size_t row = 0; row < rows.size(); ++row) {
    const Answer& a = rows[row];
    SCOPED_TRACE("row " + std::to_string(row));
    const Outcome o = parse(a.bytes, a.capacity);
    resp::Response response;
    EXPECT_EQ(broken_promise(o), "");
    EXPECT_EQ(told(o), a.told);
    EXPECT_EQ(parsed(a.bytes, response), a.parse);
    if (a.kept) {
      EXPECT_EQ(to_hex(response.SerializePartialAsString()), a.kept);
    }
  }
}

// A tag of 0 ends an answer early: a whole-message parse from an array or a
// zero-copy stream fails, a merge from a coded stream does not, and each
// keeps what came before it. The streams come in pieces of 17 bytes.
TEST(Answer, ZeroTagThroughEachWayIn) {
  using google::protobuf::io::ArrayInputStream;
  const std::string in = typical_answer() + from_hex("00 " + kLevel70);
  resp::Response array, pieces, merged;
  EXPECT_FALSE(
      resp::Response().ParseFromString(from_hex("08 00 00 12 02 10 01")));
  EXPECT_FALSE(array.ParsePartialFromArray(in.data(), in.size()));
  ArrayInputStream stream(in.data(), in.size(), 17),
      again(in.data(), in.size(), 17);
  EXPECT_FALSE(pieces.ParsePartialFromZeroCopyStream(&stream));
  google::protobuf::io::CodedInputStream coded(&again);
  EXPECT_TRUE(merged.MergePartialFromCodedStream(&coded));
  for (const resp::Response* m : {&array, &pieces, &merged})
    EXPECT_EQ(m->SerializePartialAsString(), typical_answer());
}

TEST(Answer, RefusesNullPointersWithoutWriting) {
  std::vector<char> out(16, kGuard);
  int32_t length = kUnsetLength;
  const std::string in = typical_answer();
  for (int null = 0; null < 3; ++null)
    EXPECT_EQ(parser_proto_response(null == 0 ? nullptr : out.data(),
                                    null == 1 ? nullptr : &length, 16,
                                    null == 2 ? nullptr : in.data(), 41),
              -1);
  EXPECT_TRUE(length == kUnsetLength && untouched_from(out));
}

}  // namespace
