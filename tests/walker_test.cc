// The answer: refusals, the walk to the first per-hash result, and calls
// from several threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "answer.h"
#include "kx_response.pb.h"
#include "linkward.h"
#include "wire.h"

namespace resp = linkward::info::resp;

namespace {

// An answer and what the walk makes of it: the return value, the record's
// length (0 for none) and, when there is one, its code and level.
struct Walk {
  const char* what;
  std::string answer;
  int32_t rc, length = 0, code = 0, level = 0;
};

std::string answer_of(const std::function<void(resp::Response&)>& build) {
  resp::Response response;
  build(response);
  return response.SerializePartialAsString();
}

void add(resp::Result* result, int32_t level) {
  result->add_md5_results()->set_level(level);
}

TEST(Walker, WhichPerHashResultDecides) {
  const std::string level_70 = "12 06 10 01 22 02 10 46";
  const Walk walks[] = {
      {"a service error, however many results", answer_of([](auto& r) {
         r.set_ec(resp::Response::kNotFound);
         add(r.add_results(), 70);
         add(r.add_results(), 70);
       }),
       -3},
      {"kPCSlimitError", from_hex("08 06"), -3},
      {"an error code read before a cut", from_hex("08 02 12 0a 10"), -3},
      {"no bytes", "", -4},
      {"no results", from_hex("08 00"), -4},
      {"nothing that parses", from_hex("ff ff"), -4},
      {"a field of no result", from_hex("08 00 0a 05 01"), -4},
      {"an error code outside the enumeration reads as none",
       from_hex("08 09 " + level_70), 0, 12, 5, 70},
      {"in ten bytes", from_hex("08 ff ff ff ff ff ff ff ff ff 01 " + level_70),
       0, 12, 5, 70},
      {"no error code", from_hex(level_70), 0, 12, 5, 70},
      {"results without a per-hash result are passed over; a result's own "
       "error code is not looked at",
       answer_of([](auto& r) {
         r.add_results()->set_id(1);
         resp::Result* second = r.add_results();
         second->set_ec(resp::Result::kNotFound);
         add(second, 70);
         add(second, 0);
         add(r.add_results(), 50);
       }),
       0, 12, 5, 70},
      {"merged_result before md5_results, whatever its code",
       answer_of([](auto& r) {
         resp::Result* result = r.add_results();
         add(result, 70);
         result->mutable_merged_result()->set_level(0);
       }),
       0, 12, 0, 0},
      {"a merged_result without a level is there all the same",
       from_hex("08 00 12 04 10 02 1a 00 " + level_70), 0, 12, 0, 0},
      {"no result holds a per-hash result", answer_of([](auto& r) {
         r.add_results()->set_id(1);
         r.add_results()->add_exts()->set_key("k");
       }),
       0, 0},
  };
  for (const Walk& w : walks) {
    const Outcome o = parse(w.answer);
    EXPECT_EQ(broken_promise(o), "") << w.what;
    EXPECT_EQ(o.rc, w.rc) << w.what;
    if (w.rc != 0) continue;
    EXPECT_EQ(o.length, w.length) << w.what;
    if (w.length == 0) continue;
    EXPECT_EQ(o.code(), w.code) << w.what;
    EXPECT_EQ(o.level(), w.level) << w.what;
  }
}

TEST(Walker, RefusesNullPointersWithoutWriting) {
  char buffer[16];
  int32_t length = kUnsetLength;
  const char data[] = {0x08, 0x00};
  EXPECT_EQ(parser_proto_response(nullptr, &length, 16, data, 2), -1);
  EXPECT_EQ(parser_proto_response(buffer, nullptr, 16, data, 2), -1);
  EXPECT_EQ(parser_proto_response(buffer, &length, 16, nullptr, 2), -1);
  EXPECT_EQ(length, kUnsetLength);
}

TEST(Walker, TheRecordThroughTheCallersBuffer) {
  const std::string answer = typical_answer();
  for (int32_t capacity : {534, 36, 20, 12}) {
    const Outcome o = parse(answer, capacity);
    EXPECT_EQ(broken_promise(o), "") << capacity;
    EXPECT_EQ(o.rc, 0) << capacity;
    EXPECT_EQ(o.code(), 7) << capacity;
    EXPECT_EQ(o.length, 12 + 24) << capacity;
    EXPECT_EQ(o.text(), std::string("kx.info=sc=110|ssc=11021")
                            .substr(0, std::max(capacity - 13, 0)))
        << capacity;
  }
}

}  // namespace
