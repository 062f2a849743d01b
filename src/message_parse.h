// How every message class parses. The bytes are merged into a message the way
// a classic coded-input-stream parse of these messages merges them, so that
// input cut short or malformed keeps exactly what arrived before the fault: a
// value cut short keeps the bytes that came, a skipped field is kept as the
// records that were read, a nested message never reads past the one that
// holds it, a tag may take up to ten bytes. The answer is why it exists; the
// query's classes parse the same way, since a caller may parse those too.
#ifndef LINKWARD_MESSAGE_PARSE_H
#define LINKWARD_MESSAGE_PARSE_H

#include <google/protobuf/parse_context.h>

namespace linkward {

// What was wrong with the bytes, as the parse found it.
enum class ParseFault : unsigned char {
  kNone,
  kZeroTag,       // a tag of 0, which ends a message before its length
  kPastMessage,   // a length past the end of the message holding it
  kPastBytes,     // a length past the end of the bytes
  kCutByMessage,  // a field cut short by the end of the message holding it
  kCutByBytes,    // a field cut short by the end of the bytes
  kOverlong,      // a varint longer than ten bytes
  kBadLength,     // a length above 2^31 - 1, or negative
  kTooDeep,       // nesting deeper than 100 levels
  kEndGroup,      // an end-group tag with no group open
  kBadWireType,   // wire type 6 or 7, which do not exist
  kBadUnknown,    // an unknown field cut short or malformed
  kBadGroup,      // an unknown group cut short, left open or nested too deep
};

// How the parse went: the bytes read whole (no fault, every message ending
// where its length said); or where it stopped, at the tag of the field it
// was in, and why; or, when it read on to the end, the first length that
// reached past the message holding it or past the bytes (such a message is
// read up to that end).
struct ParseReport {
  bool stopped;      // before the end of the bytes
  int offset;        // of the fault; the size when there is none
  ParseFault fault;  // kNone when the bytes were read whole
};

// Merges the `size` bytes at `data` into `message`, any of the generated
// classes, and says how it went. Whatever was read before a fault stays in
// the message; nothing is logged. A negative size stops on the runtime's
// fatal check.
template <class Message>
ParseReport parse_message(const void* data, int size, Message& message);

// The generated classes' own parse (the build puts a call to it in each),
// which every way into a message leads to: a byte array or string, a
// zero-copy stream, a coded stream. It takes the bytes the runtime's parse
// context holds up to its limit or the end of its stream, merges them as
// parse_message does, and returns null when the merge failed.
template <class Message>
const char* parse_in_context(Message& message, const char* ptr,
                             google::protobuf::internal::ParseContext* ctx);

}  // namespace linkward

#endif
