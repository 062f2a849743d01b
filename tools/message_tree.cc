// The lite runtime has no text format, no JSON and no reflection, so a
// message is shown, and read back from JSON, through the schema's tables
// that the build writes from proto/ (schema_tables.h): the bytes the library
// kept of a message are decoded field by field, and JSON is written back as
// the runtime writes a message. Unknown fields, which the classes keep as
// raw wire bytes, are split into their records, shown as hex with their
// numbers, and written back as they came.
#include "message_tree.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <limits>
#include <vector>

#include "io.h"
#include "kx_request.pb.h"
#include "kx_response.pb.h"
#include "schema_tables.h"

namespace tool {
namespace {

namespace schema = linkward::schema;
using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

// One shown value: as JSON holds it, and as the text tree writes it.
struct Leaf {
  Json json;
  std::string text;
};

// Receives the tree field by field. `repeated` marks the elements of a
// repeated field, which JSON gathers into an array.
class Sink {
 public:
  virtual ~Sink() = default;
  virtual void leaf(const char* name, bool repeated, const Leaf& leaf) = 0;
  virtual void open(const char* name, bool repeated) = 0;
  virtual void close() = 0;
  virtual void unknown(uint32_t number, const char* wire_type,
                       const std::string& record) = 0;
};

class TextSink : public Sink {
 public:
  void leaf(const char* name, bool, const Leaf& leaf) override {
    line(std::string(name) + ": " + leaf.text);
  }
  void open(const char* name, bool) override {
    line(std::string(name) + " {");
    ++depth_;
  }
  void close() override {
    --depth_;
    line("}");
  }
  void unknown(uint32_t number, const char* wire_type,
               const std::string& record) override {
    line("unknown " + std::to_string(number) + " (" + wire_type +
         "): " + hex_line(record));
  }
  std::string text() const { return text_; }

 private:
  void line(const std::string& content) {
    text_.append(2 * depth_, ' ');
    text_ += content;
    text_ += '\n';
  }
  std::string text_;
  size_t depth_ = 0;
};

class JsonSink : public Sink {
 public:
  void leaf(const char* name, bool repeated, const Leaf& leaf) override {
    slot(name, repeated) = leaf.json;
  }
  void open(const char* name, bool repeated) override {
    Json& message = slot(name, repeated);
    message = Json::object();
    open_.push_back(&message);
  }
  void close() override { open_.pop_back(); }
  void unknown(uint32_t number, const char* wire_type,
               const std::string& record) override {
    slot("unknown_fields", true) = Json{{"number", number},
                                        {"wire_type", wire_type},
                                        {"bytes", hex_line(record)}};
  }
  std::string text() const { return root_.dump(2) + "\n"; }

 private:
  // Only the innermost open message changes, so the pointers to the ones
  // around it stay valid.
  Json& slot(const char* name, bool repeated) {
    Json& field = (*open_.back())[name];
    if (!repeated) return field;
    if (!field.is_array()) field = Json::array();
    field.push_back(nullptr);
    return field.back();
  }
  Json root_ = Json::object();
  std::vector<Json*> open_{&root_};
};

// Ends an encode: `path` names the JSON value that does not fit.
[[noreturn]] void misfit(const std::string& path, const std::string& what) {
  throw Failure(kUnreadable,
                (path.empty() ? "the top level" : path) + " " + what);
}

std::string member(const std::string& path, const std::string& name) {
  return path.empty() ? name : path + "." + name;
}

std::string element(const std::string& path, size_t i) {
  return path + "[" + std::to_string(i) + "]";
}

// ---------------------------------------------------------------------------
// The schema

int message_index(const char* name) {
  for (int i = 0; i < static_cast<int>(std::size(schema::kMessages)); ++i)
    if (std::string(schema::kMessages[i].name) == name) return i;
  throw Failure(kFailed, std::string("internal failure: no message ") + name);
}

const schema::Field* fields_end(const schema::Message& m) {
  return m.fields + m.count;
}

const schema::Field* field_numbered(const schema::Message& m, uint32_t number) {
  for (const schema::Field* f = m.fields; f != fields_end(m); ++f)
    if (static_cast<uint32_t>(f->number) == number) return f;
  return nullptr;
}

bool length_delimited(const schema::Field& f) {
  return f.kind == schema::Kind::kString || f.kind == schema::Kind::kBytes ||
         f.kind == schema::Kind::kMessage;
}

uint32_t key_of(const schema::Field& f) {
  return WireFormatLite::MakeTag(
      f.number, length_delimited(f) ? WireFormatLite::WIRETYPE_LENGTH_DELIMITED
                                    : WireFormatLite::WIRETYPE_VARINT);
}

// The name of `number` in the field's enumeration; null outside it.
const char* enum_name(const schema::Field& f, int32_t number) {
  const schema::Enum& e = schema::kEnums[f.type];
  for (const schema::EnumValue* v = e.values; v != e.values + e.count; ++v)
    if (v->number == number) return v->name;
  return nullptr;
}

// ---------------------------------------------------------------------------
// Bytes to the tree

Leaf number_leaf(const schema::Field& f, uint64_t varint) {
  const auto value = static_cast<int32_t>(varint);
  if (f.kind == schema::Kind::kBool)
    return {varint != 0, varint != 0 ? "true" : "false"};
  if (f.kind == schema::Kind::kInt32) return {value, std::to_string(value)};
  const std::string name = enum_name(f, value);
  return {{{"name", name}, {"number", value}},
          name + " (" + std::to_string(value) + ")"};
}

struct Record {
  uint32_t tag;
  std::string bytes;  // the whole record, its tag included
  bool whole;
};

// The records of a message's bytes, as the classes write them. Bytes that
// are not a whole record end the list as one record of their own.
std::vector<Record> records(const std::string& bytes) {
  const auto size = static_cast<int>(bytes.size());
  CodedInputStream in(reinterpret_cast<const uint8_t*>(bytes.data()), size);
  std::vector<Record> found;
  while (in.CurrentPosition() < size) {
    const int start = in.CurrentPosition();
    const uint32_t tag = in.ReadTag();
    const bool whole = tag != 0 && WireFormatLite::SkipField(&in, tag);
    const int end = whole ? in.CurrentPosition() : size;
    found.push_back({tag, bytes.substr(start, end - start), whole});
    if (!whole) break;
  }
  return found;
}

const char* wire_type_name(const Record& record) {
  static const char* const kNames[] = {"varint",      "64-bit",    "bytes",
                                       "group start", "group end", "32-bit"};
  const uint32_t type = record.tag & 7;
  if (!record.whole) return "cut short";
  return type < 6 ? kNames[type] : "invalid";
}

void walk(const std::string& bytes, int type, Sink& sink);

// Shows a record of the field `f`; false when it is not the field's value:
// an enumeration value outside it, which the classes keep among the unknown
// fields.
bool show_field(const Record& record, const schema::Field& f, Sink& sink) {
  CodedInputStream in(reinterpret_cast<const uint8_t*>(record.bytes.data()),
                      static_cast<int>(record.bytes.size()));
  in.ReadTag();
  if (!length_delimited(f)) {
    uint64_t value;
    in.ReadVarint64(&value);
    if (f.kind == schema::Kind::kEnum &&
        enum_name(f, static_cast<int32_t>(value)) == nullptr)
      return false;
    sink.leaf(f.name, f.repeated, number_leaf(f, value));
    return true;
  }
  std::string value;
  WireFormatLite::ReadBytes(&in, &value);
  if (f.kind != schema::Kind::kMessage) {
    sink.leaf(f.name, f.repeated,
              {json_bytes(value), "\"" + escaped(value) + "\""});
    return true;
  }
  sink.open(f.name, f.repeated);
  walk(value, f.type, sink);
  sink.close();
  return true;
}

// `bytes` are a message as the classes write it: its known fields, then the
// records kept as unknown ones.
void walk(const std::string& bytes, int type, Sink& sink) {
  const schema::Message& m = schema::kMessages[type];
  for (const Record& record : records(bytes)) {
    const schema::Field* f = field_numbered(m, record.tag >> 3);
    if (record.whole && f != nullptr && record.tag == key_of(*f) &&
        show_field(record, *f, sink))
      continue;
    sink.unknown(record.tag >> 3, wire_type_name(record), record.bytes);
  }
}

// ---------------------------------------------------------------------------
// JSON to bytes

void put_varint(std::string& out, uint64_t value) {
  for (; value > 127; value >>= 7)
    out += static_cast<char>((value & 127) | 128);
  out += static_cast<char>(value);
}

int32_t int32_of(const Json& j, const std::string& path) {
  if (!j.is_number_integer()) misfit(path, "is not a whole number");
  constexpr int64_t kMin = std::numeric_limits<int32_t>::min();
  constexpr int64_t kMax = std::numeric_limits<int32_t>::max();
  const bool fits = j.is_number_unsigned()
                        ? j.get<uint64_t>() <= kMax
                        : j.get<int64_t>() >= kMin && j.get<int64_t>() <= kMax;
  if (!fits) misfit(path, "is outside 32 bits");
  return j.get<int32_t>();
}

// By name, by number or by both, which must then agree. A number outside
// the enumeration has its place among the unknown fields, as inspect shows.
int32_t enum_of(const Json& j, const schema::Field& f,
                const std::string& path) {
  if (!j.is_object() || j.empty())
    misfit(path, "is not {\"name\": ..., \"number\": ...}");
  for (const auto& [part, given] : j.items())
    if (part != "name" && part != "number")
      misfit(member(path, part), "is not part of an enumeration value");
  const schema::Enum& e = schema::kEnums[f.type];
  int32_t number = 0;
  if (j.contains("name")) {
    const Json& name = j["name"];
    const auto* v = e.values;
    while (v != e.values + e.count && !(name.is_string() && name == v->name))
      ++v;
    if (v == e.values + e.count)
      misfit(member(path, "name"), "is not a name in the enumeration");
    number = v->number;
  }
  if (!j.contains("number")) return number;
  const int32_t given = int32_of(j["number"], member(path, "number"));
  if (enum_name(f, given) == nullptr)
    misfit(member(path, "number"),
           "is not in the enumeration (an unknown value goes among the "
           "unknown_fields)");
  if (j.contains("name") && given != number)
    misfit(path, "has a name and a number that disagree");
  return given;
}

std::string bytes_of(const Json& j, const std::string& path) {
  if (j.is_string()) return j.get<std::string>();
  if (j.is_object() && j.size() == 1 && j.contains("hex") &&
      j["hex"].is_string())
    return parse_hex(j["hex"].get<std::string>(), member(path, "hex"),
                     kUnreadable);
  misfit(path, "is neither a string nor {\"hex\": \"...\"}");
}

std::string message_of(const Json& j, int type, const std::string& path);

void put_field(std::string& out, const schema::Field& f, const Json& j,
               const std::string& path) {
  put_varint(out, key_of(f));
  switch (f.kind) {
    case schema::Kind::kInt32:  // sign-extended, as the runtime writes it
      return put_varint(
          out, static_cast<uint64_t>(static_cast<int64_t>(int32_of(j, path))));
    case schema::Kind::kEnum:
      return put_varint(out, static_cast<uint64_t>(
                                 static_cast<int64_t>(enum_of(j, f, path))));
    case schema::Kind::kBool:
      if (!j.is_boolean()) misfit(path, "is not true or false");
      return put_varint(out, j.get<bool>() ? 1 : 0);
    default: {
      const std::string value = f.kind == schema::Kind::kMessage
                                    ? message_of(j, f.type, path)
                                    : bytes_of(j, path);
      put_varint(out, value.size());
      out += value;
    }
  }
}

// The classes keep whole records, tag included; a record's number and wire
// type, where given, are the ones its bytes say: JSON that says otherwise
// was edited halfway.
std::string unknown_of(const Json& j, const std::string& path) {
  if (!j.is_array()) misfit(path, "is not an array");
  std::string out;
  for (size_t i = 0; i < j.size(); ++i) {
    const std::string at = element(path, i);
    if (!j[i].is_object() || !j[i].contains("bytes") ||
        !j[i]["bytes"].is_string())
      misfit(at,
             "is not {\"number\": ..., \"wire_type\": ..., \"bytes\": ...}");
    const std::string bytes = parse_hex(j[i]["bytes"].get<std::string>(),
                                        member(at, "bytes"), kUnreadable);
    const std::vector<Record> split = records(bytes);
    const Json said = split.empty()
                          ? Json::object()
                          : Json{{"number", split[0].tag >> 3},
                                 {"wire_type", wire_type_name(split[0])},
                                 {"bytes", j[i]["bytes"]}};
    for (const auto& [part, given] : j[i].items())
      if (!said.contains(part) || said[part] != given)
        misfit(member(at, part), "is not what the record's bytes say");
    out += bytes;
  }
  return out;
}

// The message, its fields in number order and its unknown ones last, as the
// runtime writes it.
std::string message_of(const Json& j, int type, const std::string& path) {
  const schema::Message& m = schema::kMessages[type];
  if (!j.is_object()) misfit(path, "is not an object");
  for (const auto& [name, value] : j.items()) {
    const schema::Field* f = m.fields;
    while (f != fields_end(m) && name != f->name) ++f;
    if (f == fields_end(m) && name != "unknown_fields")
      misfit(member(path, name), std::string("is not a field of ") + m.name);
  }
  std::string out;
  for (const schema::Field* f = m.fields; f != fields_end(m); ++f) {
    if (!j.contains(f->name)) continue;
    const Json& value = j[f->name];
    const std::string at = member(path, f->name);
    if (!f->repeated) {
      put_field(out, *f, value, at);
      continue;
    }
    if (!value.is_array()) misfit(at, "is not an array");
    for (size_t i = 0; i < value.size(); ++i)
      put_field(out, *f, value[i], element(at, i));
  }
  if (j.contains("unknown_fields"))
    out += unknown_of(j["unknown_fields"], member(path, "unknown_fields"));
  return out;
}

// Parsed as the message classes parse, saying where and why a parse stopped.
template <class M>
Inspection inspect_as(const std::string& bytes, bool json) {
  M message;
  const std::string fault = parse_fault(linkward::parse_message(
      bytes.data(), static_cast<int>(bytes.size()), message));
  const std::string kept = message.SerializePartialAsString();
  TextSink text;
  JsonSink tree;
  Sink& sink = json ? static_cast<Sink&>(tree) : text;
  walk(kept, message_index(message.GetTypeName().c_str()), sink);
  return {json ? tree.text() : text.text(), fault, message.IsInitialized(),
          fault.empty() && kept == bytes, message.GetTypeName()};
}

const char* root_name(MessageKind kind) {
  return kind == MessageKind::kRequest ? "linkward.info.req.Request"
                                       : "linkward.info.resp.Response";
}

}  // namespace

Inspection inspect(const std::string& bytes, MessageKind kind, bool json) {
  return kind == MessageKind::kRequest
             ? inspect_as<linkward::info::req::Request>(bytes, json)
             : inspect_as<linkward::info::resp::Response>(bytes, json);
}

std::string encode(const std::string& json, MessageKind kind,
                   const std::string& source) {
  Json j;
  try {
    j = Json::parse(json);
  } catch (const Json::parse_error& e) {
    // Its text begins with the exception's own name, in brackets.
    const std::string why = e.what();
    throw Failure(kUnreadable,
                  source + ": not JSON: " + why.substr(why.find("] ") + 2));
  }
  try {
    return message_of(j, message_index(root_name(kind)), "");
  } catch (const Failure& misfit) {
    throw Failure(misfit.status, source + ": " + misfit.what());
  }
}

Json json_bytes(const std::string& bytes) {
  // The JSON writer checks UTF-8 strictly: what it refuses, a JSON string
  // cannot carry as text.
  try {
    Json(bytes).dump();
    return bytes;
  } catch (const Json::type_error&) {
    return {{"hex", hex_line(bytes)}};
  }
}

const char* fault_text(linkward::ParseFault fault) {
  using linkward::ParseFault;
  switch (fault) {
    case ParseFault::kNone:
      return "none";
    case ParseFault::kZeroTag:
      return "a tag of 0";
    case ParseFault::kPastMessage:
      return "a length past the end of the message holding it";
    case ParseFault::kPastBytes:
      return "a length past the end of the bytes";
    case ParseFault::kCutByMessage:
      return "cut short by the end of the message holding it";
    case ParseFault::kCutByBytes:
      return "cut short by the end of the bytes";
    case ParseFault::kOverlong:
      return "a varint longer than ten bytes";
    case ParseFault::kBadLength:
      return "a length above 2147483647 or negative";
    case ParseFault::kTooDeep:
      return "nesting deeper than 100 levels";
    case ParseFault::kEndGroup:
      return "an end-group tag with no group open";
    case ParseFault::kBadWireType:
      return "wire type 6 or 7, which do not exist";
    case ParseFault::kBadUnknown:
      return "an unknown field cut short or malformed";
    case ParseFault::kBadGroup:
      return "an unknown group cut short, left open or nested too deep";
  }
  return "an unnamed fault";
}

std::string parse_fault(const linkward::ParseReport& report) {
  if (report.fault == linkward::ParseFault::kNone) return "";
  return (report.stopped ? "stopped at byte "
                         : "read to the end, but at byte ") +
         std::to_string(report.offset) + ": " + fault_text(report.fault);
}

}  // namespace tool
