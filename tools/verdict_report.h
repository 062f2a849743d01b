// What `linkward verdict` says about answer bytes: the record the library
// wrote, which per-hash result it came from, the answer's error code, and
// whether the bytes parsed whole.
#ifndef LINKWARD_TOOLS_VERDICT_REPORT_H
#define LINKWARD_TOOLS_VERDICT_REPORT_H

#include <cstdint>
#include <string>

#include "io.h"

namespace tool {

struct VerdictReport {
  std::string shown;  // text, or JSON
  ExitStatus status;  // kDone for a record, kRefused for anything else
};

// Hands `answer` to parser_proto_response with a record buffer of
// `capacity` bytes and explains the outcome. `from_hex`: the bytes were
// given as hex, so a hint that they look like hex would mislead.
VerdictReport report_verdict(const std::string& answer, int32_t capacity,
                             bool json, bool from_hex);

}  // namespace tool

#endif
