# Message classes are generated from proto/ at build time and never committed.
#
# Between protoc and the compiler one step gives every class the library's
# parse in place of the one protoc writes (UseStreamMerge.cmake). Each schema
# file is given the number of message classes it declares, and the step fails
# the build unless it finds exactly that many parsers.

# protoc runs on the build machine, so it is never looked for in a cross
# build's sysroot or staging area; it must be of the runtime's series
# (linkward-protobuf-lite.cmake), as the generated code requires.
find_program(LINKWARD_PROTOC protoc NO_CMAKE_FIND_ROOT_PATH
  DOC "protoc for the build machine")
if(NOT LINKWARD_PROTOC)
  message(FATAL_ERROR "linkward: protoc was not found; install it (Debian: "
    "protobuf-compiler) or name it with -DLINKWARD_PROTOC=<path>")
endif()
execute_process(COMMAND ${LINKWARD_PROTOC} --version
  OUTPUT_VARIABLE protoc_version OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT protoc_version MATCHES " ${LINKWARD_PROTOBUF_SERIES}\\.[0-9]+$")
  message(FATAL_ERROR "linkward: ${LINKWARD_PROTOC} is '${protoc_version}'; "
    "the runtime is ${LINKWARD_PROTOBUF_VERSION}, and protoc must be of its "
    "series, ${LINKWARD_PROTOBUF_SERIES}")
endif()
if(NOT TARGET linkward::protoc)
  add_executable(linkward::protoc IMPORTED GLOBAL)
  set_target_properties(linkward::protoc PROPERTIES
    IMPORTED_LOCATION ${LINKWARD_PROTOC})
endif()

set(LINKWARD_GENERATED_DIR ${PROJECT_BINARY_DIR}/generated)
set(LINKWARD_PARSE_PATCH ${CMAKE_CURRENT_LIST_DIR}/UseStreamMerge.cmake)

# linkward_generate_messages(<out-var> <proto> <messages> [<proto> <messages>]...)
function(linkward_generate_messages out_var)
  set(sources)
  file(MAKE_DIRECTORY ${LINKWARD_GENERATED_DIR})
  while(ARGN)
    list(POP_FRONT ARGN proto messages)
    get_filename_component(name ${proto} NAME_WE)
    get_filename_component(proto_path ${proto} ABSOLUTE)
    get_filename_component(proto_dir ${proto_path} DIRECTORY)
    set(cc ${LINKWARD_GENERATED_DIR}/${name}.pb.cc)
    set(h ${LINKWARD_GENERATED_DIR}/${name}.pb.h)
    add_custom_command(
      OUTPUT ${cc} ${h}
      COMMAND linkward::protoc -I${proto_dir} --cpp_out=${LINKWARD_GENERATED_DIR} ${proto_path}
      COMMAND ${CMAKE_COMMAND} -DFILE=${cc} -DMESSAGES=${messages} -P ${LINKWARD_PARSE_PATCH}
      DEPENDS ${proto_path} ${LINKWARD_PARSE_PATCH} linkward::protoc
      COMMENT "Generating message classes from ${name}.proto"
      VERBATIM)
    list(APPEND sources ${cc} ${h})
  endwhile()
  set(${out_var} ${sources} PARENT_SCOPE)
endfunction()
