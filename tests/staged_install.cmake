# cmake -DBUILD_DIR=<build tree> -DCONFIG=<build type> -DSTAGE=<folder>
#       -DPREFIX=<install prefix> -DLIBDIR=<libdir> -DCONSUMER=<project>
#       -DGENERATOR=<generator> -DC_FLAGS=.. -DCXX_FLAGS=.. -DLINKER_FLAGS=..
#       ( -DC_COMPILER=<cc> -DCXX_COMPILER=<c++>
#       | -DTOOLCHAIN=<file> -DSYSROOT=<folder> -DARCH=<multiarch> [-DZIG=<zig>] )
#       -P staged_install.cmake
#
# Stages an install of the build tree as a firmware build system does
# (cmake --install with DESTDIR), then builds the consumer project against
# the staged files, through pkg-config and through find_package, and runs it.
# A cross build stages into a copy of its sysroot, which then plays the
# firmware's staging sysroot: every library the consumer links comes from it.
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(REMOVE_RECURSE ${STAGE})
if(SYSROOT)
  file(COPY ${SYSROOT}/ DESTINATION ${STAGE})
endif()
run(${CMAKE_COMMAND} -E env DESTDIR=${STAGE}
    ${CMAKE_COMMAND} --install ${BUILD_DIR} --config ${CONFIG})

set(root ${STAGE}${PREFIX})
foreach(link liblinkward.so liblinkward.so.1)
  if(NOT IS_SYMLINK ${root}/${LIBDIR}/${link})
    message(FATAL_ERROR "${link} is not installed as a link")
  endif()
endforeach()
file(GLOB installed
  ${root}/${LIBDIR}/liblinkward.so.1.*
  ${root}/include/linkward/kx_response.pb.h
  ${root}/share/linkward/proto/kx_response.proto
  ${root}/bin/*)
list(LENGTH installed count)
if(count LESS 4)
  message(FATAL_ERROR "missing from the install: ${installed}")
endif()

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${STAGE})
set(consumer_args -S ${CONSUMER} -B ${BUILD_DIR}/staged-consumer
    -G ${GENERATOR} -DCMAKE_BUILD_TYPE=${CONFIG}
    -DCMAKE_C_FLAGS=${C_FLAGS} -DCMAKE_CXX_FLAGS=${CXX_FLAGS}
    -DCMAKE_EXE_LINKER_FLAGS=${LINKER_FLAGS})
if(TOOLCHAIN)
  set(ENV{PKG_CONFIG_LIBDIR}
      "${root}/${LIBDIR}/pkgconfig:${STAGE}/usr/lib/${ARCH}/pkgconfig:${STAGE}/usr/share/pkgconfig")
  list(APPEND consumer_args
    -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -DLINKWARD_SYSROOT=${STAGE}
    -DLINKWARD_ZIG=${ZIG})
else()
  set(ENV{PKG_CONFIG_PATH} ${root}/${LIBDIR}/pkgconfig)
  list(APPEND consumer_args
    -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
    -DCMAKE_PREFIX_PATH=${root})
endif()
file(REMOVE_RECURSE ${BUILD_DIR}/staged-consumer)
run(${CMAKE_COMMAND} ${consumer_args})
run(${CMAKE_COMMAND} --build ${BUILD_DIR}/staged-consumer)
run(${CMAKE_CTEST_COMMAND} --test-dir ${BUILD_DIR}/staged-consumer
    --output-on-failure)
