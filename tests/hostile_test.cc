// Hostile answers: whatever arrives from the network, the call returns one of
// its documented codes and leaves the caller's buffer as promised.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "answer.h"
#include "kx_response.pb.h"
#include "linkward.h"
#include "wire.h"

namespace resp = linkward::info::resp;

namespace {

// One result (id 1) whose only md5_result has level 70: code 5, no text.
const std::string kLevel70Result = "12 06 10 01 22 02 10 46";

TEST(Hostile, ThousandsOfResultsBeforeTheFirstPerHashResult) {
  const Outcome o = parse(crowded_answer());
  EXPECT_EQ(broken_promise(o), "");
  EXPECT_EQ(o.rc, 0);
  EXPECT_EQ(o.code(), 7);
  EXPECT_EQ(o.level(), 60);
  EXPECT_EQ(o.text(), "kx.info=sc=110|ssc=11011");
}

TEST(Hostile, OneMebibyteValue) {
  const std::string mebibyte(1 << 20, 'x');
  // Only the first 511 bytes are the list: a member beyond them is not seen.
  Outcome o = parse(one_pair_answer(50, "kx.info", mebibyte + "|sc=101"));
  EXPECT_EQ(broken_promise(o), "");
  EXPECT_EQ(o.code(), 1);
  EXPECT_EQ(o.length, 12 + 8 + 511);
  EXPECT_EQ(o.text(), "kx.info=" + mebibyte.substr(0, 511));

  const std::string member_first =
      one_pair_answer(50, "kx.info", "sc=101|" + mebibyte);
  EXPECT_EQ(parse(member_first).code(), 2);

  // The length is the whole record's, whatever the buffer holds.
  for (int32_t capacity : {12, 13, 100, 532, 533}) {
    o = parse(member_first, capacity);
    EXPECT_EQ(broken_promise(o), "") << capacity;
    EXPECT_EQ(o.length, 12 + 8 + 511) << capacity;
  }

  o = parse(one_pair_answer(50, "bnet.info", "sc=101|" + mebibyte));
  EXPECT_EQ(o.code(), 8);
  EXPECT_EQ(o.length, 12 + 10 + 511);
}

// Every wire type, each with a well-formed payload where it has one: varint,
// 64-bit, length-delimited, a group, a stray group end, 32-bit, and the two
// wire types that do not exist.
const char* const kPayloads[8] = {"01",
                                  "01 02 03 04 05 06 07 08",
                                  "03 61 62 63",
                                  "08 01",
                                  "",
                                  "01 02 03 04",
                                  "01",
                                  "01"};

// The answer messages, each with its fields and their own wire types, and a
// way to reach the instance of it in the base answer below. Field 12 is
// unknown everywhere.
struct Host {
  const char* name;
  std::vector<std::pair<int, int>> fields;  // number, own wire type
  std::function<std::string*(resp::Response&)> unknown_bytes;
};

resp::MD5Result* base_md5_result(resp::Response& response) {
  return response.mutable_results(0)->mutable_md5_results(0);
}

std::vector<Host> hosts() {
  return {
      {"Response",
       {{1, 0}, {2, 2}, {3, 2}, {12, -1}},
       [](resp::Response& r) { return r.mutable_unknown_fields(); }},
      {"Result",
       {{1, 0}, {2, 0}, {3, 2}, {4, 2}, {5, 2}, {12, -1}},
       [](resp::Response& r) {
         return r.mutable_results(0)->mutable_unknown_fields();
       }},
      {"MD5Result",
       {{1, 2},
        {2, 0},
        {3, 0},
        {4, 0},
        {5, 0},
        {6, 0},
        {7, 0},
        {8, 2},
        {9, 2},
        {12, -1}},
       [](resp::Response& r) {
         return base_md5_result(r)->mutable_unknown_fields();
       }},
      {"StringPair",
       {{1, 2}, {2, 2}, {12, -1}},
       [](resp::Response& r) {
         return base_md5_result(r)->mutable_values(0)->mutable_unknown_fields();
       }},
      {"WebScanResult",
       {{1, 2}, {9, 2}, {10, 0}, {12, -1}},
       [](resp::Response& r) {
         return base_md5_result(r)
             ->mutable_webscan_result()
             ->mutable_unknown_fields();
       }},
      {"LeakCount",
       {{1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, 0}, {6, 0}, {12, -1}},
       [](resp::Response& r) {
         return base_md5_result(r)
             ->mutable_webscan_result()
             ->mutable_leak_count()
             ->mutable_unknown_fields();
       }},
  };
}

resp::Response base_answer() {
  resp::Response response;
  response.set_ec(resp::Response::kOK);
  resp::Result* result = response.add_results();
  result->set_id(1);
  resp::MD5Result* md5_result = result->add_md5_results();
  md5_result->set_level(60);
  md5_result->set_sub_type(10);
  auto* kx = md5_result->add_values();
  kx->set_key("kx.info");
  kx->set_value("sc=110|ssc=11021");
  md5_result->mutable_webscan_result()->mutable_leak_count()->set_high(1);
  return response;
}

std::string field(int number, int wire_type) {
  std::string bytes(1, static_cast<char>(number << 3 | wire_type));
  bytes += from_hex(kPayloads[wire_type]);
  if (wire_type == 3) bytes += static_cast<char>(number << 3 | 4);  // its end
  return bytes;
}

TEST(Hostile, EveryWireTypeInEveryFieldOfTheAnswer) {
  const Outcome base = parse(base_answer().SerializePartialAsString());
  ASSERT_EQ(base.code(), 7);
  for (const Host& host : hosts()) {
    for (const auto& [number, own_type] : host.fields) {
      for (int wire_type = 0; wire_type < 8; ++wire_type) {
        // Placed after the message's own fields: a foreign wire type is kept
        // aside, and a malformed field stops the parse only after everything
        // that decides was read, so the verdict stays the base answer's. A
        // field's own wire type sets it, and may change the verdict.
        resp::Response response = base_answer();
        host.unknown_bytes(response)->append(field(number, wire_type));
        const Outcome o = parse(response.SerializePartialAsString());
        const std::string where = std::string(host.name) + " field " +
                                  std::to_string(number) + " wire type " +
                                  std::to_string(wire_type);
        EXPECT_EQ(broken_promise(o), "") << where;
        if (wire_type == own_type) continue;
        EXPECT_EQ(o.rc, base.rc) << where;
        EXPECT_EQ(o.length, base.length) << where;
        EXPECT_EQ(o.buffer, base.buffer) << where;
      }
    }
  }
}

// The size of the calling thread's stack, as its C library reports it.
size_t thread_stack_size() {
  pthread_attr_t attr;
  size_t size = 0;
  if (pthread_getattr_np(pthread_self(), &attr) == 0) {
    pthread_attr_getstacksize(&attr, &size);
    pthread_attr_destroy(&attr);
  }
  return size;
}

// Callers on many threads at once, each with its own buffers, from the very
// first call on, so that whatever the runtime sets up on first use happens
// under them too (nothing before the threads touches a message).
// Each thread walks every cut of an answer, and the whole answer and a query
// must come out as one thread alone makes them. ThreadSanitizer runs this.
TEST(HostileThreads, FirstCallsFromManyThreadsAtOnce) {
  const std::string answer = typical_answer();
  struct Seen {
    std::string broken;
    std::vector<char> record;
    std::string query;
    size_t stack = 0;
  };
  const auto call_all = [&answer](Seen& seen) {
    for (size_t cut = 0; cut <= answer.size(); ++cut) {
      const Outcome o = parse(answer.substr(0, cut), 30);
      if (seen.broken.empty() && !broken_promise(o).empty())
        seen.broken = broken_promise(o) + " at " + std::to_string(cut);
      if (cut == answer.size()) seen.record = o.buffer;
    }
    char query[128];
    int32_t length = 0;
    if (create_proto_request(query, &length, sizeof query, 1, "http://a/b",
                             "mid", "vk", 2) == 0)
      seen.query.assign(query, length);
  };

  std::atomic<bool> go{false};
  std::vector<Seen> seen(6);
  std::vector<std::thread> threads;
  for (Seen& mine : seen)
    threads.emplace_back([&go, &call_all, &mine] {
      while (!go) std::this_thread::yield();
      call_all(mine);
      mine.stack = thread_stack_size();
    });
  go = true;
  for (std::thread& thread : threads) thread.join();

  Seen alone;
  call_all(alone);
  ASSERT_EQ(alone.broken, "");
  ASSERT_EQ(parse(answer, 30).code(), 7);
  for (const Seen& got : seen) {
    EXPECT_EQ(got.broken, "");
    EXPECT_EQ(got.record, alone.record);
    EXPECT_EQ(to_hex(got.query), to_hex(alone.query));
#ifdef LINKWARD_MAX_THREAD_STACK  // the C library's default thread stack
    EXPECT_LE(got.stack, size_t{LINKWARD_MAX_THREAD_STACK});
#endif
  }
}

TEST(HostileDeathTest, NegativeSizeStopsOnTheRuntimeCheck) {
  // A negative size is a caller's error no answer can cause: it stops on the
  // runtime's fatal check before a byte is read.
  const std::string answer = from_hex(kLevel70Result);
  std::vector<char> buffer(534, kGuard);
  int32_t length = kUnsetLength;
  for (int32_t size : {-1, -2147483647 - 1}) {
    EXPECT_DEATH(uncaught([&] {
                   parser_proto_response(buffer.data(), &length, 534,
                                         answer.data(), size);
                 }),
                 "CHECK failed: \\(size\\) >= \\(0\\)")
        << size;
  }
}

}  // namespace
