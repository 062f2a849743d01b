#include "io.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace tool {
namespace {

// The library takes sizes as signed 32-bit counts.
constexpr size_t kMaxInput = std::numeric_limits<int32_t>::max();

std::string reason() { return std::strerror(errno); }

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// A group of hex digits as an error message quotes it: escaped and short.
std::string quoted_group(const std::string& group) {
  constexpr size_t kShown = 16;
  if (group.size() <= kShown) return "'" + escaped(group) + "'";
  return "'" + escaped(group.substr(0, kShown)) + "...'";
}

void append_group(std::string& bytes, const std::string& group, size_t offset,
                  const std::string& source, ExitStatus status) {
  const std::string where = source + ": " + quoted_group(group) +
                            " at offset " + std::to_string(offset);
  for (char c : group)
    if (hex_digit(c) < 0) throw Failure(status, where + " is not hex");
  if (group.size() % 2 != 0)
    throw Failure(status, where + " has an odd number of hex digits");
  for (size_t i = 0; i < group.size(); i += 2)
    bytes.push_back(
        static_cast<char>(hex_digit(group[i]) * 16 + hex_digit(group[i + 1])));
}

// Output files get the permissions a plain create would give them; mkstemp
// alone would leave them readable by their owner only.
void set_create_mode(int fd) {
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(fd, 0666 & ~mask);
}

bool write_all(int fd, const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

std::string read_input(const std::string& path) {
  const bool from_stdin = path == "-";
  const std::string name = from_stdin ? "stdin" : path;
  std::FILE* file = from_stdin ? stdin : std::fopen(path.c_str(), "rb");
  if (file == nullptr)
    throw Failure(kUnreadable, "cannot read " + name + ": " + reason());

  std::string bytes;
  char chunk[1 << 16];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0) {
    bytes.append(chunk, n);
    if (bytes.size() > kMaxInput) break;
  }
  const bool failed = std::ferror(file) != 0;
  const std::string why = reason();
  if (!from_stdin) std::fclose(file);
  if (failed) throw Failure(kUnreadable, "cannot read " + name + ": " + why);
  if (bytes.size() > kMaxInput)
    throw Failure(kUnreadable, name + ": more than 2 GiB");
  return bytes;
}

std::string parse_hex(const std::string& text, const std::string& source,
                      ExitStatus status) {
  static const char kBlanks[] = " \t\r\n\v\f";
  std::string bytes;
  size_t start = text.find_first_not_of(kBlanks);
  while (start != std::string::npos) {
    const size_t end =
        std::min(text.find_first_of(kBlanks, start), text.size());
    append_group(bytes, text.substr(start, end - start), start, source, status);
    start = text.find_first_not_of(kBlanks, end);
  }
  return bytes;
}

std::string format_hex(const std::string& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 15];
    hex += (i % 16 == 15 || i + 1 == bytes.size()) ? '\n' : ' ';
  }
  return hex;
}

std::string escaped(const std::string& bytes) {
  std::string text;
  for (char c : bytes) {
    switch (c) {
      case '"':
        text += "\\\"";
        break;
      case '\\':
        text += "\\\\";
        break;
      case '\n':
        text += "\\n";
        break;
      case '\r':
        text += "\\r";
        break;
      case '\t':
        text += "\\t";
        break;
      default:
        if (c >= 0x20 && c < 0x7f) {
          text += c;
        } else {
          char code[5];
          std::snprintf(code, sizeof code, "\\x%02x",
                        static_cast<unsigned char>(c));
          text += code;
        }
    }
  }
  return text;
}

void write_file(const std::string& path, const std::string& bytes) {
  std::string temp = path + ".XXXXXX";
  const int fd = mkstemp(temp.data());
  if (fd < 0) throw Failure(kFailed, "cannot write " + path + ": " + reason());
  set_create_mode(fd);
  bool written = write_all(fd, bytes);
  std::string why = reason();
  if (close(fd) != 0 && written) {
    written = false;
    why = reason();
  }
  if (written && std::rename(temp.c_str(), path.c_str()) == 0) return;
  if (written) why = reason();
  unlink(temp.c_str());
  throw Failure(kFailed, "cannot write " + path + ": " + why);
}

void write_stdout(const std::string& text) {
  const bool written =
      std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
      std::fflush(stdout) == 0;
  if (!written) throw Failure(kFailed, "cannot write to stdout: " + reason());
}

}  // namespace tool
