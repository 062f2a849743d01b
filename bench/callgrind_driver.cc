// Runs one workload a given number of times, for instruction counts under
// callgrind: two runs with N and 2N calls differ by exactly N calls, so the
// program's start-up and the runtime's one-time set-up cancel out.
//   linkward-callgrind-driver --list        "library floor target" per pair
//   linkward-callgrind-driver <case> <N>    run <case> N times
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "workloads.h"

namespace {

struct Case {
  std::string name;
  std::function<int32_t()> call;
  double target;  // the most library / floor may be; a floor's is unused
};

char out[workload::kQueryRoom];

std::vector<Case> cases() {
  std::vector<Case> all;
  for (size_t url_bytes : {20, 100, 1000}) {
    const workload::Query q = workload::query_for_url_of(url_bytes);
    const std::string size = std::to_string(url_bytes);
    all.push_back({"request-" + size,
                   [q] { return workload::library_query(q, out); },
                   workload::kQueryTarget});
    all.push_back({"request-" + size + "-floor",
                   [q] { return workload::floor_query(q, out); }, 0});
  }
  const char* names[] = {"typical", "long-text", "late-result"};
  const std::vector<workload::Answer> answers = workload::answers();
  for (size_t i = 0; i < answers.size(); ++i) {
    const std::string bytes = answers[i].bytes;
    const std::string name = std::string("answer-") + names[i];
    all.push_back({name,
                   [bytes] { return workload::library_answer(bytes, out); },
                   answers[i].target});
    all.push_back({name + "-floor",
                   [bytes] { return workload::floor_answer(bytes); }, 0});
  }
  return all;
}

int usage() {
  std::fprintf(stderr,
               "usage: linkward-callgrind-driver --list | <case> <calls>\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<Case> all = cases();
  if (argc == 2 && std::strcmp(argv[1], "--list") == 0) {
    for (size_t i = 0; i + 1 < all.size(); i += 2)
      std::printf("%s %s %.2f\n", all[i].name.c_str(), all[i + 1].name.c_str(),
                  all[i].target);
    return 0;
  }
  if (argc != 3) return usage();
  char* end = nullptr;
  const long calls = std::strtol(argv[2], &end, 10);
  if (*end != '\0' || calls < 0) return usage();
  for (const Case& c : all) {
    if (c.name != argv[1]) continue;
    // One call before counting starts in earnest: the one-time set-up is in
    // both runs and cancels out.
    int32_t sink = c.call();
    for (long i = 0; i < calls; ++i) sink ^= c.call();
    return sink == 12345 ? 3 : 0;  // keeps the calls from being dropped
  }
  std::fprintf(stderr, "linkward-callgrind-driver: no case %s\n", argv[1]);
  return 2;
}
