#include "footprint.h"

#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// Counting is switched on only around the calls being counted, so the timed
// loops pay one predictable branch per allocation, library and floor alike.
bool counting = false;
size_t allocations = 0;
size_t frees = 0;
size_t allocated_bytes = 0;

}  // namespace

// Every allocation of the process goes through here, the library's and the
// protobuf runtime's included: both take operator new from the executable.
void* operator new(size_t size) {
  if (counting) {
    ++allocations;
    allocated_bytes += size;
  }
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}

void operator delete(void* p) noexcept {
  if (counting && p != nullptr) ++frees;
  std::free(p);
}

void operator delete(void* p, size_t) noexcept { operator delete(p); }

namespace footprint {

Heap heap_per_call(const std::function<void()>& call) {
  constexpr size_t kCalls = 8;
  call();
  allocations = frees = allocated_bytes = 0;
  counting = true;
  for (size_t i = 0; i < kCalls; ++i) call();
  counting = false;
  if (allocations != frees) {
    std::fprintf(stderr, "bench: a call frees %zu of its %zu allocations\n",
                 frees / kCalls, allocations / kCalls);
    std::exit(1);
  }
  return {allocations / kCalls, allocated_bytes / kCalls};
}

namespace {

constexpr unsigned char kPaint = 0xa5;
constexpr size_t kStackSize = 256 * 1024;

void* run_call(void* call) {
  reinterpret_cast<void (*)()>(call)();
  return nullptr;
}

// The stack grows down: the lowest byte that no longer holds the paint marks
// the deepest point reached.
size_t depth_on_painted_thread(void (*call)()) {
  void* stack = std::aligned_alloc(4096, kStackSize);
  if (stack == nullptr) throw std::bad_alloc();
  std::memset(stack, kPaint, kStackSize);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, stack, kStackSize);
  pthread_t thread;
  if (pthread_create(&thread, &attributes, run_call,
                     reinterpret_cast<void*>(call)) != 0) {
    std::fprintf(stderr, "bench: cannot start the stack probe thread\n");
    std::exit(1);
  }
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  const auto* bytes = static_cast<const unsigned char*>(stack);
  size_t untouched = 0;
  while (untouched < kStackSize && bytes[untouched] == kPaint) ++untouched;
  std::free(stack);
  return kStackSize - untouched;
}

void empty_call() {}

}  // namespace

size_t stack_bytes(void (*call)()) {
  return depth_on_painted_thread(call) - depth_on_painted_thread(empty_call);
}

}  // namespace footprint
