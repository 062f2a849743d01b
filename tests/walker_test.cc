// The answer: refusals, the walk to the first per-hash result, and calls
// from several threads.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "answer.h"
#include "kx_response.pb.h"
#include "linkward.h"
#include "wire.h"

namespace resp = linkward::info::resp;

namespace {

resp::MD5Result* add_md5_result(resp::Result* result, int32_t level) {
  resp::MD5Result* md5_result = result->add_md5_results();
  md5_result->set_level(level);
  return md5_result;
}

TEST(Walker, RefusesNullPointersWithoutWriting) {
  char buffer[16];
  int32_t length = -7;
  const char data[] = {0x08, 0x00};
  EXPECT_EQ(parser_proto_response(nullptr, &length, 16, data, 2), -1);
  EXPECT_EQ(parser_proto_response(buffer, nullptr, 16, data, 2), -1);
  EXPECT_EQ(parser_proto_response(buffer, &length, 16, nullptr, 2), -1);
  EXPECT_EQ(length, -7);
}

TEST(Walker, ServiceErrorsAndEmptyAnswers) {
  resp::Response response;
  response.set_ec(resp::Response::kNotFound);
  add_md5_result(response.add_results(), 70);
  add_md5_result(response.add_results(), 70);
  Outcome error = parse(response.SerializePartialAsString());
  EXPECT_EQ(error.rc, -3);
  EXPECT_EQ(error.length, -7);
  EXPECT_TRUE(error.untouched());

  for (const char* hex : {"", "08 00", "ff ff", "08 00 0a 05 01"}) {
    Outcome empty = parse(from_hex(hex));
    EXPECT_EQ(empty.rc, -4) << hex;
    EXPECT_EQ(empty.length, -7) << hex;
    EXPECT_TRUE(empty.untouched()) << hex;
  }

  // ec 6 is kPCSlimitError; a cut answer whose ec was read still counts.
  EXPECT_EQ(parse(from_hex("08 06")).rc, -3);
  EXPECT_EQ(parse(from_hex("08 02 12 0a 10")).rc, -3);
}

TEST(Walker, EcOutsideTheEnumerationOrAbsentReadsAsOk) {
  // One result, id 1, one md5_result at level 70.
  const std::string result = "12 06 10 01 22 02 10 46";
  for (const std::string& ec :
       {std::string(""), std::string("08 09 "),
        std::string("08 ff ff ff ff ff ff ff ff ff 01 ")}) {
    Outcome o = parse(from_hex(ec + result));
    EXPECT_EQ(o.rc, 0) << ec;
    EXPECT_EQ(o.length, 12) << ec;
    EXPECT_EQ(o.code(), 5) << ec;
  }
}

TEST(Walker, FirstPerHashResultDecides) {
  resp::Response response;
  response.add_results()->set_id(1);  // holds neither: passed over
  resp::Result* second = response.add_results();
  second->set_ec(resp::Result::kNotFound);  // not consulted
  add_md5_result(second, 70);
  add_md5_result(second, 0);
  add_md5_result(response.add_results(), 50);
  Outcome o = parse(response.SerializePartialAsString());
  EXPECT_EQ(o.rc, 0);
  EXPECT_EQ(o.length, 12);
  EXPECT_EQ(o.code(), 5);

  // merged_result comes before md5_results, whatever its code.
  second->mutable_merged_result()->set_level(0);
  o = parse(response.SerializePartialAsString());
  EXPECT_EQ(o.code(), 0);
  EXPECT_EQ(o.level(), 0);

  // A merged_result on the wire without level is present all the same.
  second->clear_merged_result();
  std::string answer = response.SerializePartialAsString();
  o = parse(from_hex("08 00 12 04 10 02 1a 00") + answer);
  EXPECT_EQ(o.code(), 0);
}

TEST(Walker, NoPerHashResultLeavesTheBufferAndReportsZeroLength) {
  resp::Response response;
  response.add_results()->set_id(1);
  response.add_results()->add_exts()->set_key("k");
  Outcome o = parse(response.SerializePartialAsString());
  EXPECT_EQ(o.rc, 0);
  EXPECT_EQ(o.length, 0);
  EXPECT_TRUE(o.untouched());
}

TEST(Walker, HandWrittenAnswerWithTextAndSmallBuffer) {
  const std::string answer = typical_answer();
  Outcome o = parse(answer);
  EXPECT_EQ(o.rc, 0);
  EXPECT_EQ(o.code(), 7);
  EXPECT_EQ(o.length, 12 + 24);
  EXPECT_STREQ(o.buffer.data() + 12, "kx.info=sc=110|ssc=11021");

  Outcome cut = parse(answer, 20);
  EXPECT_EQ(cut.rc, 0);
  EXPECT_EQ(cut.length, 36);
  EXPECT_STREQ(cut.buffer.data() + 12, "kx.info");
}

TEST(Walker, ThreadsGetTheSameResultsAsOneThread) {
  std::vector<std::string> answers;
  for (int level : {0, 50, 60, 70, 99}) {
    resp::Response response;
    resp::MD5Result* result = add_md5_result(response.add_results(), level);
    result->set_sub_type(10);
    auto* pair = result->add_values();
    pair->set_key(level == 99 ? "bnet.info" : "kx.info");
    pair->set_value("sc=110|ssc=11021|" + std::to_string(level));
    answers.push_back(response.SerializePartialAsString());
  }
  const std::string url = "http://example.com/path";

  const auto run_all = [&]() {
    std::string out;
    for (const std::string& answer : answers) {
      Outcome o = parse(answer);
      out.append(reinterpret_cast<const char*>(&o.rc), 4);
      out.append(o.buffer.data(), o.length);
    }
    char query[256];
    int32_t length = 0;
    create_proto_request(query, &length, sizeof query, 1, url.c_str(), "mid",
                         "vk", 2);
    out.append(query, length);
    return out;
  };
  const std::string expected = run_all();

  std::vector<std::string> seen(4);
  std::vector<std::thread> threads;
  for (std::string& slot : seen)
    threads.emplace_back([&slot, &run_all, &expected]() {
      for (int i = 0; i < 200; ++i) {
        std::string got = run_all();
        if (got != expected) {
          slot = got;
          return;
        }
      }
      slot = expected;
    });
  for (std::thread& thread : threads) thread.join();
  for (const std::string& got : seen) EXPECT_EQ(to_hex(got), to_hex(expected));
}

}  // namespace
