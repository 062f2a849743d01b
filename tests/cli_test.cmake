# cmake -DTOOL=<linkward> -DWORK=<dir> -DSOURCE_DIR=<repository>
#       [-DFUZZ_CORPUS=<dir>] [-DEMULATOR=<command line>] -P cli_test.cmake
#
# Runs the linkward tool as a user would, one command line a row, in a folder
# of its own; then takes the fuzzers' answers through inspect --json and
# encode. check(STATUS FRAGMENT LINE) runs LINE with bash, `linkward` being
# the tool (run by EMULATOR when set: a cross-built one under qemu, say), and
# wants the exit status of its last failing command, or 0, and FRAGMENT (\n
# stands for a newline too) in its stdout then stderr. Where the tool runs
# alone, each stderr line is its own, and a failure other than 4 is one line
# on stderr and nothing on stdout.
cmake_minimum_required(VERSION 3.25)

file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")
execute_process(COMMAND id -u OUTPUT_VARIABLE uid OUTPUT_STRIP_TRAILING_WHITESPACE)

# run(LINE): sets `out`, `err` and `status` in the caller.
function(run line)
  execute_process(COMMAND bash -o pipefail -c
      "linkward() { ${EMULATOR} ${TOOL} \"$@\"; }\n${line}"
    WORKING_DIRECTORY ${WORK}
    OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE status)
  foreach(name out err status)
    set(${name} "${${name}}" PARENT_SCOPE)
  endforeach()
endfunction()

function(check expected fragment line)
  string(REPLACE "\\n" "\n" fragment "${fragment}")
  run("${line}")
  string(FIND "${out}${err}" "${fragment}" found)
  # The programs other than the tool that begin its commands.
  string(REGEX MATCHALL "(^|[|&][ \n]+)[^ \n]+" others "${line}")
  list(TRANSFORM others REPLACE "^[|&][ \n]+" "")
  list(REMOVE_ITEM others linkward)
  set(problem)
  if(NOT status STREQUAL expected)
    set(problem "exit status ${status}, not ${expected}")
  elseif(found EQUAL -1)
    set(problem "no '${fragment}' in its output")
  elseif(NOT others AND err AND NOT err MATCHES "^(linkward: [^\n]*\n)+$")
    set(problem "stderr not the tool's own lines")
  elseif(NOT others AND NOT status MATCHES "^[04]$"
         AND (out OR NOT err MATCHES "^[^\n]*\n$"))
    set(problem "a failure that is not one line on stderr alone")
  endif()
  if(problem)
    message(SEND_ERROR "${line}\n  ${problem}\nstdout:\n${out}\nstderr:\n${err}")
  endif()
endfunction()

check(0 "linkward 1.0.0" [[linkward --version]])
check(0 "  encode  " [[linkward --help]])
check(0 "Usage: linkward encode" [[linkward encode --help]])
check(0 "scripts/dev test " "${SOURCE_DIR}/scripts/dev --help")
check(0 "" "groff -man -Tutf8 -ww -z ${SOURCE_DIR}/docs/linkward.1 2>&1 | (! grep .)")

check(0 "\n3a 02 01 02 42 03 75 72 6c 4a 02 4d 31 6a 06 6b\n"
  [[linkward request abc --mid M1 --vk-hex 0102]])
check(0 [[  url {\n    url: "abc"\n  }\n}\nuv: kUV3_ProtobufEncrypt (3)]]
  [[linkward request abc | linkward inspect --hex --as request]])
check(0 "61 62 63 18 03 2a 07 73\n6d 61 72 74 68 77 32 08 66 69 72 65 77 61 6c 6c\n3a 02 01 02"
  [[linkward request abc --vk-file <(printf '\001\002') -o - |
    linkward inspect --json --as request | linkward encode --as request]])

check(0 "08 00 12 25 10 01 22 21 10 3c 28 0a 42 1b 0a 07\n"
  [[linkward answer --level 60 --sub-type 10 --kx 'sc=110|ssc=11021' | tee typical.hex]])
check(0 [[level: 60\nsub_type: 10\ntext: "kx.info=sc=110|ssc=11021"\nrecord: 36 bytes
from: results[0].md5_results[0]\nparse: whole, 41 bytes\n]] [[linkward verdict --hex typical.hex]])
check(0 [["text": "kx.info=sc=110|ssc=11021",\n  "text_cut": false,\n  "from": "results[0].md5]]
  [[linkward verdict --hex --json typical.hex]])
check(0 [[text: "bnet.info=first"\nrecord: 27 bytes\nfrom: results[0].merged_result]]
  [[linkward answer --merged --kx a --bnet first --bnet second | linkward verdict --hex]])
check(0 [[text: "" (cut]] [[linkward verdict --hex --buffer 12 typical.hex]])
check(0 [[text: "kx.info=sc=110|ssc=1102" (cut to fit --buffer 36; the whole text is 24 bytes)]]
  [[linkward verdict --hex --buffer 36 typical.hex]])
check(0 [[text: "kx.info=sc=110|ssc=11021"\n]] [[linkward verdict --hex --buffer 37 typical.hex]])
check(0 "text: none\nrecord: 12 bytes\nfrom: results[1].merged_result"
  [[echo 08 00 12 02 10 01 12 08 10 02 1a 00 22 02 10 46 | linkward verdict --hex]])
check(4 "refused: -3, the answer carries a service error code: kVKFailed (3)\nparse: whole"
  [[linkward answer --ec 3 | linkward verdict --hex]])
check(4 "refused: -4, the answer holds no results\nparse: whole, 0" [[linkward verdict /dev/null]])
check(4 "no verdict: no result holds a per-hash result
error code: 7 is not in the schema: kept aside, so the library reads kOK"
  [[echo 08 07 12 02 10 00 | linkward verdict --hex]])
check(4 [["number": 0\n  },\n  "unknown_error_code": 7,\n  "parse": {\n    "whole": true]]
  [[echo 08 07 | linkward verdict --hex --json]])
check(0 "parse: stopped at byte 14: cut short by the end of the bytes"
  [[linkward inspect --json --hex typical.hex --as answer |
    linkward encode --as answer --cut 20 | linkward verdict --hex]])
check(4 "hint: the bytes look like hex text: add --hex" [[linkward verdict typical.hex]])
check(4 "hint: the bytes begin with an HTTP header"
  [[printf 'HTTP/1.1 200 OK\r\n' | linkward verdict]])

check(0 [[results {\n  id: 1\n  unknown 5 (varint): 28 05\n}\npackage_exts {
  key: "a\x00\"\\"\n}\nunknown 1 (varint): 08 07
linkward: note: stdin lacks required fields of linkward.info.resp.Response]]
  [[echo 08 07 12 04 10 01 28 05 1a 06 0a 04 61 00 22 5c | tee odd.hex |
    linkward inspect --hex --as answer]])
check(0 "12 04 10 01 28 05 1a 06 0a 04 61 00 22 5c 08 07\n"
  [[linkward inspect --hex --json odd.hex --as answer | linkward encode --as answer]])
check(0 "cache_duration_sec: 0\n    webscan_result {\n      leak_count {\n        sameip: true\n"
  [[echo 08 00 12 0a 22 08 38 00 4a 04 0a 02 28 01 | linkward inspect --hex --as answer]])
check(4 "results {\n  id: 0\n}\nlinkward: stdin: does not parse whole as \
linkward.info.resp.Response: stopped at byte 4"
  [[echo 08 01 12 05 10 | linkward inspect --hex --as answer]])
check(0 "08 00 12 0a 10 01 22 06 42 04 0a 02 ff 00\n"
  [[echo 08 00 12 0a 10 01 22 06 42 04 0a 02 ff 00 |
    linkward inspect --hex --json --as answer | linkward encode --as answer]])
check(0 "08 03\n" [[echo '{"ec": {"name": "kVKFailed"}}' | linkward encode --as answer]])
check(3 "stdin: results[0].levle is not a field of linkward.info.resp.Result"
  [[echo '{"results": [{"levle": 1}]}' | linkward encode --as answer]])
check(3 "stdin: not JSON: parse error at line 2" [[echo { | linkward encode --as answer]])
check(3 "ec.number is not in the enumeration"
  [[echo '{"ec": {"number": 9}}' | linkward encode --as answer]])
check(3 "ec has a name and a number that disagree"
  [[echo '{"ec": {"name": "kOK", "number": 3}}' | linkward encode --as answer]])
check(3 "results[0].id is outside 32 bits"
  [[echo '{"results": [{"id": 4294967296}]}' | linkward encode --as answer]])
check(3 "unknown_fields[0].number is not what the record"
  [[echo '{"unknown_fields": [{"number": 2, "bytes": "08 07"}]}' | linkward encode --as answer]])

check(2 "give a subcommand" [[linkward]])
check(2 "not expected: verdcit typical.hex; did you mean 'verdict'?"
  [[linkward verdcit typical.hex]])
check(2 "--cut: -1 is outside 0 to 2147483647 (see" [[linkward answer --cut -1]])
check(2 "--buffer: '12.0' is not a whole number (see" [[linkward verdict --buffer 12.0 typical.hex]])
check(2 "--value 'novalue' is not KEY=VALUE" [[linkward answer --value novalue]])
check(2 "--vk-hex: 'x' at offset 4 (in '0x02') is not a hex digit; write the bytes without 0x"
  [[linkward request u --vk-hex '01 0x02']])
check(2 "--as" [[linkward inspect typical.hex]])
check(2 "--as" [[linkward inspect typical.hex --as reply]])
check(3 "cannot read missing.bin: No such file or directory" [[linkward verdict missing.bin]])
check(3 "stdin: '1' at offset 6 has an odd number" [[echo 08 00 1 | linkward verdict --hex]])

# What -o writes to, and a file too large for the library.
check(0 "" [[mkdir taken sub && mkfifo fifo && truncate -s 2G big.bin &&
  ln -s real.bin link.bin && ln -s sub/made.bin dangling && ln -s /proc/self/fd/1 stdout-link &&
  echo kept > read-only.bin && chmod 444 read-only.bin]])
check(3 "big.bin: 2147483648 bytes, more than the 2147483647" [[linkward verdict big.bin]])
check(2 "--output: the file name is empty" [[linkward answer -o '']])
check(1 "cannot write taken: Is a directory" [[linkward answer -o taken]])
check(1 "cannot write no/such.bin: No such file or directory" [[linkward answer -o no/such.bin]])
check(0 "parse: whole, 10 bytes" [[linkward request abc -o replaced.bin &&
  linkward answer --level 70 -o replaced.bin && linkward verdict replaced.bin]])
check(0 "verdict: 5" [[linkward answer --level 70 -o link.bin && linkward verdict real.bin]])
check(0 "verdict: 5" [[linkward answer --level 70 -o dangling && linkward verdict sub/made.bin]])
check(0 "verdict: 5" [[linkward answer --level 70 -o fifo | linkward verdict fifo]])
check(1 "cannot write read-only.bin: Permission denied" [[linkward answer -o read-only.bin]])
check(0 "verdict: 5" [[linkward answer --level 70 -o - | linkward verdict]])
check(0 "verdict: 5" [[linkward answer --level 70 -o stdout-link | linkward verdict]])
# As they were: the links, the fifo and the read-only file; no temporary file, none named -.
check(0 "symbolic link\nsymbolic link\nfifo\nkept\n" [[stat -c %F link.bin dangling fifo &&
  cat read-only.bin && ! ls | grep -E '^-$|[.][A-Za-z0-9]{6}$']])
if(uid EQUAL 0)
  check(0 "character special file\ncharacter special file" [[mknod full c 1 7 &&
    mknod null c 1 3 && linkward answer -o null && stat -c %F full null]])
  check(1 "cannot write full: No space left on device" [[linkward answer -o full]])
  check(1 "cannot write to stdout: No space left on device" [[linkward --help > full]])
  check(1 "cannot write to stdout" [[linkward answer > full]])
endif()

# Every answer of the fuzzers' corpora that parses whole comes back from
# inspect --json | encode byte for byte, or, where inspect says its bytes are
# not in the runtime's form, as the same message in that form. The seeds and
# at most 100 inputs of each fuzzer's own corpus; the answer fuzzer's inputs
# begin with two bytes of its own.
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
  run([[linkward inspect --hex --json answer.hex --as answer > answer.json]])
  if(NOT status EQUAL 0) # does not parse whole
    continue()
  endif()
  set(note "${err}")
  run([[linkward encode answer.json --as answer | tee again.hex &&
    linkward inspect --hex --json again.hex --as answer | cmp - answer.json]])
  string(REGEX REPLACE "[ \n]" "" encoded "${out}")
  if(status EQUAL 0 AND encoded STREQUAL hex)
    math(EXPR same "${same} + 1")
  elseif(status EQUAL 0 AND note MATCHES "not in the form the protobuf runtime")
    math(EXPR canonical "${canonical} + 1")
  else()
    message(SEND_ERROR "${answer}: inspect --json | encode gives ${out}")
  endif()
endforeach()
message(STATUS "answers through inspect --json | encode: "
  "${same} byte for byte, ${canonical} in the runtime's form")
