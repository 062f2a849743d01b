# The suite under the sanitizers and valgrind.

# Sanitizer builds live beside the plain one, each in a directory of its own.
sanitized_build() {
  local dir=$1 flags=$2
  shift 2
  cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" "$@"
  cmake --build "$dir" -j "$jobs"
}

cmd_test_sanitizers() {
  apt_install "${packages[@]}" valgrind
  local common="-fno-omit-frame-pointer -fno-sanitize-recover=all"

  step "AddressSanitizer + UndefinedBehaviorSanitizer: the whole suite"
  sanitized_build "$root/build-asan" "-fsanitize=address,undefined $common" \
    "${with_tests[@]}" "${with_tool[@]}"
  run_tests "$root/build-asan"

  step "ThreadSanitizer: the threaded tests"
  sanitized_build "$root/build-tsan" "-fsanitize=thread $common" "${with_tests[@]}"
  TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
    run_tests "$root/build-tsan" -R Thread

  # The death tests stay out: their forked child ends on purpose on an
  # uncaught exception or an abort, whose exception object memcheck reports as
  # possibly lost, and a child killed by a signal cannot fail the run anyway.
  # They run under the sanitizers above and in the plain suite.
  #
  # The suite's own operator new counts allocations and makes them fail;
  # memcheck would put its own in that one's place, so it is told to keep the
  # program's and watch the malloc under it.
  step "valgrind memcheck: the suite but its death tests, leaks included"
  cmd_build "${with_tests[@]}"
  valgrind --error-exitcode=1 --leak-check=full --track-origins=yes \
    --soname-synonyms=somalloc=nouserintercepts \
    --errors-for-leak-kinds=definite,indirect,possible \
    "$build_dir/tests/linkward_tests" --gtest_filter='-*DeathTest.*'
}
