# Cross build for the router's own C library: 32-bit little-endian ARM with
# musl (arm-linux-musleabihf), compiled by the clang that zig carries.
#
#   cmake -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/armhf-musl.cmake \
#         -DLINKWARD_ZIG=<zig> -DLINKWARD_SYSROOT=<folder> ...
#
# LINKWARD_ZIG is the zig compiler (0.11), with its lib/ folder beside it.
# LINKWARD_SYSROOT holds Debian's armhf musl and musl-dev unpacked with dpkg -x
# (the C library, its loader, headers and start files), the tool's header
# libraries, and under usr/lib what was built for the target with this file:
# the C++ runtime (cmake/musl-cxx-runtime), protobuf-lite and GoogleTest.
# `scripts/dev test-musl` prepares both. Programs such as protoc come from the
# host. Binaries run under qemu-arm with musl's loader.
#
# zig would bring a C library and a C++ runtime of its own. Here the C library
# is Debian's musl only, the one its loader is: headers, start files and
# libc.so (the sysroot has no libc.a, so nothing links a second copy
# statically). The C++ runtime is one shared libc++.so.1 that every binary
# links, where zig would put a private copy into each.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(LINKWARD_TARGET_TRIPLE arm-linux-musleabihf)
set(CMAKE_LIBRARY_ARCHITECTURE ${LINKWARD_TARGET_TRIPLE})

# try_compile projects read this file again and need the folders too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES
  LINKWARD_ZIG LINKWARD_SYSROOT LINKWARD_BUILDING_CXX_RUNTIME)
if(NOT LINKWARD_ZIG OR NOT LINKWARD_SYSROOT)
  message(FATAL_ERROR "set LINKWARD_ZIG to zig and LINKWARD_SYSROOT to the musl sysroot")
endif()

get_filename_component(zig_home ${LINKWARD_ZIG} DIRECTORY)
set(LINKWARD_ZIG_LIB ${zig_home}/lib)
# zig's cache stays beside zig, inside the build folder.
set(zig_cache ${zig_home}/../cache)
set(musl_libdir ${LINKWARD_SYSROOT}/usr/lib/${LINKWARD_TARGET_TRIPLE})
# What was built for the target is installed under usr/lib, as CMake installs
# a cross build.
set(built_libdir ${LINKWARD_SYSROOT}/usr/lib)
# The scripts through which CMake calls zig, and the files they hand it, live
# in the sysroot they point into, so that a copy of it (a staged install) gets
# its own.
set(scripts ${LINKWARD_SYSROOT}/toolchain)

# The processor baseline of Debian's armhf, which its musl is built for:
# ARMv7-A, VFPv3-D16 without NEON; and Thumb-2 code, as in the armhf build.
# zig's own target stays ARM, since zig builds its compiler-rt for it, and
# compiler-rt in Thumb does not assemble (the processor's thumb_mode feature)
# or cannot be linked into a shared library (a thumb-* target). Thumb is asked
# of clang alone, through -Xclang, whose arguments clang takes after zig's:
# the target, which zig names by its architecture alone and clang then takes
# for ARMv6, whose Thumb has no atomic instructions; and Thumb code, which the
# processor's features that zig hands clang turn off, -mthumb or not.
# compiler-rt's helpers, and the assembly files (.S), which zig assembles as
# ARM, stay ARM code, which Thumb code calls through the linker's interworking.
set(zig_target arm-linux-musleabihf)
set(cpu generic+v7a+vfp3d16-neon-d32)
set(clang_target thumbv7a-unknown-linux-musleabihf)
set(thumb "-Xclang -triple -Xclang ${clang_target} -Xclang -target-feature -Xclang +thumb-mode")

function(write_if_changed file content)
  file(WRITE ${file}.new "${content}")
  file(CHMOD ${file}.new PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  file(COPY_FILE ${file}.new ${file} ONLY_IF_DIFFERENT)
  file(REMOVE ${file}.new)
endfunction()

# Tells zig where Debian's musl is (ZIG_LIBC), in place of its own.
write_if_changed(${scripts}/musl-libc.txt
  "include_dir=${LINKWARD_SYSROOT}/usr/include/${LINKWARD_TARGET_TRIPLE}
sys_include_dir=${LINKWARD_SYSROOT}/usr/include/${LINKWARD_TARGET_TRIPLE}
crt_dir=${musl_libdir}
msvc_lib_dir=
kernel32_lib_dir=
gcc_dir=
")

# zig links a program statically unless a shared library is on its line, and
# names a library given by its path with that path, musl's libc.so having no
# SONAME. So every link is handed a linker script that asks for -lc: it is
# dynamic, and the program needs "libc.so", which musl's loader takes as
# itself. zig's linker writes the System V symbol hash table beside the GNU
# one; musl's loader reads the GNU one, the only one Debian's GCC writes (the
# armhf build), so the other is left out.
write_if_changed(${scripts}/musl-libc.so "INPUT(-lc)\n")
set(link_flags -Wl,--hash-style=gnu)

# musl's headers come before the Linux ones that zig carries (musl-dev has
# none). zig compiles C++ against its libc++ headers, with the settings it
# builds that runtime with; a link gets -nostdlib++, so that zig adds no
# private copy of the runtime (c++ links the shared one). That also takes the
# headers away, so C++ is compiled (-c) and linked in separate steps, as
# CMake does. Asked -dumpmachine, the wrappers name the target, as a cross
# gcc does.
set(zig "#!/bin/sh
export ZIG_LIBC='${scripts}/musl-libc.txt'
export ZIG_GLOBAL_CACHE_DIR='${zig_cache}' ZIG_LOCAL_CACHE_DIR='${zig_cache}'
zig='${LINKWARD_ZIG}'
target='-target ${zig_target} -mcpu=${cpu} ${thumb}'
target=\"$target -isystem ${LINKWARD_ZIG_LIB}/libc/include/arm-linux-any\"
target=\"$target -isystem ${LINKWARD_ZIG_LIB}/libc/include/any-linux-any\"
link='${link_flags} ${scripts}/musl-libc.so'
for arg; do
  case $arg in
    -c | -S | -E) link= ;;
    -dumpmachine) echo ${LINKWARD_TARGET_TRIPLE}; exit 0 ;;
  esac
done
")
# c++ links the shared C++ runtime into every C++ binary, a whole cross
# compiler as a firmware's is; the runtime itself is built with c++-bare.
# The wrappers are named as a cross toolchain's programs are, the target
# first, so that CMake finds the binary tools beside the compilers, as it
# does when only CC and CXX name them (the firmware recipe): under the names
# it looks for first with a clang, llvm-ar and the like, before the build
# machine's (whose older llvm-ar would find no link-time optimisation).
set(tool ${scripts}/${LINKWARD_TARGET_TRIPLE}-)
write_if_changed(${tool}cc "${zig}exec \"$zig\" cc $target \"$@\" $link\n")
foreach(wrapper c++ c++-bare)
  set(runtime ${built_libdir}/libc++.so)
  if(wrapper STREQUAL "c++-bare")
    set(runtime "")
  endif()
  write_if_changed(${tool}${wrapper} "${zig}[ -z \"$link\" ] || link=\"-nostdlib++ ${runtime} $link\"
exec \"$zig\" c++ $target \"$@\" $link
")
endforeach()
foreach(binary ar ranlib)
  write_if_changed(${tool}llvm-${binary} "#!/bin/sh\nexec '${LINKWARD_ZIG}' ${binary} \"$@\"\n")
endforeach()
# zig has no nm or strip; GNU's for armhf read any ARM ELF file.
foreach(binary nm strip)
  write_if_changed(${tool}llvm-${binary} "#!/bin/sh\nexec arm-linux-gnueabihf-${binary} \"$@\"\n")
endforeach()

set(CMAKE_C_COMPILER ${tool}cc)
if(LINKWARD_BUILDING_CXX_RUNTIME)
  set(CMAKE_CXX_COMPILER ${tool}c++-bare)
else()
  set(CMAKE_CXX_COMPILER ${tool}c++)
endif()

# zig defines NDEBUG itself from -O1 on; builds that want it say so.
set(CMAKE_C_FLAGS_INIT -UNDEBUG)
set(CMAKE_CXX_FLAGS_INIT -UNDEBUG)

# zig gives executables a 16 MiB PT_GNU_STACK, and musl takes that as the
# default stack of every thread. Firmware programs carry none, so threads get
# musl's own default (128 KiB).
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-z,stack-size=0)

set(CMAKE_FIND_ROOT_PATH ${LINKWARD_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# qemu-arm -L runs musl's loader and C library from the sysroot; the loader
# is told where the built libraries are, for programs without a run path such
# as installed ones.
set(LINKWARD_RUNTIME_LIBDIRS ${built_libdir})
set(CMAKE_CROSSCOMPILING_EMULATOR
  qemu-arm -L ${LINKWARD_SYSROOT} -E LD_LIBRARY_PATH=${LINKWARD_RUNTIME_LIBDIRS})
