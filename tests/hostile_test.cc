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
// 511 bytes count, whatever the capacity; the text is cut to the capacity.
TEST(Hostile, LargeAnswers) {
  const std::string mebibyte(1 << 20, 'x');
  const std::string member_first = "sc=101|" + mebibyte;
  const std::string kx_first = "kx.info=" + member_first.substr(0, 511);
  const struct {
    const char* what;
    std::string answer;
    int32_t capacity, length;
    std::string told;
  } cases[] = {
      {"20,000 results first", crowded_answer(), 534, 12 + 24,
       "code 7, kx.info=sc=110|ssc=11011"},
      {"a member past 511 bytes",
       one_pair_answer(50, "kx.info", mebibyte + "|sc=101"), 534, 12 + 8 + 511,
       "code 1, kx.info=" + mebibyte.substr(0, 511)},
      {"a member first", one_pair_answer(50, "kx.info", member_first), 534,
       12 + 8 + 511, "code 2, " + kx_first},
      {"the head alone", one_pair_answer(50, "kx.info", member_first), 12,
       12 + 8 + 511, "code 2"},
      {"one byte short", one_pair_answer(50, "kx.info", member_first), 533,
       12 + 8 + 511, "code 2, " + kx_first.substr(0, 520)},
      {"bnet.info", one_pair_answer(50, "bnet.info", mebibyte), 534,
       12 + 10 + 511, "code 8, bnet.info=" + mebibyte.substr(0, 511)},
  };
  for (const auto& c : cases) {
    const Outcome o = parse(c.answer, c.capacity);
    EXPECT_EQ(broken_promise(o), "") << c.what;
    EXPECT_EQ(o.length, c.length) << c.what;
    EXPECT_EQ(told(o), c.told) << c.what;
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
// under them too (nothing before the threads touches a message). Each thread
// must see of every cut of an answer, and of a query, what one thread alone
// sees. ThreadSanitizer runs this.
TEST(HostileThreads, FirstCallsFromManyThreadsAtOnce) {
  const std::string answer = typical_answer();
  const auto call_all = [&answer] {
    std::string seen;
    for (size_t cut = 0; cut <= answer.size(); ++cut) {
      const Outcome o = parse(answer.substr(0, cut), 30);
      seen += std::to_string(o.rc) + " " + std::to_string(o.length) + " " +
              broken_promise(o);
      seen.append(o.buffer.begin(), o.buffer.end());
    }
    return seen + make_query("http://a/b", "mid", "vk").bytes;
  };

  std::atomic<bool> go{false};
  std::vector<std::string> seen(6);
  std::vector<size_t> stacks(6);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i)
    threads.emplace_back([&, i] {
      while (!go) std::this_thread::yield();
      seen[i] = call_all();
      stacks[i] = thread_stack_size();
    });
  go = true;
  for (std::thread& thread : threads) thread.join();

  const std::string alone = call_all();
  for (size_t i = 0; i < seen.size(); ++i) {
    EXPECT_TRUE(seen[i] == alone) << "thread " << i;
#ifdef LINKWARD_MAX_THREAD_STACK  // the C library's default thread stack
    EXPECT_LE(stacks[i], size_t{LINKWARD_MAX_THREAD_STACK});
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
