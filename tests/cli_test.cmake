# cmake -DTOOL=<linkward> -DWORK=<dir> -DSOURCE_DIR=<repository>
#       [-DEMULATOR=<command line>] -P cli_test.cmake
# The linkward tool run as a user would, one row a promise, in a folder of
# its own. check(STATUS FRAGMENT LINE) runs LINE with bash, `linkward` being
# the tool (under EMULATOR when set), and wants the exit status of its last
# failing command, or 0, and FRAGMENT (\n stands for a newline too) in its
# stdout then stderr. Where the tool runs alone, each stderr line is its own,
# and a failure other than 4 is one line on stderr and nothing on stdout.
cmake_minimum_required(VERSION 3.25)
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")

function(check expected fragment line)
  string(REPLACE "\\n" "\n" fragment "${fragment}")
  execute_process(COMMAND bash -o pipefail -c "linkward() { ${EMULATOR} ${TOOL} \"$@\"; }\n${line}"
    WORKING_DIRECTORY ${WORK} OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE status)
  string(FIND "${out}${err}" "${fragment}" found)
  if(NOT status STREQUAL expected OR found EQUAL -1 OR
      (line MATCHES "^linkward( [^|&\n]*)?$" AND
       ((err AND NOT err MATCHES "^(linkward: [^\n]*\n)+$") OR
        (NOT status MATCHES "^[04]$" AND (out OR NOT err MATCHES "^[^\n]*\n$")))))
    message(SEND_ERROR "${line}\nwanted: status ${expected}, '${fragment}'; from the tool "
      "alone, its own stderr lines and a failure one line on stderr alone\n"
      "status ${status}\nstdout:\n${out}\nstderr:\n${err}")
  endif()
endfunction()

# As check, with blanks and newlines squeezed to one space in the output, as
# they are in FRAGMENT: for JSON, whose layout is the writer's.
function(check_json expected fragment line)
  string(REGEX REPLACE "[ \n]+" " " fragment "${fragment}")
  check(${expected} "${fragment}" "${line} | tr -s ' \\n' ' '")
endfunction()

check(0 "linkward 1.0.0\n" [[linkward --version]])
check(0 "Exit status:\n  0  done\n" [[linkward --help]])
check(1 "cannot write to stdout: No space left on device" [[linkward --help > /dev/full]])

set(query "0a 09 08 00 12 05 0a 03 61 62 63 18 03 2a 07 73
6d 61 72 74 68 77 32 08 66 69 72 65 77 61 6c 6c
3a 02 01 02 42 03 75 72 6c 4a 02 4d 31 6a 06 6b\n78 69 64 3a 31\n")
check(0 "${query}" [[linkward request abc --mid M1 --vk-hex 0102]])
check(0 "${query}" [[linkward request abc --mid M1 --vk-hex 0102 -o - |
  linkward inspect --json --as request | linkward encode --as request]])

check(0 "08 00 12 25 10 01 22 21 10 3c 28 0a 42 1b 0a 07\n6b 78 2e 69 6e 66 6f 12"
  [[linkward answer --level 60 --sub-type 10 --kx 'sc=110|ssc=11021' | tee typical.hex]])
check(0 [[returned: 0\nverdict: 7\nname: LINKWARD_VERDICT_SSC_SECOND\nlevel: 60
sub_type: 10\ntext: "kx.info=sc=110|ssc=1102"\ntext_cut: true\nrecord_length: 36
error_code: kOK\nparse: whole, 41 bytes\n]] [[linkward verdict --hex --buffer 36 typical.hex]])
# The pairs in the command line's order: the first bnet.info is the text.
check_json(0 [[{ "returned": 0, "verdict": 8, "name": "LINKWARD_VERDICT_BNET_INFO",
  "level": 0, "sub_type": 0, "text": "bnet.info=firs", "text_cut": true,
  "record_length": 27, "error_code": "kOK", "parse": "whole, 65 bytes" }]]
  [[linkward answer --merged --kx a --bnet first --bnet second | linkward verdict --hex --json --buffer 27]])
check(0 "parse: stopped at byte 14: cut short by the end of the bytes"
  [[linkward inspect --json --hex typical.hex --as answer |
    linkward encode --as answer -o - | head -c 20 | linkward verdict]])

check(4 "returned: -3\nname: LINKWARD_ERR_SERVICE\nerror_code: kVKFailed\n"
  [[linkward answer --ec 3 | linkward verdict --hex]])
check_json(4 [[{ "returned": 0, "name": "no result holds a per-hash result",
  "error_code": "kOK", "parse": "whole, 6 bytes" }]] [[linkward verdict --hex --json <<< '08 07 12 02 10 00']])
check(4 "hint: the bytes look like hex text: add --hex" [[linkward verdict typical.hex]])

# Escaped bytes, an enumeration and unknown fields, nested and not, in bytes
# that the runtime would write in another order and that lack a required field.
check(0 [[results {\n  ec: kNotFound\n  id: 1\n  unknown 5 (varint): 28 05\n}
package_exts {\n  key: "a\x00\"\\\xff"\n}\nunknown 1 (varint): 08 07
linkward: note: odd.hex lacks required fields of linkward.info.resp.Response
linkward: note: odd.hex is not in the form the protobuf runtime writes]]
  [[echo 08 07 12 06 08 01 10 01 28 05 1a 07 0a 05 61 00 22 5c ff > odd.hex &&
    linkward inspect --hex --as answer odd.hex]])
check_json(0 [[{ "results": [ { "ec": "kNotFound", "id": 1,
  "unknown_fields": [ { "number": 5, "wire_type": "varint", "bytes": "28 05" } ] } ],
  "package_exts": [ { "key": { "hex": "61 00 22 5c ff" } } ],
  "unknown_fields": [ { "number": 1, "wire_type": "varint", "bytes": "08 07" } ] }]]
  [[linkward inspect --hex --json --as answer odd.hex]])
check(0 "12 06 08 01 10 01 28 05 1a 07 0a 05 61 00 22 5c\nff 08 07\n"
  [[linkward inspect --hex --json odd.hex --as answer | linkward encode --as answer]])
check(4 "results {\n  id: 0\n}\nlinkward: stdin: does not parse whole as \
linkward.info.resp.Response: stopped at byte 4" [[linkward inspect --hex --as answer <<< '08 01 12 05 10']])
check(4 "does not parse whole as linkward.info.req.Request: stopped at byte 6: \
an unknown field cut short" [[linkward inspect --hex --as request <<< '0a 05 08 01 12 09 61 62']])

check(2 "give a subcommand" [[linkward]])
check(2 "were not expected" [[linkward verdcit typical.hex]])
check(2 "--buffer: Value 11 not in range 12 to 1048576" [[linkward verdict --buffer 11 typical.hex]])
check(3 "cannot read missing.bin: No such file or directory" [[linkward verdict missing.bin]])
check(3 "stdin: 'x' at offset 4 is not a hex digit" [[linkward verdict --hex <<< '08 0x02']])
check(3 "stdin: not JSON: parse error at line 2" [[linkward encode --as answer <<< '{']])
check(3 "stdin: results[0].levle is not a field of linkward.info.resp.Result"
  [[linkward encode --as answer <<< '{"results": [{"levle": 1}]}']])
check(3 "stdin: ec is not in the enumeration" [[linkward encode --as answer <<< '{"ec": 7}']])
# Bytes quoted in an error line, a name's or the input's, are escaped.
check(3 [[cannot read bad\\dir\x1b\xff: No such]] [[linkward verdict $'bad\\dir\x1b\xff']])
check(3 [[last read: '\xff']] [[linkward encode --as answer <<< $'\xff']])

# What -o writes to, and a file too large for the library.
check(0 "" [[mkdir dir && mkfifo fifo && ln -s real.bin link.bin && truncate -s 2G big.bin]])
check(3 "big.bin: 2147483648 bytes, more than the 2147483647" [[linkward verdict big.bin]])
check(2 "--output: the file name is empty" [[linkward answer -o '']])
check(1 "cannot write dir: Is a directory" [[linkward answer -o dir]])
check(0 "verdict: 5" [[linkward answer --level 70 -o - | linkward verdict]])
check(0 "verdict: 5" [[linkward answer --level 70 -o link.bin && linkward verdict real.bin]])
check(0 "verdict: 5" [[timeout 60 cat fifo > from-fifo.bin & linkward answer --level 70 -o fifo &&
  wait $! && linkward verdict from-fifo.bin]])
# -o naming an input, by any name, is refused, and the input stays as it was.
check(0 "" [[linkward request abc -o - | linkward inspect --json --as request > q.json &&
  cp q.json q.orig && ln -s q.json q.link && printf '\001\002' > vk.bin && cp vk.bin vk.orig]])
check(2 "-o q.link is the input, q.json: write" [[linkward encode --as request q.json -o q.link]])
check(2 "-o q.json is the input, stdin" [[linkward encode --as request -o q.json < q.json]])
check(2 "-o vk.bin is the input, vk.bin" [[linkward request abc --vk-file vk.bin -o vk.bin]])
check(0 "" [[cmp q.json q.orig && cmp vk.bin vk.orig]])
# A failure before the output is complete leaves the file as it was.
check(3 "" [[linkward encode --as answer -o q.json <<< '{"ec": 7}' || { s=$?; cmp q.json q.orig && exit $s; }]])

# Every answer among the fuzzer's seeds that parses whole comes back from
# inspect --json | encode byte for byte or, where inspect notes that its
# bytes are not in the runtime's form, as the same message in that form.
# The answer fuzzer's inputs begin with two bytes of its own.
check(0 "" "checked=0
for f in ${SOURCE_DIR}/fuzz/corpus/answer/*
do
  tail -c +3 $f > in.bin
  linkward inspect --json --as answer in.bin > in.json 2> note ||
    { status=$?; [ $status -eq 4 ] && continue; echo \"$f: inspect exited $status\"; exit 1; }
  linkward encode --as answer in.json -o - > out.bin || exit 1
  cmp -s in.bin out.bin || { grep -q 'not in the form' note &&
    linkward inspect --json --as answer out.bin | cmp - in.json; } ||
    { echo \"$f: inspect --json | encode gives another message\"; exit 1; }
  checked=$((checked + 1))
done
[ $checked -gt 0 ]")
