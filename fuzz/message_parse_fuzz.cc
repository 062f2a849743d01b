// Any bytes into each of the 14 message classes, through each way in, held
// against a stream merge written here from proto/ alone: the class leaves the
// tree it leaves (both serialised) and succeeds exactly where it says.
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/stubs/logging.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "kx_request.pb.h"
#include "kx_response.pb.h"
#include "wire.h"

namespace {

enum Kind { kInt32, kBool, kEnum, kBytes, kMessage };
struct Field {
  int number;
  Kind kind;
  bool repeated;
  int type;          // a message's index in kTypes, or an enumeration's
  int64_t fallback;  // the value a number holds while absent
};
Field one(int n, Kind k, int type = 0, int64_t fallback = 0) {
  return {n, k, false, type, fallback};
}
Field many(int n, Kind k, int type = 0) { return {n, k, true, type, 0}; }

enum { kPair, kLeak, kScan, kMD5, kKeyword, kURL, kIframe, kRefer, kIm };
enum { kEntity = kIm + 1, kRequest, kMD5Result, kResult, kResponse };
const std::vector<std::set<int64_t>> kEnums = {
    {0, 1},  // CacheType
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 20},
    {0, 1, 2, 3, 4},  // MD5
    {0, 1, 2},
    {0, 1, 2, 255},  // URL
    {0, 1, 2, 3, 4, 5},
    {0, 1, 2, 3, 4},  // Request
    {0, 1, 2},
    {0, 1, 2, 3, 4, 5, 6}};  // Result, Response
const std::vector<std::vector<Field>> kTypes = {
    {one(1, kBytes), one(2, kBytes)},
    {one(1, kInt32), one(2, kInt32), one(3, kInt32), one(4, kInt32),
     one(5, kBool), one(6, kBool)},
    {one(1, kMessage, kLeak), one(9, kBytes), one(10, kBool)},
    {one(1, kEnum, 1), one(2, kBytes), one(3, kEnum, 2), one(4, kBool)},
    {one(1, kInt32), one(2, kBytes), many(3, kBytes), many(4, kMessage, kPair)},
    {one(1, kBytes), one(2, kEnum, 4), one(3, kEnum, 3), one(4, kBytes),
     many(5, kMessage, kMD5), one(6, kBytes), many(7, kMessage, kPair),
     one(8, kBytes), one(9, kBytes), one(10, kBytes), one(11, kBytes),
     one(20, kBytes)},
    {one(1, kMessage, kURL), one(2, kInt32)},
    {one(1, kMessage, kURL), one(2, kInt32), one(3, kInt32), one(4, kInt32),
     many(5, kMessage, kIframe)},
    {one(1, kInt32), one(2, kInt32), one(3, kBytes), one(4, kMessage, kMD5)},
    {one(1, kInt32), one(2, kMessage, kURL), many(4, kMessage, kRefer),
     one(5, kBytes), many(6, kMessage, kIframe), many(7, kMessage, kIm)},
    {many(1, kMessage, kEntity), many(2, kMessage, kKeyword), one(3, kEnum, 6),
     one(4, kInt32), one(5, kBytes), one(6, kBytes), one(7, kBytes),
     one(8, kBytes), one(9, kBytes), one(10, kBytes), one(11, kBytes),
     one(12, kBytes), one(13, kBytes), one(14, kEnum, 5),
     many(15, kMessage, kPair), one(16, kBytes), one(17, kBytes)},
    {one(1, kBytes), one(2, kInt32), one(3, kInt32), one(4, kInt32),
     one(5, kInt32), one(6, kEnum, 0), one(7, kInt32, 0, 120),
     many(8, kMessage, kPair), one(9, kMessage, kScan)},
    {one(1, kEnum, 7), one(2, kInt32), one(3, kMessage, kMD5Result),
     many(4, kMessage, kMD5Result), many(5, kMessage, kPair)},
    {one(1, kEnum, 8), many(2, kMessage, kResult), many(3, kMessage, kPair)}};

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

int wire_type(const Field& f) { return f.kind >= kBytes ? 2 : 0; }

void put(std::string& out, uint64_t v) {
  for (; v > 127; v >>= 7) out += static_cast<char>((v & 127) | 128);
  out += static_cast<char>(v);
}

std::string encode(const Node& node, int type) {
  std::string out;
  for (const auto& [number, values] : node.fields) {
    Field f{};
    for (const Field& g : kTypes[type])
      if (g.number == number) f = g;
    for (const Value& v : values) {
      put(out, number << 3 | wire_type(f));
      if (f.kind == kBool) put(out, v.number != 0);
      if (f.kind == kInt32 || f.kind == kEnum)
        put(out, static_cast<uint64_t>(static_cast<int32_t>(v.number)));
      const std::string payload =
          f.kind == kMessage ? encode(v.message[0], f.type) : v.bytes;
      if (f.kind >= kBytes) out += delimited(payload);
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
      const Field* f = nullptr;
      for (const Field& g : kTypes[type])
        if (g.number == static_cast<int>(static_cast<uint32_t>(tag) >> 3) &&
            wire_type(g) == static_cast<int>(tag & 7))
          f = &g;
      if (!(f ? read(node, *f, end, depth)
              : skip(node.unknown, static_cast<uint32_t>(tag), end, depth)))
        return kFault;
    }
    return kWhole;
  }

  bool read(Node& node, const Field& f, size_t end, int depth) {
    std::vector<Value>& values = node.fields[f.number];
    uint64_t v;
    if (f.kind == kEnum) {
      if (!varint(end, v)) return false;
      if (!kEnums[f.type].count(static_cast<int32_t>(v))) {
        put(node.unknown, f.number << 3);
        put(node.unknown, static_cast<uint32_t>(v));
      } else {
        values.assign(1, Value{v, {}, {}});
      }
      return true;
    }
    if (f.repeated || values.empty())
      values.push_back(Value{static_cast<uint64_t>(f.fallback), {}, {}});
    Value& value = values.back();
    if (f.kind <= kBool) return varint(end, v) && (value.number = v, true);
    if (f.kind == kBytes) {
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

// The classes in the order of kTypes.
template <class... M>
void hold_each(const std::string& in) {
  int type = 0;
  (hold<M>(in, type++), ...);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  namespace info = linkward::info;
  const google::protobuf::LogSilencer quiet;  // missing required fields
  hold_each<info::StringPair, info::LeakCount, info::WebScanResult,
            info::req::MD5, info::req::Keyword, info::req::URL,
            info::req::Iframe, info::req::Refer, info::req::ImInfo,
            info::req::URLEntity, info::req::Request, info::resp::MD5Result,
            info::resp::Result, info::resp::Response>(
      std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
