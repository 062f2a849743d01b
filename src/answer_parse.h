// The answer's parse. The service's bytes are merged into a Response the way
// a classic coded-input-stream parse of these messages merges them, so that
// an answer cut short or malformed keeps exactly what arrived before the
// fault: a value cut short keeps the bytes that came, a nested message never
// reads past the one that holds it, a tag may take up to ten bytes.
#ifndef LINKWARD_ANSWER_PARSE_H
#define LINKWARD_ANSWER_PARSE_H

#include "kx_response.pb.h"

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

// Merges the `size` bytes at `data` into `response`. Whatever was read before
// a fault stays in the message; nothing is logged. A negative size stops on
// the runtime's fatal check.
ParseReport parse_answer(const void* data, int size,
                         info::resp::Response& response);

}  // namespace linkward

#endif
