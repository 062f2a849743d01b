// Helpers for tests that look at bytes on the wire.
#ifndef LINKWARD_TESTS_WIRE_H
#define LINKWARD_TESTS_WIRE_H

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "linkward.h"

// "0a 09 08" -> the three bytes; blanks are ignored.
inline std::string from_hex(const std::string& hex) {
  std::string bytes;
  std::istringstream in(hex);
  std::string pair;
  while (in >> pair)
    for (size_t i = 0; i + 1 < pair.size(); i += 2)
      bytes.push_back(
          static_cast<char>(std::stoi(pair.substr(i, 2), nullptr, 16)));
  return bytes;
}

inline std::string to_hex(const std::string& bytes) {
  std::string hex;
  char digits[4];
  for (unsigned char byte : bytes) {
    std::snprintf(digits, sizeof digits, "%02x ", byte);
    hex += digits;
  }
  if (!hex.empty()) hex.pop_back();
  return hex;
}

// A length-delimited record: the key of field `number`, the length, `bytes`.
inline std::string nested(int number, const std::string& bytes) {
  std::string record(1, static_cast<char>(number << 3 | 2));
  for (size_t n = bytes.size();; n >>= 7) {
    record += static_cast<char>(n > 127 ? (n & 127) | 128 : n);
    if (n <= 127) break;
  }
  return record + bytes;
}

// Fills caller buffers so that a test can tell which bytes were written.
constexpr char kGuard = '\x5a';

inline bool untouched_from(const std::vector<char>& buffer, size_t from = 0) {
  for (size_t i = from; i < buffer.size(); ++i)
    if (buffer[i] != kGuard) return false;
  return true;
}

// What a call leaves in an out_len it did not set.
constexpr int32_t kUnsetLength = -7;

// A query made as a caller would, into a guarded buffer.
struct Query {
  int32_t rc;
  int32_t length;
  std::string bytes;  // what the call wrote, the length it reported
  std::vector<char> buffer;
};

inline Query make_query(const std::string& url, const std::string& mid,
                        const std::string& vk, int32_t capacity = 4096,
                        uint32_t enable = 1) {
  Query q{0,
          kUnsetLength,
          {},
          std::vector<char>(capacity > 0 ? capacity : 1, kGuard)};
  q.rc = create_proto_request(q.buffer.data(), &q.length, capacity, enable,
                              url.c_str(), mid.c_str(), vk.data(),
                              static_cast<uint32_t>(vk.size()));
  if (q.rc == 0) q.bytes.assign(q.buffer.data(), q.length);
  return q;
}

// Runs `call` as a caller that catches nothing would: an exception ends the
// process (death tests otherwise report a thrown exception as survival).
template <typename Call>
void uncaught(Call call) noexcept {
  call();
}

#endif
