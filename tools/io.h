// What the linkward tool shares between its subcommands: exit statuses,
// reading bytes in, writing bytes out, hex and escaped text.
#ifndef LINKWARD_TOOLS_IO_H
#define LINKWARD_TOOLS_IO_H

#include <stdexcept>
#include <string>

namespace tool {

// The tool's exit statuses; `linkward --help` and the README list them.
enum ExitStatus {
  kDone = 0,
  kFailed = 1,      // the output could not be written, or an internal failure
  kUsage = 2,       // bad arguments
  kUnreadable = 3,  // the input could not be read, or is not hex
  kRefused = 4,     // the library refused the answer, or it does not parse
};

// Ends a subcommand: main prints the message as one line on stderr and exits
// with the status.
struct Failure : std::runtime_error {
  Failure(ExitStatus status, const std::string& message)
      : std::runtime_error(message), status(status) {}
  ExitStatus status;
};

// "stdin" for "-", else the path: how messages name an input.
std::string source_name(const std::string& path);

// All bytes of `path`, or of stdin for "-"; no more than the library takes.
std::string read_input(const std::string& path);

// Bytes from hex text: pairs of hex digits, in groups separated by blanks
// and newlines. Throws Failure(status) naming `source` and the first wrong
// character on bad text.
std::string parse_hex(const std::string& text, const std::string& source,
                      ExitStatus status);

// Lowercase hex, two digits a byte, space-separated, 16 bytes a line.
std::string format_hex(const std::string& bytes);

// The same on one line, with no newline.
std::string hex_line(const std::string& bytes);

// Printable ASCII as it is; quote, backslash and control bytes escaped C-like;
// every other byte as \xNN.
std::string escaped(const std::string& bytes);

// An error line as it is printed: a backslash, control bytes and those
// outside ASCII escaped as escaped() writes them, the rest as it is, so that
// a name or value quoted in it never reaches the terminal raw. The one
// escaping of error lines: their parts are put in as they are.
std::string printable(const std::string& line);

// Throws Failure(kUsage) when -o's `output` is `input` ("-" for stdin), the
// same regular file by whatever name: writing it would lose the input.
void refuse_output_over_input(const std::string& output,
                              const std::string& input);

// Writes `bytes` where -o names: "-" is stdout; a regular file, or a name
// not taken yet, is written beside it and renamed over it, so it is never
// left half-written, even by a power loss; a symbolic link is followed to its
// target; a device, a FIFO or another file that is not regular is written in
// place. A file that cannot be written, or whose folder lets no file be made
// beside it, is an error, and it stays as it was.
void write_output(const std::string& path, const std::string& bytes);

// Writes to stdout and throws Failure(kFailed) when that failed.
void write_stdout(const std::string& text);

}  // namespace tool

#endif
