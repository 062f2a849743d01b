# cmake -DSTRIP=<strip> -DLIBRARY=<liblinkward.so> -DSTRIPPED=<copy>
#       -DLIMIT=<bytes> -P size_budget.cmake
# Firmware ships the library stripped: a stripped copy must fit the budget.
execute_process(COMMAND ${STRIP} -o ${STRIPPED} ${LIBRARY} COMMAND_ERROR_IS_FATAL ANY)
file(SIZE ${STRIPPED} bytes)
if(bytes GREATER LIMIT)
  message(FATAL_ERROR "stripped library is ${bytes} bytes, over the ${LIMIT}-byte budget")
endif()
