// The decoded message tree of a query or an answer, for `linkward inspect`,
// and its way back into bytes, for `linkward encode`.
#ifndef LINKWARD_TOOLS_MESSAGE_TREE_H
#define LINKWARD_TOOLS_MESSAGE_TREE_H

#include <nlohmann/json.hpp>
#include <string>

#include "message_parse.h"

namespace tool {

using Json = nlohmann::ordered_json;

enum class MessageKind { kRequest, kAnswer };

struct Inspection {
  std::string tree;   // indented text, or JSON
  std::string fault;  // empty when the bytes parsed whole; else where and why
                      // not, and the tree holds what was read before it
  bool complete;      // every required field is present
  bool canonical;     // the bytes are the message as the runtime writes it:
                      // fields in number order, each once, unknown ones last
  std::string type;   // the message's type name
};

// Parses `bytes` as the library's message classes do and shows what they
// kept: every present field by name, nested messages indented, bytes as
// escaped text (JSON: see json_bytes), enumerations by name, and unknown
// fields as hex with their numbers.
Inspection inspect(const std::string& bytes, MessageKind kind, bool json);

// The message that `json`, as inspect prints it, describes, in the bytes
// the protobuf runtime writes for it. Throws Failure(kUnreadable) naming
// `source` and the first thing that does not fit the schema.
std::string encode(const std::string& json, MessageKind kind,
                   const std::string& source);

// Bytes in JSON: a string where they are valid UTF-8, else {"hex": "..."}.
Json json_bytes(const std::string& bytes);

// Where and why the parse did not read the bytes whole ("" when it did).
std::string parse_fault(const linkward::ParseReport& report);

}  // namespace tool

#endif
