// What the machine can do to a call: memory that runs out at any one of its
// allocations, a thread with little stack, other threads calling at once.
// None may cost the caller more than the call: the exception reaches it, its
// buffers stay as they were, nothing leaks, and every call gives the result
// it gives alone.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "footprint.h"
#include "wire.h"

namespace {

constexpr int32_t kRoom = 534;

// One call into the caller's buffers; returns what the entry point does.
using Call = std::function<int32_t(char* out, int32_t* length)>;

Call answer_call(std::string answer) {
  return [answer = std::move(answer)](char* out, int32_t* length) {
    return parser_proto_response(out, length, kRoom, answer.data(),
                                 static_cast<int32_t>(answer.size()));
  };
}

const Call query_call = [](char* out, int32_t* length) {
  return create_proto_request(out, length, kRoom, 1, "http://example.com/a",
                              "3f2a9c41d07e8b5560e1c2d3a4b5f607", "\x5e\0", 2);
};

// What a call left in the caller's buffers, and what it did on the heap.
struct Seen {
  int32_t rc = 0;
  int32_t length = kUnsetLength;
  std::vector<char> buffer = std::vector<char>(kRoom + kGuardTail, kGuard);
  footprint::Heap heap{};

  bool operator==(const Seen& o) const {
    return rc == o.rc && length == o.length && buffer == o.buffer;
  }
};

Seen run(const Call& call, size_t fail_at = 0) {
  Seen seen;
  seen.heap = footprint::watch_heap(
      [&] { seen.rc = call(seen.buffer.data(), &seen.length); }, fail_at);
  return seen;
}

// Empty when a call whose allocation failed kept its promises: the exception
// reached the caller, all it allocated was freed, and the caller's buffers
// are as they were (or, where the call may have written it already, hold
// exactly the record the call makes).
std::string broken_by_failure(const Seen& failed, const Seen& normal,
                              bool record_may_stay) {
  if (!failed.heap.ran_out) return "std::bad_alloc did not reach the caller";
  if (failed.heap.frees != failed.heap.allocations) return "a leak";
  if (failed.length == kUnsetLength && untouched_from(failed.buffer)) return "";
  const bool whole_record =
      failed.length == normal.length && failed.buffer == normal.buffer;
  return record_may_stay && whole_record ? "" : "a write into the buffers";
}

TEST(Exhaustion, AllocationFailureAtEveryStep) {
  const std::tuple<const char*, Call, bool> calls[] = {
      {"a query", query_call, false},
      {"the typical answer", answer_call(typical_answer()), true},
      {"the deepest answer", answer_call(deepest_answers().back()), true}};
  for (const auto& [what, call, record_may_stay] : calls) {
    run(call);  // the runtime's one-time set-up is not the call's
    const Seen normal = run(call);
    EXPECT_EQ(normal.heap.frees, normal.heap.allocations) << what << " leaks";
    for (size_t n = 1; n <= normal.heap.allocations; ++n) {
      EXPECT_EQ(broken_by_failure(run(call, n), normal, record_may_stay), "")
          << what << ", allocation " << n;
      EXPECT_TRUE(run(call) == normal) << what << ", after allocation " << n;
    }
  }
}

// The typical calls and the deepest answers the parse reads whole (the answer
// test holds the 100 levels of nesting) complete on a thread with 64 KiB of
// stack, half what the router's C library gives a new thread, with the result
// they give on the main thread.
TEST(Stack, DeepestAnswersOnSmallStacks) {
  std::vector<Call> calls = {query_call, answer_call(typical_answer())};
  for (const std::string& answer : deepest_answers())
    calls.push_back(answer_call(answer));
  std::vector<Seen> seen(calls.size());
  std::function<void()> all = [&] {
    for (size_t i = 0; i < calls.size(); ++i)
      seen[i].rc = calls[i](seen[i].buffer.data(), &seen[i].length);
  };
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, 64 * 1024), 0);
  pthread_t thread;
  const auto start = [](void* f) -> void* {
    (*static_cast<std::function<void()>*>(f))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, start, &all), 0);
  pthread_join(thread, nullptr);
  for (size_t i = 0; i < calls.size(); ++i)
    EXPECT_TRUE(seen[i] == run(calls[i])) << "call " << i;
}

// Callers on many threads at once, each with its own buffers, from the very
// first call on, so that whatever the runtime sets up on first use happens
// under them too (nothing before the threads touches a message). Each thread
// must see of every cut of an answer, and of a query, what one thread alone
// sees. ThreadSanitizer runs this.
TEST(Threads, FirstCallsFromManyThreadsAtOnce) {
  const std::string answer = typical_answer();
  const auto call_all = [&answer] {
    std::string seen;
    for (size_t cut = 0; cut <= answer.size(); ++cut) {
      const Outcome o = parse(answer.substr(0, cut), 30);
      seen += std::to_string(o.rc) + " " + std::to_string(o.length) + " " +
              broken_promise(o) + std::string(o.buffer.begin(), o.buffer.end());
    }
    return seen + make_query("http://a/b", "mid", "vk").bytes;
  };
  std::atomic<bool> go{false};
  std::vector<std::string> seen(6);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i)
    threads.emplace_back([&, i] {
      while (!go) std::this_thread::yield();
      seen[i] = call_all();
    });
  go = true;
  for (std::thread& thread : threads) thread.join();
  const std::string alone = call_all();
  for (size_t i = 0; i < seen.size(); ++i)
    EXPECT_TRUE(seen[i] == alone) << "thread " << i;
}

}  // namespace
