// Any bytes into every message class, through each way in, held against a
// stream merge written here, which takes the schema's fields from the tables
// the build writes from proto/: the class leaves the tree it leaves (both
// serialised) and succeeds exactly where it says.
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/stubs/logging.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "kx_request.pb.h"
#include "kx_response.pb.h"
#include "schema_tables.h"
#include "wire.h"

namespace {

using linkward::schema::Field;
using linkward::schema::kEnums;
using linkward::schema::Kind;
using linkward::schema::kMessages;

const Field* numbered(int type, int number) {
  const linkward::schema::Message& m = kMessages[type];
  for (const Field* f = m.fields; f != m.fields + m.count; ++f)
    if (f->number == number) return f;
  return nullptr;
}

bool in_enumeration(int type, int32_t value) {
  const linkward::schema::Enum& e = kEnums[type];
  for (int i = 0; i < e.count; ++i)
    if (e.values[i].number == value) return true;
  return false;
}

struct Node;
struct Value {
  uint64_t number = 0;
  std::string bytes;
  std::vector<Node> message;  // one, for a message
};
struct Node {
  std::map<int, std::vector<Value>> fields;  // a singular field holds one
  std::string unknown;
};

void put(std::string& out, uint64_t v) {
  for (; v > 127; v >>= 7) out += static_cast<char>((v & 127) | 128);
  out += static_cast<char>(v);
}

std::string encode(const Node& node, int type) {
  std::string out;
  for (const auto& [number, values] : node.fields) {
    const Field& f = *numbered(type, number);
    for (const Value& v : values) {
      put(out, f.key);
      if (f.kind == Kind::kBool) put(out, v.number != 0);
      if (f.kind == Kind::kInt32 || f.kind == Kind::kEnum)
        put(out, static_cast<uint64_t>(static_cast<int32_t>(v.number)));
      const std::string payload =
          f.kind == Kind::kMessage ? encode(v.message[0], f.type) : v.bytes;
      if ((f.key & 7) == 2) out += delimited(payload);
    }
  }
  return out + node.unknown;
}

enum End { kWhole, kZeroTag, kFault };

struct Decoder {
  const std::string& in;
  size_t at = 0;

  // At most ten bytes, all before `end`.
  bool varint(size_t end, uint64_t& v) {
    v = 0;
    for (int i = 0; i < 10 && at < end; ++i) {
      const uint8_t b = in[at++];
      v |= static_cast<uint64_t>(b & 127) << (7 * i);
      if (b < 128) return true;
    }
    return false;
  }

  End merge(Node& node, int type, size_t end, int depth) {
    while (at < end) {
      uint64_t tag;
      if (!varint(end, tag) || static_cast<uint32_t>(tag) == 0) return kZeroTag;
      const Field* f =
          numbered(type, static_cast<int>(static_cast<uint32_t>(tag) >> 3));
      if (f && f->key != static_cast<uint32_t>(tag)) f = nullptr;
      if (!(f ? read(node, *f, end, depth)
              : skip(node.unknown, static_cast<uint32_t>(tag), end, depth)))
        return kFault;
    }
    return kWhole;
  }

  bool read(Node& node, const Field& f, size_t end, int depth) {
    std::vector<Value>& values = node.fields[f.number];
    uint64_t v;
    if (f.kind == Kind::kEnum) {
      if (!varint(end, v)) return false;
      if (!in_enumeration(f.type, static_cast<int32_t>(v))) {
        put(node.unknown, f.number << 3);
        put(node.unknown, static_cast<uint32_t>(v));
      } else {
        values.assign(1, Value{v, {}, {}});
      }
      return true;
    }
    if (f.repeated || values.empty())
      values.push_back(Value{static_cast<uint64_t>(f.default_value), {}, {}});
    Value& value = values.back();
    if (f.kind == Kind::kInt32 || f.kind == Kind::kBool)
      return varint(end, v) && (value.number = v, true);
    if (f.kind != Kind::kMessage) {
      if (!varint(end, v) || static_cast<int32_t>(v) < 0) return false;
      const size_t length = static_cast<uint32_t>(v);
      value.bytes = in.substr(at, std::min(length, end - at));
      at += value.bytes.size();
      return value.bytes.size() == length;
    }
    if (value.message.empty()) value.message.emplace_back();
    if (!varint(end, v) || v > INT32_MAX || depth == 0) return false;
    return merge(value.message[0], f.type, std::min<uint64_t>(end, at + v),
                 depth - 1) == kWhole;
  }

  bool skip(std::string& out, uint32_t tag, size_t end, int depth) {
    uint64_t v;
    const int type = tag & 7, fixed = type == 1 ? 8 : 4;
    if ((type == 1 || type == 5) && end - at < static_cast<size_t>(fixed))
      return false;
    if (type == 0 && !varint(end, v)) return false;
    if (type == 2 && !varint(end, v)) return false;
    if (type > 5 || type == 4) return false;
    put(out, tag);
    if (type == 0) put(out, v);
    if (type == 1 || type == 5) out += in.substr(at, fixed), at += fixed;
    if (type == 2) {
      const uint32_t length = static_cast<uint32_t>(v);
      put(out, length);
      if (static_cast<int32_t>(length) < 0 || length > end - at) return false;
      out += in.substr(at, length), at += length;
    }
    if (type != 3) return true;
    if (depth == 0) return false;
    for (;;) {  // a group: its fields, to an end-group key of its own
      if (at >= end || !varint(end, v) || static_cast<uint32_t>(v) == 0)
        return false;
      const uint32_t inner = static_cast<uint32_t>(v);
      if ((inner & 7) == 4) return put(out, inner), inner == tag + 1;
      if (!skip(out, inner, end, depth - 1)) return false;
    }
  }
};

using google::protobuf::io::ArrayInputStream;
using google::protobuf::io::CodedInputStream;

template <class M>
void hold(const std::string& in, int type) {
  Node tree;
  const End end = Decoder{in}.merge(tree, type, in.size(), 100);
  const std::string expected = encode(tree, type);
  const auto as_decoded = [&](const M& m, bool ok, bool wanted) {
    require(m.SerializePartialAsString() == expected, "the decoder's tree");
    require(ok == wanted, "the decoder's success");
  };
  M array;
  const bool whole = array.ParsePartialFromArray(in.data(), in.size());
  as_decoded(array, whole, end == kWhole);
  M all;  // and the required fields
  as_decoded(all, all.ParseFromArray(in.data(), in.size()),
             end == kWhole && array.IsInitialized());
  // A coded stream over the bytes, and over a stream in pieces of more than
  // 16 bytes (the runtime's context looks through pieces of 16 or fewer for
  // a tag of 0 that might end a coded stream's message, on its own).
  CodedInputStream coded(reinterpret_cast<const uint8_t*>(in.data()),
                         static_cast<int>(in.size()));
  ArrayInputStream pieces(in.data(), in.size(), 17 + in.size() % 7);
  CodedInputStream coded_pieces(&pieces);
  for (CodedInputStream* stream : {&coded, &coded_pieces}) {
    M merged;
    as_decoded(merged, merged.MergePartialFromCodedStream(stream),
               end != kFault);
  }
  // Zero-copy streams in pieces of a few bytes, and bounded.
  const int bytes = 1 + in.size() % 7;
  ArrayInputStream small(in.data(), in.size(), bytes),
      more(in.data(), in.size(), bytes);
  M zero_copy, bounded;
  as_decoded(zero_copy, zero_copy.ParsePartialFromZeroCopyStream(&small),
             end == kWhole);
  as_decoded(bounded,
             bounded.ParsePartialFromBoundedZeroCopyStream(
                 &more, static_cast<int>(in.size())),
             end == kWhole);
  // Merged onto a message the bytes already filled: as if they came twice.
  Decoder twice{in};
  const End second = twice.merge(tree, type, in.size(), 100);
  const bool ok = array.MergeFromString(in);
  require(array.SerializePartialAsString() == encode(tree, type) &&
              ok == (second == kWhole && array.IsInitialized()),
          "a merge onto a filled message");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const google::protobuf::LogSilencer quiet;  // missing required fields
  const std::string in(reinterpret_cast<const char*>(data), size);
  int type = 0;  // the classes come in the order of kMessages
#define LINKWARD_HOLD(M) hold<M>(in, type++);
  LINKWARD_FOR_EACH_MESSAGE(LINKWARD_HOLD)
#undef LINKWARD_HOLD
  return 0;
}
