// What the machine can do to a call: memory that runs out at any one of its
// allocations, and a thread with little stack. Neither may cost the caller
// more than the call: the exception reaches it, its buffers stay as they
// were, nothing leaks, and the next call gives the normal result.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "answer.h"
#include "answer_parse.h"
#include "footprint.h"
#include "kx_response.pb.h"
#include "linkward.h"
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

Call query_call() {
  return [](char* out, int32_t* length) {
    return create_proto_request(
        out, length, kRoom, 1, "http://example.com/abcdefghijklmnopqrstuvwxyz",
        "3f2a9c41d07e8b5560e1c2d3a4b5f607", "\x5e\x00", 2);
  };
}

// The record of the answer's first per-hash result, written by the
// classifier alone; its length goes where out_len would.
Call classify_call(const std::string& answer) {
  auto response = std::make_shared<linkward::info::resp::Response>();
  response->ParsePartialFromString(answer);
  return [response](char* out, int32_t* length) {
    *length =
        parser_one_result(response->results(0).md5_results(0), out, kRoom);
    return 0;
  };
}

// `inner` as the bytes of the message reached through the message fields
// `path`, numbered from the answer's top.
std::string nested_in(const std::vector<int>& path, std::string inner) {
  for (auto field = path.rbegin(); field != path.rend(); ++field)
    inner = nested(*field, inner);
  return inner;
}

// The deepest answers the parse reads whole: in each message field of the
// answer, groups nested as deep as the 100 levels allow, every message around
// them counting as one; the leak count, four messages deep, last.
std::vector<std::string> deepest_answers() {
  const std::vector<int> paths[] = {
      {},            // the answer itself
      {3},           // its own pairs
      {2},           // a result
      {2, 5},        // a result's pairs
      {2, 3},        // a merged result
      {2, 4},        // a per-hash result
      {2, 4, 8},     // a per-hash result's pairs
      {2, 4, 9},     // a web-scan result
      {2, 4, 9, 1},  // a leak count
  };
  std::vector<std::string> answers;
  for (const std::vector<int>& path : paths) {
    const int levels = 100 - static_cast<int>(path.size());
    answers.push_back(typical_answer() + nested_in(path, groups(levels)));
    // One level more would be refused: these are the deepest.
    const std::string deeper =
        typical_answer() + nested_in(path, groups(levels + 1));
    const auto fault = [](const std::string& bytes) {
      linkward::info::resp::Response response;
      return linkward::parse_answer(bytes.data(), bytes.size(), response).fault;
    };
    EXPECT_EQ(fault(answers.back()), linkward::ParseFault::kNone);
    EXPECT_NE(fault(deeper), linkward::ParseFault::kNone);
  }
  return answers;
}

// What a call left in the caller's buffers, and what it did on the heap.
struct Seen {
  int32_t rc = 0;
  int32_t length = kUnsetLength;
  std::vector<char> buffer = std::vector<char>(kRoom + kGuardTail, kGuard);
  footprint::Heap heap{};
};

bool same_result(const Seen& a, const Seen& b) {
  return a.rc == b.rc && a.length == b.length && a.buffer == b.buffer;
}

Seen run(const Call& call, size_t fail_at = 0) {
  Seen seen;
  seen.heap = footprint::watch_heap(
      [&] { seen.rc = call(seen.buffer.data(), &seen.length); }, fail_at);
  return seen;
}

struct Case {
  const char* what;
  Call call;
  bool record_may_stay;  // an answer's record may be written before a failure
};

// Empty when a call whose allocation failed kept its promises: the exception
// reached the caller, all it allocated was freed, and the caller's buffers
// are as they were (or hold exactly the record the call makes).
std::string broken_by_failure(const Seen& failed, const Seen& normal,
                              bool record_may_stay) {
  if (!failed.heap.ran_out) return "std::bad_alloc did not reach the caller";
  if (failed.heap.frees != failed.heap.allocations) return "a leak";
  if (failed.length == kUnsetLength && untouched_from(failed.buffer)) return "";
  const bool record =
      failed.length == normal.length && failed.buffer == normal.buffer;
  return record && record_may_stay ? "" : "a write into the caller's buffers";
}

// Every allocation in turn; but where thousands of results repeat the same
// few allocations over and over, the first and the last 50 (the decisive
// result's) and 50 spread between.
std::vector<size_t> failures_to_try(size_t allocations) {
  constexpr size_t kEnds = 50;
  const size_t stride = std::max<size_t>(1, allocations / kEnds);
  std::vector<size_t> n;
  for (size_t i = 1; i <= allocations; ++i)
    if (i <= kEnds || i + kEnds > allocations || i % stride == 0)
      n.push_back(i);
  return n;
}

TEST(Exhaustion, AllocationFailureAtEveryStep) {
  const Case cases[] = {
      {"a query", query_call(), false},
      {"the typical answer", answer_call(typical_answer()), true},
      {"20,000 results first", answer_call(crowded_answer()), true},
      {"a 1 MiB value",
       answer_call(one_pair_answer(50, "kx.info", std::string(1 << 20, 'x'))),
       true},
      {"groups 96 deep in a leak count", answer_call(deepest_answers().back()),
       true},
  };
  for (const Case& c : cases) {
    run(c.call);  // the runtime's one-time set-up is not the call's
    const Seen normal = run(c.call);
    ASSERT_FALSE(normal.heap.ran_out) << c.what;
    EXPECT_EQ(normal.heap.frees, normal.heap.allocations) << c.what;
    std::printf("%-32s %6zu allocations, %8zu bytes\n", c.what,
                normal.heap.allocations, normal.heap.bytes);
    for (size_t n : failures_to_try(normal.heap.allocations)) {
      const std::string at = std::string(c.what) + ", allocation " +
                             std::to_string(n) + " failing";
      const std::string broken =
          broken_by_failure(run(c.call, n), normal, c.record_may_stay);
      const bool next_normal = same_result(run(c.call), normal);
      EXPECT_EQ(broken, "") << at;
      EXPECT_TRUE(next_normal) << at << ": the next call differs";
      if (!broken.empty() || !next_normal) break;
    }
  }
}

// Each entry point on its typical input, and the answers that reach deepest,
// on threads with 128 KiB (what the router's C library gives a new thread)
// and 64 KiB of stack: each completes with the result it has on the main
// thread. The bytes each reached are printed, the deepest answers' last.
TEST(Stack, DeepestAnswersOnSmallStacks) {
  const std::string longest_values =
      one_pair_answer(60, "kx.info", std::string(1 << 20, 'x'));
  std::vector<std::pair<std::string, Call>> calls = {
      {"create_proto_request, typical", query_call()},
      {"has_value, typical",
       [](char*, int32_t*) {
         return has_value("sc=110|ssc=11021", "ssc=11021");
       }},
      {"parser_one_result, typical", classify_call(typical_answer())},
      {"parser_one_result, 511-byte text", classify_call(longest_values)},
      {"parser_proto_response, typical", answer_call(typical_answer())},
      {"parser_proto_response, 1 MiB value", answer_call(longest_values)},
  };
  for (const std::string& answer : deepest_answers())
    calls.emplace_back("parser_proto_response, deepest", answer_call(answer));

  size_t deepest = 0;
  for (const auto& [what, call] : calls) {
    const Seen expected = run(call);
    size_t reached = 0;
    for (size_t kib : {128, 64}) {
      Seen seen;
      reached = footprint::stack_bytes(
          [&] { seen.rc = call(seen.buffer.data(), &seen.length); },
          kib * 1024);
      EXPECT_TRUE(same_result(seen, expected))
          << what << " on " << kib << " KiB";
    }
    if (what.find("deepest") == std::string::npos)
      std::printf("%-40s %6zu bytes of stack\n", what.c_str(), reached);
    deepest = std::max(deepest, reached);
  }
  std::printf("%-40s %6zu bytes of stack\n",
              "parser_proto_response, deepest answer", deepest);
}

}  // namespace
