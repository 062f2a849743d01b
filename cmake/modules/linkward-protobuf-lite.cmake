# The protobuf lite runtime, headers and library, as the imported target
# linkward::protobuf-lite: what the library links, and what its callers
# compile against. The build and the installed CMake package both find it
# here. Only the lite runtime is looked for: a firmware's staging area often
# holds no other part of protobuf.
#
# The message classes are generated for one series of the runtime, 3.21, and
# the library's parse takes the place of that series' own. Sets
# LINKWARD_PROTOBUF_VERSION to the version the headers declare, and, when the
# runtime is missing or not of that series (or older than
# LINKWARD_PROTOBUF_LEAST, where that is set), LINKWARD_PROTOBUF_PROBLEM to
# what is wrong; the caller decides what to do about it.
set(LINKWARD_PROTOBUF_SERIES 3.21)
# The series after it, the first not taken: 3.22.
string(REGEX MATCH "^([0-9]+)\\.([0-9]+)$" linkward_series ${LINKWARD_PROTOBUF_SERIES})
math(EXPR linkward_next_minor "${CMAKE_MATCH_2} + 1")
set(LINKWARD_PROTOBUF_NEXT_SERIES ${CMAKE_MATCH_1}.${linkward_next_minor})
set(LINKWARD_PROTOBUF_PROBLEM "")

find_path(LINKWARD_PROTOBUF_INCLUDE_DIR google/protobuf/message_lite.h
  DOC "The folder that holds google/protobuf/message_lite.h")
find_library(LINKWARD_PROTOBUF_LITE_LIBRARY protobuf-lite
  DOC "The protobuf lite runtime library")

set(LINKWARD_PROTOBUF_VERSION "")
if(EXISTS ${LINKWARD_PROTOBUF_INCLUDE_DIR}/google/protobuf/stubs/common.h)
  # 3021012 is 3.21.12.
  file(STRINGS ${LINKWARD_PROTOBUF_INCLUDE_DIR}/google/protobuf/stubs/common.h
    linkward_version_line REGEX "^#define GOOGLE_PROTOBUF_VERSION [0-9]+$")
  if(linkward_version_line MATCHES "([0-9]+)([0-9][0-9][0-9])([0-9][0-9][0-9])$")
    math(EXPR linkward_minor ${CMAKE_MATCH_2})
    math(EXPR linkward_patch ${CMAKE_MATCH_3})
    set(LINKWARD_PROTOBUF_VERSION
      ${CMAKE_MATCH_1}.${linkward_minor}.${linkward_patch})
  endif()
endif()

if(NOT LINKWARD_PROTOBUF_INCLUDE_DIR OR NOT LINKWARD_PROTOBUF_LITE_LIBRARY)
  set(LINKWARD_PROTOBUF_PROBLEM
    "the protobuf lite runtime was not found (headers: ${LINKWARD_PROTOBUF_INCLUDE_DIR}, library: ${LINKWARD_PROTOBUF_LITE_LIBRARY})")
elseif(NOT LINKWARD_PROTOBUF_VERSION MATCHES "^${LINKWARD_PROTOBUF_SERIES}\\.")
  set(LINKWARD_PROTOBUF_PROBLEM
    "the protobuf headers in ${LINKWARD_PROTOBUF_INCLUDE_DIR} are version '${LINKWARD_PROTOBUF_VERSION}', not of the ${LINKWARD_PROTOBUF_SERIES} series")
elseif(LINKWARD_PROTOBUF_LEAST AND LINKWARD_PROTOBUF_VERSION VERSION_LESS LINKWARD_PROTOBUF_LEAST)
  set(LINKWARD_PROTOBUF_PROBLEM
    "the protobuf headers in ${LINKWARD_PROTOBUF_INCLUDE_DIR} are version ${LINKWARD_PROTOBUF_VERSION}, older than the ${LINKWARD_PROTOBUF_LEAST} linkward was built with")
elseif(NOT TARGET linkward::protobuf-lite)
  # Global, so that a parent project that adds linkward as a subdirectory
  # links it too.
  add_library(linkward::protobuf-lite UNKNOWN IMPORTED GLOBAL)
  set_target_properties(linkward::protobuf-lite PROPERTIES
    IMPORTED_LOCATION ${LINKWARD_PROTOBUF_LITE_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${LINKWARD_PROTOBUF_INCLUDE_DIR})
endif()
