// An answer decoded as a caller would, into a guarded buffer, and the
// promises parser_proto_response makes about that buffer.
#ifndef LINKWARD_TESTS_ANSWER_H
#define LINKWARD_TESTS_ANSWER_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "linkward.h"
#include "wire.h"

constexpr int32_t kUnsetLength = -7;
constexpr size_t kGuardTail = 64;  // guard bytes after the capacity

struct Outcome {
  int32_t rc;
  int32_t length;
  int32_t capacity;
  std::vector<char> buffer;  // the capacity, then the guard tail

  int32_t head(size_t index) const {
    int32_t value;
    std::memcpy(&value, buffer.data() + 4 * index, 4);
    return value;
  }
  int32_t code() const { return head(0); }
  int32_t level() const { return head(1); }
  int32_t sub_type() const { return head(2); }
  bool untouched() const { return untouched_from(buffer); }
  // The text as it stands in the buffer, when the record has one.
  std::string text() const {
    return length > 12 && capacity > 12 ? std::string(buffer.data() + 12) : "";
  }
};

inline Outcome parse_bytes(const void* answer, int32_t size,
                           int32_t capacity = 534) {
  Outcome o{0, kUnsetLength, capacity,
            std::vector<char>(capacity + kGuardTail, kGuard)};
  o.rc =
      parser_proto_response(o.buffer.data(), &o.length, capacity, answer, size);
  return o;
}

inline Outcome parse(const std::string& answer, int32_t capacity = 534) {
  return parse_bytes(answer.data(), static_cast<int32_t>(answer.size()),
                     capacity);
}

// Empty when the call kept its promises: a documented code; on an error,
// nothing written; otherwise no record and nothing written, or a record whose
// text is NUL-terminated inside the capacity (cut when it did not fit), with
// nothing written after the record.
inline std::string broken_promise(const Outcome& o) {
  if (o.rc != 0 && o.rc != -3 && o.rc != -4) return "an undocumented code";
  if (o.rc != 0 || o.length == 0) {
    if (o.length != (o.rc == 0 ? 0 : kUnsetLength)) return "a stray length";
    return o.untouched() ? "" : "a write without a record";
  }
  if (o.length < 12) return "a record shorter than its head";
  if (o.code() < 0 || o.code() > 8) return "a code outside 0 to 8";
  const size_t room = static_cast<size_t>(o.capacity) - 12;
  const size_t text_length = static_cast<size_t>(o.length) - 12;
  if (text_length == 0 || room == 0)
    return untouched_from(o.buffer, 12) ? "" : "a write after the head";
  const size_t kept = std::min(text_length, room - 1);
  if (o.buffer[12 + kept] != '\0' || std::strlen(o.buffer.data() + 12) != kept)
    return "a text not cut and NUL-terminated inside the capacity";
  return untouched_from(o.buffer, 12 + kept + 1) ? ""
                                                 : "a write after the text";
}

#endif
