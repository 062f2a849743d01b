# A toolchain file for building against a firmware's staging area: linkward,
# or any other component. Copy it into the firmware's tree, or use it from
# here:
#
#   export STAGING=<the staging area> CC=<target C compiler> CXX=<target C++ compiler>
#   export CMAKE_TOOLCHAIN_FILE=<this file>
#
# The compilers bring the target's C library and C++ runtime (their own
# sysroot); the staging area holds what the firmware's components install,
# laid out under usr/ (usr/lib, usr/include, usr/lib/pkgconfig). Headers,
# libraries and CMake packages are looked for there alone; programs, such as
# protoc, on the build machine. The target is the one CC compiles for.

set(CMAKE_SYSTEM_NAME Linux)

# The staging area is read from the environment on the first configure and
# kept in the cache, for the configures that follow a change in the project;
# the test projects CMake builds on the way get it, and the processor, from
# here.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES STAGING STAGING_PROCESSOR)
if(NOT STAGING)
  set(STAGING "$ENV{STAGING}" CACHE PATH "The firmware's staging area")
endif()
if(NOT IS_DIRECTORY "${STAGING}")
  message(FATAL_ERROR "set STAGING to the firmware's staging area (it is '${STAGING}')")
endif()

# The processor from the compiler's own name for its target
# (arm-linux-gnueabihf gives arm), kept in the cache as the staging area is.
if(NOT STAGING_PROCESSOR)
  if(NOT DEFINED ENV{CC} OR NOT DEFINED ENV{CXX})
    message(FATAL_ERROR "set CC and CXX to the target's C and C++ compilers")
  endif()
  execute_process(COMMAND sh -c "$CC -dumpmachine"
    OUTPUT_VARIABLE target_machine OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE failed)
  if(failed OR NOT target_machine MATCHES "^([^-]+)-")
    message(FATAL_ERROR "'$ENV{CC} -dumpmachine' names no target: '${target_machine}'")
  endif()
  set(STAGING_PROCESSOR ${CMAKE_MATCH_1} CACHE STRING "The target's processor")
endif()
set(CMAKE_SYSTEM_PROCESSOR ${STAGING_PROCESSOR})

set(CMAKE_FIND_ROOT_PATH ${STAGING})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
