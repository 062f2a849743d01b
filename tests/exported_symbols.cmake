# cmake -DNM=<nm> -DLIBRARY=<liblinkward.so> -P exported_symbols.cmake
#
# Reads the library's dynamic symbol table: the four entry points must be
# there under the names a loader binds to, and nothing may be exported but
# them and the generated message classes.
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
  OUTPUT_VARIABLE raw RESULT_VARIABLE status)
execute_process(COMMAND ${NM} -D --defined-only -C ${LIBRARY}
  OUTPUT_VARIABLE demangled)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${NM} could not read ${LIBRARY}")
endif()

foreach(symbol
    create_proto_request
    parser_proto_response
    _Z17parser_one_resultRKN8linkward4info4resp9MD5ResultEPci
    _Z9has_valuePKcS0_
    _ZN8linkward4info3req7RequestD1Ev
    _ZN8linkward4info4resp8ResponseD1Ev
    _ZNK8linkward4info10StringPair18_InternalSerializeEPhPN6google8protobuf2io19EpsCopyOutputStreamE)
  if(NOT raw MATCHES "[ \n]T ${symbol}\n")
    message(FATAL_ERROR "not exported as a function: ${symbol}")
  endif()
endforeach()

foreach(symbol
    _ZTIN8linkward4info4resp9MD5ResultE
    _ZTVN8linkward4info3req7RequestE)
  if(NOT raw MATCHES "[ \n][A-Za-z] ${symbol}\n")
    message(FATAL_ERROR "type information not exported: ${symbol}")
  endif()
endforeach()

string(REPLACE "\n" ";" lines "${demangled}")
set(count 0)
foreach(line IN LISTS lines)
  if(line STREQUAL "")
    continue()
  endif()
  string(REGEX REPLACE "^[0-9a-f]+ [A-Za-z] " "" name "${line}")
  math(EXPR count "${count} + 1")
  if(name MATCHES "^(create_proto_request|parser_proto_response)$"
     OR name STREQUAL "parser_one_result(linkward::info::resp::MD5Result const&, char*, int)"
     OR name STREQUAL "has_value(char const*, char const*)"
     OR name MATCHES "^(typeinfo for |typeinfo name for |vtable for )?linkward::info::"
     OR name MATCHES "^google::protobuf::Arena::CreateMaybeMessage<linkward::info::")
    continue()
  endif()
  message(FATAL_ERROR "exported but not part of the interface: ${name}")
endforeach()
message(STATUS "${count} exported symbols, all part of the interface")
