// The lite runtime has no text format, no JSON and no reflection, so a
// message is shown, and read back from JSON, through the schema's tables
// that the build writes from proto/ (schema_tables.h): the bytes the library
// kept of a message are decoded field by field into JSON, which the text
// view is written from, and JSON is written back as the runtime writes a
// message. Unknown fields, which the classes keep as raw wire bytes, are
// split into their records and written back as they came.
#include "message_tree.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/wire_format_lite.h>

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
using google::protobuf::io::CodedOutputStream;
using google::protobuf::io::StringOutputStream;

[[noreturn]] void misfit(const std::string& path, const std::string& what) {
  throw Failure(kUnreadable,
                (path.empty() ? "the top level" : path) + " " + what);
}

std::string member(const std::string& path, const std::string& name) {
  return path.empty() ? name : path + "." + name;
}

int message_index(const std::string& name) {
  int i = 0;
  while (name != schema::kMessages[i].name) ++i;
  return i;
}

// The field of `m` named by `number`, or by `name` when that is given.
const schema::Field* field_of(const schema::Message& m, uint32_t number,
                              const std::string* name = nullptr) {
  for (const schema::Field* f = m.fields; f != m.fields + m.count; ++f)
    if (name ? *name == f->name : static_cast<uint32_t>(f->number) == number)
      return f;
  return nullptr;
}

// The enumeration value of the field's type named `name`, or numbered
// `number` when `name` is null; null when there is none.
const schema::EnumValue* enum_value(const schema::Field& f, int32_t number,
                                    const std::string* name = nullptr) {
  const schema::Enum& e = schema::kEnums[f.type];
  for (const schema::EnumValue* v = e.values; v != e.values + e.count; ++v)
    if (name ? *name == v->name : v->number == number) return v;
  return nullptr;
}

std::string bytes_of(const Json& j, const std::string& path) {
  if (j.is_string()) return j.get<std::string>();
  if (j.is_object() && j.size() == 1 && j.contains("hex") &&
      j["hex"].is_string())
    return parse_hex(j["hex"].get<std::string>(), member(path, "hex"),
                     kUnreadable);
  misfit(path, "is neither a string nor {\"hex\": \"...\"}");
}

// ---------------------------------------------------------------------------
// Bytes to the tree

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

Json unknown_record(const Record& r) {
  static const char* const kWireTypes[] = {"varint",      "64-bit",    "bytes",
                                           "group start", "group end", "32-bit",
                                           "invalid",     "invalid"};
  return {{"number", r.tag >> 3},
          {"wire_type", r.whole ? kWireTypes[r.tag & 7] : "cut short"},
          {"bytes", format_hex(r.bytes, true)}};
}

Json tree(const std::string& bytes, int type);

// The value of a record of the field `f`; null when it is not one: an
// enumeration value outside it, which the classes keep among the unknown
// fields.
Json value_of(const Record& r, const schema::Field& f) {
  CodedInputStream in(reinterpret_cast<const uint8_t*>(r.bytes.data()),
                      static_cast<int>(r.bytes.size()));
  in.ReadTag();
  uint64_t number = 0;
  std::string bytes;
  if ((f.key & 7) == WireFormatLite::WIRETYPE_VARINT)
    in.ReadVarint64(&number);
  else
    WireFormatLite::ReadBytes(&in, &bytes);
  const schema::EnumValue* named = nullptr;
  switch (f.kind) {
    case schema::Kind::kInt32:
      return static_cast<int32_t>(number);
    case schema::Kind::kBool:
      return number != 0;
    case schema::Kind::kEnum:
      named = enum_value(f, static_cast<int32_t>(number));
      return named ? Json(named->name) : Json();
    case schema::Kind::kMessage:
      return tree(bytes, f.type);
    default:
      return json_bytes(bytes);
  }
}

// `bytes` are a message as the classes write it: its known fields, then the
// records kept as unknown ones.
Json tree(const std::string& bytes, int type) {
  Json j = Json::object();
  for (const Record& r : records(bytes)) {
    const schema::Field* f = field_of(schema::kMessages[type], r.tag >> 3);
    const Json value =
        r.whole && f && r.tag == f->key ? value_of(r, *f) : Json();
    if (value.is_null())
      j["unknown_fields"].push_back(unknown_record(r));
    else if (f->repeated)
      j[f->name].push_back(value);
    else
      j[f->name] = value;
  }
  return j;
}

void append_text(const Json& j, int type, size_t depth, std::string& out) {
  const std::string indent(2 * depth, ' ');
  for (const auto& [name, value] : j.items()) {
    if (name == "unknown_fields") {
      for (const Json& u : value)
        out += indent + "unknown " + u["number"].dump() + " (" +
               u["wire_type"].get<std::string>() +
               "): " + u["bytes"].get<std::string>() + "\n";
      continue;
    }
    const schema::Field& f = *field_of(schema::kMessages[type], 0, &name);
    for (const Json& v : f.repeated ? value : Json::array({value})) {
      if (f.kind == schema::Kind::kMessage) {
        out += indent + name + " {\n";
        append_text(v, f.type, depth + 1, out);
        out += indent + "}\n";
      } else {
        const bool quoted =
            f.kind == schema::Kind::kString || f.kind == schema::Kind::kBytes;
        out += indent + name + ": " +
               (quoted          ? "\"" + escaped(bytes_of(v, name)) + "\""
                : v.is_string() ? v.get<std::string>()
                                : v.dump()) +
               "\n";
      }
    }
  }
}

// ---------------------------------------------------------------------------
// JSON to bytes

int32_t int32_of(const Json& j, const std::string& path) {
  if (!j.is_number_integer()) misfit(path, "is not a whole number");
  if (j.is_number_unsigned()
          ? j.get<uint64_t>() > INT32_MAX
          : j.get<int64_t>() < INT32_MIN || j.get<int64_t>() > INT32_MAX)
    misfit(path, "is outside 32 bits");
  return j.get<int32_t>();
}

// By name or by number. A number outside the enumeration has its place
// among the unknown fields, as inspect shows.
int32_t enum_of(const Json& j, const schema::Field& f,
                const std::string& path) {
  const std::string* name =
      j.is_string() ? j.get_ptr<const std::string*>() : nullptr;
  if (!name && !j.is_number_integer())
    misfit(path, "is neither a name nor a number");
  const schema::EnumValue* v =
      enum_value(f, name ? 0 : int32_of(j, path), name);
  if (v == nullptr)
    misfit(path,
           "is not in the enumeration (a number outside it goes "
           "among the unknown_fields)");
  return v->number;
}

std::string message_of(const Json& j, int type, const std::string& path);

void put_field(CodedOutputStream& out, const schema::Field& f, const Json& j,
               const std::string& path) {
  switch (f.kind) {
    case schema::Kind::kInt32:
      return WireFormatLite::WriteInt32(f.number, int32_of(j, path), &out);
    case schema::Kind::kEnum:
      return WireFormatLite::WriteEnum(f.number, enum_of(j, f, path), &out);
    case schema::Kind::kBool:
      if (!j.is_boolean()) misfit(path, "is not true or false");
      return WireFormatLite::WriteBool(f.number, j.get<bool>(), &out);
    case schema::Kind::kMessage:
      return WireFormatLite::WriteBytes(f.number, message_of(j, f.type, path),
                                        &out);
    default:
      return WireFormatLite::WriteBytes(f.number, bytes_of(j, path), &out);
  }
}

// Each record as inspect shows it; its bytes are what is written, whatever
// its number and wire type say.
std::string unknown_of(const Json& j, const std::string& path) {
  if (!j.is_array()) misfit(path, "is not an array");
  std::string out;
  for (size_t i = 0; i < j.size(); ++i) {
    const std::string at = path + "[" + std::to_string(i) + "]";
    if (!j[i].is_object() || !j[i].contains("bytes") ||
        !j[i]["bytes"].is_string())
      misfit(at, "is not {\"bytes\": \"...\"}");
    out +=
        parse_hex(j[i]["bytes"].get<std::string>(), at + ".bytes", kUnreadable);
  }
  return out;
}

// The message, its fields in number order and its unknown ones last, as the
// runtime writes it.
std::string message_of(const Json& j, int type, const std::string& path) {
  const schema::Message& m = schema::kMessages[type];
  if (!j.is_object()) misfit(path, "is not an object");
  for (const auto& [name, value] : j.items())
    if (name != "unknown_fields" && !field_of(m, 0, &name))
      misfit(member(path, name), std::string("is not a field of ") + m.name);
  std::string out;
  {
    StringOutputStream stream(&out);
    CodedOutputStream coded(&stream);
    for (const schema::Field* f = m.fields; f != m.fields + m.count; ++f) {
      if (!j.contains(f->name)) continue;
      const Json& value = j[f->name];
      const std::string at = member(path, f->name);
      if (f->repeated && !value.is_array()) misfit(at, "is not an array");
      if (!f->repeated) put_field(coded, *f, value, at);
      for (size_t i = 0; f->repeated && i < value.size(); ++i)
        put_field(coded, *f, value[i], at + "[" + std::to_string(i) + "]");
    }
  }
  if (j.contains("unknown_fields"))
    out += unknown_of(j["unknown_fields"], member(path, "unknown_fields"));
  return out;
}

template <class M>
Inspection inspect_as(const std::string& bytes, bool json) {
  M message;
  const std::string fault = parse_fault(linkward::parse_message(
      bytes.data(), static_cast<int>(bytes.size()), message));
  const std::string kept = message.SerializePartialAsString();
  const int type = message_index(message.GetTypeName());
  const Json j = tree(kept, type);
  std::string text;
  if (!json) append_text(j, type, 0, text);
  return {json ? j.dump(2) + "\n" : text, fault, message.IsInitialized(),
          fault.empty() && kept == bytes, message.GetTypeName()};
}

template <class M>
std::string encode_as(const Json& j) {
  return message_of(j, message_index(M().GetTypeName()), "");
}

// A switch, so that a new fault without its text is a compiler warning.
const char* fault_text(linkward::ParseFault fault) {
  using F = linkward::ParseFault;
  switch (fault) {
    case F::kNone:
      return "none";
    case F::kZeroTag:
      return "a tag of 0";
    case F::kPastMessage:
      return "a length past the end of the message holding it";
    case F::kPastBytes:
      return "a length past the end of the bytes";
    case F::kCutByMessage:
      return "cut short by the end of the message holding it";
    case F::kCutByBytes:
      return "cut short by the end of the bytes";
    case F::kOverlong:
      return "a varint longer than ten bytes";
    case F::kBadLength:
      return "a length above 2147483647 or negative";
    case F::kTooDeep:
      return "nesting deeper than 100 levels";
    case F::kEndGroup:
      return "an end-group tag with no group open";
    case F::kBadWireType:
      return "wire type 6 or 7, which do not exist";
    case F::kBadUnknown:
      return "an unknown field cut short or malformed";
    case F::kBadGroup:
      return "an unknown group cut short, left open or nested too deep";
  }
  return "an unnamed fault";
}

}  // namespace

Inspection inspect(const std::string& bytes, MessageKind kind, bool json) {
  return kind == MessageKind::kRequest
             ? inspect_as<linkward::info::req::Request>(bytes, json)
             : inspect_as<linkward::info::resp::Response>(bytes, json);
}

std::string encode(const std::string& json, MessageKind kind,
                   const std::string& source) {
  try {
    const Json j = Json::parse(json);
    return kind == MessageKind::kRequest
               ? encode_as<linkward::info::req::Request>(j)
               : encode_as<linkward::info::resp::Response>(j);
  } catch (const Json::parse_error& e) {
    // Its text begins with the exception's own name, in brackets.
    const std::string why = e.what();
    throw Failure(kUnreadable,
                  source + ": not JSON: " + why.substr(why.find("] ") + 2));
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
    return {{"hex", format_hex(bytes, true)}};
  }
}

std::string parse_fault(const linkward::ParseReport& report) {
  if (report.fault == linkward::ParseFault::kNone) return "";
  return (report.stopped ? "stopped at byte "
                         : "read to the end, but at byte ") +
         std::to_string(report.offset) + ": " + fault_text(report.fault);
}

}  // namespace tool
