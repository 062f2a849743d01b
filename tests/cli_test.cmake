# cmake -DTOOL=<linkward> -DCASE=<case> -DWORK=<dir> -DVERSION=<x.y.z>
#       [-DEMULATOR=<command line>] -P cli_test.cmake
#
# Runs the linkward tool as a user would, in a directory of its own, and
# checks its stdout, stderr and exit status. EMULATOR, when set, runs the tool
# (a cross-built one under qemu, say).
cmake_minimum_required(VERSION 3.25)

separate_arguments(emulator UNIX_COMMAND "${EMULATOR}")
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")
file(TOUCH "${WORK}/empty")

# run(<status> <argument>... [INPUT <file>]): runs the tool with stdin from
# INPUT (an empty file by default), requires the exit status, and sets `out`,
# `err` and `command` in the caller.
function(run status)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "INPUT" "")
  if(NOT arg_INPUT)
    set(arg_INPUT "${WORK}/empty")
  endif()
  execute_process(COMMAND ${emulator} ${TOOL} ${arg_UNPARSED_ARGUMENTS}
    WORKING_DIRECTORY "${WORK}" INPUT_FILE "${arg_INPUT}"
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  string(JOIN " " command linkward ${arg_UNPARSED_ARGUMENTS})
  if(NOT rc STREQUAL status)
    message(FATAL_ERROR "${command}: exit status ${rc}, expected ${status}\n"
      "stdout:\n${out}\nstderr:\n${err}")
  endif()
  set(out "${out}" PARENT_SCOPE)
  set(err "${err}" PARENT_SCOPE)
  set(command "${command}" PARENT_SCOPE)
endfunction()

function(expect_equal what actual expected)
  if(NOT actual STREQUAL expected)
    message(FATAL_ERROR "${what}:\n${actual}\nexpected:\n${expected}")
  endif()
endfunction()

function(expect_match what actual pattern)
  if(NOT actual MATCHES "${pattern}")
    message(FATAL_ERROR "${what} does not match '${pattern}':\n${actual}")
  endif()
endfunction()

# fails(<status> <stderr pattern> <argument>...): the tool stops with the
# status, prints nothing on stdout and one line naming the problem on stderr.
function(fails status pattern)
  run(${status} ${ARGN})
  expect_equal("${command}: stdout" "${out}" "")
  expect_match("${command}: stderr" "${err}" "^linkward: [^\n]*${pattern}[^\n]*\n$")
endfunction()

# A captured answer: level 60, sub-type 10, kx.info "sc=110|ssc=11021".
set(answer_args answer --level 60 --sub-type 10 --kx "sc=110|ssc=11021")
set(answer_verdict [[
verdict: 7 (level 60 with sc=110 and ssc=11021 or ssc=11011)
level: 60
sub_type: 10
text: "kx.info=sc=110|ssc=11021"
record: 36 bytes
]])

if(CASE STREQUAL "help")
  run(0 --version)
  expect_equal("--version" "${out}" "linkward ${VERSION}\n")
  run(0 --help)
  foreach(line "request  " "answer  " "verdict  " "inspect  "
      "2  usage error" "3  the input could not be read" "4  the library refused")
    expect_match("--help" "${out}" "\n  ${line}")
  endforeach()
  foreach(sub request answer verdict inspect)
    run(0 ${sub} --help)
    expect_match("${sub} --help" "${out}" "Usage: linkward ${sub} .*Example")
  endforeach()

elseif(CASE STREQUAL "request")
  set(abc_query "0a 09 08 00 12 05 0a 03 61 62 63 18 03 2a 07 73
6d 61 72 74 68 77 32 08 66 69 72 65 77 61 6c 6c
3a 02 01 02 42 03 75 72 6c 4a 02 4d 31 6a 06 6b
78 69 64 3a 31
")
  run(0 request abc --mid M1 --vk-hex 0102)
  expect_equal("hex query" "${out}" "${abc_query}")
  string(ASCII 1 2 vk)
  file(WRITE "${WORK}/vk.bin" "${vk}")
  run(0 request abc --mid M1 --vk-file vk.bin)
  expect_equal("query with --vk-file" "${out}" "${abc_query}")

  # -o replaces an existing file whole and leaves nothing beside it.
  file(WRITE "${WORK}/query.bin" "an older and much longer file than the query that replaces it")
  run(0 request abc --mid M1 --vk-hex "01 02" -o query.bin)
  expect_equal("-o stdout" "${out}" "")
  file(READ "${WORK}/query.bin" raw HEX)
  string(REPLACE " " "" abc_raw "${abc_query}")
  string(REPLACE "\n" "" abc_raw "${abc_raw}")
  expect_equal("-o bytes" "${raw}" "${abc_raw}")
  file(GLOB leftovers "${WORK}/query.bin?*")
  expect_equal("files left beside the output" "${leftovers}" "")

elseif(CASE STREQUAL "round_trip")
  run(0 request http://example.com/ --mid M1 --vk-hex 0102 -o query.bin)
  run(0 inspect query.bin --as request)
  expect_match("inspected query" "${out}"
    "^urls {\n  id: 0\n  url {\n    url: \"http://example.com/\"\n  }\n}\nuv: kUV3_ProtobufEncrypt \\(3\\)\n")
  expect_match("inspected query" "${out}" "\nvk: \"\\\\x01\\\\x02\"\n")

  run(0 ${answer_args} -o answer.bin)
  run(0 verdict answer.bin)
  expect_equal("verdict of answer.bin" "${out}" "${answer_verdict}")
  run(0 verdict - INPUT "${WORK}/answer.bin")
  expect_equal("verdict of stdin" "${out}" "${answer_verdict}")
  run(0 ${answer_args})
  expect_equal("hex answer" "${out}" "08 00 12 25 10 01 22 21 10 3c 28 0a 42 1b 0a 07
6b 78 2e 69 6e 66 6f 12 10 73 63 3d 31 31 30 7c
73 73 63 3d 31 31 30 32 31
")
  file(WRITE "${WORK}/answer.hex" "${out}")
  run(0 verdict --hex answer.hex)
  expect_equal("verdict of the hex answer" "${out}" "${answer_verdict}")

  # merged_result, pairs in the order given: the first bnet.info wins.
  run(0 answer --merged --level 0 --kx a --bnet first --bnet second -o merged.bin)
  run(0 verdict merged.bin)
  expect_match("merged verdict" "${out}" "^verdict: 8 .*\ntext: \"bnet.info=first\"\n")
  run(0 inspect merged.bin --as answer)
  expect_match("merged answer" "${out}" "\n  merged_result {\n    level: 0\n    values {\n      key: \"kx.info\"")

elseif(CASE STREQUAL "json")
  run(0 ${answer_args} -o answer.bin)
  run(0 verdict --json answer.bin)
  foreach(pair "verdict=7" "level=60" "sub_type=10" "record_length=36"
      "text=kx.info=sc=110|ssc=11021" "text_cut=OFF")
    string(REGEX MATCH "^([^=]+)=(.*)$" _ "${pair}")
    string(JSON value GET "${out}" ${CMAKE_MATCH_1})
    expect_equal("verdict --json ${CMAKE_MATCH_1}" "${value}" "${CMAKE_MATCH_2}")
  endforeach()

  run(0 inspect --json answer.bin --as answer)
  string(JSON key GET "${out}" results 0 md5_results 0 values 0 key)
  string(JSON level GET "${out}" results 0 md5_results 0 level)
  string(JSON ec GET "${out}" ec)
  expect_equal("inspect --json" "${key} ${level} ${ec}" "kx.info 60 kOK")

  run(0 request http://example.com/ --vk-hex 00ff -o query.bin)
  run(0 inspect --json query.bin --as request)
  string(JSON url GET "${out}" urls 0 url url)
  string(JSON vk GET "${out}" vk)
  expect_equal("inspect --json request" "${url} ${vk}" "http://example.com/ \\x00\\xff")

  run(0 answer --ec 3 -o refused.bin)
  run(4 verdict --json refused.bin)
  string(JSON returned GET "${out}" returned)
  expect_equal("refusal --json" "${returned}" "-3")

elseif(CASE STREQUAL "outcomes")
  run(0 answer --ec 3 -o refused.bin)
  run(4 verdict refused.bin)
  expect_equal("service error" "${out}" "refused: -3, the answer carries a service error code\n")
  run(4 verdict empty)
  expect_equal("empty answer" "${out}" "refused: -4, the answer holds no results\n")
  # ec 0 and one result without any per-hash result.
  file(WRITE "${WORK}/bare.hex" "08 00\n12 02 10 00\n")
  run(4 verdict --hex bare.hex)
  expect_equal("no per-hash result" "${out}" "no verdict: no result holds a per-hash result\n")

  run(0 ${answer_args} -o answer.bin)
  run(0 verdict --buffer 20 answer.bin)
  expect_match("cut text" "${out}"
    "\ntext: \"kx.info\" \\(cut to fit --buffer 20; the whole text is 24 bytes\\)\nrecord: 36 bytes\n$")
  # A record exactly as long as the buffer has no room for the text's NUL.
  run(0 verdict --buffer 36 answer.bin)
  expect_match("text one byte short" "${out}" "\ntext: \"kx.info=sc=110\\|ssc=1102\" \\(cut")
  run(0 verdict --buffer 37 answer.bin)
  expect_equal("text that just fits" "${out}" "${answer_verdict}")

elseif(CASE STREQUAL "bad_input")
  fails(2 "subcommand")
  fails(2 "bogus" bogus)
  fails(2 "--ec" answer --ec 7)
  fails(2 "--level" answer --level 99999999999)
  fails(2 "novalue" answer --value novalue)
  fails(2 "--vk-hex" request u --vk-hex 0g)
  fails(2 "--buffer" verdict --buffer 11 empty)
  fails(2 "--as" inspect empty)
  fails(2 "--as" inspect empty --as reply)
  fails(3 "missing.bin" verdict missing.bin)
  fails(3 "vk.bin" request u --vk-file vk.bin)
  file(WRITE "${WORK}/odd.hex" "08 00 1")
  fails(3 "odd.hex: '1' at offset 6 has an odd number of hex digits" verdict --hex odd.hex)
  file(WRITE "${WORK}/text.hex" "08 00\nanswer")
  fails(3 "text.hex: 'answer' at offset 6 is not hex" inspect --hex text.hex --as answer)

  # A length that runs past the end: what parsed is shown, then the refusal.
  file(WRITE "${WORK}/cut.hex" "08 01 12 05 10")
  run(4 inspect --hex cut.hex --as answer)
  expect_match("cut answer" "${out}" "^ec: kNotFound \\(1\\)\n")
  expect_match("cut answer" "${err}" "^linkward: cut.hex: does not parse whole as linkward.info.resp.Response: stopped at byte 4: cut short by the end of the bytes; [^\n]*\n$")

  # An output that cannot be put in place leaves nothing behind.
  file(MAKE_DIRECTORY "${WORK}/taken")
  fails(1 "cannot write taken" answer -o taken)
  file(GLOB leftovers "${WORK}/taken?*")
  expect_equal("files left beside the output" "${leftovers}" "")

elseif(CASE STREQUAL "inspect")
  # ec 7 is out of range, the result holds an unknown field 5, and the pair's
  # key holds a zero byte, a quote and a backslash.
  file(WRITE "${WORK}/odd.hex" "08 07 12 04 10 01 28 05 1a 06 0a 04 61 00 22 5c")
  run(0 inspect --hex odd.hex --as answer)
  expect_equal("inspected answer" "${out}" [[
results {
  id: 1
  unknown 5 (varint): 28 05
}
package_exts {
  key: "a\x00\"\\"
}
unknown 1 (varint): 08 07
]])
  expect_match("note" "${err}" "^linkward: note: odd.hex lacks required fields[^\n]*\n$")
  # Fields the tool's own answers never hold: every kind of value by name.
  file(WRITE "${WORK}/full.hex" "08 00 12 20 08 01 10 02 22 1a
    0a 01 61 10 28 18 02 20 03 28 05 30 01 38 00 4a 09
    0a 02 28 01 4a 01 77 50 01")
  run(0 inspect --hex full.hex --as answer)
  expect_equal("inspected full answer" "${out}" [[
ec: kOK (0)
results {
  ec: kNotFound (1)
  id: 2
  md5_results {
    md5: "a"
    level: 40
    version: 2
    time: 3
    sub_type: 5
    cache_type: kCacheType1 (1)
    cache_duration_sec: 0
    webscan_result {
      leak_count {
        sameip: true
      }
      illegal_words: "w"
      tamper: true
    }
  }
}
]])

  run(0 inspect --hex --json odd.hex --as answer)
  string(JSON number GET "${out}" unknown_fields 0 number)
  string(JSON bytes GET "${out}" results 0 unknown_fields 0 bytes)
  expect_equal("unknown fields in JSON" "${number} ${bytes}" "1 28 05")

else()
  message(FATAL_ERROR "no such case: ${CASE}")
endif()
