#include "verdict_report.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <optional>
#include <vector>

#include "message_parse.h"
#include "kx_response.pb.h"
#include "linkward.h"
#include "message_tree.h"

namespace tool {
namespace {

namespace resp = linkward::info::resp;

// The codes are the library's interface; the labels say which rule chose them.
const char* verdict_label(int32_t code) {
  static const char* const kLabels[] = {
      "level 0",
      "level 50 without sc=101",
      "no other rule applies",
      "level 60, sub-type 10, no matching sub-code",
      "level 60, sub-type 20",
      "level 70",
      "level 60 with sc=110 and ssc=11020 or ssc=11012",
      "level 60 with sc=110 and ssc=11021 or ssc=11011",
      "a bnet.info pair is present",
  };
  return code >= 0 && code <= 8 ? kLabels[code] : "not a verdict code";
}

const char* refusal_meaning(int32_t returned) {
  switch (returned) {
    case -1:
      return "a required pointer was null";
    case -3:
      return "the answer carries a service error code";
    case -4:
      return "the answer holds no results";
    default:
      return "not a documented return value";
  }
}

struct Outcome {
  int32_t returned = 0, length = 0;
  std::vector<char> record;
  linkward_verdict verdict{};
  bool has_record = false;
  resp::Response response;  // as the library parses the bytes
  linkward::ParseReport parse{};
  std::string from;  // the per-hash result the record came from
  std::optional<uint32_t> unknown_error_code;
  std::vector<std::string> hints;
};

// The library's walk: the first result holding a per-hash result decides,
// through its merged_result when present, else its first md5_results entry.
const resp::MD5Result* deciding_result(const resp::Response& response,
                                       std::string* from) {
  for (int i = 0; i < response.results_size(); ++i) {
    const resp::Result& result = response.results(i);
    const std::string at = "results[" + std::to_string(i) + "]";
    if (result.has_merged_result()) {
      *from = at + ".merged_result";
      return &result.merged_result();
    }
    if (result.md5_results_size() > 0) {
      *from = at + ".md5_results[0]";
      return &result.md5_results(0);
    }
  }
  return nullptr;
}

// An error code the schema does not know is kept among the answer's unknown
// fields, under the error code's number; the last one is the one that came.
std::optional<uint32_t> unknown_error_code(const resp::Response& response) {
  using google::protobuf::internal::WireFormatLite;
  const std::string& unknown = response.unknown_fields();
  google::protobuf::io::CodedInputStream in(
      reinterpret_cast<const uint8_t*>(unknown.data()),
      static_cast<int>(unknown.size()));
  std::optional<uint32_t> code;
  for (uint32_t tag; (tag = in.ReadTag()) != 0;) {
    uint32_t value;
    if (tag == WireFormatLite::MakeTag(resp::Response::kEcFieldNumber,
                                       WireFormatLite::WIRETYPE_VARINT) &&
        in.ReadVarint32(&value))
      code = value;
    else if (!WireFormatLite::SkipField(&in, tag))
      break;
  }
  return code;
}

bool looks_like_hex(const std::string& bytes) {
  return bytes.find_first_not_of("0123456789abcdefABCDEF \t\r\n") ==
             std::string::npos &&
         bytes.find_first_of("0123456789abcdefABCDEF") != std::string::npos;
}

std::vector<std::string> hints(const std::string& bytes, bool from_hex) {
  std::vector<std::string> said;
  if (!from_hex && looks_like_hex(bytes))
    said.push_back("the bytes look like hex text: add --hex");
  if (bytes.rfind("HTTP/", 0) == 0)
    said.push_back(
        "the bytes begin with an HTTP header: keep the body alone, the "
        "bytes after the first empty line");
  return said;
}

// The tool's walk must find the very record the library wrote, or what it
// says about where the record came from would be a guess.
void check_from(const Outcome& o, const resp::MD5Result* chosen,
                int32_t capacity) {
  std::vector<char> again(capacity, '\0');
  const bool same =
      chosen != nullptr &&
      parser_one_result(*chosen, again.data(), capacity) == o.length &&
      again == o.record;
  if (!same)
    throw Failure(kFailed, "internal failure: the library's record is not " +
                               (chosen ? "that of " + o.from
                                       : std::string("from any result")));
}

Outcome judge(const std::string& answer, int32_t capacity, bool from_hex) {
  Outcome o;
  const auto size = static_cast<int32_t>(answer.size());
  o.record.assign(capacity, '\0');
  o.returned = parser_proto_response(o.record.data(), &o.length, capacity,
                                     answer.data(), size);
  o.parse = linkward::parse_message(answer.data(), size, o.response);
  o.unknown_error_code = unknown_error_code(o.response);
  o.hints = hints(answer, from_hex);
  o.has_record =
      o.returned == 0 && linkward_read_record(o.record.data(), o.length,
                                              capacity, &o.verdict) == 0;
  if (o.has_record)
    check_from(o, deciding_result(o.response, &o.from), capacity);
  return o;
}

std::string error_code_name(const resp::Response& response) {
  return resp::Response_ErrorCode_Name(response.ec()) + " (" +
         std::to_string(response.ec()) + ")";
}

std::string outcome_line(const Outcome& o) {
  if (o.returned == -3)
    return "refused: -3, " + std::string(refusal_meaning(-3)) + ": " +
           error_code_name(o.response) + "\n";
  if (o.returned != 0)
    return "refused: " + std::to_string(o.returned) + ", " +
           refusal_meaning(o.returned) + "\n";
  return "no verdict: no result holds a per-hash result\n";
}

std::string record_lines(const Outcome& o, int32_t capacity) {
  const linkward_verdict& v = o.verdict;
  std::string text = "verdict: " + std::to_string(v.code) + " (" +
                     verdict_label(v.code) + ")\n" +
                     "level: " + std::to_string(v.level) + "\n" +
                     "sub_type: " + std::to_string(v.sub_type) + "\n";
  text += v.text ? "text: \"" + escaped(v.text) + "\"" : "text: none";
  if (v.text_cut)
    text += " (cut to fit --buffer " + std::to_string(capacity) +
            "; the whole text is " +
            std::to_string(o.length - LINKWARD_RECORD_HEAD_SIZE) + " bytes)";
  return text + "\nrecord: " + std::to_string(o.length) +
         " bytes\nfrom: " + o.from + "\n";
}

std::string as_text(const Outcome& o, int32_t capacity) {
  std::string text = o.has_record ? record_lines(o, capacity) : outcome_line(o);
  if (o.unknown_error_code)
    text += "error code: " + std::to_string(*o.unknown_error_code) +
            " is not in the schema: kept aside, so the library reads " +
            error_code_name(o.response) + "\n";
  const std::string fault = parse_fault(o.parse);
  text += "parse: " +
          (fault.empty() ? "whole, " + std::to_string(o.parse.offset) + " bytes"
                         : fault) +
          "\n";
  for (const std::string& hint : o.hints) text += "hint: " + hint + "\n";
  return text;
}

std::string as_json(const Outcome& o) {
  Json j{{"returned", o.returned}};
  if (o.has_record) {
    const linkward_verdict& v = o.verdict;
    j["record_length"] = o.length;
    j["verdict"] = v.code;
    j["label"] = verdict_label(v.code);
    j["level"] = v.level;
    j["sub_type"] = v.sub_type;
    j["text"] = v.text ? json_bytes(v.text) : Json(nullptr);
    j["text_cut"] = v.text_cut != 0;
    j["from"] = o.from;
  } else {
    if (o.returned == 0) j["record_length"] = o.length;
    j["meaning"] = o.returned == 0 ? "no result holds a per-hash result"
                                   : refusal_meaning(o.returned);
  }
  j["error_code"] = {{"name", resp::Response_ErrorCode_Name(o.response.ec())},
                     {"number", o.response.ec()}};
  if (o.unknown_error_code) j["unknown_error_code"] = *o.unknown_error_code;
  const bool whole = o.parse.fault == linkward::ParseFault::kNone;
  j["parse"] = {
      {"whole", whole},
      {"stopped", o.parse.stopped},
      {"offset", o.parse.offset},
      {"fault", whole ? Json(nullptr) : Json(fault_text(o.parse.fault))}};
  if (!o.hints.empty()) j["hints"] = o.hints;
  return j.dump(2) + "\n";
}

}  // namespace

VerdictReport report_verdict(const std::string& answer, int32_t capacity,
                             bool json, bool from_hex) {
  const Outcome o = judge(answer, capacity, from_hex);
  return {json ? as_json(o) : as_text(o, capacity),
          o.has_record ? kDone : kRefused};
}

}  // namespace tool
