#!/usr/bin/env bash
# Runs README.md's one block that installs into $STAGING as written, against
# this build (BUILD, for the block's own), with $ROOTFS and $STAGING under WORK
# and only the protobuf lite runtime staged from ROOT (a cross build's sysroot,
# or the host); then what it built, beside a C++ caller (consumer/).
# Environment: README BUILD LIBRARY (the built library) SOURCE WORK ARCH, CC
# and CXX (compiler and flags), and in a cross build TOOLCHAIN, ROOT and ZIG.
set -euo pipefail
fail() { echo "install_recipe: $*" >&2; exit 1; }
unset PKG_CONFIG_PATH PKG_CONFIG_LIBDIR PKG_CONFIG_SYSROOT_DIR

# Continued lines joined; the lines that configure and build the block's own
# folder give way to this build.
recipe=$(awk '/^```/ { if (inside && index(block, "DESTDIR=$STAGING")) { n++; kept = block }
    inside = !inside; block = ""; next }
  inside { block = block $0 "\n" }
  END { printf "%s", kept; exit (n != 1) }' "$README" | sed -e ':a' -e '/\\$/{N;s/\\\n//;ba}') ||
  fail "README.md must hold exactly one block that installs into \$STAGING"
folder=$(sed -n 's/^cmake -S \. -B \([^ ]*\).*/\1/p' <<<"$recipe")
[ -n "$folder" ] || fail "the recipe configures no build folder"
recipe=$(grep -Ev "^cmake (-S \. -B|--build) $folder( |$)" <<<"$recipe" | sed "s# $folder\b# $BUILD#g")

export STAGING=$WORK/staging ROOTFS=$WORK/rootfs
rm -rf "$WORK"
mkdir -p "$STAGING/usr/lib/pkgconfig" "$STAGING/usr/include/google" "$ROOTFS"
ln -s "$SOURCE/examples" "$WORK/examples"
if [ -n "${ZIG:-}" ]; then  # the musl sysroot is the firmware's whole system
  cp -a "$ROOT/." "$STAGING"
else
  mkdir -p "$STAGING/usr/lib/$ARCH"
  cp -a "${ROOT:-}/usr/lib/$ARCH"/libprotobuf-lite.so* "$STAGING/usr/lib/$ARCH"
  cp "${ROOT:-}/usr/lib/$ARCH/pkgconfig/protobuf-lite.pc" "$STAGING/usr/lib/pkgconfig"
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

# linkward.pc leads to the staged files by itself, through PKG_CONFIG_PATH
# alone.
flags=$(PKG_CONFIG_PATH=$(dirname "$(find "$STAGING" -name linkward.pc)") pkg-config --cflags --libs linkward)
found=
for flag in $flags; do
  [[ $flag == -[IL]$STAGING/* ]] && [ -e "${flag:2}/linkward.h" -o -e "${flag:2}/liblinkward.so" ] &&
    found+=${flag:1:1}
done
[ "$found" = IL ] || fail "linkward.pc through PKG_CONFIG_PATH alone gives: $flags"

cmake -S "$SOURCE/tests/consumer" -B "$WORK/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$STAGING/usr" -DRECIPE="$WORK"
cmake --build "$WORK/consumer"
ctest --test-dir "$WORK/consumer" --output-on-failure --no-tests=error
