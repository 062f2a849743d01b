# cmake -DBUILD_DIR=<build tree> -DCONFIG=<build type> -DPREFIX=<install prefix>
#       -DLIBDIR=<libdir> -DVERSION=<x.y.z> -DARCH=<multiarch> [-DROOT=<sysroot>]
#       -DEXAMPLE=<folder> -DGENERATOR=<generator> -DC_FLAGS=.. -DCXX_FLAGS=..
#       -DLINKER_FLAGS=.. ( -DC_COMPILER=<cc> -DCXX_COMPILER=<c++>
#       | -DTOOLCHAIN=<file> [-DZIG=<zig>] ) -P staged_install.cmake
#
# Stages an install as firmware build systems do (DESTDIR) beside nothing but
# protobuf-lite from ROOT, the host's or the cross build's sysroot; builds and
# runs the consumer against it alone; then stages the runtime component.
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(stage ${BUILD_DIR}/staged-install)
file(REMOVE_RECURSE ${stage} ${stage}-runtime ${BUILD_DIR}/staged-consumer)
if(ZIG)
  # The musl sysroot is the firmware's whole system, with protobuf-lite alone.
  file(COPY ${ROOT}/ DESTINATION ${stage})
  set(lite_libdir usr/lib)
else()
  set(lite_libdir usr/lib/${ARCH})
  file(GLOB lite ${ROOT}/${lite_libdir}/libprotobuf-lite.so*)
  file(COPY ${lite} DESTINATION ${stage}/${lite_libdir})
  file(COPY ${ROOT}/${lite_libdir}/pkgconfig/protobuf-lite.pc
    DESTINATION ${stage}/${lite_libdir}/pkgconfig)
  file(COPY ${ROOT}/usr/include/google/protobuf
    DESTINATION ${stage}/usr/include/google)
endif()
run(${CMAKE_COMMAND} -E env DESTDIR=${stage}
  ${CMAKE_COMMAND} --install ${BUILD_DIR} --config ${CONFIG})
if(NOT EXISTS ${stage}${PREFIX}/share/linkward/proto/kx_response.proto)
  message(FATAL_ERROR "the schema files are not installed")
endif()

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${stage})
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_LIBDIR}
  "${stage}${PREFIX}/${LIBDIR}/pkgconfig:${stage}/${lite_libdir}/pkgconfig")
if(TOOLCHAIN)
  set(compilers -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -DLINKWARD_SYSROOT=${stage}
    -DLINKWARD_ZIG=${ZIG})
else()
  set(compilers -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER})
endif()
run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR}/consumer -B ${BUILD_DIR}/staged-consumer
  -G ${GENERATOR} ${compilers} -DCMAKE_BUILD_TYPE=${CONFIG} -DEXAMPLE=${EXAMPLE}
  -DCMAKE_C_FLAGS=${C_FLAGS} -DCMAKE_CXX_FLAGS=${CXX_FLAGS}
  -DCMAKE_EXE_LINKER_FLAGS=${LINKER_FLAGS} -DCMAKE_PREFIX_PATH=${PREFIX}
  -DCMAKE_FIND_ROOT_PATH=${stage} -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=ONLY
  -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY)
run(${CMAKE_COMMAND} --build ${BUILD_DIR}/staged-consumer)
run(${CMAKE_CTEST_COMMAND} --test-dir ${BUILD_DIR}/staged-consumer --output-on-failure)

# What a device gets: the library and its SONAME link, stripped.
run(${CMAKE_COMMAND} -E env DESTDIR=${stage}-runtime ${CMAKE_COMMAND}
  --install ${BUILD_DIR} --config ${CONFIG} --component runtime --strip)
set(lib ${stage}-runtime${PREFIX}/${LIBDIR})
file(GLOB_RECURSE shipped RELATIVE ${lib} ${stage}-runtime/*)
file(SIZE ${stage}${PREFIX}/${LIBDIR}/liblinkward.so.${VERSION} built)
file(SIZE ${lib}/liblinkward.so.${VERSION} stripped)
if(NOT shipped STREQUAL "liblinkward.so.1;liblinkward.so.${VERSION}" OR NOT stripped LESS built)
  message(FATAL_ERROR "not the library alone, stripped: ${shipped}; ${stripped} of ${built} bytes")
endif()
