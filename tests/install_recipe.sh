#!/usr/bin/env bash
# Runs the one block of README.md that installs into $STAGING as written:
# its install and consumer commands against this build (BUILD, in place of
# the folder the block configures and builds), with $ROOTFS and $STAGING
# under WORK and the protobuf lite runtime alone staged beforehand from ROOT
# (a cross build's sysroot, or the host). Then runs what it built, and a C++
# caller of the message classes built with find_package.
#
# Environment: README BUILD LIBRARY (the built library) SOURCE WORK ARCH, CC
# and CXX (compiler and flags), and in a cross build TOOLCHAIN, ROOT and ZIG.
set -euo pipefail
fail() { echo "install_recipe: $*" >&2; exit 1; }
unset PKG_CONFIG_PATH PKG_CONFIG_LIBDIR PKG_CONFIG_SYSROOT_DIR

# Lines continued with a backslash are joined. The lines that configure and
# build the recipe's folder are skipped: this build stands in for it.
recipe=$(awk '/^```/ { if (inside && index(block, "DESTDIR=$STAGING")) { n++; kept = block }
    inside = !inside; block = ""; next }
  inside { block = block $0 "\n" }
  END { printf "%s", kept; exit (n != 1) }' "$README" | sed -e ':a' -e '/\\$/{N;s/\\\n//;ba}') ||
  fail "README.md must hold exactly one block that installs into \$STAGING"
folder=$(sed -n 's/^cmake -S \. -B \([^ ]*\).*/\1/p' <<<"$recipe")
[ -n "$folder" ] || fail "the recipe configures no build folder"
recipe=$(grep -Ev "^cmake (-S \. -B|--build) $folder( |$)" <<<"$recipe" |
  sed "s# $folder\b# $BUILD#g")

export STAGING=$WORK/staging ROOTFS=$WORK/rootfs
rm -rf "$WORK"
mkdir -p "$STAGING" "$ROOTFS"
ln -s "$SOURCE/examples" "$WORK/examples"
if [ -n "${ZIG:-}" ]; then
  # The musl sysroot is the firmware's whole system, protobuf-lite included.
  cp -a "$ROOT/." "$STAGING"
else
  lib=usr/lib/$ARCH
  mkdir -p "$STAGING/$lib" "$STAGING/usr/lib/pkgconfig" "$STAGING/usr/include/google"
  cp -a "${ROOT:-}/$lib"/libprotobuf-lite.so* "$STAGING/$lib"
  cp "${ROOT:-}/$lib/pkgconfig/protobuf-lite.pc" "$STAGING/usr/lib/pkgconfig"
  cp -a "${ROOT:-}/usr/include/google/protobuf" "$STAGING/usr/include/google"
fi

# The firmware's toolchain file: the cross build's, if any, with every search
# rooted in the staging area.
cat >"$WORK/toolchain.cmake" <<EOF
set(LINKWARD_SYSROOT $STAGING)
set(LINKWARD_ZIG ${ZIG:-})
${TOOLCHAIN:+include($TOOLCHAIN)}
set(CMAKE_FIND_ROOT_PATH $STAGING)
foreach(kind PACKAGE LIBRARY INCLUDE)
  set(CMAKE_FIND_ROOT_PATH_MODE_\${kind} ONLY)
endforeach()
EOF
export CMAKE_TOOLCHAIN_FILE=$WORK/toolchain.cmake CC CXX
(cd "$WORK" && sh -eux -c "$recipe")

# A device gets the library and its SONAME link, stripped.
name=$(basename "$LIBRARY")
shipped=$(find "$ROOTFS" ! -type d -printf '%f\n' | sort | tr '\n' ' ')
[ "$shipped" = "liblinkward.so.1 $name " ] || fail "the runtime component is not the library alone: $shipped"
[ "$(find "$ROOTFS" -name "$name" -printf %s)" -lt "$(stat -c %s "$LIBRARY")" ] ||
  fail "the runtime component is not stripped"
find "$STAGING" -name kx_response.proto | grep -q . || fail "the schema files are not installed"

# The .pc file leads to the staged files by itself, through PKG_CONFIG_PATH
# alone.
pc=$(dirname "$(find "$STAGING" -name linkward.pc)")
flags=$(PKG_CONFIG_PATH=$pc pkg-config --cflags --libs linkward)
found=
for flag in $flags; do
  if [[ $flag == -[IL]"$STAGING"/* ]] &&
    [ -e "${flag:2}/linkward.h" -o -e "${flag:2}/liblinkward.so" ]; then found+=${flag:1:1}; fi
done
[ "$found" = IL ] || fail "linkward.pc through PKG_CONFIG_PATH alone gives: $flags"

cmake -S "$SOURCE/tests/consumer" -B "$WORK/consumer" -G Ninja \
  -DCMAKE_PREFIX_PATH="$STAGING/usr" -DRECIPE="$WORK"
cmake --build "$WORK/consumer"
ctest --test-dir "$WORK/consumer" --output-on-failure --no-tests=error
