// An answer decoded as a caller would, into a guarded buffer, and the
// promises parser_proto_response makes about that buffer.
#ifndef LINKWARD_TESTS_ANSWER_H
#define LINKWARD_TESTS_ANSWER_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kx_response.pb.h"
#include "linkward.h"
#include "wire.h"

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

// What the caller is told: "refused -3", "no record", or the record's code
// and, when it has one, its text.
inline std::string told(const Outcome& o) {
  if (o.rc != 0) return "refused " + std::to_string(o.rc);
  if (o.length == 0) return "no record";
  const std::string code = "code " + std::to_string(o.code());
  return o.text().empty() ? code : code + ", " + o.text();
}

// ec 0; result id 1 with one md5_result: level 60, sub-type 10,
// "kx.info" = "sc=110|ssc=11021": code 7, the answer the router sees most.
inline std::string typical_answer() {
  return from_hex(
      "08 00 12 25 10 01 22 21 10 3c 28 0a 42 1b 0a 07 6b 78 2e 69 6e 66 6f "
      "12 10 73 63 3d 31 31 30 7c 73 73 63 3d 31 31 30 32 31");
}

// One result whose only per-hash result has `level` and one pair.
inline std::string one_pair_answer(int32_t level, const std::string& key,
                                   const std::string& value) {
  linkward::info::resp::Response response;
  auto* md5_result = response.add_results()->add_md5_results();
  md5_result->set_level(level);
  auto* pair = md5_result->add_values();
  pair->set_key(key);
  pair->set_value(value);
  return response.SerializePartialAsString();
}

// 20,000 results that hold no per-hash result, then one whose per-hash
// result (level 60, sub-type 30) has 20,000 other pairs before its "kx.info"
// (sc=110|ssc=11011: code 7), then one that is never reached.
inline std::string crowded_answer() {
  linkward::info::resp::Response response;
  for (int i = 0; i < 20000; ++i) {
    auto* result = response.add_results();
    result->set_id(i);
    result->add_exts()->set_key("k");
  }
  auto* decisive = response.add_results()->add_md5_results();
  decisive->set_level(60);
  decisive->set_sub_type(30);
  for (int i = 0; i < 20000; ++i) decisive->add_values()->set_key("other");
  auto* kx = decisive->add_values();
  kx->set_key("kx.info");
  kx->set_value("sc=110|ssc=11011");
  response.add_results()->add_md5_results()->set_level(70);
  return response.SerializePartialAsString();
}

// Groups of the unknown field 15, nested `depth` deep and closed again.
inline std::string groups(int depth) {
  return std::string(depth, '\x7b') + std::string(depth, '\x7c');
}

#endif
