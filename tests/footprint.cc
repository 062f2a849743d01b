#include "footprint.h"

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#if __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#else
#define VALGRIND_MAKE_MEM_DEFINED(address, size) ((void)(address), (void)(size))
#endif

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

namespace {

constexpr unsigned char kPaint = 0xa5;

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

size_t depth_on_painted_thread(const std::function<void()>& call,
                               size_t stack_size) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void* mapping = mmap(nullptr, page + stack_size, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED) throw std::bad_alloc();
  auto* stack = static_cast<unsigned char*>(mapping) + page;
  mprotect(mapping, page, PROT_NONE);
  std::memset(stack, kPaint, stack_size);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, stack, stack_size);
  pthread_t thread;
  if (pthread_create(&thread, &attributes, run_call,
                     const_cast<std::function<void()>*>(&call)) != 0) {
    std::fprintf(stderr, "footprint: cannot start the stack probe thread\n");
    std::exit(1);
  }
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  const size_t depth = reached(stack, stack_size);
  munmap(mapping, page + stack_size);
  return depth;
}

}  // namespace

size_t stack_bytes(const std::function<void()>& call, size_t stack_size) {
  return depth_on_painted_thread(call, stack_size) -
         depth_on_painted_thread([] {}, stack_size);
}

}  // namespace footprint
