// What one call costs besides time: heap allocations (counted by the
// benchmark binary's own operator new) and stack depth (measured on a
// painted thread stack).
#ifndef LINKWARD_BENCH_FOOTPRINT_H
#define LINKWARD_BENCH_FOOTPRINT_H

#include <cstddef>
#include <functional>

namespace footprint {

struct Heap {
  size_t allocations;  // per call
  size_t bytes;        // requested from operator new, per call
};

// Counts over a few calls after a warm-up call, so that the runtime's
// one-time set-up is not charged to the call. Stops the program when a call
// does not free everything it allocated.
Heap heap_per_call(const std::function<void()>& call);

// Bytes of stack that `call` reaches below its caller, measured as the
// deepest byte written on a painted thread stack, less that of an empty call.
size_t stack_bytes(void (*call)());

}  // namespace footprint

#endif
