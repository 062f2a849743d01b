#include "io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
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
  if (group.size() <= kShown) return "'" + group + "'";
  return "'" + group.substr(0, kShown) + "...'";
}

void append_group(std::string& bytes, const std::string& group, size_t offset,
                  const std::string& source, ExitStatus status) {
  for (size_t i = 0; i < group.size(); ++i) {
    if (hex_digit(group[i]) >= 0) continue;
    std::string why = source + ": '" + group.substr(i, 1) + "' at offset " +
                      std::to_string(offset + i) + " (in " +
                      quoted_group(group) + ") is not a hex digit";
    if (i == 1 && (group[1] == 'x' || group[1] == 'X') && group[0] == '0')
      why += "; write the bytes without 0x";
    throw Failure(status, why);
  }
  if (group.size() % 2 != 0)
    throw Failure(status, source + ": " + quoted_group(group) + " at offset " +
                              std::to_string(offset) +
                              " has an odd number of hex digits");
  for (size_t i = 0; i < group.size(); i += 2)
    bytes.push_back(
        static_cast<char>(hex_digit(group[i]) * 16 + hex_digit(group[i + 1])));
}

// `size`: the file's, where it was known before reading.
Failure too_large(const std::string& name, int64_t size = -1) {
  const std::string most = std::to_string(kMaxInput);
  return Failure(
      kUnreadable,
      name + ": " +
          (size < 0 ? "more than the " + most + " bytes"
                    : std::to_string(size) + " bytes, more than the " + most) +
          " the library takes");
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

Failure cannot_write(const std::string& path, const std::string& why) {
  return Failure(kFailed, "cannot write " + path + ": " + why);
}

// Where a chain of symbolic links ends; the end need not exist yet, as the
// shell's > creates the target of a dangling link.
std::string follow_links(std::string path) {
  for (int hops = 0; hops < 40; ++hops) {
    struct stat st;
    if (lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path;
    std::string target(PATH_MAX, '\0');
    const ssize_t n = readlink(path.c_str(), target.data(), target.size());
    if (n < 0) return path;
    target.resize(n);
    const size_t slash = path.rfind('/');
    path = target[0] == '/' || slash == std::string::npos
               ? target
               : path.substr(0, slash + 1) + target;
  }
  errno = ELOOP;
  throw cannot_write(path, reason());
}

// Root may write any file; a file that nobody may write is left alone all
// the same, as its owner meant.
bool writable(const std::string& path, const struct stat& st) {
  return access(path.c_str(), W_OK) == 0 && (st.st_mode & 0222) != 0;
}

std::string folder_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// The rename is only lasting once the folder is on disk. A file system that
// cannot flush a folder (EINVAL) keeps its names some other way.
void sync_folder(const std::string& path, const std::string& folder) {
  const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY);
  const bool synced = fd >= 0 && (fsync(fd) == 0 || errno == EINVAL);
  const std::string why = reason();
  if (fd >= 0) close(fd);
  if (!synced)
    throw Failure(kFailed, path + " was written, but its folder '" + folder +
                               "' could not be flushed to disk: " + why);
}

// A new file beside `path`, renamed over it once whole. It takes the mode
// and owner of the file it replaces, or those a plain create would give. The
// file reaches the disk before the rename and the folder after it, so that a
// power loss leaves the old file or the new one.
void replace(const std::string& path, const std::string& bytes,
             const struct stat* old) {
  std::string temp = path + ".XXXXXX";
  const std::string folder = folder_of(path);
  const int fd = mkstemp(temp.data());
  // The file itself may well be writable: the new one is made beside it.
  if (fd < 0 && (errno == EACCES || errno == EPERM))
    throw cannot_write(path, "the folder '" + folder +
                                 "' does not let a file be made in it (" +
                                 reason() + ")");
  if (fd < 0) throw cannot_write(path, reason());
  if (old != nullptr) {
    // Only root may give a file away: for anyone else the file they replace
    // is their own already, and a failure changes nothing.
    const bool owner_kept = fchown(fd, old->st_uid, old->st_gid) == 0;
    static_cast<void>(owner_kept);
    fchmod(fd, old->st_mode & 07777);
  } else {
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
  }
  bool written = write_all(fd, bytes) && fsync(fd) == 0;
  std::string why = reason();
  if (close(fd) != 0 && written) {
    written = false;
    why = reason();
  }
  if (written && std::rename(temp.c_str(), path.c_str()) == 0)
    return sync_folder(path, folder);
  if (written) why = reason();
  unlink(temp.c_str());
  throw cannot_write(path, why);
}

// Devices and FIFOs are written as they are: replacing one with a regular
// file would destroy it.
void write_in_place(const std::string& path, const std::string& bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_NOCTTY);
  if (fd < 0) throw cannot_write(path, reason());
  bool written = write_all(fd, bytes);
  std::string why = reason();
  if (close(fd) != 0 && written) {
    written = false;
    why = reason();
  }
  if (!written) throw cannot_write(path, why);
}

}  // namespace

std::string source_name(const std::string& path) {
  return path == "-" ? "stdin" : path;
}

std::string read_input(const std::string& path) {
  const bool from_stdin = path == "-";
  const std::string name = source_name(path);
  std::FILE* file = from_stdin ? stdin : std::fopen(path.c_str(), "rb");
  if (file == nullptr)
    throw Failure(kUnreadable, "cannot read " + name + ": " + reason());
  // A file's size is known before it is read: one too large is refused
  // unread rather than held in memory first.
  struct stat st;
  if (fstat(fileno(file), &st) == 0 && S_ISREG(st.st_mode) &&
      static_cast<uint64_t>(st.st_size) > kMaxInput) {
    if (!from_stdin) std::fclose(file);
    throw too_large(name, st.st_size);
  }

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
  if (bytes.size() > kMaxInput) throw too_large(name);
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

std::string hex_line(const std::string& bytes) {
  std::string hex = format_hex(bytes);
  for (char& c : hex)
    if (c == '\n') c = ' ';
  if (!hex.empty()) hex.pop_back();
  return hex;
}

namespace {

// A backslash, a control byte or one outside ASCII as C writes it in a
// string literal; any other byte as it is.
void append_escaped(std::string& text, char c) {
  switch (c) {
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

}  // namespace

std::string escaped(const std::string& bytes) {
  std::string text;
  for (char c : bytes) {
    if (c == '"')
      text += "\\\"";
    else
      append_escaped(text, c);
  }
  return text;
}

std::string printable(const std::string& line) {
  std::string text;
  for (char c : line) append_escaped(text, c);
  return text;
}

void refuse_output_over_input(const std::string& output,
                              const std::string& input) {
  struct stat out, in;
  if (output.empty() || output == "-" || stat(output.c_str(), &out) != 0 ||
      !S_ISREG(out.st_mode))
    return;
  const int read =
      input == "-" ? fstat(STDIN_FILENO, &in) : stat(input.c_str(), &in);
  if (read == 0 && in.st_dev == out.st_dev && in.st_ino == out.st_ino)
    throw Failure(kUsage, "-o " + output + " is the input, " +
                              source_name(input) +
                              ": write the output elsewhere");
}

void write_output(const std::string& path, const std::string& bytes) {
  if (path == "-") return write_stdout(bytes);
  // stat follows the links the kernel follows, /proc/self/fd's included,
  // whose targets (a pipe, say) have no name to write beside.
  struct stat st;
  if (stat(path.c_str(), &st) != 0) {
    if (errno != ENOENT) throw cannot_write(path, reason());
    return replace(follow_links(path), bytes, nullptr);
  }
  if (!S_ISREG(st.st_mode)) return write_in_place(path, bytes);
  if (!writable(path, st)) {
    errno = EACCES;
    throw cannot_write(path, reason());
  }
  replace(follow_links(path), bytes, &st);
}

void write_stdout(const std::string& text) {
  // An earlier write may have failed unseen: stdout is flushed in blocks.
  const bool written =
      std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
      std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  if (!written) throw Failure(kFailed, "cannot write to stdout: " + reason());
}

}  // namespace tool
