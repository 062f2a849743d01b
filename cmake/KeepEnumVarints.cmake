# cmake -DFILE=<generated .pb.cc> -DSITES=<count> -P KeepEnumVarints.cmake
#
# protoc 3.21 keeps an out-of-range enumeration value as
#   WriteVarint(<field>, val, mutable_unknown_fields())
# with val the whole 64-bit varint, so a negative value that arrived in ten
# bytes goes back out in ten. The wire format the service speaks keeps the
# value's low 32 bits as an unsigned varint instead (five bytes, the last 0F,
# for -1). Rewrite each such call, and refuse to go on if protoc's output does
# not hold exactly the expected number of them.
file(READ "${FILE}" code)
set(site_pattern "WriteVarint\\(([0-9]+), val, mutable_unknown_fields\\(\\)\\)")
string(REGEX MATCHALL "${site_pattern}" found "${code}")
list(LENGTH found count)
if(NOT count EQUAL SITES)
  message(FATAL_ERROR
    "${FILE}: expected ${SITES} out-of-range enumeration sites, found ${count}; "
    "protoc's output has changed and the 32-bit varint rewrite must be revisited")
endif()
string(REGEX REPLACE "${site_pattern}"
  "WriteVarint(\\1, static_cast<uint32_t>(val), mutable_unknown_fields())" code "${code}")
file(WRITE "${FILE}" "${code}")
