// What the linkward tool's subcommands share: exit statuses, bytes in and
// out, hex and escaped text.
#ifndef LINKWARD_TOOLS_IO_H
#define LINKWARD_TOOLS_IO_H

#include <stdexcept>
#include <string>

namespace tool {

// The tool's exit statuses; `linkward --help` and the man page list them.
enum ExitStatus {
  kDone = 0,
  kFailed = 1,      // the output could not be written, or an internal failure
  kUsage = 2,       // bad arguments
  kUnreadable = 3,  // the input could not be read, or is not hex or JSON
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

// Bytes from hex text: pairs of hex digits, in groups separated by blanks.
// Throws Failure(status) naming `source` and what is wrong.
std::string parse_hex(const std::string& text, const std::string& source,
                      ExitStatus status);

// Lowercase hex, two digits a byte, space-separated, 16 bytes a line; or
// all on one line with no newline.
std::string format_hex(const std::string& bytes, bool one_line = false);

// Printable ASCII as it is; a backslash, control bytes and those outside
// ASCII escaped as C writes them in a string (\n, \x1b), and with `quotes`
// the double quote too. Error lines are printed so, so that nothing quoted
// in them reaches the terminal raw.
std::string escaped(const std::string& bytes, bool quotes = true);

// Throws Failure(kUsage) when -o's `output` is `input` ("-" for stdin), the
// same file by whatever name: writing it would lose the input.
void refuse_output_over_input(const std::string& output,
                              const std::string& input);

// Writes `bytes` into the file `path` names, "-" for stdout, once they are
// all there to write, as a shell's > does: an error leaves nothing written
// to a file that was there.
void write_output(const std::string& path, const std::string& bytes);

// Writes to stdout and throws Failure(kFailed) when that failed.
void write_stdout(const std::string& text);

}  // namespace tool

#endif
