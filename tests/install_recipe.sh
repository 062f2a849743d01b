#!/usr/bin/env bash
# Runs README.md's firmware recipe, its one block that installs into
# $STAGING, exactly as written, from a fresh copy of the tree, against a
# staging area in the firmware's layout that holds the protobuf lite runtime
# alone, with cmake/toolchains/staging.cmake as the toolchain file; then runs
# what it built, and a C++ caller built through find_package, against the
# root file system's library. Environment: README SOURCE WORK; CC and CXX,
# the target's compilers and flags; ROOT, the lite runtime's sysroot (empty
# for the build machine), and ARCH; in a cross build EMULATOR and
# RUNTIME_LIBDIRS, where the target's C++ runtime is.
set -euo pipefail
fail() { echo "install_recipe: $*" >&2; exit 1; }
unset PKG_CONFIG_PATH PKG_CONFIG_LIBDIR PKG_CONFIG_SYSROOT_DIR CMAKE_TOOLCHAIN_FILE

recipe=$(awk '/^```/ { if (inside && index(block, "DESTDIR=$STAGING")) { n++; kept = block }
    inside = !inside; block = ""; next }
  inside { block = block $0 "\n" }
  END { printf "%s", kept; exit (n != 1) }' "$README") ||
  fail "README.md must hold exactly one block that installs into \$STAGING"

rm -rf "$WORK"
tree=$WORK/linkward
. "$(dirname "$0")/copy_tree.sh"
copy_tree "$SOURCE" "$tree"

# A staging area as firmware build systems lay it out, with the lite runtime
# alone: the library, its headers and protobuf-lite.pc.
export STAGING=$WORK/staging ROOTFS=$WORK/rootfs
mkdir -p "$STAGING/usr/lib/pkgconfig" "$STAGING/usr/include/google" "$ROOTFS"
libdir=${ROOT:-}/usr/lib/$ARCH
[ -e "$libdir/libprotobuf-lite.so" ] || libdir=${ROOT:-}/usr/lib
cp -a "$libdir"/libprotobuf-lite.so* "$STAGING/usr/lib"
cp -a "${ROOT:-}/usr/include/google/protobuf" "$STAGING/usr/include/google"
sed 's|^libdir=.*|libdir=${prefix}/lib|' "$libdir/pkgconfig/protobuf-lite.pc" \
  >"$STAGING/usr/lib/pkgconfig/protobuf-lite.pc"

export CMAKE_TOOLCHAIN_FILE=$tree/cmake/toolchains/staging.cmake CC CXX
(cd "$tree" && sh -eux -c "$recipe")

# What firmware ships is link-time optimised.
grep -q -e '-flto' "$tree/build-firmware/build.ninja" || fail "the recipe's build is not link-time optimised"

# The recipe's folder is for its target alone: asked for another, a
# configure is refused, where CMake would keep the first without a word;
# asked for nothing, as when ninja configures again after a change to the
# build files, it goes on with its own.
for other in "CMAKE_TOOLCHAIN_FILE=$tree/cmake/toolchains/armhf.cmake" "CC=another-cc"; do
  (cd "$tree" && env "$other" cmake -S . -B build-firmware 2>&1 || true) | tr -s " \n" " " |
    grep "was configured with" >/dev/null ||
    fail "build-firmware configured again with $other is not refused"
done
touch "$tree/CMakeLists.txt"
env -u STAGING -u CC -u CXX -u CMAKE_TOOLCHAIN_FILE cmake --build "$tree/build-firmware" >/dev/null ||
  fail "build-firmware does not configure again on its own"

# A device gets the library and its SONAME link, stripped.
library=$(basename "$(find "$STAGING" -name 'liblinkward.so.*.*')")
shipped=$(find "$ROOTFS" ! -type d -printf '%f\n' | sort | tr '\n' ' ')
[ "$shipped" = "liblinkward.so.1 $library " ] || fail "the runtime component is not the library alone: $shipped"
[ "$(find "$ROOTFS" -name "$library" -printf %s)" -lt "$(find "$STAGING" -name "$library" -printf %s)" ] ||
  fail "the runtime component is not stripped"
find "$STAGING" -name kx_response.proto | grep -q . || fail "the schema files are not installed"

# linkward.pc leads to the staged files by itself, through PKG_CONFIG_PATH
# alone.
flags=$(PKG_CONFIG_PATH=$(dirname "$(find "$STAGING" -name linkward.pc)") pkg-config --cflags --libs linkward)
found=
for flag in $flags; do
  [[ $flag == -[IL]$STAGING/* ]] && [ -e "${flag:2}/linkward.h" -o -e "${flag:2}/liblinkward.so" ] &&
    found+=${flag:1:1}
done
[ "$found" = IL ] || fail "linkward.pc through PKG_CONFIG_PATH alone gives: $flags"

cmake -S "$SOURCE/tests/consumer" -B "$WORK/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$STAGING/usr"
cmake --build "$WORK/consumer"

# The device's library first, from the root file system.
on_device() {
  local dirs=$ROOTFS/usr/lib:$STAGING/usr/lib${RUNTIME_LIBDIRS:+:$RUNTIME_LIBDIRS}
  if [ -n "${EMULATOR:-}" ]; then
    $EMULATOR -E LD_LIBRARY_PATH="$dirs" "$@"
  else
    LD_LIBRARY_PATH=$dirs "$@"
  fi
}
expected='verdict 7, level 60, sub-type 10, text "kx.info=sc=110|ssc=11021"'
for program in linkward-verdict build-example/linkward-verdict; do
  printed=$(on_device "$tree/$program" "$tree/examples/answer.bin") || fail "$program failed"
  [ "$printed" = "$expected" ] || fail "$program printed: $printed"
done
on_device "$WORK/consumer/consumer" || fail "the C++ caller failed"
