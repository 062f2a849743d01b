# cmake -DTOOL=<linkward> -DWORK=<dir> -DSOURCE_DIR=<repository>
#       [-DFUZZ_CORPUS=<dir>] [-DEMULATOR=<command line>] -P cli_test.cmake
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
check(0 [[verdict: 7 (level 60 with sc=110 and ssc=11021 or ssc=11011)\nlevel: 60\nsub_type: 10
text: "kx.info=sc=110|ssc=1102" (cut to fit --buffer 36; the whole text is 24 bytes)
record: 36 bytes\nfrom: results[0].md5_results[0]\nparse: whole, 41 bytes\n]]
  [[linkward verdict --hex --buffer 36 typical.hex]])
check_json(0 [[{ "returned": 0, "record_length": 27, "verdict": 8,
  "label": "a bnet.info pair is present", "level": 0, "sub_type": 0,
  "text": "bnet.info=firs", "text_cut": true, "from": "results[0].merged_result",
  "error_code": { "name": "kOK", "number": 0 },
  "parse": { "whole": true, "stopped": false, "offset": 65, "fault": null } }]]
  [[linkward answer --merged --kx a --bnet first --bnet second | linkward verdict --hex --json --buffer 27]])
check(0 "parse: stopped at byte 14: cut short by the end of the bytes"
  [[linkward inspect --json --hex typical.hex --as answer |
    linkward encode --as answer --cut 20 | linkward verdict --hex]])

check(4 "refused: -3, the answer carries a service error code: kVKFailed (3)\nparse: whole, 10 bytes\n"
  [[linkward answer --ec 3 | linkward verdict --hex]])
check(4 "no verdict: no result holds a per-hash result\nerror code: 7 is not in the schema: \
kept aside, so the library reads kOK (0)\n" [[linkward verdict --hex <<< '08 07 12 02 10 00']])
check_json(4 [[{ "returned": -4, "meaning": "the answer holds no results",
  "error_code": { "name": "kOK", "number": 0 }, "unknown_error_code": 7,
  "parse": { "whole": true, "stopped": false, "offset": 2, "fault": null } }]]
  [[linkward verdict --hex --json <<< '08 07']])
check(4 "hint: the bytes look like hex text: add --hex" [[linkward verdict typical.hex]])
check(4 "hint: the bytes begin with an HTTP header" [[linkward verdict <<< 'HTTP/1.1 200 OK']])

# Escaped bytes, an enumeration and unknown fields, nested and not, in bytes
# that the runtime would write in another order and that lack a required field.
check(0 [[results {\n  ec: kNotFound (1)\n  id: 1\n  unknown 5 (varint): 28 05\n}
package_exts {\n  key: "a\x00\"\\\xff"\n}\nunknown 1 (varint): 08 07
linkward: note: odd.hex lacks required fields of linkward.info.resp.Response
linkward: note: odd.hex is not in the form the protobuf runtime writes]]
  [[echo 08 07 12 06 08 01 10 01 28 05 1a 07 0a 05 61 00 22 5c ff > odd.hex &&
    linkward inspect --hex --as answer odd.hex]])
check_json(0 [[{ "results": [ { "ec": { "name": "kNotFound", "number": 1 }, "id": 1,
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
check(2 "not expected: verdcit typical.hex; did you mean 'verdict'?" [[linkward verdcit typical.hex]])
check(2 "--buffer: '12.0' is not a whole number (see --help)" [[linkward verdict --buffer 12.0 typical.hex]])
check(3 "cannot read missing.bin: No such file or directory" [[linkward verdict missing.bin]])
check(3 "stdin: 'x' at offset 4 (in '0x02') is not a hex digit; write the bytes without 0x"
  [[linkward verdict --hex <<< '08 0x02']])
check(3 "stdin: not JSON: parse error at line 2" [[linkward encode --as answer <<< '{']])
check(3 "stdin: results[0].levle is not a field of linkward.info.resp.Result"
  [[linkward encode --as answer <<< '{"results": [{"levle": 1}]}']])
# Bytes quoted in an error line, a name's or the input's, are escaped.
check(3 [[cannot read bad\\dir\x1b\xff: No such]] [[linkward verdict $'bad\\dir\x1b\xff']])
check(3 [[last read: '\xff']] [[linkward encode --as answer <<< $'\xff']])

# What -o writes to, and a file too large for the library.
check(0 "" [[mkdir dir sub && mkfifo fifo && ln -s real.bin link.bin && ln -s sub/made.bin dangling &&
  echo kept > read-only.bin && chmod 444 read-only.bin && truncate -s 2G big.bin]])
check(3 "big.bin: 2147483648 bytes, more than the 2147483647" [[linkward verdict big.bin]])
check(2 "--output: the file name is empty" [[linkward answer -o '']])
check(1 "cannot write dir: Is a directory" [[linkward answer -o dir]])
check(1 "cannot write read-only.bin: Permission denied" [[linkward answer -o read-only.bin]])
check(0 "verdict: 5" [[linkward answer --level 70 -o - | linkward verdict]])
# -o naming an input, by any name, is refused, and the input stays as it was.
check(0 "" [[linkward request abc -o - | linkward inspect --json --as request > q.json &&
  cp q.json q.orig && ln -s q.json q.link && printf '\001\002' > vk.bin && cp vk.bin vk.orig]])
check(2 "-o q.link is the input, q.json: write" [[linkward encode --as request q.json -o q.link]])
check(2 "-o q.json is the input, stdin" [[linkward encode --as request -o q.json < q.json]])
check(2 "-o vk.bin is the input, vk.bin" [[linkward request abc --vk-file vk.bin -o vk.bin]])
check(0 "" [[cmp q.json q.orig && cmp vk.bin vk.orig]])
# A new file in the old one's place (the old one, still linked, unchanged).
check(0 "parse: whole, 10 bytes" [[linkward request abc -o replaced.bin && chmod 640 replaced.bin &&
  ln replaced.bin old.bin && linkward answer --level 70 -o replaced.bin &&
  ! cmp -s replaced.bin old.bin && linkward verdict replaced.bin]])
check(0 "verdict: 5" [[linkward answer --level 70 -o link.bin && linkward verdict real.bin]])
check(0 "verdict: 5" [[linkward answer --level 70 -o dangling && linkward verdict sub/made.bin]])
check(0 "verdict: 5" [[timeout 60 cat fifo > from-fifo.bin & linkward answer --level 70 -o fifo &&
  wait $! && linkward verdict from-fifo.bin]])
# As they were, the mode kept; no temporary file, none named -.
check(0 "symbolic link\nsymbolic link\nfifo\n640\nkept\n" [[stat -c %F link.bin dangling fifo &&
  stat -c %a replaced.bin && cat read-only.bin && ! ls | grep -E '^-$|[.][A-Za-z0-9]{6}$']])

# Every answer of the fuzzers' corpora that parses whole comes back from
# inspect --json | encode byte for byte or, where inspect notes that its
# bytes are not in the runtime's form, as the same message in that form. The
# seeds and at most 100 inputs of each fuzzer's own corpus; the answer
# fuzzer's inputs begin with two bytes of its own.
check(0 "" "checked=0
for f in ${SOURCE_DIR}/fuzz/corpus/answer/* $(for fuzzer in answer message_parse
    do find ${FUZZ_CORPUS}/$fuzzer -type f 2> /dev/null | head -n 100; done)
do
  tail -c +$([[ $f == */answer/* ]] && echo 3 || echo 1) $f > in.bin
  linkward inspect --json --as answer in.bin > in.json 2> note ||
    { status=$?; [ $status -eq 4 ] && continue; echo \"$f: inspect exited $status\"; exit 1; }
  linkward encode --as answer in.json -o - > out.bin || exit 1
  cmp -s in.bin out.bin || { grep -q 'not in the form' note &&
    linkward inspect --json --as answer out.bin | cmp - in.json; } ||
    { echo \"$f: inspect --json | encode gives another message\"; exit 1; }
  checked=$((checked + 1))
done
[ $checked -gt 0 ]")
