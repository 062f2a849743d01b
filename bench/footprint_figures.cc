// The figures the docs quote besides time: heap allocations and bytes per
// call for each shape of input, and the stack each entry point reaches below
// its caller. Plain C++ with no benchmark library, so that the cross builds
// run it under their emulator (scripts/dev footprint, test-arm, test-musl).
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "heap_per_call.h"
#include "kx_response.pb.h"
#include "linkward.h"
#include "wire.h"

#if __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#else
#define VALGRIND_MAKE_MEM_DEFINED(address, size) ((void)(address), (void)(size))
#endif

namespace {

// Outside the calls, so that only the call reaches the heap and the stack.
char out[LINKWARD_RECORD_SIZE];
int32_t out_len;

void query() {
  create_proto_request(out, &out_len, sizeof out, 1,
                       "http://example.com/abcdefghijklmnopqrstuvwxyz",
                       "3f2a9c41d07e8b5560e1c2d3a4b5f607", "\x5e\x00", 2);
}

std::function<void()> answer(const std::string& bytes) {
  return [&bytes] {
    parser_proto_response(out, &out_len, sizeof out, bytes.data(),
                          static_cast<int32_t>(bytes.size()));
  };
}

// The classifier alone, on the answer's first per-hash result.
std::function<void()> classify(const std::string& bytes) {
  auto response = std::make_shared<linkward::info::resp::Response>();
  response->ParsePartialFromString(bytes);
  return [response] {
    parser_one_result(response->results(0).md5_results(0), out, sizeof out);
  };
}

void print_heap(const char* what, const std::function<void()>& call) {
  const footprint::Heap heap = heap_per_call(call);
  std::printf("%-58s %8zu %10zu\n", what, heap.allocations, heap.bytes);
}

constexpr unsigned char kPaint = 0xa5;
constexpr size_t kStackSize = 256 * 1024;

void* run_call(void* call) {
  (*static_cast<const std::function<void()>*>(call))();
  return nullptr;
}

// The stack grows down: the lowest byte that no longer holds the paint marks
// the deepest point reached. Read as plain bytes: the sanitizers and valgrind
// take the dead thread's stack for memory nobody may read.
__attribute__((no_sanitize_address)) size_t reached(const unsigned char* stack,
                                                    size_t size) {
  VALGRIND_MAKE_MEM_DEFINED(stack, size);
  size_t untouched = 0;
  while (untouched < size && stack[untouched] == kPaint) ++untouched;
  return size - untouched;
}

// Runs `call` on a painted stack of its own above a guard page, so that an
// overflow stops the program, and returns the depth it reached.
size_t depth_on_painted_thread(const std::function<void()>& call) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void* mapping = mmap(nullptr, page + kStackSize, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED) std::exit(1);
  auto* stack = static_cast<unsigned char*>(mapping) + page;
  mprotect(mapping, page, PROT_NONE);
  std::memset(stack, kPaint, kStackSize);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, stack, kStackSize);
  pthread_t thread;
  if (pthread_create(&thread, &attributes, run_call,
                     const_cast<std::function<void()>*>(&call)) != 0) {
    std::fprintf(stderr, "footprint: cannot start the stack probe thread\n");
    std::exit(1);
  }
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  const size_t depth = reached(stack, kStackSize);
  munmap(mapping, page + kStackSize);
  return depth;
}

// Bytes of stack below the caller: the deepest byte written, less that of an
// empty call. The greatest of several calls, when given several.
void print_stack(const char* what,
                 const std::vector<std::function<void()>>& calls) {
  const size_t empty = depth_on_painted_thread([] {});
  size_t deepest = 0;
  for (const std::function<void()>& call : calls) {
    call();  // the runtime's one-time set-up is not the call's
    deepest = std::max(deepest, depth_on_painted_thread(call) - empty);
  }
  std::printf("%-58s %8zu\n", what, deepest);
}

}  // namespace

int main() {
  const std::string typical = typical_answer();
  const std::string crowded = crowded_answer();
  const std::string mebibyte =
      one_pair_answer(60, "kx.info", std::string(1 << 20, 'x'));
  const std::vector<std::string> deepest = deepest_answers();

  std::printf("%-58s %8s %10s\n", "heap per call", "allocs", "bytes");
  print_heap("a query (45-byte URL, 32-byte mid, 2-byte vk)", query);
  print_heap("the typical answer", answer(typical));
  print_heap("20,000 results before the decisive one (20,000 pairs)",
             answer(crowded));
  print_heap("a 1 MiB \"kx.info\" value", answer(mebibyte));
  print_heap("groups 96 deep in a leak count", answer(deepest.back()));

  std::printf("\n%-58s %8s\n", "stack below the caller", "bytes");
  print_stack("create_proto_request, typical", {query});
  print_stack("has_value, typical list",
              {[] { out_len = has_value("sc=110|ssc=11021", "ssc=11021"); }});
  print_stack("parser_one_result, typical", {classify(typical)});
  print_stack("parser_one_result, 511-byte text", {classify(mebibyte)});
  print_stack("parser_proto_response, typical", {answer(typical)});
  print_stack("parser_proto_response, 1 MiB value", {answer(mebibyte)});
  std::vector<std::function<void()>> deepest_calls;
  for (const std::string& bytes : deepest)
    deepest_calls.push_back(answer(bytes));
  print_stack("parser_proto_response, deepest answer", deepest_calls);
  return 0;
}
