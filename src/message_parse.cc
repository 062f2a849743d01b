// The messages' parse, field by field, as the runtime's classic coded input
// stream reads them. The parser protoc 3.21 writes for each class works on a
// stream of its own that merges cut and malformed input differently (a nested
// length may reach into the message around it, a value cut short is dropped or
// padded with bytes that never arrived, a tag of more than five bytes is
// refused); on well-formed input the two agree. The build replaces that parser
// with this one in every class, and writes each class's dispatch from the
// schema (cmake/modules/schema_codegen.py).
#include "message_parse.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "add_element.h"
#include "kx_request.pb.h"
#include "kx_response.pb.h"
#include "schema_tables.h"

namespace linkward {
namespace {

using google::protobuf::internal::ParseContext;
using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;
using google::protobuf::io::CodedOutputStream;
using google::protobuf::io::StringOutputStream;

using Fault = ParseFault;

constexpr int kVarintBytes = 10;   // the most a varint may take
constexpr int kVarint32Bytes = 5;  // the most a 32-bit value takes

constexpr uint32_t varint_key(int number) {
  return static_cast<uint32_t>(number) << 3 | WireFormatLite::WIRETYPE_VARINT;
}
constexpr uint32_t length_key(int number) {
  return static_cast<uint32_t>(number) << 3 |
         WireFormatLite::WIRETYPE_LENGTH_DELIMITED;
}

// How one message's merge ended: at its limit, on a key of 0 before it, or
// on a fault. What a key of 0 means for the outermost message is the way
// in's to say, as it is for the runtime's own parse; a nested message that
// ends on one stops the parse.
enum class Ending { kWhole, kZeroTag, kFault };

// Reads the fields of one message and the messages it holds. Every reader
// returns false when the parse must stop, having said why at the place the
// read failed; the first fault is the one reported, since the messages
// around a stop stop because it did.
//
// The bytes are read as the runtime's classic coded input stream reads them,
// through three pointers kept here rather than through the stream itself,
// whose limits and reads cost calls into the runtime on every nested message
// and, in a size-optimised build, on every field: where the reading is, where
// the message being read ends (its limit), and where the bytes end. A nested
// message's limit never reaches past the one around it.
class Reader {
 public:
  // `depth` is the nesting the caller's stream has left to give.
  Reader(const void* data, int size, int depth)
      : bytes_(static_cast<const uint8_t*>(data)),
        end_(bytes_ + size),
        at_(bytes_),
        limit_(end_),
        depth_left_(depth) {}

  // One message's fields up to its limit or to a key of 0. A key cut short
  // by the limit or longer than ten bytes reads as 0, as the classic stream
  // reads it, and ends the message the same way.
  template <class M>
  Ending merge(M& message);

  int position() const { return offset(at_); }

  ParseReport report() const {
    if (stop_.what != Fault::kNone) return {true, stop_.offset, stop_.what};
    if (reach_.what != Fault::kNone) return {false, reach_.offset, reach_.what};
    return {false, offset(end_), Fault::kNone};
  }

  // A string or bytes field is present from the moment its read starts, and
  // keeps the bytes that arrived when it is cut short (a negative length
  // leaves it as it was).
  bool bytes(std::string* value) {
    uint64_t length;
    const Fault fault = read_varint(length);
    if (fault != Fault::kNone) return stop(fault);
    const uint32_t length32 = static_cast<uint32_t>(length);
    if (length32 <= left()) {
      value->assign(reinterpret_cast<const char*>(at_), length32);
      at_ += length32;
      return true;
    }
    if (static_cast<int32_t>(length32) < 0) return stop(Fault::kBadLength);
    value->assign(reinterpret_cast<const char*>(at_), left());
    at_ = limit_;
    return stop(cut_short());
  }

  // A number read that fails still marks the field present, with the value
  // it had before.
  template <class M>
  bool int32(M& message, int32_t (M::*get)() const, void (M::*set)(int32_t)) {
    uint64_t value = static_cast<uint32_t>((message.*get)());
    const bool read = varint(value);
    (message.*set)(static_cast<int32_t>(value));
    return read;
  }

  template <class M>
  bool boolean(M& message, bool (M::*get)() const, void (M::*set)(bool)) {
    uint64_t value = (message.*get)();
    const bool read = varint(value);
    (message.*set)(value != 0);
    return read;
  }

  // A value outside the enumeration leaves the field as it was and is kept
  // among the unknown fields.
  template <class M, class E>
  bool enumeration(M& message, uint32_t key, bool (*valid)(int),
                   void (M::*set)(E)) {
    uint64_t value;
    if (!varint(value)) return false;
    if (valid(static_cast<int32_t>(value)))
      (message.*set)(static_cast<E>(value));
    else
      keep_unknown(message.mutable_unknown_fields(), key, value);
    return true;
  }

  // The child is present, or appended, before its length is read, and stays
  // when its bytes fail.
  template <class M>
  bool message(M* child) {
    const uint8_t* const outer_limit = limit_;
    if (!enter()) return false;
    const Ending ending = merge(*child);
    limit_ = outer_limit;
    ++depth_left_;
    return ending == Ending::kWhole;
  }

  // Any other key, a known number under a wire type not its own included,
  // goes whole, key and payload, into the message's unknown fields.
  [[gnu::cold]] bool skip(std::string* unknown_fields, uint32_t key) {
    StringOutputStream out(unknown_fields);
    CodedOutputStream unknown(&out, false);
    const Fault fault = skip_field(key, unknown);
    return fault == Fault::kNone || stop(fault);
  }

 private:
  Fault skip_field(uint32_t key, CodedOutputStream& unknown);
  Fault skip_fixed(uint32_t key, uint32_t size, CodedOutputStream& unknown);
  bool skip_group(uint32_t key, CodedOutputStream& unknown);

  int offset(const uint8_t* at) const { return static_cast<int>(at - bytes_); }
  // Bytes up to the limit of the message being read.
  uint32_t left() const { return static_cast<uint32_t>(limit_ - at_); }

  // Which end a read ran into: the current message's, or the bytes'.
  Fault cut_short() const {
    return limit_ < end_ ? Fault::kCutByMessage : Fault::kCutByBytes;
  }

  // A varint of at most ten bytes, as the classic stream reads one, its bits
  // past the 64th dropped; else why not, and nothing is read.
  Fault read_varint(uint64_t& value) {
    uint64_t read = 0;
    const uint8_t* at = at_;
    for (int shift = 0; shift < 7 * kVarintBytes; shift += 7) {
      if (at == limit_) return cut_short();
      const uint8_t byte = *at++;
      read |= static_cast<uint64_t>(byte & 0x7f) << shift;
      if (byte < 0x80) {
        at_ = at;
        value = read;
        return Fault::kNone;
      }
    }
    return Fault::kOverlong;
  }

  // A field's key, its low 32 bits; else why there is none: a key of 0, or
  // one cut short by the limit or longer than ten bytes. As the classic
  // stream leaves them, a key of 0 has been read, a cut one read up to the
  // limit, a long one not read at all.
  [[gnu::always_inline]] Fault read_key(uint32_t& key) {
    if (at_ == limit_ || *at_ >= 0x80) {
      const Fault fault = read_long_key(key);
      if (fault != Fault::kNone) return fault;
    } else {
      key = *at_++;
    }
    return key == 0 ? Fault::kZeroTag : Fault::kNone;
  }

  // Keys past 15 take two bytes or more, and no answer's field has one.
  [[gnu::noinline]] Fault read_long_key(uint32_t& key) {
    uint64_t read;
    const Fault fault = read_varint(read);
    if (fault == Fault::kNone)
      key = static_cast<uint32_t>(read);
    else if (fault != Fault::kOverlong)
      at_ = limit_;
    return fault;
  }

  // Its low 32 bits are the value of an int32 or an enumeration, however
  // long the varint; `value` is left as it was when the read fails.
  bool varint(uint64_t& value) {
    const Fault fault = read_varint(value);
    return fault == Fault::kNone || stop(fault);
  }

  // The key and the value's low 32 bits, at most five bytes however long the
  // value arrived.
  [[gnu::cold]] static void keep_unknown(std::string* unknown_fields,
                                         uint32_t key, uint64_t value) {
    uint8_t record[2 * kVarint32Bytes];
    uint8_t* end = CodedOutputStream::WriteVarint32ToArray(key, record);
    end = CodedOutputStream::WriteVarint32ToArray(static_cast<uint32_t>(value),
                                                  end);
    unknown_fields->append(reinterpret_cast<const char*>(record), end - record);
  }

  // A nested message's bytes never reach past the message that holds it,
  // and the runtime's recursion budget bounds the nesting.
  bool enter() {
    uint64_t length;
    Fault fault = read_varint(length);
    if (fault == Fault::kNone && length > INT32_MAX) fault = Fault::kBadLength;
    if (fault != Fault::kNone) return stop(fault);
    if (length <= left())
      limit_ = at_ + length;
    else
      record(reach_, limit_ < end_ ? Fault::kPastMessage : Fault::kPastBytes);
    return --depth_left_ >= 0 || stop(Fault::kTooDeep);
  }

  struct Found {
    int offset = 0;
    Fault what = Fault::kNone;
  };

  // The first of each kind counts: the messages around a stop stop because
  // it did.
  void record(Found& found, Fault what) {
    if (found.what != Fault::kNone) return;
    found.what = what;
    found.offset = field_start_;
  }

  [[gnu::cold]] bool stop(Fault what) {
    record(stop_, what);
    return false;
  }

  const uint8_t* const bytes_;
  const uint8_t* const end_;
  const uint8_t* at_;     // where the reading is
  const uint8_t* limit_;  // where the message being read ends
  int depth_left_;        // nesting left to give
  int field_start_ = 0;
  Found stop_;   // where the parse stopped
  Found reach_;  // the first length that reached too far
};

#include "message_fields.inc"

template <class M>
Ending Reader::merge(M& message) {
  while (at_ != limit_) {
    field_start_ = position();
    uint32_t key;
    const Fault no_key = read_key(key);
    if (no_key != Fault::kNone) {
      stop(no_key);
      return Ending::kZeroTag;
    }
    if (!read_field(*this, message, key)) return Ending::kFault;
  }
  return Ending::kWhole;
}

// The runtime's own skip (WireFormatLite::SkipField) refuses field number 0,
// which the classic merge skips like any other; so the skip is written out
// here, writing what it writes: the key and a varint in their shortest form,
// a length as its low 32 bits before the bytes are read (so that it stays
// when they are cut short), a group's records as they are skipped.
Fault Reader::skip_field(uint32_t key, CodedOutputStream& unknown) {
  switch (WireFormatLite::GetTagWireType(key)) {
    case WireFormatLite::WIRETYPE_VARINT: {
      uint64_t value;
      if (read_varint(value) != Fault::kNone) return Fault::kBadUnknown;
      unknown.WriteVarint32(key);
      unknown.WriteVarint64(value);
      return Fault::kNone;
    }
    case WireFormatLite::WIRETYPE_FIXED64:
      return skip_fixed(key, 8, unknown);
    case WireFormatLite::WIRETYPE_FIXED32:
      return skip_fixed(key, 4, unknown);
    case WireFormatLite::WIRETYPE_LENGTH_DELIMITED: {
      uint64_t read;
      if (read_varint(read) != Fault::kNone) return Fault::kBadUnknown;
      const uint32_t length = static_cast<uint32_t>(read);
      unknown.WriteVarint32(key);
      unknown.WriteVarint32(length);
      if (static_cast<int32_t>(length) < 0 || length > left())
        return Fault::kBadUnknown;
      unknown.WriteRaw(at_, static_cast<int>(length));
      at_ += length;
      return Fault::kNone;
    }
    case WireFormatLite::WIRETYPE_START_GROUP:
      unknown.WriteVarint32(key);
      return --depth_left_ >= 0 && skip_group(key, unknown) ? Fault::kNone
                                                            : Fault::kBadGroup;
    case WireFormatLite::WIRETYPE_END_GROUP:  // with no group open
      return Fault::kEndGroup;
    default:  // wire type 6 or 7
      return Fault::kBadWireType;
  }
}

// A fixed-width value is little-endian on the wire and in the unknown fields
// alike, so its bytes are kept as they came.
Fault Reader::skip_fixed(uint32_t key, uint32_t size,
                         CodedOutputStream& unknown) {
  if (left() < size) return Fault::kBadUnknown;
  unknown.WriteVarint32(key);
  unknown.WriteRaw(at_, static_cast<int>(size));
  at_ += size;
  return Fault::kNone;
}

// A group's fields up to its end-group key, which must be its own; the end
// of the message, or a key of 0, leaves it open.
bool Reader::skip_group(uint32_t key, CodedOutputStream& unknown) {
  for (;;) {
    uint32_t inner;
    if (read_key(inner) != Fault::kNone) return false;
    if (WireFormatLite::GetTagWireType(inner) ==
        WireFormatLite::WIRETYPE_END_GROUP) {
      unknown.WriteVarint32(inner);
      ++depth_left_;
      return inner == key + 1;
    }
    if (skip_field(inner, unknown) != Fault::kNone) return false;
  }
}

// The bytes the runtime's parse context may read past the data it says is
// available.
constexpr uintptr_t kSlopBytes = 16;

// One class's merge, behind a plain function pointer, so that all that does
// not depend on the class is compiled once rather than for each class.
using Merge = Ending (*)(Reader&, void* message);

template <class M>
Ending merge_as(Reader& reader, void* message) {
  return reader.merge(*static_cast<M*>(message));
}

// Whether the `left` bytes up to the context's limit lie in one piece at
// `ptr`, as they do for a parse from an array or a string, and from a bounded
// stream whose limit falls in the chunk at hand. The context may read 16 slop
// bytes past the end of the data it says is available, so the bytes are in
// one piece exactly when that end lies at most 16 bytes short of ptr + left.
bool in_one_piece(const char* ptr, int left, ParseContext* ctx) {
  const uintptr_t from = reinterpret_cast<uintptr_t>(ptr);
  if (left < 0 || static_cast<uintptr_t>(left) > UINTPTR_MAX - from)
    return false;
  const uintptr_t short_of_end = from + left - (kSlopBytes + 1);
  return ctx->DataAvailable(reinterpret_cast<const char*>(short_of_end));
}

// Where the data the context holds at hand ends (its limit end), which lies
// at most 16 bytes before `ptr` once no more is available.
const char* data_end(const char* ptr, ParseContext* ctx) {
  uintptr_t end = reinterpret_cast<uintptr_t>(ptr);
  for (uintptr_t back = 0; back < kSlopBytes; ++back, --end)
    if (ctx->DataAvailable(reinterpret_cast<const char*>(end - 1))) break;
  return reinterpret_cast<const char*>(end);
}

// The rest of a stream, up to the context's limit or the stream's end, which
// leaves the context as the runtime's callers look for it. Past the data at
// hand lie 16 bytes that begin the next piece, unless this piece is the
// last; they are taken before the context is asked for more, since, asked
// where they are still to come, it looks through them for a tag of 0 that
// might end the message (a merge from a coded stream asks it to) and, on
// finding one in the middle of a value, would end the stream there.
std::string gather(const char*& ptr, ParseContext* ctx) {
  std::string bytes;
  for (;;) {
    while (ctx->DataAvailable(ptr)) bytes.push_back(*ptr++);
    const char* end = data_end(ptr, ctx);
    if (!ctx->IsExceedingLimit(end + 1)) {
      const int ahead = std::min(static_cast<int>(end + kSlopBytes - ptr),
                                 ctx->BytesUntilLimit(ptr));
      bytes.append(ptr, ahead);
      ptr += ahead;
    }
    if (ctx->Done(&ptr)) return bytes;
  }
}

// A tag of 0 is told to the context as the runtime's own parse tells it.
const char* hand_back(Ending ending, const char* end, ParseContext* ctx) {
  if (ending == Ending::kFault) return nullptr;
  if (ending == Ending::kZeroTag) ctx->SetLastTag(0);
  return end;
}

ParseReport parse_bytes(const void* data, int size, Merge merge,
                        void* message) {
  GOOGLE_CHECK_GE(size, 0);
  Reader reader(data, size, CodedInputStream::GetDefaultRecursionLimit());
  merge(reader, message);
  return reader.report();
}

const char* parse_context(const char* ptr, ParseContext* ctx, Merge merge,
                          void* message) {
  const int left = ctx->BytesUntilLimit(ptr);
  if (in_one_piece(ptr, left, ctx)) {
    Reader reader(ptr, left, ctx->depth());
    const Ending ending = merge(reader, message);
    return hand_back(ending, ptr + reader.position(), ctx);
  }
  // A stream in chunks: merged once all of it has arrived, so that what was
  // read comes out as it does from one piece. The stream is read to its end
  // even when a tag of 0 ends the message before it.
  const std::string bytes = gather(ptr, ctx);
  Reader reader(bytes.data(), static_cast<int>(bytes.size()), ctx->depth());
  return hand_back(merge(reader, message), ptr, ctx);
}

}  // namespace

template <class M>
ParseReport parse_message(const void* data, int size, M& message) {
  return parse_bytes(data, size, merge_as<M>, &message);
}

template <class M>
const char* parse_in_context(M& message, const char* ptr, ParseContext* ctx) {
  return parse_context(ptr, ctx, merge_as<M>, &message);
}

// Every generated class, each with both ways in.
#define LINKWARD_PARSE(Message)                                   \
  template ParseReport parse_message(const void*, int, Message&); \
  template const char* parse_in_context(Message&, const char*, ParseContext*);
LINKWARD_FOR_EACH_MESSAGE(LINKWARD_PARSE)
#undef LINKWARD_PARSE

}  // namespace linkward
