// The decoded message tree of a query or an answer, for `linkward inspect`.
#ifndef LINKWARD_TOOLS_MESSAGE_TREE_H
#define LINKWARD_TOOLS_MESSAGE_TREE_H

#include <string>

namespace tool {

enum class MessageKind { kRequest, kAnswer };

struct Inspection {
  std::string tree;   // indented text, or JSON
  std::string fault;  // empty when the bytes parsed whole; else where and why
                      // not, and the tree holds what was read before it
  bool complete;      // every required field is present
  std::string type;   // the message's type name
};

// Parses `bytes` into the library's message classes, an answer as the
// library parses it, and shows every present field by name, nested messages
// indented, bytes as escaped text and unknown fields as hex with their
// numbers.
Inspection inspect(const std::string& bytes, MessageKind kind, bool json);

}  // namespace tool

#endif
