// What the benchmarks and the instruction-count driver run: the calls the
// router makes, and beside each the least the protobuf runtime must do for
// the same result (the floor).
#ifndef LINKWARD_BENCH_WORKLOADS_H
#define LINKWARD_BENCH_WORKLOADS_H

#include <cstdint>
#include <string>
#include <vector>

namespace workload {

// One query about a URL, with the caller's mid and vk.
struct Query {
  std::string url;
  std::string mid;
  std::string vk;
};

Query query_for_url_of(size_t url_bytes);

// Room for any query built here.
constexpr int32_t kQueryRoom = 2048;
// The most a query may cost, as a multiple of its floor's cost.
constexpr double kQueryTarget = 1.10;
// Room for any verdict record.
constexpr int32_t kRecordRoom = 534;

// Both return the encoded size, or a negative number when refused.
int32_t library_query(const Query& q, char* out);
int32_t floor_query(const Query& q, char* out);

// Answers of the service, encoded, and the most each may cost as a multiple
// of its floor's cost.
struct Answer {
  const char* name;
  std::string bytes;
  double target;
};

// One result with one per-hash result (level 60, sub-type 10) whose "kx.info"
// list decides the verdict; the answer the router sees most.
std::string typical_answer();
// A per-hash result whose "kx.info" list is 511 bytes long, so the record's
// text is as long as it gets.
std::string long_text_answer();
// The first per-hash result comes after 100 results that hold none.
std::string late_result_answer();
std::vector<Answer> answers();

// Both return the record's length (the floor: the number of results parsed).
int32_t library_answer(const std::string& answer, char* out);
int32_t floor_answer(const std::string& answer);

// The parse with the runtime's initialisation check, which the library does
// not make; shown beside the floor, not used as one.
int32_t checked_parse(const std::string& answer);

// The "kx.info" list of the typical answer.
constexpr char kTypicalList[] = "sc=110|ssc=11021";

// Stops the program when a floor does not produce what the library does, so a
// ratio never compares two different jobs.
void check_floors_match();

}  // namespace workload

#endif
