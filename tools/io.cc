#include "io.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace tool {
namespace {

// The library takes sizes as signed 32-bit counts.
constexpr uint64_t kMaxInput = INT32_MAX;

std::string reason() { return std::strerror(errno); }

Failure too_large(const std::string& name, const std::string& size) {
  return Failure(kUnreadable, name + ": " + size + ", more than the " +
                                  std::to_string(kMaxInput) +
                                  " bytes the library takes");
}

}  // namespace

std::string source_name(const std::string& path) {
  return path == "-" ? "stdin" : path;
}

std::string read_input(const std::string& path) {
  const std::string name = source_name(path);
  std::FILE* file = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
  if (file == nullptr)
    throw Failure(kUnreadable, "cannot read " + name + ": " + reason());
  // A file too large is refused by its size, before it is read.
  struct stat st;
  if (fstat(fileno(file), &st) == 0 && S_ISREG(st.st_mode) &&
      static_cast<uint64_t>(st.st_size) > kMaxInput) {
    if (file != stdin) std::fclose(file);
    throw too_large(name, std::to_string(st.st_size) + " bytes");
  }
  std::string bytes;
  char chunk[1 << 16];
  for (size_t n; bytes.size() <= kMaxInput &&
                 (n = std::fread(chunk, 1, sizeof chunk, file)) > 0;)
    bytes.append(chunk, n);
  const bool failed = std::ferror(file) != 0;
  const std::string why = reason();
  if (file != stdin) std::fclose(file);
  if (failed) throw Failure(kUnreadable, "cannot read " + name + ": " + why);
  if (bytes.size() > kMaxInput) throw too_large(name, "more bytes");
  return bytes;
}

std::string parse_hex(const std::string& text, const std::string& source,
                      ExitStatus status) {
  std::string digits, bytes;
  for (size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = text[i];
    if (std::isxdigit(c))
      digits += static_cast<char>(c);
    else if (!std::isspace(c))
      throw Failure(status, source + ": '" + text.substr(i, 1) +
                                "' at offset " + std::to_string(i) +
                                " is not a hex digit");
  }
  if (digits.size() % 2 != 0)
    throw Failure(status, source + ": an odd number of hex digits");
  for (size_t i = 0; i < digits.size(); i += 2)
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return bytes;
}

std::string format_hex(const std::string& bytes, bool one_line) {
  static const char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 15];
    const bool last = i + 1 == bytes.size();
    if (!(one_line && last))
      hex += (!one_line && (i % 16 == 15 || last)) ? '\n' : ' ';
  }
  return hex;
}

std::string escaped(const std::string& bytes, bool quotes) {
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\\' || (quotes && c == '"')) {
      text += {'\\', c};
    } else if (c == '\n') {
      text += "\\n";
    } else if (byte >= 0x20 && byte < 0x7f) {
      text += c;
    } else {
      char code[5];
      std::snprintf(code, sizeof code, "\\x%02x", byte);
      text += code;
    }
  }
  return text;
}

void refuse_output_over_input(const std::string& output,
                              const std::string& input) {
  struct stat out, in;
  if (output.empty() || output == "-" || stat(output.c_str(), &out) != 0)
    return;
  const int read =
      input == "-" ? fstat(STDIN_FILENO, &in) : stat(input.c_str(), &in);
  if (read == 0 && S_ISREG(in.st_mode) && in.st_dev == out.st_dev &&
      in.st_ino == out.st_ino)
    throw Failure(kUsage, "-o " + output + " is the input, " +
                              source_name(input) +
                              ": write the output elsewhere");
}

void write_output(const std::string& path, const std::string& bytes) {
  if (path == "-") return write_stdout(bytes);
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr)
    throw Failure(kFailed, "cannot write " + path + ": " + reason());
  const bool written =
      std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  if (std::fclose(file) != 0 || !written)
    throw Failure(kFailed, "cannot write " + path + ": " + reason());
}

void write_stdout(const std::string& text) {
  // An earlier write may have failed unseen: stdout is flushed in blocks.
  const bool written =
      std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
      std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  if (!written) throw Failure(kFailed, "cannot write to stdout: " + reason());
}

}  // namespace tool
