# Cross build for the router's processor class: 32-bit little-endian ARM
# (armhf: ARMv7, EABI hard-float, glibc) with Debian's arm-linux-gnueabihf
# cross compiler. Same word size, byte order, int, size_t and calling
# convention as the router's musl target.
#
#   cmake -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/armhf.cmake \
#         -DLINKWARD_SYSROOT=<folder> ...
#
# LINKWARD_SYSROOT holds Debian's armhf packages unpacked with dpkg -x
# (protobuf-lite of the host protoc's version, GoogleTest, the tool's header
# libraries); `scripts/dev test-arm` prepares it. Only libraries, headers and
# packages are looked up there; programs such as protoc come from the host.
# Binaries run under qemu-arm, which is how CTest runs the test suite.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(LINKWARD_TARGET_TRIPLE arm-linux-gnueabihf)

set(CMAKE_C_COMPILER ${LINKWARD_TARGET_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${LINKWARD_TARGET_TRIPLE}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${LINKWARD_TARGET_TRIPLE})

# try_compile projects read this file again and need the folder too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES LINKWARD_SYSROOT)
if(NOT LINKWARD_SYSROOT)
  message(FATAL_ERROR "set LINKWARD_SYSROOT to the unpacked armhf packages")
endif()

set(CMAKE_FIND_ROOT_PATH ${LINKWARD_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The ARM loader finds the C library and libstdc++ under the cross
# compiler's folder (/usr/<triple>); the unpacked libraries it is told about,
# for programs without a run path such as installed ones.
set(LINKWARD_RUNTIME_LIBDIRS
  ${LINKWARD_SYSROOT}/usr/lib/${LINKWARD_TARGET_TRIPLE}:${LINKWARD_SYSROOT}/lib/${LINKWARD_TARGET_TRIPLE})
set(CMAKE_CROSSCOMPILING_EMULATOR
  qemu-arm -L /usr/${LINKWARD_TARGET_TRIPLE} -E LD_LIBRARY_PATH=${LINKWARD_RUNTIME_LIBDIRS})
