// Reads the fields schema_change.sh adds to MD5Result through their
// accessors, with nothing left among the unknown fields and the same bytes
// written back; writes the answer that holds them into the file named.
#include <fstream>
#include <iostream>

#include "kx_response.pb.h"

int main(int, char** argv) {
  // level 60, then score 7, flagged, blob "b1", note "n1", kind 1, two
  // extras, two tags and leak { high: 5 }, each key two bytes long.
  const std::string result =
      "\x10\x3c\xc8\x3e\x07\xd0\x3e\x01\xda\x3e\x02\x62\x31\xe2\x3e\x02"
      "\x6e\x31\xe8\x3e\x01\xf2\x3e\x04\x0a\x02\x6b\x31\xf2\x3e\x04\x0a"
      "\x02\x6b\x32\xfa\x3e\x02\x74\x31\xfa\x3e\x02\x74\x32\x82\x3f\x02"
      "\x08\x05";
  linkward::info::resp::Response answer;
  answer.set_ec(linkward::info::resp::Response::kOK);
  answer.add_results()->set_id(1);
  auto& m = *answer.mutable_results(0)->add_md5_results();
  const bool read =
      m.ParseFromString(result) && m.has_score() && m.score() == 7 &&
      m.flagged() && m.blob() == "b1" && m.note() == "n1" &&
      m.kind() == linkward::info::kCacheType1 && m.extras(1).key() == "k2" &&
      m.tags_size() == 2 && m.tags(1) == "t2" && m.leak().high() == 5 &&
      m.unknown_fields().empty() && m.leak().unknown_fields().empty() &&
      m.SerializeAsString() == result;
  std::ofstream(argv[1], std::ios::binary) << answer.SerializeAsString();
  if (!read) std::cerr << "check: the new fields are not read as declared\n";
  return read ? 0 : 1;
}
