// Bytes on the wire and calls made as a caller makes them, into guarded
// buffers, and what they promise: what the tests, the fuzz targets and the
// footprint figures share.
#ifndef LINKWARD_TESTS_WIRE_H
#define LINKWARD_TESTS_WIRE_H

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "linkward.h"

// "0a 09 08" -> the three bytes; blanks are ignored.
inline std::string from_hex(const std::string& hex) {
  std::string bytes;
  std::istringstream in(hex);
  for (std::string pair; in >> pair;)
    for (size_t i = 0; i + 1 < pair.size(); i += 2)
      bytes += static_cast<char>(std::stoi(pair.substr(i, 2), nullptr, 16));
  return bytes;
}

inline std::string to_hex(const std::string& bytes) {
  std::string hex;
  for (unsigned char byte : bytes)
    hex += std::string(hex.empty() ? "" : " ") + "0123456789abcdef"[byte >> 4] +
           "0123456789abcdef"[byte & 15];
  return hex;
}

// The length of `bytes` as a varint, then `bytes`.
inline std::string delimited(const std::string& bytes) {
  std::string record;
  size_t n = bytes.size();
  for (; n > 127; n >>= 7) record += static_cast<char>((n & 127) | 128);
  return record + static_cast<char>(n) + bytes;
}

// A length-delimited record: the key of field `number`, then `bytes`.
inline std::string nested(int number, const std::string& bytes) {
  return static_cast<char>(number << 3 | 2) + delimited(bytes);
}

// Caller buffers start full of kGuard, and out_len at kUnsetLength, so that
// a test can tell what a call wrote.
constexpr char kGuard = '\x5a';
constexpr int32_t kUnsetLength = -7;
constexpr size_t kGuardTail = 64;  // guard bytes after an answer's capacity

inline bool untouched_from(const std::vector<char>& buffer, size_t from = 0) {
  return std::all_of(buffer.begin() + std::min(from, buffer.size()),
                     buffer.end(), [](char c) { return c == kGuard; });
}

struct Query {
  int32_t rc, length;
  std::string bytes;  // what the call wrote, the length it reported
};

inline Query make_query(const std::string& url, const std::string& mid,
                        const std::string& vk, int32_t capacity = 4096,
                        uint32_t enable = 1) {
  std::vector<char> out(std::max(capacity, 1), kGuard);
  Query q{0, kUnsetLength, {}};
  q.rc = create_proto_request(out.data(), &q.length, capacity, enable,
                              url.c_str(), mid.c_str(), vk.data(),
                              static_cast<uint32_t>(vk.size()));
  if (q.rc == 0) q.bytes.assign(out.data(), q.length);
  return q;
}

struct Outcome {
  int32_t rc, length, capacity;
  std::vector<char> buffer;  // the capacity, then the guard tail

  int32_t head(size_t index) const {  // 0 the code, 1 the level, 2 sub-type
    int32_t value;
    std::memcpy(&value, buffer.data() + 4 * index, 4);
    return value;
  }
};

inline Outcome parse(const void* answer, int32_t size, int32_t capacity = 534) {
  Outcome o{0, kUnsetLength, capacity,
            std::vector<char>(capacity + kGuardTail, kGuard)};
  o.rc =
      parser_proto_response(o.buffer.data(), &o.length, capacity, answer, size);
  return o;
}

inline Outcome parse(const std::string& answer, int32_t capacity = 534) {
  return parse(answer.data(), static_cast<int32_t>(answer.size()), capacity);
}

// Empty when the call kept its promises: a documented code, and nothing
// written but a record whose text is NUL-terminated inside the capacity.
inline std::string broken_promise(const Outcome& o) {
  if (o.rc != 0 && o.rc != -3 && o.rc != -4) return "an undocumented code";
  if (o.rc != 0 || o.length == 0) {
    if (o.length != (o.rc == 0 ? 0 : kUnsetLength)) return "a stray length";
    return untouched_from(o.buffer) ? "" : "a write without a record";
  }
  if (o.length < 12) return "a record shorter than its head";
  if (o.head(0) < 0 || o.head(0) > 8) return "a code outside 0 to 8";
  const size_t room = static_cast<size_t>(o.capacity) - 12;
  const size_t text_length = static_cast<size_t>(o.length) - 12;
  if (text_length == 0 || room == 0)
    return untouched_from(o.buffer, 12) ? "" : "a write after the head";
  const size_t kept = std::min(text_length, room - 1);
  if (o.buffer[12 + kept] != '\0' || std::strlen(o.buffer.data() + 12) != kept)
    return "a text not cut and NUL-terminated inside the capacity";
  return untouched_from(o.buffer, 13 + kept) ? "" : "a write after the text";
}

// "refused -3", "no record", or the record's code, its text when it has one,
// and the text's whole length when the capacity cut it.
inline std::string told(const Outcome& o) {
  if (o.rc != 0) return "refused " + std::to_string(o.rc);
  if (o.length == 0) return "no record";
  std::string record = "code " + std::to_string(o.head(0));
  if (o.length > 12 && o.capacity > 12 && o.buffer[12] != '\0')
    record += ", " + std::string(o.buffer.data() + 12);
  if (o.length > 12 && o.length >= o.capacity)
    record += " (cut from " + std::to_string(o.length - 12) + ")";
  return record;
}

// ec 0; result id 1 with one md5_result: level 60, sub-type 10,
// "kx.info" = "sc=110|ssc=11021": code 7, the answer the router sees most.
inline std::string typical_answer() {
  return from_hex(
      "08 00 12 25 10 01 22 21 10 3c 28 0a 42 1b 0a 07 6b 78 2e 69 6e 66 6f "
      "12 10 73 63 3d 31 31 30 7c 73 73 63 3d 31 31 30 32 31");
}

// One result whose only per-hash result has `level` (below 128) and one pair.
inline std::string one_pair_answer(char level, const std::string& key,
                                   const std::string& value) {
  return nested(2, nested(4, std::string{'\x10', level} +
                                 nested(8, nested(1, key) + nested(2, value))));
}

// 20,000 results that hold one pair and no per-hash result, then one whose
// per-hash result (level 60, sub-type 30) has 20,000 other pairs before its
// "kx.info" (sc=110|ssc=11011: code 7), then one that is never reached.
inline std::string crowded_answer() {
  std::string answer, decisive = from_hex("10 3c 28 1e");
  for (int i = 0; i < 20000; ++i) {
    answer += nested(2, from_hex("2a 03 0a 01 6b"));
    decisive += nested(8, from_hex("0a 05") + "other");
  }
  decisive +=
      nested(8, from_hex("0a 07") + "kx.info" + nested(2, "sc=110|ssc=11011"));
  return answer + nested(2, nested(4, decisive)) +
         nested(2, nested(4, from_hex("10 46")));
}

// Groups of the unknown field 15, nested `depth` deep and closed again.
inline std::string groups(int depth) {
  return std::string(depth, '\x7b') + std::string(depth, '\x7c');
}

// The typical answer, then in each message field of an answer groups nested
// as deep as the parse's 100 levels allow, every message around them counting
// one; the leak count's, four deep, last.
inline std::vector<std::string> deepest_answers() {
  const std::vector<int> paths[] = {
      {}, {3}, {2}, {2, 5}, {2, 3}, {2, 4}, {2, 4, 8}, {2, 4, 9}, {2, 4, 9, 1}};
  std::vector<std::string> answers;
  for (const std::vector<int>& path : paths) {
    std::string inner = groups(100 - static_cast<int>(path.size()));
    for (auto field = path.rbegin(); field != path.rend(); ++field)
      inner = nested(*field, inner);
    answers.push_back(typical_answer() + inner);
  }
  return answers;
}

// What a fuzz target does with a broken promise: say which, and stop, so that
// libFuzzer keeps the input.
inline void require(bool kept, const char* promise) {
  if (kept) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

// Runs `call` as a caller that catches nothing would: an exception ends the
// process (death tests otherwise report a thrown exception as survival).
template <typename Call>
void uncaught(Call call) noexcept {
  call();
}

#endif
