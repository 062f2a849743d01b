// The answer's parse. The service's bytes are merged into a Response the way
// a classic coded-input-stream parse of these messages merges them, so that
// an answer cut short or malformed keeps exactly what arrived before the
// fault: a value cut short keeps the bytes that came, a nested message never
// reads past the one that holds it, a tag may take up to ten bytes.
#ifndef LINKWARD_ANSWER_PARSE_H
#define LINKWARD_ANSWER_PARSE_H

#include "kx_response.pb.h"

namespace linkward {

// How the parse went: the bytes read whole, every message ending where its
// length said; or where it stopped, at the tag of the field it was in, and
// why; or, when it read on to the end, the first length that reached past
// the message holding it or past the bytes (such a message is read up to
// that end).
struct ParseReport {
  bool whole;
  bool stopped;       // before the end of the bytes
  int offset;         // of the fault; the size when whole
  const char* fault;  // nullptr when whole
};

// Merges the `size` bytes at `data` into `response`. Whatever was read before
// a fault stays in the message; nothing is logged. A negative size stops on
// the runtime's fatal check.
ParseReport parse_answer(const void* data, int size,
                         info::resp::Response& response);

}  // namespace linkward

#endif
