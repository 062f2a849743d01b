# Message classes are generated from proto/ at build time and never committed.
#
# Between protoc and the compiler one step gives every class the library's
# parse in place of the one protoc writes, and writes what the build needs of
# each field, from the schema itself (schema_codegen.py).

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

# python3 runs on the build machine too, its standard library alone.
find_package(Python3 3.7 REQUIRED COMPONENTS Interpreter)

set(LINKWARD_GENERATED_DIR ${PROJECT_BINARY_DIR}/generated)
set(LINKWARD_SCHEMA_CODEGEN ${CMAKE_CURRENT_LIST_DIR}/schema_codegen.py)

# linkward_generate_messages(<out-var> <proto>...)
# protoc writes the message classes and the schema's descriptors; from the
# descriptors schema_codegen.py writes each class's field-by-field dispatch
# for the library's parse (message_fields.inc) and the schema as data for the
# tool and the fuzz oracle (schema_tables.h), and hands each class's parser
# over to the library's parse. <out-var> gets the classes' sources.
function(linkward_generate_messages out_var)
  set(protoc_out ${LINKWARD_GENERATED_DIR}/protoc)
  set(descriptors ${protoc_out}/schema.desc)
  set(sources)
  set(protos)
  foreach(proto IN LISTS ARGN)
    get_filename_component(proto_path ${proto} ABSOLUTE)
    get_filename_component(proto_dir ${proto_path} DIRECTORY)
    get_filename_component(name ${proto} NAME_WE)
    list(APPEND protos ${proto_path})
    list(APPEND sources ${LINKWARD_GENERATED_DIR}/${name}.pb.cc
      ${LINKWARD_GENERATED_DIR}/${name}.pb.h)
  endforeach()
  file(MAKE_DIRECTORY ${protoc_out})
  add_custom_command(
    OUTPUT ${sources} ${LINKWARD_GENERATED_DIR}/message_fields.inc
      ${LINKWARD_GENERATED_DIR}/schema_tables.h
    COMMAND linkward::protoc -I${proto_dir} --cpp_out=${protoc_out}
      --descriptor_set_out=${descriptors} --include_imports ${protos}
    COMMAND Python3::Interpreter ${LINKWARD_SCHEMA_CODEGEN} ${descriptors}
      ${protoc_out} ${LINKWARD_GENERATED_DIR}
    DEPENDS ${protos} ${LINKWARD_SCHEMA_CODEGEN} linkward::protoc
    COMMENT "Generating the message classes and their parse from proto/"
    VERBATIM)
  set(${out_var} ${sources} PARENT_SCOPE)
endfunction()
