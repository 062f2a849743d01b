# cmake -DNM=<nm> -DLIBRARY=<liblinkward.so> -P exported_symbols.cmake
# Reads the library's dynamic symbol table: nothing may be exported but the
# four entry points (the loader test binds them by name) and the generated
# message classes (the tests, the tool and the consumer link against them),
# whose type information must be there for a caller's RTTI too.
execute_process(COMMAND ${NM} -D --defined-only -C ${LIBRARY}
  OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
foreach(name "typeinfo for linkward::info::resp::MD5Result"
    "vtable for linkward::info::req::Request")
  if(NOT symbols MATCHES " ${name}\n")
    message(SEND_ERROR "not exported: ${name}")
  endif()
endforeach()

set(interface create_proto_request parser_proto_response
  "parser_one_result\\(linkward::info::resp::MD5Result const&, char\\*, int\\)"
  "has_value\\(char const\\*, char const\\*\\)"
  "(typeinfo for |typeinfo name for |vtable for )?linkward::info::[^\n]*"
  "google::protobuf::Arena::CreateMaybeMessage<linkward::info::[^\n]*")
list(JOIN interface "|" interface)
string(REGEX REPLACE "[0-9a-f]+ [A-Za-z] (${interface})\n" "" others "${symbols}")
if(others)
  message(SEND_ERROR "exported but not part of the interface:\n${others}")
endif()
