// The wire schema, pinned by bytes: a query and an answer holding every field
// of the three schema files (repeated ones twice, the second empty; every
// int32 negative; every enumeration at a value other than its first) against
// bytes written from the key tables; then how values outside an enumeration
// are kept, and the checks the library keeps.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "kx_request.pb.h"
#include "kx_response.pb.h"
#include "message_parse.h"
#include "wire.h"

namespace req = linkward::info::req;
namespace resp = linkward::info::resp;

namespace {

// Hex in which "-N" is a negative int32, "T" true and "{ ... }" a message,
// its length and then its bytes between `first` and `last`. -N and T as the
// runtime writes them (-N in ten bytes, T as 01), or, `in`, as the wire may
// also bring them: -N as its low 32 bits in five bytes, which only an int32
// reads back as itself and in which an enumeration keeps a value outside it;
// T as 02, which only a bool reads back as 01.
std::string hex(bool in, const std::string& text, const std::string& first = "",
                const std::string& last = "") {
  std::istringstream words(text);
  std::vector<std::string> open{first};  // the messages begun, innermost last
  for (std::string w; words >> w;) {
    if (w == "{") {
      open.push_back(first);
    } else if (w == "}") {
      const std::string message = open.back() + last;
      open.pop_back();
      open.back() += delimited(message);
    } else if (w == "T") {
      open.back() += in ? '\x02' : '\x01';
    } else if (w[0] == '-') {
      open.back() +=
          static_cast<char>(256 - std::stoi(w.substr(1))) +
          from_hex(in ? "ff ff ff 0f" : "ff ff ff ff ff ff ff ff 01");
    } else {
      open.back() += from_hex(w);
    }
  }
  return open.back() + last;
}

// Every request field and, inside, every field of the messages it holds:
// urls (an entity, then an empty one), kws (a keyword, then an empty one),
// then the request's own.
std::string request_bytes(bool in) {
  return hex(
      in,
      "0a { 08 -2 12 { 0a 01 75 10 01 18 02 22 01 68 2a { 08 14 12 01 6d 18 "
      "04 20 T } 2a { } 32 01 6c 3a { 0a 01 6b 12 01 76 } 3a { } 42 01 70 4a "
      "01 64 52 01 73 5a 01 74 a2 01 01 78 } 22 { 0a { } 10 -4 18 -5 20 -6 "
      "2a { 0a { } 10 -7 } 2a { } } 22 { } 2a 01 61 32 { 0a { } 10 -7 } 32 { "
      "} 3a { 08 -8 10 -9 1a 01 69 22 { } } 3a { } } 0a { } 12 { 08 -3 12 01 "
      "6b 1a 01 61 1a 01 62 22 { 0a 01 6b 12 01 76 } 22 { } } 12 { } 18 04 "
      "20 -1 2a 01 70 32 01 63 3a 01 76 42 01 73 4a 01 6d 52 01 6c 5a 01 6e "
      "62 01 66 6a 01 72 70 05 7a { 0a 01 6b 12 01 76 } 7a { } 82 01 01 74 "
      "8a 01 01 77");
}

// The query parsed from bytes the wire may bring is the key tables' bytes:
// within a message no two fields of one type hold the same value, so a
// parse that read one field into another, or kept a known field as an
// unknown one, would not come out as them.
TEST(Schema, TheQueryByItsBytes) {
  req::Request parsed;
  parsed.ParsePartialFromString(request_bytes(true));
  EXPECT_EQ(to_hex(parsed.SerializePartialAsString()),
            to_hex(request_bytes(false)));
}

// Every response field and, inside, every field of the messages it holds,
// those of kx_common included: results (a result, then an empty one), then
// package_exts; each message's own fields between `first` and `last`.
std::string response_bytes(bool in, const std::string& first,
                           const std::string& last) {
  return hex(
      in,
      "08 06 12 { 08 02 10 -6 1a { } 22 { 0a 01 6d 10 -1 18 -2 20 -3 28 -4 "
      "30 01 38 -5 42 { 0a 01 6b 12 01 76 } 42 { } 4a { 0a { 08 -7 10 -8 18 "
      "-9 20 -10 28 T 30 00 } 4a 01 77 50 T } } 22 { } 2a { } 2a { } } 12 { } "
      "1a { } 1a { }",
      first, last);
}

// The answer parsed as the wire may bring it, with an unknown field first in
// each message, comes out as the key tables' bytes with the unknown fields
// last, as the runtime writes them.
TEST(Schema, TheAnswerByItsBytes) {
  const std::string unknown = from_hex("f0 01 01");
  const std::string in = response_bytes(true, unknown, "");
  resp::Response parsed;
  EXPECT_EQ(linkward::parse_message(in.data(), in.size(), parsed).fault,
            linkward::ParseFault::kNone);
  EXPECT_EQ(to_hex(parsed.SerializePartialAsString()),
            to_hex(response_bytes(false, "", unknown)));
}

// The nine enumeration fields keep a value outside their enumeration among
// the unknown fields as its low 32 bits, as a build step rewrites protoc's
// parsers to do, not as all ten bytes of a negative one. A query and an
// answer hold `v` in every such field, each message's own after the messages
// it holds, since the runtime writes unknown fields last.
TEST(Schema, OutOfRangeEnumerationValuesAreKeptAs32BitVarints) {
  const auto query = [](bool kept) {
    return hex(kept,
               "0a { 12 { 2a { 08 -1 18 -1 } 10 -1 18 -1 } } 18 -1 70 -1");
  };
  const auto answer = [](bool kept) {
    return hex(kept, "12 { 22 { 30 -1 } 08 -1 } 08 -1");
  };
  req::Request request;
  resp::Response response;
  request.ParsePartialFromString(query(false));
  response.ParsePartialFromString(answer(false));
  EXPECT_EQ(to_hex(request.SerializePartialAsString()), to_hex(query(true)));
  EXPECT_EQ(to_hex(response.SerializePartialAsString()), to_hex(answer(true)));
}

// The library's own checks stop the call, throwing the runtime's fatal
// exception (nothing catches it in a caller): a null URL, and a negative
// answer size, a caller's error no answer can cause.
TEST(KeptChecksDeathTest, StopTheCall) {
  char out[64];
  int32_t length;
  EXPECT_DEATH(uncaught([&] {
                 create_proto_request(out, &length, 64, 1, nullptr, "m", "", 0);
               }),
               "CHECK failed: value != nullptr: ");
  for (int32_t size : {-1, INT32_MIN})
    EXPECT_DEATH(
        uncaught([&] { parser_proto_response(out, &length, 64, "", size); }),
        "CHECK failed: \\(size\\) >= \\(0\\)");
}

}  // namespace
