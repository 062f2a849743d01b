// Helpers for tests that look at bytes on the wire.
#ifndef LINKWARD_TESTS_WIRE_H
#define LINKWARD_TESTS_WIRE_H

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

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

// Fills caller buffers so that a test can tell which bytes were written.
constexpr char kGuard = '\x5a';

inline bool untouched_from(const std::vector<char>& buffer, size_t from = 0) {
  for (size_t i = from; i < buffer.size(); ++i)
    if (buffer[i] != kGuard) return false;
  return true;
}

// Runs `call` as a caller that catches nothing would: an exception ends the
// process (death tests otherwise report a thrown exception as survival).
template <typename Call>
void uncaught(Call call) noexcept {
  call();
}

#endif
