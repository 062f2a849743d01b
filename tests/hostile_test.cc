// Hostile answers: whatever arrives from the network, the call returns one of
// its documented codes and leaves the caller's buffer as promised.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "answer.h"
#include "kx_response.pb.h"
#include "linkward.h"
#include "wire.h"

namespace resp = linkward::info::resp;

namespace {

// Answers as large as the network may bring: the record is that of the
// first per-hash result however far in it is, and of a value only its first
// 511 bytes count, whatever the capacity.
TEST(Hostile, LargeAnswers) {
  const std::string mebibyte(1 << 20, 'x');
  const std::string list = "kx.info=" + mebibyte.substr(0, 511);
  const std::string member_last =
      one_pair_answer(50, "kx.info", mebibyte + "|sc=101");
  const std::string member_first =
      one_pair_answer(50, "kx.info", "sc=101|" + mebibyte);
  const struct {
    const char* what;
    std::string answer;
    int32_t capacity, code, length;
    std::string text;
  } cases[] = {
      {"20,000 results first", crowded_answer(), 534, 7, 12 + 24,
       "kx.info=sc=110|ssc=11011"},
      {"a member past 511 bytes", member_last, 534, 1, 12 + 8 + 511, list},
      {"a member first", member_first, 534, 2, 12 + 8 + 511, ""},
      {"the head alone", member_first, 12, 2, 12 + 8 + 511, ""},
      {"one byte short", member_first, 533, 2, 12 + 8 + 511, ""},
      {"bnet.info", one_pair_answer(50, "bnet.info", mebibyte), 534, 8,
       12 + 10 + 511, "bnet.info=" + mebibyte.substr(0, 511)},
  };
  for (const auto& c : cases) {
    const Outcome o = parse(c.answer, c.capacity);
    EXPECT_EQ(broken_promise(o), "") << c.what;
    EXPECT_EQ(o.rc, 0) << c.what;
    EXPECT_EQ(o.code(), c.code) << c.what;
    EXPECT_EQ(o.length, c.length) << c.what;
    if (!c.text.empty()) {
      EXPECT_EQ(o.text(), c.text) << c.what;
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
  const std::string answer = typical_answer();
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
