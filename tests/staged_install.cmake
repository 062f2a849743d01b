# cmake -DBUILD_DIR=<build tree> -DCONFIG=<build type> -DSTAGE=<folder>
#       -DPREFIX=<install prefix> -DLIBDIR=<libdir> -DLIBRARY=<built library>
#       -DVERSION=<x.y.z> -DARCH=<multiarch> [-DROOT=<sysroot>]
#       -DCONSUMER=<project> -DEXAMPLE=<folder> -DANSWER=<file>
#       -DGENERATOR=<generator> -DC_FLAGS=.. -DCXX_FLAGS=.. -DLINKER_FLAGS=..
#       ( -DC_COMPILER=<cc> -DCXX_COMPILER=<c++> | -DTOOLCHAIN=<file> [-DZIG=<zig>] )
#       -P staged_install.cmake
#
# Stages an install of the build tree as a firmware build system does
# (cmake --install with DESTDIR) into a staging area that holds nothing else
# but protobuf-lite (its library, headers and pkg-config file, taken from ROOT,
# the host's or the cross build's sysroot); builds the consumer project
# against it, through pkg-config and through find_package, looking nowhere
# else; and runs it. Then stages the runtime component alone, stripped, as
# firmware ships it.
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(install_into stage)
  run(${CMAKE_COMMAND} -E env DESTDIR=${stage}
      ${CMAKE_COMMAND} --install ${BUILD_DIR} --config ${CONFIG} ${ARGN})
endfunction()

file(REMOVE_RECURSE ${STAGE} ${STAGE}-runtime)
if(ZIG)
  # The musl build's sysroot is the firmware's whole system as its compiler
  # sees it (the C library, the C++ runtime and the compiler's scripts); of
  # protobuf it holds the lite runtime alone, in usr/lib.
  file(COPY ${ROOT}/ DESTINATION ${STAGE})
  set(lite_libdir usr/lib)
else()
  set(lite_libdir usr/lib/${ARCH})
  file(GLOB lite ${ROOT}/${lite_libdir}/libprotobuf-lite.so*)
  file(COPY ${lite} DESTINATION ${STAGE}/${lite_libdir})
  file(COPY ${ROOT}/${lite_libdir}/pkgconfig/protobuf-lite.pc
    DESTINATION ${STAGE}/${lite_libdir}/pkgconfig)
  file(COPY ${ROOT}/usr/include/google/protobuf
    DESTINATION ${STAGE}/usr/include/google)
endif()
install_into(${STAGE})

set(root ${STAGE}${PREFIX})
foreach(link liblinkward.so liblinkward.so.1)
  if(NOT IS_SYMLINK ${root}/${LIBDIR}/${link})
    message(FATAL_ERROR "${link} is not installed as a link")
  endif()
endforeach()
foreach(file include/linkward/kx_response.pb.h include/linkward/linkward.h
    share/linkward/proto/kx_response.proto ${LIBDIR}/pkgconfig/linkward.pc
    ${LIBDIR}/cmake/linkward/linkward-config.cmake)
  if(NOT EXISTS ${root}/${file})
    message(FATAL_ERROR "missing from the install: ${file}")
  endif()
endforeach()

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${STAGE})
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_LIBDIR}
    "${root}/${LIBDIR}/pkgconfig:${STAGE}/${lite_libdir}/pkgconfig")
set(consumer_args -S ${CONSUMER} -B ${BUILD_DIR}/staged-consumer
    -G ${GENERATOR} -DCMAKE_BUILD_TYPE=${CONFIG} -DCMAKE_PREFIX_PATH=${PREFIX}
    -DEXAMPLE=${EXAMPLE} -DANSWER=${ANSWER}
    -DCMAKE_C_FLAGS=${C_FLAGS} -DCMAKE_CXX_FLAGS=${CXX_FLAGS}
    -DCMAKE_EXE_LINKER_FLAGS=${LINKER_FLAGS})
if(TOOLCHAIN)
  list(APPEND consumer_args
    -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -DLINKWARD_SYSROOT=${STAGE}
    -DLINKWARD_ZIG=${ZIG})
else()
  list(APPEND consumer_args
    -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
    -DCMAKE_FIND_ROOT_PATH=${STAGE} -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=ONLY
    -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY
    -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY)
endif()
file(REMOVE_RECURSE ${BUILD_DIR}/staged-consumer)
run(${CMAKE_COMMAND} ${consumer_args})
run(${CMAKE_COMMAND} --build ${BUILD_DIR}/staged-consumer)
run(${CMAKE_CTEST_COMMAND} --test-dir ${BUILD_DIR}/staged-consumer
    --output-on-failure)

# What a device gets: the library and its SONAME link, stripped.
install_into(${STAGE}-runtime --component runtime --strip)
file(GLOB_RECURSE shipped ${STAGE}-runtime/*)
set(lib ${STAGE}-runtime${PREFIX}/${LIBDIR}/liblinkward.so)
if(NOT shipped STREQUAL "${lib}.1;${lib}.${VERSION}")
  message(FATAL_ERROR "the runtime component is not the library alone: ${shipped}")
endif()
file(SIZE ${lib}.${VERSION} stripped)
file(SIZE ${LIBRARY} built)
if(NOT stripped LESS built)
  message(FATAL_ERROR "the runtime component is not stripped: ${stripped} bytes")
endif()
message(STATUS "runtime component: ${stripped} bytes, the built library ${built}")
