#include "footprint.h"

#include <cstdlib>
#include <new>

namespace {

// Per thread, so that a watched call on one thread neither counts nor fails
// another thread's allocations; off unless a call is watched, so a timed
// loop pays one predictable branch per allocation.
struct Watch {
  bool on;
  size_t fail_at;  // 0: never
  footprint::Heap heap;
};
thread_local Watch watch{};

}  // namespace

// Every allocation of the process goes through here, the library's and the
// protobuf runtime's included: both take operator new from the executable.
void* operator new(size_t size) {
  if (watch.on) {
    if (watch.heap.allocations + 1 == watch.fail_at) throw std::bad_alloc();
    ++watch.heap.allocations;
    watch.heap.bytes += size;
  }
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}

void operator delete(void* p) noexcept {
  if (watch.on && p != nullptr) ++watch.heap.frees;
  std::free(p);
}

void operator delete(void* p, size_t) noexcept { operator delete(p); }

namespace footprint {

Heap watch_heap(const std::function<void()>& call, size_t fail_at) {
  watch = {true, fail_at, {}};
  try {
    call();
  } catch (const std::bad_alloc&) {
    watch.heap.ran_out = true;
  } catch (...) {
    watch.on = false;  // the next allocations are not the call's
    throw;
  }
  watch.on = false;
  return watch.heap;
}

}  // namespace footprint
