// The lite runtime has no text format, no JSON and no reflection, so a
// message is shown, and read back from JSON, through the generated
// accessors: one table a message, one entry a field, in field-number order.
// Unknown fields are kept by the classes as raw wire bytes; they are split
// into their records, shown as hex, and written back as they came.
#include "message_tree.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <type_traits>
#include <vector>

#include "io.h"
#include "kx_request.pb.h"
#include "kx_response.pb.h"

namespace tool {
namespace {

namespace info = linkward::info;
namespace req = linkward::info::req;
namespace resp = linkward::info::resp;
using google::protobuf::MessageLite;
using google::protobuf::RepeatedPtrField;

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

// ---------------------------------------------------------------------------
// Values: shown, and read back

// Each enumeration's name, names and values, as the generated code has them.
#define ENUM(Type)                                            \
  const std::string& label(Type v) { return Type##_Name(v); } \
  bool known(Type, int v) { return Type##_IsValid(v); }       \
  bool named(Type* v, const std::string& name) { return Type##_Parse(name, v); }
ENUM(info::CacheType)
ENUM(req::MD5_Type)
ENUM(req::MD5_Src)
ENUM(req::URL_Type)
ENUM(req::URL_Charset)
ENUM(req::Request_UseHttpReason)
ENUM(req::Request_UserLayerVersion)
ENUM(resp::Result_ErrorCode)
ENUM(resp::Response_ErrorCode)
#undef ENUM

template <class T>
constexpr bool kHeld =  // held by pointer: read into the field in place
    std::is_base_of_v<MessageLite, T> || std::is_same_v<T, std::string>;

Leaf leaf_of(int32_t value) { return {value, std::to_string(value)}; }
Leaf leaf_of(bool value) { return {value, value ? "true" : "false"}; }
Leaf leaf_of(const std::string& bytes) {
  return {json_bytes(bytes), "\"" + escaped(bytes) + "\""};
}
template <class Enum, std::enable_if_t<std::is_enum_v<Enum>, int> = 0>
Leaf leaf_of(Enum value) {
  const std::string& name = label(value);
  return {{{"name", name}, {"number", value}},
          name + " (" + std::to_string(value) + ")"};
}

int32_t value_of(const Json& j, const std::string& path, int32_t*) {
  if (!j.is_number_integer()) misfit(path, "is not a whole number");
  constexpr int64_t kMin = std::numeric_limits<int32_t>::min();
  constexpr int64_t kMax = std::numeric_limits<int32_t>::max();
  const bool fits = j.is_number_unsigned()
                        ? j.get<uint64_t>() <= kMax
                        : j.get<int64_t>() >= kMin && j.get<int64_t>() <= kMax;
  if (!fits) misfit(path, "is outside 32 bits");
  return j.get<int32_t>();
}

bool value_of(const Json& j, const std::string& path, bool*) {
  if (!j.is_boolean()) misfit(path, "is not true or false");
  return j.get<bool>();
}

// By name, by number or by both, which must then agree. A number outside
// the enumeration has its place among the unknown fields, as inspect shows.
template <class Enum, std::enable_if_t<std::is_enum_v<Enum>, int> = 0>
Enum value_of(const Json& j, const std::string& path, Enum*) {
  if (!j.is_object() || j.empty())
    misfit(path, "is not {\"name\": ..., \"number\": ...}");
  Enum value{};
  for (const auto& [part, given] : j.items()) {
    const std::string at = member(path, part);
    if (part == "name") {
      if (!given.is_string() ||
          !named(&value, given.template get<std::string>()))
        misfit(at, "is not a name in the enumeration");
    } else if (part != "number") {
      misfit(at, "is not part of an enumeration value");
    }
  }
  if (!j.contains("number")) return value;
  const int32_t number = value_of(j["number"], member(path, "number"),
                                  static_cast<int32_t*>(nullptr));
  if (!known(value, number))
    misfit(member(path, "number"),
           "is not in the enumeration (an unknown value goes among the "
           "unknown_fields)");
  if (j.contains("name") && number != value)
    misfit(path, "has a name and a number that disagree");
  return static_cast<Enum>(number);
}

void load(const Json& j, std::string* bytes, const std::string& path) {
  if (j.is_string()) {
    *bytes = j.get<std::string>();
  } else if (j.is_object() && j.size() == 1 && j.contains("hex") &&
             j["hex"].is_string()) {
    *bytes = parse_hex(j["hex"].get<std::string>(), member(path, "hex"),
                       kUnreadable);
  } else {
    misfit(path, "is neither a string nor {\"hex\": \"...\"}");
  }
}

template <class M, std::enable_if_t<std::is_base_of_v<MessageLite, M>, int> = 0>
void load(const Json& j, M* message, const std::string& path);

template <class M>
void walk(const M& message, Sink& sink);

template <class T>
void show(Sink& sink, const char* name, bool repeated, const T& value) {
  if constexpr (std::is_base_of_v<MessageLite, T>) {
    sink.open(name, repeated);
    walk(value, sink);
    sink.close();
  } else {
    sink.leaf(name, repeated, leaf_of(value));
  }
}

// ---------------------------------------------------------------------------
// The schema, as the generated accessors give it

template <class M>
struct Field {
  const char* name;
  std::function<void(const M&, Sink&)> show;
  std::function<void(const Json&, M&, const std::string&)> load;
};
template <class M>
using Fields = std::vector<Field<M>>;

// `held` gives a message or bytes field to read into; `set` takes any other
// value. Only the one the field's type needs is ever called.
template <class M, class T, class Held, class Set>
Field<M> singular(const char* name, bool (M::*has)() const, T (M::*get)() const,
                  Held held, Set set) {
  using Value = std::decay_t<T>;
  return {name,
          [=](const M& message, Sink& sink) {
            if ((message.*has)()) show(sink, name, false, (message.*get)());
          },
          [=](const Json& j, M& message, const std::string& path) {
            if constexpr (kHeld<Value>)
              load(j, held(message), path);
            else
              set(message, value_of(j, path, static_cast<Value*>(nullptr)));
          }};
}

template <class M, class T, class Add>
Field<M> repeated(const char* name,
                  const RepeatedPtrField<T>& (M::*get)() const, Add add) {
  return {name,
          [=](const M& message, Sink& sink) {
            for (const T& element : (message.*get)())
              show(sink, name, true, element);
          },
          [=](const Json& j, M& message, const std::string& path) {
            if (!j.is_array()) misfit(path, "is not an array");
            for (size_t i = 0; i < j.size(); ++i)
              load(j[i], add(message), path + "[" + std::to_string(i) + "]");
          }};
}

#define ONE(field)                                 \
  singular<M>(                                     \
      #field, &M::has_##field, &M::field,          \
      [](auto& m) { return m.mutable_##field(); }, \
      [](auto& m, auto value) { m.set_##field(value); })
#define MANY(field) \
  repeated<M>(#field, &M::field, [](auto& m) { return m.add_##field(); })
#define MESSAGE(Type, ...)                     \
  const Fields<Type>& fields(const Type*) {    \
    using M = Type;                            \
    static const Fields<M> table{__VA_ARGS__}; \
    return table;                              \
  }

// clang-format off
MESSAGE(info::StringPair, ONE(key), ONE(value))
MESSAGE(info::LeakCount, ONE(high), ONE(mid), ONE(low), ONE(info),
        ONE(sameip), ONE(tamper))
MESSAGE(info::WebScanResult, ONE(leak_count), ONE(illegal_words), ONE(tamper))

MESSAGE(req::MD5, ONE(type), ONE(md5), ONE(src), ONE(act))
MESSAGE(req::Keyword, ONE(id), ONE(keyword), MANY(md5s), MANY(kws_exts))
MESSAGE(req::URL, ONE(url), ONE(url_charset), ONE(url_type), ONE(host),
        MANY(md5s), ONE(log), MANY(url_exts), ONE(proxy_url), ONE(post_data),
        ONE(server_ip), ONE(trunk_url), ONE(proxy_host))
MESSAGE(req::Iframe, ONE(url), ONE(iframe_id))
MESSAGE(req::Refer, ONE(url), ONE(refer_id), ONE(refer_type),
        ONE(refer_subtype), MANY(subframes))
MESSAGE(req::ImInfo, ONE(type), ONE(id), ONE(im), ONE(md5))
MESSAGE(req::URLEntity, ONE(id), ONE(url), MANY(refers), ONE(anchor),
        MANY(subframes), MANY(ims))
MESSAGE(req::Request, MANY(urls), MANY(kws), ONE(uv), ONE(omd5_index),
        ONE(product), ONE(combo), ONE(vk), ONE(src), ONE(mid), ONE(le),
        ONE(consume), ONE(fb), ONE(rule_group_id), ONE(use_http_reason),
        MANY(package_exts), ONE(stat_log), ONE(version))

MESSAGE(resp::MD5Result, ONE(md5), ONE(level), ONE(version), ONE(time),
        ONE(sub_type), ONE(cache_type), ONE(cache_duration_sec), MANY(values),
        ONE(webscan_result))
MESSAGE(resp::Result, ONE(ec), ONE(id), ONE(merged_result), MANY(md5_results),
        MANY(exts))
MESSAGE(resp::Response, ONE(ec), MANY(results), MANY(package_exts))
// clang-format on

#undef ONE
#undef MANY
#undef MESSAGE

// ---------------------------------------------------------------------------
// Unknown fields

struct UnknownRecord {
  uint32_t number;
  const char* wire_type;
  std::string bytes;  // the whole record, its tag included
};

const char* wire_type_name(uint32_t tag) {
  static const char* const kNames[] = {"varint",      "64-bit",    "bytes",
                                       "group start", "group end", "32-bit"};
  const uint32_t type = tag & 7;
  return type < 6 ? kNames[type] : "invalid";
}

// The classes keep whole records, tag included, each one a field that was
// skipped while parsing; bytes that are not a whole record end the list as
// one record of their own.
std::vector<UnknownRecord> split_unknown(const std::string& bytes) {
  using google::protobuf::internal::WireFormatLite;
  google::protobuf::io::CodedInputStream in(
      reinterpret_cast<const uint8_t*>(bytes.data()),
      static_cast<int>(bytes.size()));
  std::vector<UnknownRecord> records;
  for (;;) {
    const int start = in.CurrentPosition();
    const uint32_t tag = in.ReadTag();
    if (tag == 0 && start == static_cast<int>(bytes.size())) return records;
    const bool whole = tag != 0 && WireFormatLite::SkipField(&in, tag);
    const size_t end = whole ? in.CurrentPosition() : bytes.size();
    records.push_back(
        {static_cast<uint32_t>(WireFormatLite::GetTagFieldNumber(tag)),
         whole ? wire_type_name(tag) : "cut short",
         bytes.substr(start, end - start)});
    if (!whole) return records;
  }
}

// A record's number and wire type, where given, are the ones its bytes say:
// JSON that says otherwise was edited halfway.
void load_unknown(const Json& j, std::string* unknown,
                  const std::string& path) {
  if (!j.is_array()) misfit(path, "is not an array");
  for (size_t i = 0; i < j.size(); ++i) {
    const std::string at = path + "[" + std::to_string(i) + "]";
    if (!j[i].is_object() || !j[i].contains("bytes") ||
        !j[i]["bytes"].is_string())
      misfit(at,
             "is not {\"number\": ..., \"wire_type\": ..., \"bytes\": ...}");
    const std::string bytes = parse_hex(j[i]["bytes"].get<std::string>(),
                                        member(at, "bytes"), kUnreadable);
    const std::vector<UnknownRecord> records = split_unknown(bytes);
    const Json said = records.empty()
                          ? Json::object()
                          : Json{{"number", records[0].number},
                                 {"wire_type", records[0].wire_type},
                                 {"bytes", j[i]["bytes"]}};
    for (const auto& [part, given] : j[i].items())
      if (!said.contains(part) || said[part] != given)
        misfit(member(at, part), "is not what the record's bytes say");
    unknown->append(bytes);
  }
}

template <class M>
void walk(const M& message, Sink& sink) {
  for (const Field<M>& field : fields(&message)) field.show(message, sink);
  for (const UnknownRecord& record : split_unknown(message.unknown_fields()))
    sink.unknown(record.number, record.wire_type, record.bytes);
}

template <class M, std::enable_if_t<std::is_base_of_v<MessageLite, M>, int>>
void load(const Json& j, M* message, const std::string& path) {
  if (!j.is_object()) misfit(path, "is not an object");
  for (const auto& [name, value] : j.items()) {
    const std::string at = member(path, name);
    if (name == "unknown_fields") {
      load_unknown(value, message->mutable_unknown_fields(), at);
      continue;
    }
    const Fields<M>& known = fields(message);
    const auto field =
        std::find_if(known.begin(), known.end(),
                     [&](const Field<M>& f) { return name == f.name; });
    if (field == known.end())
      misfit(at, "is not a field of " + message->GetTypeName());
    field->load(value, *message, at);
  }
}

// Parsed as the message classes parse, saying where and why a parse stopped.
template <class M>
std::string parse(const std::string& bytes, M& message) {
  return parse_fault(linkward::parse_message(
      bytes.data(), static_cast<int>(bytes.size()), message));
}

template <class M>
Inspection inspect_as(const std::string& bytes, bool json) {
  M message;
  const std::string fault = parse(bytes, message);
  TextSink text;
  JsonSink tree;
  Sink& sink = json ? static_cast<Sink&>(tree) : text;
  walk(message, sink);
  return {json ? tree.text() : text.text(), fault, message.IsInitialized(),
          fault.empty() && message.SerializePartialAsString() == bytes,
          message.GetTypeName()};
}

template <class M>
std::string encode_as(const Json& j) {
  M message;
  load(j, &message, "");
  return message.SerializePartialAsString();
}

}  // namespace

Inspection inspect(const std::string& bytes, MessageKind kind, bool json) {
  return kind == MessageKind::kRequest
             ? inspect_as<req::Request>(bytes, json)
             : inspect_as<resp::Response>(bytes, json);
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
    return kind == MessageKind::kRequest ? encode_as<req::Request>(j)
                                         : encode_as<resp::Response>(j);
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
