# Measurements: heap and stack per call, time, instructions, and the tests'
# size against the code's. Each prints figures; callgrind also fails on a
# missed target.

bench_packages=(libbenchmark-dev valgrind)
bench_dir=${LINKWARD_BENCH_DIR:-$root/build-bench}
# The size-optimised build that firmware ships, measured beside the other.
bench_size_dir=${LINKWARD_BENCH_SIZE_DIR:-$root/build-bench-minsizerel}

# Heap and stack per call, through a cross build's emulator too.
cmd_footprint() {
  apt_install "${packages[@]}"
  configure "${with_tests[@]}" >/dev/null
  footprint "$build_dir"
}

# Benchmarks want an optimised build of their own, without the test suite.
build_bench() {  # build type, folder
  apt_install "${packages[@]}" "${bench_packages[@]}"
  cmake -S "$root" -B "$2" -G Ninja -DCMAKE_BUILD_TYPE="$1" \
    -DLINKWARD_BENCH=ON -DLINKWARD_TESTS=OFF >/dev/null
  cmake --build "$2" -j "$jobs" >/dev/null
}

machine() {
  echo "machine: $(lscpu | sed -n 's/^Model name: *//p'), $(nproc) cores"
}

# Medians of interleaved repetitions, so that a neighbour's load falls on the
# library and its floor alike; extra arguments go to Google Benchmark.
cmd_bench() {
  build_bench Release "$bench_dir"
  machine
  "$bench_dir/bench/linkward_bench" --benchmark_repetitions=15 \
    --benchmark_min_time=0.1 --benchmark_enable_random_interleaving=true \
    --benchmark_report_aggregates_only=true "$@"
}

# Instructions per call: the difference between runs of N and 2N calls,
# divided by N, so start-up and one-time set-up cancel out. Exact on a given
# toolchain, so a missed target fails the command, unlike wall-clock times.
callgrind_instructions() {  # driver, case, calls, output folder
  valgrind --tool=callgrind --callgrind-out-file="$4/$2.$3" "$1" "$2" "$3" 2>/dev/null
  awk '/^totals:/ { print $2 }' "$4/$2.$3"
}

callgrind_per_call() {  # driver, case, calls, output folder
  local once twice
  once=$(callgrind_instructions "$1" "$2" "$3" "$4")
  twice=$(callgrind_instructions "$1" "$2" $((2 * $3)) "$4")
  echo $(((twice - once) / $3))
}

# Both the Release build and the MinSizeRel one that firmware ships must meet
# the targets.
cmd_callgrind() {
  local missed=0
  build_bench Release "$bench_dir"
  build_bench MinSizeRel "$bench_size_dir"
  machine
  callgrind_build Release "$bench_dir" || missed=1
  callgrind_build MinSizeRel "$bench_size_dir" || missed=1
  return "$missed"
}

callgrind_build() {  # build type, folder
  local driver=$2/bench/linkward-callgrind-driver calls=2000
  local out=$2/callgrind missed=0 cases library floor target l f
  mkdir -p "$out"
  if ! cases=$("$driver" --list) || [ -z "$cases" ]; then
    echo "scripts/dev callgrind: $driver --list named no case to measure" >&2
    return 1
  fi
  printf '%-36s %7s %8s %14s %14s\n' "$1 (instructions per call)" \
    ratio target library floor
  while read -r library floor target; do
    l=$(callgrind_per_call "$driver" "$library" "$calls" "$out")
    f=$(callgrind_per_call "$driver" "$floor" "$calls" "$out")
    awk -v row="$library" -v l="$l" -v f="$f" -v t="$target" 'BEGIN {
      if (l <= 0 || f <= 0) {
        printf "%-36s no instructions counted\n", row
        exit 1
      }
      missed = t != 0 && l / f > t
      mark = t == 0 ? "" : (missed ? "MISS " : "<=") t
      printf "%-36s %7.3f %8s %14d %14d\n", row, l / f, mark, l, f
      exit missed }' || missed=1
  done <<<"$cases"
  return "$missed"
}

# Tests are tests/ and fuzz/ without the seed corpora; code is the rest of
# the source. Counted on what git tracks, or, in a release tarball's tree,
# on the files there.
cmd_test_size() {
  local tests code
  lines() {
    if git -C "$root" rev-parse --git-dir >/dev/null 2>&1; then
      git -C "$root" ls-files -z -- "$@"
    else
      (cd "$root" && find "$@" -type f -print0)
    fi | grep -z -v '^fuzz/corpus/' | (cd "$root" && xargs -0 -r cat) |
      grep -c -v '^[[:space:]]*$'
  }
  tests=$(lines tests fuzz)
  code=$(lines src tools cmake scripts bench proto examples CMakeLists.txt .ci)
  awk -v t="$tests" -v c="$code" 'BEGIN {
    printf "tests %d lines, code %d lines: %.2f (aim: at most 0.40)\n", t, c, t / c }'
}
