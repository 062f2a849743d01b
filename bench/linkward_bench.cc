// Per-call cost of the library beside the protobuf runtime's floor: each
// entry point against the least the runtime must do for the same result,
// measured in the same run, then a table of ratios and heap use. Stack depth
// and the heap of the largest answers are footprint_figures.cc's.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "heap_per_call.h"
#include "kx_response.pb.h"
#include "linkward.h"
#include "workloads.h"

namespace resp = linkward::info::resp;

namespace {

// A library benchmark, the floor it is held against and the most the ratio
// may be (0: no target).
struct Pair {
  std::string row;
  std::string library;
  std::string floor;
  double target;
};

std::vector<Pair> pairs;

// Heap use is counted outside the timed loop, over calls of its own.
template <typename Call>
void measure(benchmark::State& state, Call call) {
  const footprint::Heap heap = heap_per_call([&] { call(); });
  state.counters["allocs"] = static_cast<double>(heap.allocations);
  state.counters["bytes"] = static_cast<double>(heap.bytes);
  for (auto _ : state) {
    benchmark::DoNotOptimize(call());
    benchmark::ClobberMemory();
  }
}

using QueryCall = int32_t (*)(const workload::Query&, char*);

void run_query(benchmark::State& state, QueryCall call, size_t url_bytes) {
  const workload::Query query = workload::query_for_url_of(url_bytes);
  char out[workload::kQueryRoom];
  measure(state, [&] { return call(query, out); });
}

void run_answer(benchmark::State& state, const std::string& answer) {
  char out[workload::kRecordRoom];
  measure(state, [&] { return workload::library_answer(answer, out); });
}

void run_parse(benchmark::State& state, int32_t (*parse)(const std::string&),
               const std::string& answer) {
  measure(state, [&] { return parse(answer); });
}

const resp::MD5Result& typical_per_hash_result() {
  static const resp::Response response = [] {
    resp::Response parsed;
    parsed.ParseFromString(workload::typical_answer());
    return parsed;
  }();
  return response.results(0).md5_results(0);
}

void run_classifier(benchmark::State& state) {
  const resp::MD5Result& result = typical_per_hash_result();
  char out[workload::kRecordRoom];
  measure(state, [&] { return parser_one_result(result, out, sizeof out); });
}

void run_token_test(benchmark::State& state) {
  const char* list = workload::kTypicalList;
  benchmark::DoNotOptimize(list);
  measure(state, [&] { return has_value(list, "ssc=11021"); });
}

using Run = std::function<void(benchmark::State&)>;

void add_pair(const std::string& row, const std::string& name, double target,
              const Run& library, const Run& floor) {
  const std::string floor_name = name + " floor";
  benchmark::RegisterBenchmark(name.c_str(), library);
  benchmark::RegisterBenchmark(floor_name.c_str(), floor);
  pairs.push_back({row, name, floor_name, target});
}

void register_benchmarks() {
  for (size_t url_bytes : {20, 100, 1000}) {
    const std::string size = std::to_string(url_bytes);
    add_pair(
        "create_proto_request, URL " + size + " B",
        "create_proto_request/url:" + size, workload::kQueryTarget,
        [=](benchmark::State& s) {
          run_query(s, workload::library_query, url_bytes);
        },
        [=](benchmark::State& s) {
          run_query(s, workload::floor_query, url_bytes);
        });
  }
  bool typical = true;
  for (const workload::Answer& answer : workload::answers()) {
    const std::string bytes = answer.bytes;
    const std::string name =
        std::string("parser_proto_response/") + answer.name;
    add_pair(
        std::string("parser_proto_response, ") + answer.name, name,
        answer.target, [=](benchmark::State& s) { run_answer(s, bytes); },
        [=](benchmark::State& s) {
          run_parse(s, workload::floor_answer, bytes);
        });
    if (typical) {
      // The checked parse held against the same floor: what the library
      // would pay if it asked the runtime for the initialisation check.
      benchmark::RegisterBenchmark(
          "ParseFromArray/typical", [=](benchmark::State& s) {
            run_parse(s, workload::checked_parse, bytes);
          });
      pairs.push_back({"checked parse (ParseFromArray), typical",
                       "ParseFromArray/typical", name + " floor", 0});
    }
    typical = false;
  }
  benchmark::RegisterBenchmark("parser_one_result/typical", run_classifier);
  benchmark::RegisterBenchmark("has_value/typical", run_token_test);
}

// The figures of one benchmark: the median over the repetitions when there
// are several, else the one run.
struct Figures {
  double cpu_ns = 0;
  double real_ns = 0;
  double allocations = 0;
  double bytes = 0;
};

class TableReporter : public benchmark::ConsoleReporter {
 public:
  TableReporter()
      : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular) {}

  // Shows and keeps the medians only; the spread of noisy wall times is in
  // --benchmark_out=<file> for whoever wants it.
  void ReportRuns(const std::vector<Run>& runs) override {
    std::vector<Run> kept;
    for (const Run& run : runs) {
      const bool median =
          run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      const bool single =
          run.run_type == Run::RT_Iteration && run.repetitions <= 1;
      if (median || single) kept.push_back(run);
    }
    ConsoleReporter::ReportRuns(kept);
    for (const Run& run : kept) {
      Figures& f = figures_[run.run_name.function_name];
      f.cpu_ns = run.GetAdjustedCPUTime() * scale(run.time_unit);
      f.real_ns = run.GetAdjustedRealTime() * scale(run.time_unit);
      f.allocations = counter(run, "allocs");
      f.bytes = counter(run, "bytes");
    }
  }

  // Ratios on CPU time, which a neighbour's load on a shared machine
  // disturbs far less than wall time; the wall-time ratio is shown beside.
  void print_table() const {
    std::printf("\n%-40s %7s %9s %9s %9s %7s %9s %13s\n", "per call (medians)",
                "ratio", "target", "library", "floor", "wall", "allocs",
                "bytes");
    std::printf("%-40s %7s %9s %9s %9s %7s %9s %13s\n", "", "CPU", "", "CPU ns",
                "CPU ns", "ratio", "lib/floor", "lib/floor");
    for (const Pair& pair : pairs) {
      const auto library = figures_.find(pair.library);
      const auto floor = figures_.find(pair.floor);
      if (library == figures_.end() || floor == figures_.end()) continue;
      const Figures& l = library->second;
      const Figures& f = floor->second;
      const double ratio = l.cpu_ns / f.cpu_ns;
      char target[16] = "";
      if (pair.target > 0)
        std::snprintf(target, sizeof target, "%s%.2f",
                      ratio <= pair.target ? "<=" : "MISS ", pair.target);
      std::printf(
          "%-40s %7.3f %9s %9.1f %9.1f %7.3f %4.0f/%-4.0f %6.0f/%-6.0f\n",
          pair.row.c_str(), ratio, target, l.cpu_ns, f.cpu_ns,
          l.real_ns / f.real_ns, l.allocations, f.allocations, l.bytes,
          f.bytes);
    }
    for (const char* alone :
         {"parser_one_result/typical", "has_value/typical"}) {
      const auto it = figures_.find(alone);
      if (it == figures_.end()) continue;
      std::printf("%-40s %7s %9s %9.1f %9s %7s %4.0f %11.0f\n", alone, "", "",
                  it->second.cpu_ns, "", "", it->second.allocations,
                  it->second.bytes);
    }
  }

 private:
  static double scale(benchmark::TimeUnit unit) {
    switch (unit) {
      case benchmark::kSecond:
        return 1e9;
      case benchmark::kMillisecond:
        return 1e6;
      case benchmark::kMicrosecond:
        return 1e3;
      default:
        return 1;
    }
  }

  static double counter(const Run& run, const char* name) {
    const auto it = run.counters.find(name);
    return it == run.counters.end() ? 0 : it->second.value;
  }

  std::map<std::string, Figures> figures_;
};

}  // namespace

int main(int argc, char** argv) {
  workload::check_floors_match();
  register_benchmarks();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.print_table();
  benchmark::Shutdown();
  return 0;
}
