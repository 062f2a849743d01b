# Message classes are generated from proto/ at build time and never committed.
#
# Between protoc and the compiler one step gives every class the library's
# parse in place of the one protoc writes (UseStreamMerge.cmake). Each schema
# file is given the number of message classes it declares, and the step fails
# the build unless it finds exactly that many parsers.

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
      COMMAND protobuf::protoc -I${proto_dir} --cpp_out=${LINKWARD_GENERATED_DIR} ${proto_path}
      COMMAND ${CMAKE_COMMAND} -DFILE=${cc} -DMESSAGES=${messages} -P ${LINKWARD_PARSE_PATCH}
      DEPENDS ${proto_path} ${LINKWARD_PARSE_PATCH} protobuf::protoc
      COMMENT "Generating message classes from ${name}.proto"
      VERBATIM)
    list(APPEND sources ${cc} ${h})
  endwhile()
  set(${out_var} ${sources} PARENT_SCOPE)
endfunction()
