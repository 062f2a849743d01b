# Message classes are generated from proto/ at build time and never committed.
#
# Between protoc and the compiler one step restores how the schema keeps an
# out-of-range enumeration value: as its low 32 bits in an unsigned varint (at
# most five bytes), where protoc 3.21 writes back all 64 bits. Each schema file
# is given the number of enumeration fields it declares, and the step fails the
# build unless it finds exactly that many sites.

set(LINKWARD_GENERATED_DIR ${PROJECT_BINARY_DIR}/generated)
set(LINKWARD_ENUM_PATCH ${CMAKE_CURRENT_LIST_DIR}/KeepEnumVarints.cmake)

# linkward_generate_messages(<out-var> <proto> <enum-sites> [<proto> <enum-sites>]...)
function(linkward_generate_messages out_var)
  set(sources)
  file(MAKE_DIRECTORY ${LINKWARD_GENERATED_DIR})
  while(ARGN)
    list(POP_FRONT ARGN proto sites)
    get_filename_component(name ${proto} NAME_WE)
    get_filename_component(proto_path ${proto} ABSOLUTE)
    get_filename_component(proto_dir ${proto_path} DIRECTORY)
    set(cc ${LINKWARD_GENERATED_DIR}/${name}.pb.cc)
    set(h ${LINKWARD_GENERATED_DIR}/${name}.pb.h)
    add_custom_command(
      OUTPUT ${cc} ${h}
      COMMAND protobuf::protoc -I${proto_dir} --cpp_out=${LINKWARD_GENERATED_DIR} ${proto_path}
      COMMAND ${CMAKE_COMMAND} -DFILE=${cc} -DSITES=${sites} -P ${LINKWARD_ENUM_PATCH}
      DEPENDS ${proto_path} ${LINKWARD_ENUM_PATCH} protobuf::protoc
      COMMENT "Generating message classes from ${name}.proto"
      VERBATIM)
    list(APPEND sources ${cc} ${h})
  endwhile()
  set(${out_var} ${sources} PARENT_SCOPE)
endfunction()
