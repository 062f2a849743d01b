# The build machine's own build: setting up, building, the whole suite, the
# demo, and the suite on the tree a release tarball holds.

cmd_setup() { apt_install "${packages[@]}"; }

cmd_test() {
  cmd_setup
  cmd_build "${with_tests[@]}" "${with_tool[@]}"
  run_tests "$build_dir"
}

# Firmware and distribution builds start from a release tarball, not a
# clone: the test command must pass there too. The tree goes outside the
# clone, with git told not to look above it, so that nothing in the build
# finds the clone's repository; the caller's build folders are not used.
cmd_test_release() {
  local parent tree
  parent=$(mktemp -d "${TMPDIR:-/tmp}/linkward-release.XXXXXX")
  tree=$parent/linkward
  mkdir "$tree"
  git -C "$root" archive HEAD | tar -x -C "$tree"
  export GIT_CEILING_DIRECTORIES=$parent
  if git -C "$tree" rev-parse --git-dir >/dev/null 2>&1; then
    echo "scripts/dev test-release: $tree is inside a git repository" >&2
    return 1
  fi
  env -u LINKWARD_BUILD_DIR "$tree/scripts/dev" test
  rm -rf "$parent"
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
