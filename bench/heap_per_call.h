// Heap use of one call, as the benchmarks and the footprint figures count it.
#ifndef LINKWARD_BENCH_HEAP_PER_CALL_H
#define LINKWARD_BENCH_HEAP_PER_CALL_H

#include <cstdio>
#include <cstdlib>
#include <functional>

#include "footprint.h"

// Counted over a few calls after a warm-up call, so that the runtime's
// one-time set-up is not charged to the call. Stops the program when a call
// does not free everything it allocated.
inline footprint::Heap heap_per_call(const std::function<void()>& call) {
  constexpr size_t kCalls = 8;
  call();
  const footprint::Heap heap = footprint::watch_heap([&] {
    for (size_t i = 0; i < kCalls; ++i) call();
  });
  if (heap.allocations != heap.frees) {
    std::fprintf(stderr, "a call frees %zu of its %zu allocations\n",
                 heap.frees / kCalls, heap.allocations / kCalls);
    std::exit(1);
  }
  return {heap.allocations / kCalls, heap.frees / kCalls, heap.bytes / kCalls,
          false};
}

#endif
