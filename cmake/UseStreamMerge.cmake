# cmake -DFILE=<generated .pb.cc> -DMESSAGES=<count> -P UseStreamMerge.cmake
#
# protoc 3.21 writes each message class a parser of its own, which merges cut
# and malformed input otherwise than the classic coded-stream merge the schema
# is defined by, and keeps an out-of-range enumeration value in all 64 bits.
# Each class's _InternalParse, which every way into a message leads to, is
# rewritten to hand its bytes to the library's one parse
# (linkward::parse_in_context, src/answer_parse.cc). The step refuses to go
# on unless it finds exactly the number of classes the schema file declares.
cmake_policy(VERSION 3.25)
file(READ "${FILE}" code)
set(signature "::_InternalParse(const char* ptr, ::_pbi::ParseContext* ctx) {\n")
set(body_end "#undef CHK_\n}\n")
set(declaration [=[
namespace linkward {
template <class Message>
const char* parse_in_context(Message&, const char*, ::_pbi::ParseContext*);
}  // namespace linkward
]=])
string(LENGTH "${signature}" signature_length)
string(LENGTH "${body_end}" body_end_length)

set(rewritten "")
set(count 0)
while(TRUE)
  string(FIND "${code}" "${signature}" at)
  if(at EQUAL -1)
    break()
  endif()
  math(EXPR body_at "${at} + ${signature_length}")
  string(SUBSTRING "${code}" 0 ${body_at} head)
  string(SUBSTRING "${code}" ${body_at} -1 code)
  string(FIND "${code}" "${body_end}" end)
  if(end EQUAL -1)
    message(FATAL_ERROR "${FILE}: a parser with no end; protoc's output has changed")
  endif()
  math(EXPR end "${end} + ${body_end_length}")
  string(SUBSTRING "${code}" ${end} -1 code)
  string(APPEND rewritten "${head}"
    "  return ::linkward::parse_in_context(*this, ptr, ctx);\n}\n")
  math(EXPR count "${count} + 1")
endwhile()
string(APPEND rewritten "${code}")

if(NOT count EQUAL MESSAGES)
  message(FATAL_ERROR
    "${FILE}: expected ${MESSAGES} message parsers, found ${count}; protoc's "
    "output has changed and the parse's rewrite must be revisited")
endif()
set(anchor "namespace _pbi = _pb::internal;\n")
string(FIND "${rewritten}" "${anchor}" at)
if(at EQUAL -1)
  message(FATAL_ERROR "${FILE}: no place for the parse's declaration")
endif()
string(REPLACE "${anchor}" "${anchor}${declaration}" rewritten "${rewritten}")
file(WRITE "${FILE}" "${rewritten}")
