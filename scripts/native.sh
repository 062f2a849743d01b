# The build machine's own build: setting up, building, the whole suite, the
# demo, and the suite on the tree a release tarball holds.

cmd_setup() { apt_install "${packages[@]}"; }

cmd_test() {
  cmd_setup
  cmd_build "${with_tests[@]}" "${with_tool[@]}"
  run_tests "$build_dir"
}

# Firmware and distribution builds start from a release tarball, not a
# clone: the test command must pass there too.
cmd_test_release() {
  local tree=$root/build-release/linkward
  rm -rf "$tree"
  mkdir -p "$tree"
  git -C "$root" archive HEAD | tar -x -C "$tree"
  "$tree/scripts/dev" test
}

# Prints a command line as a newcomer would type it, then runs it.
show() {
  echo "\$ $1"
  eval "$1"
}

cmd_demo() {
  step "installing what the build needs"
  cmd_setup
  step "building into ${build_dir#"$root"/}/ (about a minute on a fresh clone)"
  cmd_build "${with_tool[@]}" >/dev/null
  mkdir -p "$build_dir/demo"
  (
    cd "$build_dir/demo"
    PATH=$build_dir/tools:$PATH
    show "linkward request http://example.com/ --mid M1 --vk-hex 0102"
    show "linkward answer --level 60 --sub-type 10 --kx 'sc=110|ssc=11021' -o answer.bin"
    show "linkward verdict answer.bin"
  )
  echo "(run in $build_dir/demo; the tool is $build_dir/tools/linkward, see its --help)"
}
