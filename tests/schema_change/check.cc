// Reads the fields that schema_change.sh adds to MD5Result through their
// accessors: each is read into its field, nothing is left among the unknown
// fields, and the message is written back as the bytes it came in. Writes the
// answer that holds it into the file named, for the tool.
#include <cstdio>
#include <fstream>
#include <string>

#include "kx_response.pb.h"

namespace resp = linkward::info::resp;

namespace {

int failures = 0;

void expect(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "check: %s\n", what);
  ++failures;
}

std::string from_hex(const char* hex) {
  std::string bytes;
  for (unsigned byte; std::sscanf(hex, " %2x", &byte) == 1; hex += 3)
    bytes += static_cast<char>(byte);
  return bytes;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  // level 60, then score 7, flagged, blob "b1", note "n1", kind 1, two
  // extras, two tags (field 16, a two-byte key) and leak { high: 5 }.
  const std::string result = from_hex(
      "10 3c 50 07 58 01 62 02 62 31 6a 02 6e 31 70 01 7a 04 0a 02 6b 31 7a "
      "04 0a 02 6b 32 82 01 02 74 31 82 01 02 74 32 8a 01 02 08 05");
  resp::MD5Result m;
  expect(m.ParseFromString(result), "the result parses");
  expect(m.has_score() && m.score() == 7, "score");
  expect(m.has_flagged() && m.flagged(), "flagged");
  expect(m.blob() == "b1" && m.note() == "n1", "blob and note");
  expect(m.has_kind() && m.kind() == linkward::info::kCacheType1, "kind");
  expect(m.extras_size() == 2 && m.extras(1).key() == "k2", "extras");
  expect(m.tags_size() == 2 && m.tags(1) == "t2", "tags");
  expect(m.has_leak() && m.leak().high() == 5 &&
             m.leak().unknown_fields().empty(),
         "leak");
  expect(m.unknown_fields().empty(), "no unknown fields");
  expect(m.SerializeAsString() == result, "the same bytes written back");

  resp::Response answer;
  answer.set_ec(resp::Response::kOK);
  answer.add_results()->add_md5_results()->ParseFromString(result);
  answer.mutable_results(0)->set_id(1);
  std::ofstream(argv[1], std::ios::binary) << answer.SerializeAsString();
  return failures == 0 ? 0 : 1;
}
