# cmake -DTOOL=<linkward> -DWORK=<dir> -DSOURCE_DIR=<repository>
#       [-DFUZZ_CORPUS=<dir>] [-DEMULATOR=<command line>] -P cli_test.cmake
#
# Runs the linkward tool as a user would, row by row from the table below, in
# a folder of its own; then takes the fuzzers' answers through inspect --json
# and encode. A row is
#   STATUS 'FRAGMENT' COMMAND [| COMMAND]... [< FILE] [> FILE]
# quoted as a shell quotes, a line ending in \ going on on the next. A command
# runs the tool, or with ! before it a program of the host. STATUS is the
# worst exit status in the pipe, after "root:" for rows that need root.
# FRAGMENT, \n standing for a newline, must appear in stdout then stderr.
# Wherever the tool runs alone, each stderr line is its own, and a failure
# other than 4 is one line on stderr and nothing on stdout. EMULATOR, when
# set, runs the tool (a cross-built one under qemu, say).
cmake_minimum_required(VERSION 3.25)

set(table [==[
0 'linkward 1.0.0' --version
0 '  encode  ' --help
0 'Usage: linkward request' request --help
0 'Usage: linkward encode' encode --help
0 'scripts/dev test ' !@SOURCE_DIR@/scripts/dev --help

0 '0a 09 08 00 12 05 0a 03 61 62 63 18 03 2a 07 73\n6d 61 72 74 68 77 32 08 \
66 69 72 65 77 61 6c 6c\n3a 02 01 02 42 03 75 72 6c 4a 02 4d 31 6a 06 6b\n\
78 69 64 3a 31\n' request abc --mid M1 --vk-hex 0102
0 '' !printf '\001\002' > vk.bin
0 '3a 02 01 02 42' request abc --mid M1 --vk-file vk.bin
0 'urls {\n  id: 0\n  url {\n    url: "abc"\n  }\n}\nuv: kUV3_ProtobufEncrypt (3)' \
  request abc --vk-file vk.bin | inspect --hex --as request
0 '0a 09 08 00 12 05 0a 03 61 62 63 18 03' \
  request abc -o - | inspect --json --as request | encode --as request

0 '08 00 12 25 10 01 22 21 10 3c 28 0a 42 1b 0a 07\n' \
  answer --level 60 --sub-type 10 --kx sc=110|ssc=11021
0 '' answer --level 60 --sub-type 10 --kx sc=110|ssc=11021 -o typical.bin
0 '' answer --level 60 --sub-type 10 --kx sc=110|ssc=11021 > typical.hex
0 'verdict: 7 (level 60 with sc=110 and ssc=11021 or ssc=11011)\nlevel: 60\n\
sub_type: 10\ntext: "kx.info=sc=110|ssc=11021"\nrecord: 36 bytes\n\
from: results[0].md5_results[0]\nparse: whole, 41 bytes\n' verdict typical.bin
0 'verdict: 7' verdict --hex typical.hex
0 'verdict: 7' verdict < typical.bin
0 '"from": "results[0].md5_results[0]"' verdict --json typical.bin
0 '"parse": {\n    "whole": true' verdict --json typical.bin
0 'verdict: 8 (a bnet.info pair is present)\nlevel: 0\nsub_type: 0\n\
text: "bnet.info=first"\nrecord: 27 bytes\nfrom: results[0].merged_result' \
  answer --merged --kx a --bnet first --bnet second | verdict --hex
0 'text: "kx.info" (cut to fit --buffer 20; the whole text is 24 bytes)\n\
record: 36 bytes' verdict --buffer 20 typical.bin
0 'text: "kx.info=sc=110|ssc=1102" (cut' verdict --buffer 36 typical.bin
0 'text: "kx.info=sc=110|ssc=11021"\nrecord' verdict --buffer 37 typical.bin
0 'text: "" (cut' verdict --buffer 12 typical.bin

0 'verdict: 0 (level 0)\nlevel: 0\nsub_type: 0\ntext: none\nrecord: 12 bytes\n\
from: results[1].merged_result' \
  !echo 08 00 12 02 10 01 12 0a 10 02 1a 02 10 00 22 02 10 46 | verdict --hex
0 'verdict: 0 (level 0)' !echo 08 00 12 06 1a 00 22 02 10 46 | verdict --hex
4 'refused: -3, the answer carries a service error code: kVKFailed (3)\n\
parse: whole, 10 bytes' answer --ec 3 | verdict --hex
4 '"error_code": {\n    "name": "kVKFailed"' answer --ec 3 | verdict --hex --json
0 '' !touch empty
4 'refused: -4, the answer holds no results\nparse: whole, 0 bytes' verdict empty
4 'no verdict: no result holds a per-hash result' \
  !echo 08 00 12 02 10 00 | verdict --hex
4 'error code: 7 is not in the schema: kept aside, so the library reads kOK' \
  !echo 08 07 12 02 10 00 | verdict --hex
4 '"unknown_error_code": 7' !echo 08 07 | verdict --hex --json
4 'refused: -3, the answer carries a service error code: kNotFound (1)\n\
parse: stopped at byte 4: cut short by the end of the bytes' \
  !echo 08 01 12 05 10 | verdict --hex
4 'hint: the bytes look like hex text: add --hex' verdict typical.hex
4 'hint: the bytes begin with an HTTP header' !printf 'HTTP/1.1 200 OK\r\n' | verdict
4 'parse: stopped at byte 0: wire type 6 or 7' !printf '\177ELF' | verdict

0 '' !echo 08 07 12 04 10 01 28 05 1a 06 0a 04 61 00 22 5c > odd.hex
0 'results {\n  id: 1\n  unknown 5 (varint): 28 05\n}\npackage_exts {\n\
  key: "a\x00\"\\"\n}\nunknown 1 (varint): 08 07\n' inspect --hex odd.hex --as answer
0 'note: odd.hex lacks required fields' inspect --hex odd.hex --as answer
0 'note: odd.hex is not in the form the protobuf runtime writes' \
  inspect --hex odd.hex --as answer
0 'ec: kOK (0)\nresults {\n  ec: kNotFound (1)\n  id: 2\n  md5_results {\n\
    md5: "a"\n    level: 40\n    version: 2\n    time: 3\n    sub_type: 5\n\
    cache_type: kCacheType1 (1)\n    cache_duration_sec: 0\n\
    webscan_result {\n      leak_count {\n        sameip: true\n      }\n\
      illegal_words: "w"\n      tamper: true\n    }\n  }\n}\n' \
  !echo 08 00 12 20 08 01 10 02 22 1a 0a 01 61 10 28 18 02 20 03 28 05 30 01 \
    38 00 4a 09 0a 02 28 01 4a 01 77 50 01 | inspect --hex --as answer
4 'ec: kNotFound (1)\nresults {\n  id: 0\n}\nlinkward: stdin: does not parse whole as \
linkward.info.resp.Response: stopped at byte 4: cut short by the end of the bytes' \
  !echo 08 01 12 05 10 | inspect --hex --as answer
0 '"ec": {\n    "name": "kOK",\n    "number": 0\n  }' inspect --json typical.bin --as answer
0 '"number": 1,\n      "wire_type": "varint",\n      "bytes": "08 07"' \
  inspect --hex --json odd.hex --as answer
0 '"key": {\n                "hex": "ff 00"' \
  !echo 08 00 12 0a 10 01 22 06 42 04 0a 02 ff 00 | inspect --hex --json --as answer

0 '08 00 12 25 10 01 22 21 10 3c 28 0a 42 1b 0a 07\n6b 78 2e 69 6e 66 6f 12 10 \
73 63 3d 31 31 30 7c\n73 73 63 3d 31 31 30 32 31\n' \
  inspect --json typical.bin --as answer | encode --as answer
0 '08 00 12 0a 10 01 22 06 42 04 0a 02 ff 00\n' !echo 08 00 12 0a 10 01 22 06 42 04 0a 02 ff 00 \
  | inspect --hex --json --as answer | encode --as answer
0 '12 04 10 01 28 05 1a 06 0a 04 61 00 22 5c 08 07\n' \
  inspect --hex --json odd.hex --as answer | encode --as answer
0 '08 03\n' !echo '{"ec": {"name": "kVKFailed"}}' | encode --as answer
0 'from: results[1].md5_results[0]' !echo '{"results": [{"id": 1}, {"md5_results": \
  [{"level": 70}]}]}' | encode --as answer | verdict --hex
0 '08 00 12 25 10\n' answer --level 60 --sub-type 10 --kx sc=110|ssc=11021 --cut 5
0 'parse: stopped at byte 14: cut short by the end of the bytes' \
  inspect --json typical.bin --as answer | encode --as answer --cut 20 | verdict --hex
3 'stdin: results[0].levle is not a field of linkward.info.resp.Result' \
  !echo '{"results": [{"levle": 1}]}' | encode --as answer
3 'stdin: not JSON: parse error at line 2' !echo { | encode --as answer
3 'ec.number is not in the enumeration' !echo '{"ec": {"number": 9}}' | encode --as answer
3 'ec has a name and a number that disagree' \
  !echo '{"ec": {"name": "kOK", "number": 3}}' | encode --as answer
3 'results[0].id is outside 32 bits' \
  !echo '{"results": [{"id": 4294967296}]}' | encode --as answer
3 'unknown_fields[0].number is not what the record' \
  !echo '{"unknown_fields": [{"number": 2, "bytes": "08 07"}]}' | encode --as answer

2 'give a subcommand'
2 "did you mean 'verdict'?" verdcit typical.bin
2 '--ec' answer --ec 7
2 '--level' answer --level 99999999999
2 "--value 'novalue' is not KEY=VALUE" answer --value novalue
2 "--vk-hex: 'x' at offset 1 (in '0x0102') is not a hex digit; write the bytes \
without 0x" request u --vk-hex 0x0102
2 '--buffer' verdict --buffer 11 typical.bin
2 '--as' inspect typical.bin
2 '--as' inspect typical.bin --as reply
2 '--cut' answer --cut -1
3 'cannot read missing.bin: No such file or directory' verdict missing.bin
3 "stdin: '1' at offset 6 has an odd number of hex digits" !echo 08 00 1 | verdict --hex
3 "stdin: 'n' at offset 7 (in 'answer') is not a hex digit" \
  !printf '08 00\nanswer' | inspect --hex --as answer
0 '' !truncate -s 2G big.bin
3 'big.bin: 2147483648 bytes, more than the 2147483647 the library takes' \
  verdict big.bin

0 '' !mkdir taken sub
1 'cannot write taken: Is a directory' answer -o taken
1 'cannot write no/such.bin: No such file or directory' answer -o no/such.bin
0 '' request abc -o replaced.bin
0 '' answer --level 70 -o replaced.bin
0 'verdict: 5 (level 70)\nlevel: 70' verdict replaced.bin
0 'parse: whole, 10 bytes' verdict replaced.bin
1 '' !sh -c "ls | grep -E '[.][A-Za-z0-9]{6}$'"
0 '' !ln -s real.bin link.bin
0 '' answer --level 70 -o link.bin
0 'symbolic link' !stat -c %F link.bin
0 'verdict: 5' verdict real.bin
0 '' !ln -s sub/made.bin dangling
0 '' answer --level 70 -o dangling
0 'verdict: 5' verdict sub/made.bin
0 '' !mkfifo fifo
0 'verdict: 5' answer --level 70 -o fifo | verdict fifo
0 'fifo' !stat -c %F fifo
0 '' answer --level 70 -o read-only.bin
0 '' !chmod 444 read-only.bin
1 'cannot write read-only.bin: Permission denied' answer -o read-only.bin
0 'verdict: 5' verdict read-only.bin
0 'verdict: 5' answer --level 70 -o - | verdict
0 '' !ln -s /proc/self/fd/1 stdout-link
0 'verdict: 5' answer --level 70 -o stdout-link | verdict
1 '' !test -e -
root:0 '' !mknod full c 1 7
root:0 '' !mknod null c 1 3
root:1 'cannot write full: No space left on device' answer -o full
root:0 '' answer -o null
root:0 'character special file\ncharacter special file' !stat -c %F full null
root:1 'cannot write to stdout: No space left on device' --help > full
root:1 'cannot write to stdout' answer > full
]==])

separate_arguments(emulator UNIX_COMMAND "${EMULATOR}")
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")
execute_process(COMMAND id -u OUTPUT_VARIABLE uid OUTPUT_STRIP_TRAILING_WHITESPACE)

# run(<words>...): runs one row's pipe in WORK; sets `out`, `err`, `status`
# (the worst) and `alone` (no host program in it) in the caller.
function(run)
  set(pipe) # COMMAND <argument>... for each command
  set(redirect)
  set(alone TRUE)
  set(starts TRUE)
  while(ARGN)
    list(POP_FRONT ARGN word)
    if(word STREQUAL "|")
      set(starts TRUE)
    elseif(word STREQUAL "<")
      list(POP_FRONT ARGN file)
      list(APPEND redirect INPUT_FILE ${WORK}/${file})
    elseif(word STREQUAL ">")
      list(POP_FRONT ARGN file)
      list(APPEND redirect OUTPUT_FILE ${WORK}/${file})
    elseif(starts AND word MATCHES "^!(.+)")
      list(APPEND pipe COMMAND ${CMAKE_MATCH_1})
      set(alone FALSE)
      set(starts FALSE)
    elseif(starts)
      list(APPEND pipe COMMAND ${emulator} ${TOOL} ${word})
      set(starts FALSE)
    else()
      list(APPEND pipe ${word})
    endif()
  endwhile()
  if(starts) # a row with no argument at all
    list(APPEND pipe COMMAND ${emulator} ${TOOL})
  endif()
  execute_process(${pipe} WORKING_DIRECTORY ${WORK} ${redirect}
    OUTPUT_VARIABLE out ERROR_VARIABLE err RESULTS_VARIABLE results)
  set(status 0)
  foreach(result IN LISTS results)
    if(NOT result MATCHES "^[0-9]+$" OR result GREATER status)
      set(status "${result}")
    endif()
  endforeach()
  foreach(name out err status alone)
    set(${name} "${${name}}" PARENT_SCOPE)
  endforeach()
endfunction()

# check(<row>): runs a row of the table; counts it in `failures` when it does
# not hold.
function(check row)
  # Backslashes stay as written, for printf and the fragments.
  string(REPLACE "\\" "${backslash}" row "${row}")
  separate_arguments(words UNIX_COMMAND "${row}")
  list(TRANSFORM words REPLACE "${backslash}" "\\\\")
  list(POP_FRONT words expected fragment)
  if(expected MATCHES "^root:(.*)")
    if(NOT uid STREQUAL "0")
      return()
    endif()
    set(expected ${CMAKE_MATCH_1})
  endif()
  string(REPLACE "\\n" "\n" fragment "${fragment}")
  string(REPLACE "${semicolon}" ";" fragment "${fragment}")
  run(${words})
  string(FIND "${out}${err}" "${fragment}" found)
  set(problem)
  if(NOT status STREQUAL expected)
    set(problem "exit status ${status}, not ${expected}")
  elseif(found EQUAL -1)
    set(problem "no '${fragment}' in its output")
  elseif(alone AND err AND NOT err MATCHES "^(linkward: [^\n]*\n)+$")
    set(problem "stderr not the tool's own lines")
  elseif(alone AND NOT status MATCHES "^[04]$"
         AND (out OR NOT err MATCHES "^[^\n]*\n$"))
    set(problem "a failure that is not one line on stderr alone")
  endif()
  if(problem)
    message(SEND_ERROR "${row}\n  ${problem}\nstdout:\n${out}\nstderr:\n${err}")
    math(EXPR failures "${failures} + 1")
    set(failures ${failures} PARENT_SCOPE)
  endif()
endfunction()

set(failures 0)
# Rows travel as CMake list elements: their backslashes and semicolons go in
# disguise (a fragment alone may hold a semicolon).
string(ASCII 1 backslash)
string(ASCII 2 semicolon)
string(CONFIGURE "${table}" table @ONLY)
string(REPLACE "\\\n" "" table "${table}")
string(REPLACE ";" "${semicolon}" table "${table}")
string(REPLACE "\n" ";" rows "${table}")
list(LENGTH rows count)
foreach(row IN LISTS rows)
  if(row)
    check("${row}")
  endif()
endforeach()

# Every answer of the fuzzers' corpora that parses whole comes back from
# inspect --json | encode byte for byte; one whose bytes are not in the form
# the runtime writes (inspect says so) comes back as the same message in that
# form. The seeds, and at most 100 inputs of each fuzzer's own corpus, so that
# the test stays short; the answer fuzzer's inputs begin with two bytes of
# its own.
file(GLOB answers ${SOURCE_DIR}/fuzz/corpus/answer/*)
foreach(fuzzer answer answer_parse)
  file(GLOB inputs ${FUZZ_CORPUS}/${fuzzer}/*)
  list(SUBLIST inputs 0 100 inputs)
  list(APPEND answers ${inputs})
endforeach()
set(same 0)
set(canonical 0)
foreach(answer IN LISTS answers)
  set(offset 0)
  if(answer MATCHES "/answer/[^/]*$")
    set(offset 2)
  endif()
  file(READ ${answer} hex HEX OFFSET ${offset})
  file(WRITE ${WORK}/answer.hex "${hex}")
  run(inspect --hex --json answer.hex --as answer > answer.json)
  if(NOT status EQUAL 0)
    continue()
  endif()
  set(note "${err}")
  run(encode answer.json --as answer)
  string(REGEX REPLACE "[ \n]" "" encoded "${out}")
  if(encoded STREQUAL hex)
    math(EXPR same "${same} + 1")
    continue()
  endif()
  file(READ ${WORK}/answer.json first)
  file(WRITE ${WORK}/answer.hex "${encoded}")
  run(inspect --hex --json answer.hex --as answer)
  if(NOT note MATCHES "not in the form the protobuf runtime writes"
     OR NOT out STREQUAL first)
    message(SEND_ERROR "${answer}: inspect --json | encode gives ${encoded}")
    math(EXPR failures "${failures} + 1")
  endif()
  math(EXPR canonical "${canonical} + 1")
endforeach()

message(STATUS "${count} rows; answers through inspect --json | encode: "
  "${same} byte for byte, ${canonical} in the runtime's form")
if(failures GREATER 0)
  message(FATAL_ERROR "${failures} failed")
endif()
