# The libFuzzer targets.

fuzz_dir=${LINKWARD_FUZZ_DIR:-$root/build-fuzz}
fuzz_targets=(answer message_parse request has_value)

# A target's seeds are its folder in fuzz/corpus/; the message classes' parse
# starts from the answers' seeds and the queries'.
fuzz_seeds() {
  case $1 in
    message_parse) printf '%s\n' "$root/fuzz/corpus/answer" "$root/fuzz/corpus/request" ;;
    *) echo "$root/fuzz/corpus/$1" ;;
  esac
}

# Each target starts from its seeds in fuzz/corpus/ and from what earlier runs
# kept in the build folder, and runs for its share of the budget; what it
# finds that reaches new code is merged back into the build folder's corpus.
# A finding is written to build-fuzz/findings/ and fails the command once
# every target has run.
cmd_fuzz() {
  local total=${1:-300} count=${#fuzz_targets[@]}
  if ! [[ $total =~ ^[0-9]+$ ]] || [ "$total" -lt "$count" ]; then
    echo "scripts/dev fuzz: the budget is whole seconds, at least $count (one a target), not '$total'" >&2
    return 2
  fi
  apt_install "${packages[@]}" clang-14 libclang-rt-14-dev
  cmake -S "$root" -B "$fuzz_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
    -DLINKWARD_TESTS=OFF -DLINKWARD_FUZZ=ON
  cmake --build "$fuzz_dir" -j "$jobs" --target "${fuzz_targets[@]/#/fuzz_}"

  local seconds=$((total / count)) failed=() summary=() t started=$SECONDS
  mkdir -p "$fuzz_dir/findings"
  for t in "${fuzz_targets[@]}"; do
    fuzz_target "$t" "$seconds" || failed+=("$t")
  done
  printf '%s\n' "${summary[@]}"
  echo "fuzzing took $((SECONDS - started)) s"
  if [ ${#failed[@]} -gt 0 ]; then
    echo "fuzzing found problems in: ${failed[*]} (inputs in $fuzz_dir/findings)" >&2
    return 1
  fi
}

# Runs one target into a folder of its own, merges what it found into the
# kept corpus and adds its figures to `summary`.
fuzz_target() {  # target, seconds
  local fuzzer=$fuzz_dir/fuzz/fuzz_$1 log=$fuzz_dir/fuzz_$1.log
  local kept=$fuzz_dir/corpus/$1 found=$fuzz_dir/found/$1 status=0 seeds
  mapfile -t seeds < <(fuzz_seeds "$1")
  rm -rf "$found"
  mkdir -p "$kept" "$found"
  step "fuzz_$1 for $2 s (log: $log)"
  "$fuzzer" -max_total_time="$2" -print_final_stats=1 \
    -artifact_prefix="$fuzz_dir/findings/$1-" \
    "$found" "$kept" "${seeds[@]}" >"$log" 2>&1 || status=$?
  "$fuzzer" -merge=1 "$kept" "$found" >"$log.merge" 2>&1
  rm -rf "$found"
  local executions coverage
  executions=$(awk '/^stat::number_of_executed_units:/ { print $2 }' "$log")
  coverage=$(grep -oE 'cov: [0-9]+' "$log" | tail -n 1 | cut -d' ' -f2)
  summary+=("$(printf 'fuzz_%-13s %12s executions  %5s coverage edges  %5s inputs kept' \
    "$1" "${executions:-?}" "${coverage:-?}" "$(find "$kept" -type f | wc -l)")")
  [ "$status" -eq 0 ] && return 0
  tail -n 40 "$log"
  return 1
}
