// What every fuzz target does with a broken promise: say which, and stop, so
// that libFuzzer keeps the input.
#ifndef LINKWARD_FUZZ_CHECK_H
#define LINKWARD_FUZZ_CHECK_H

#include <cstdio>
#include <cstdlib>

inline void require(bool kept, const char* promise) {
  if (kept) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

#endif
