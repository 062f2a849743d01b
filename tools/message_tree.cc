// The lite runtime has no text format and no reflection, so the tree is shown
// through the generated accessors: one table a message, one entry a field,
// in field-number order. Unknown fields are kept by the classes as raw wire
// bytes; they are split into their records and shown as hex.
#include "message_tree.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <type_traits>
#include <vector>

#include "answer_parse.h"
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
using Json = nlohmann::ordered_json;

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

std::string hex_line(const std::string& bytes) {
  std::string hex = format_hex(bytes);
  for (char& c : hex)
    if (c == '\n') c = ' ';
  if (!hex.empty()) hex.pop_back();
  return hex;
}

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

// ---------------------------------------------------------------------------
// Values

const std::string& label(info::CacheType v) { return info::CacheType_Name(v); }
const std::string& label(req::MD5_Type v) { return req::MD5_Type_Name(v); }
const std::string& label(req::MD5_Src v) { return req::MD5_Src_Name(v); }
const std::string& label(req::URL_Type v) { return req::URL_Type_Name(v); }
const std::string& label(req::URL_Charset v) {
  return req::URL_Charset_Name(v);
}
const std::string& label(req::Request_UseHttpReason v) {
  return req::Request_UseHttpReason_Name(v);
}
const std::string& label(req::Request_UserLayerVersion v) {
  return req::Request_UserLayerVersion_Name(v);
}
const std::string& label(resp::Result_ErrorCode v) {
  return resp::Result_ErrorCode_Name(v);
}
const std::string& label(resp::Response_ErrorCode v) {
  return resp::Response_ErrorCode_Name(v);
}

Leaf leaf_of(int32_t value) { return {value, std::to_string(value)}; }
Leaf leaf_of(bool value) { return {value, value ? "true" : "false"}; }
Leaf leaf_of(const std::string& bytes) {
  const std::string text = escaped(bytes);
  return {text, "\"" + text + "\""};
}
template <class Enum, std::enable_if_t<std::is_enum_v<Enum>, int> = 0>
Leaf leaf_of(Enum value) {
  const std::string& name = label(value);
  return {name, name + " (" + std::to_string(value) + ")"};
}

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
using Field = std::function<void(const M&, Sink&)>;
template <class M>
using Fields = std::vector<Field<M>>;

template <class M, class T>
Field<M> singular(const char* name, bool (M::*has)() const,
                  T (M::*get)() const) {
  return [=](const M& message, Sink& sink) {
    if ((message.*has)()) show(sink, name, false, (message.*get)());
  };
}

template <class M, class T>
Field<M> repeated(const char* name,
                  const RepeatedPtrField<T>& (M::*get)() const) {
  return [=](const M& message, Sink& sink) {
    for (const T& element : (message.*get)()) show(sink, name, true, element);
  };
}

#define ONE(field) singular<M>(#field, &M::has_##field, &M::field)
#define MANY(field) repeated<M>(#field, &M::field)
#define MESSAGE(Type, ...)                     \
  const Fields<Type>& fields(const Type*) {    \
    using M = Type;                            \
    static const Fields<M> table{__VA_ARGS__}; \
    return table;                              \
  }

// Every field of proto/, in field-number order: a field left out here would
// not be shown at all, since the classes do not keep it as unknown.
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

const char* wire_type_name(uint32_t tag) {
  static const char* const kNames[] = {"varint",      "64-bit",    "bytes",
                                       "group start", "group end", "32-bit"};
  const uint32_t type = tag & 7;
  return type < 6 ? kNames[type] : "invalid";
}

// The classes keep whole records, tag included, each one a field that was
// skipped while parsing.
void show_unknown(const std::string& bytes, Sink& sink) {
  using google::protobuf::internal::WireFormatLite;
  google::protobuf::io::CodedInputStream in(
      reinterpret_cast<const uint8_t*>(bytes.data()),
      static_cast<int>(bytes.size()));
  for (;;) {
    const int start = in.CurrentPosition();
    const uint32_t tag = in.ReadTag();
    if (tag == 0) return;
    const bool whole = WireFormatLite::SkipField(&in, tag);
    const size_t end = whole ? in.CurrentPosition() : bytes.size();
    sink.unknown(WireFormatLite::GetTagFieldNumber(tag),
                 whole ? wire_type_name(tag) : "cut short",
                 bytes.substr(start, end - start));
    if (!whole) return;
  }
}

template <class M>
void walk(const M& message, Sink& sink) {
  for (const Field<M>& field : fields(&message)) field(message, sink);
  show_unknown(message.unknown_fields(), sink);
}

// A query is parsed by the runtime, as the service would parse it; an answer
// as the library parses it, so that what is shown is what the library saw.
std::string parse(const std::string& bytes, req::Request& request) {
  if (request.ParsePartialFromArray(bytes.data(),
                                    static_cast<int>(bytes.size())))
    return "";
  return "the bytes do not parse whole";
}

const char* describe(linkward::ParseFault fault) {
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

std::string parse(const std::string& bytes, resp::Response& response) {
  const linkward::ParseReport report = linkward::parse_answer(
      bytes.data(), static_cast<int>(bytes.size()), response);
  if (report.fault == linkward::ParseFault::kNone) return "";
  return (report.stopped ? "stopped at byte "
                         : "read to the end, but at byte ") +
         std::to_string(report.offset) + ": " + describe(report.fault);
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
          message.GetTypeName()};
}

}  // namespace

Inspection inspect(const std::string& bytes, MessageKind kind, bool json) {
  return kind == MessageKind::kRequest
             ? inspect_as<req::Request>(bytes, json)
             : inspect_as<resp::Response>(bytes, json);
}

}  // namespace tool
