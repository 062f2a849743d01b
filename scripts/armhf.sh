# armhf: the router's processor class, 32-bit little-endian ARM, with glibc
# and Debian's cross compiler; the suite runs under qemu-arm. Everything
# lives in build-armhf/.
arm_build_dir=${LINKWARD_ARM_BUILD_DIR:-$root/build-armhf}
arm_packages=(g++-arm-linux-gnueabihf qemu-user)
# Unpacked into the sysroot: protobuf-lite of the host protoc's version (the
# full runtime and zlib only complete what CMake's FindProtobuf looks for),
# GoogleTest, and the tool's header libraries.
arm_sysroot_packages=(
  libprotobuf-dev libprotobuf-lite32 libprotobuf32 zlib1g
  libgtest-dev libgmock-dev
  libcli11-dev nlohmann-json3-dev
)

arm_sysroot() {
  local sysroot=$arm_build_dir/sysroot apt=$arm_build_dir/apt
  sysroot_holds "$sysroot" "${arm_sysroot_packages[@]}" && return 0
  rm -rf "$sysroot" "$apt"
  armhf_download "$apt" "${arm_sysroot_packages[@]}"
  local protoc_version lite_version
  protoc_version=$(protoc --version | awk '{print $2}')
  lite_version=$(dpkg-deb -f "$apt"/debs/libprotobuf-lite32_*.deb Version)
  if [[ $lite_version != "$protoc_version"-* ]]; then
    echo "armhf protobuf-lite $lite_version does not match the host's protoc $protoc_version" >&2
    return 1
  fi
  unpack_sysroot "$apt" "$sysroot" "${arm_sysroot_packages[@]}"
}

# The size-optimised build that firmware ships, tested as shipped.
cmd_test_arm() {
  apt_install "${packages[@]}" "${arm_packages[@]}"
  arm_sysroot
  cmake -S "$root" -B "$arm_build_dir" -G Ninja -DCMAKE_BUILD_TYPE=MinSizeRel \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/armhf.cmake" \
    -DLINKWARD_SYSROOT="$arm_build_dir/sysroot" \
    -DLINKWARD_SIZE_LIMIT=$firmware_size_limit "${with_tests[@]}" "${with_tool[@]}"
  cmake --build "$arm_build_dir" -j "$jobs"
  run_tests "$arm_build_dir"
  footprint "$arm_build_dir"
}
