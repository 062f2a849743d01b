// Heap allocations of a call, counted (and made to fail) by the binary's own
// operator new: the exhaustion tests fail them, bench/ counts them.
#ifndef LINKWARD_TESTS_FOOTPRINT_H
#define LINKWARD_TESTS_FOOTPRINT_H

#include <cstddef>
#include <functional>

namespace footprint {

// What a call did on the heap of its own thread.
struct Heap {
  size_t allocations;  // made; a failed one is not counted
  size_t frees;
  size_t bytes;  // requested from operator new
  bool ran_out;  // the call ended in std::bad_alloc
};

// Runs `call` with this thread's allocations counted; with `fail_at` N above
// 0, its N-th allocation throws std::bad_alloc instead of allocating. Other
// threads are neither counted nor failed.
Heap watch_heap(const std::function<void()>& call, size_t fail_at = 0);

}  // namespace footprint

#endif
