// The answer's parse, field by field, on the runtime's classic coded input
// stream. The runtime's own parser of these classes works on a stream of its
// own that merges cut and malformed input differently (a nested length may
// reach into the message around it, a value cut short is dropped or padded
// with zero bytes, a tag of more than five bytes is refused); on well-formed
// answers the two agree.
#include "answer_parse.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/wire_format_lite.h>

#include <tuple>

#include "add_element.h"

namespace linkward {
namespace {

namespace resp = info::resp;
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

// Reads the fields of one answer into its messages. Every reader returns
// false when the parse must stop; the first fault is the one reported, since
// the messages around a stop stop because it did.
class Reader {
 public:
  Reader(const void* data, int size)
      : bytes_(static_cast<const uint8_t*>(data)),
        size_(size),
        in_(bytes_, size) {}

  // One message's fields up to its limit. A tag of 0 ends the message as if
  // it were whole; whether it ended at its limit is the caller's test.
  template <class M>
  bool merge(M& message);

  ParseReport report() const {
    if (stop_.what != Fault::kNone) return {true, stop_.offset, stop_.what};
    if (reach_.what != Fault::kNone) return {false, reach_.offset, reach_.what};
    return {false, size_, Fault::kNone};
  }

  // A string or bytes field is present from the moment its read starts, and
  // keeps the bytes that arrived when it is cut short.
  bool bytes(std::string* value) {
    uint32_t length;
    if (!in_.ReadVarint32(&length)) return stop(value_fault());
    // Copied straight from the bytes when all of it is there: the stream's
    // own read sizes the string first, zero bytes and all.
    const void* there;
    int left;
    in_.GetDirectBufferPointerInline(&there, &left);
    if (length <= static_cast<uint32_t>(left)) {
      value->assign(static_cast<const char*>(there), length);
      return in_.Skip(static_cast<int>(length));
    }
    if (in_.ReadString(value, static_cast<int>(length))) return true;
    return stop(static_cast<int>(length) < 0 ? Fault::kBadLength : cut_short());
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
    int outer_limit;
    return enter(outer_limit) && merge(*child) && leave(outer_limit);
  }

  // Any other key, a known number under a wire type not its own included,
  // goes whole, key and payload, into the message's unknown fields.
  [[gnu::cold]] bool skip(std::string* unknown_fields, uint32_t key);

 private:
  // Its low 32 bits are the value of an int32 or an enumeration, however
  // long the varint; `value` is left as it was when the read fails.
  bool varint(uint64_t& value) {
    uint64_t read;
    if (!in_.ReadVarint64(&read)) return stop(value_fault());
    value = read;
    return true;
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
  bool enter(int& outer_limit) {
    int length;
    if (!in_.ReadVarintSizeAsInt(&length))
      return stop(value_fault(Fault::kBadLength));
    const void* there;
    int left;  // up to the limit of the message around it, or the end
    in_.GetDirectBufferPointerInline(&there, &left);
    if (length > left)
      record(reach_,
             left < bytes_left() ? Fault::kPastMessage : Fault::kPastBytes);
    int budget;
    std::tie(outer_limit, budget) =
        in_.IncrementRecursionDepthAndPushLimit(length);
    return budget >= 0 || stop(Fault::kTooDeep);
  }

  // A child that ended on a tag of 0 has said so already.
  bool leave(int outer_limit) {
    return in_.DecrementRecursionDepthAndPopLimit(outer_limit) ||
           stop(Fault::kZeroTag);
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

  int bytes_left() const { return size_ - in_.CurrentPosition(); }

  // Which end a read ran into: the current message's, or the bytes'.
  Fault cut_short() const {
    const int left = in_.BytesUntilLimit();
    return left >= 0 && left < bytes_left() ? Fault::kCutByMessage
                                            : Fault::kCutByBytes;
  }

  // Why the varint after the current field's key could not be read. Found
  // only once a read failed, since a failed read may have moved on.
  [[gnu::cold]] Fault value_fault(Fault refused = Fault::kOverlong) {
    int value = field_start_;
    while (bytes_[value] & 0x80) ++value;  // the key was read whole
    return varint_fault(value + 1, refused);
  }

  // Why the varint at `start` could not be read: it runs into the end of its
  // message or of the bytes, it is longer than ten bytes, or it is whole and
  // its value was refused (`refused`).
  [[gnu::cold]] Fault varint_fault(int start, Fault refused) {
    const int left = in_.BytesUntilLimit();
    const int end = left < 0 ? size_ : in_.CurrentPosition() + left;
    for (int i = start;; ++i) {
      if (i - start == kVarintBytes) return Fault::kOverlong;
      if (i >= end) return cut_short();
      if ((bytes_[i] & 0x80) == 0) return refused;
    }
  }

  const uint8_t* bytes_;
  int size_;
  CodedInputStream in_;
  int field_start_ = 0;
  Found stop_;   // where the parse stopped
  Found reach_;  // the first length that reached too far
};

// ---------------------------------------------------------------------------
// The answer's messages: each field under the key it arrives with, read as
// its type is. The numbers are the generated classes' own, so that they
// follow proto/.

bool read_field(Reader& r, info::StringPair& m, uint32_t key) {
  using M = info::StringPair;
  switch (key) {
    case length_key(M::kKeyFieldNumber):
      return r.bytes(m.mutable_key());
    case length_key(M::kValueFieldNumber):
      return r.bytes(m.mutable_value());
    default:
      return r.skip(m.mutable_unknown_fields(), key);
  }
}

bool read_field(Reader& r, info::LeakCount& m, uint32_t key) {
  using M = info::LeakCount;
  switch (key) {
    case varint_key(M::kHighFieldNumber):
      return r.int32(m, &M::high, &M::set_high);
    case varint_key(M::kMidFieldNumber):
      return r.int32(m, &M::mid, &M::set_mid);
    case varint_key(M::kLowFieldNumber):
      return r.int32(m, &M::low, &M::set_low);
    case varint_key(M::kInfoFieldNumber):
      return r.int32(m, &M::info, &M::set_info);
    case varint_key(M::kSameipFieldNumber):
      return r.boolean(m, &M::sameip, &M::set_sameip);
    case varint_key(M::kTamperFieldNumber):
      return r.boolean(m, &M::tamper, &M::set_tamper);
    default:
      return r.skip(m.mutable_unknown_fields(), key);
  }
}

bool read_field(Reader& r, info::WebScanResult& m, uint32_t key) {
  using M = info::WebScanResult;
  switch (key) {
    case length_key(M::kLeakCountFieldNumber):
      return r.message(m.mutable_leak_count());
    case length_key(M::kIllegalWordsFieldNumber):
      return r.bytes(m.mutable_illegal_words());
    case varint_key(M::kTamperFieldNumber):
      return r.boolean(m, &M::tamper, &M::set_tamper);
    default:
      return r.skip(m.mutable_unknown_fields(), key);
  }
}

bool read_field(Reader& r, resp::MD5Result& m, uint32_t key) {
  using M = resp::MD5Result;
  switch (key) {
    case length_key(M::kMd5FieldNumber):
      return r.bytes(m.mutable_md5());
    case varint_key(M::kLevelFieldNumber):
      return r.int32(m, &M::level, &M::set_level);
    case varint_key(M::kVersionFieldNumber):
      return r.int32(m, &M::version, &M::set_version);
    case varint_key(M::kTimeFieldNumber):
      return r.int32(m, &M::time, &M::set_time);
    case varint_key(M::kSubTypeFieldNumber):
      return r.int32(m, &M::sub_type, &M::set_sub_type);
    case varint_key(M::kCacheTypeFieldNumber):
      return r.enumeration(m, key, info::CacheType_IsValid, &M::set_cache_type);
    case varint_key(M::kCacheDurationSecFieldNumber):
      return r.int32(m, &M::cache_duration_sec, &M::set_cache_duration_sec);
    case length_key(M::kValuesFieldNumber):
      return r.message(add_element(m.mutable_values()));
    case length_key(M::kWebscanResultFieldNumber):
      return r.message(m.mutable_webscan_result());
    default:
      return r.skip(m.mutable_unknown_fields(), key);
  }
}

bool read_field(Reader& r, resp::Result& m, uint32_t key) {
  using M = resp::Result;
  switch (key) {
    case varint_key(M::kEcFieldNumber):
      return r.enumeration(m, key, resp::Result_ErrorCode_IsValid, &M::set_ec);
    case varint_key(M::kIdFieldNumber):
      return r.int32(m, &M::id, &M::set_id);
    case length_key(M::kMergedResultFieldNumber):
      return r.message(m.mutable_merged_result());
    case length_key(M::kMd5ResultsFieldNumber):
      return r.message(add_element(m.mutable_md5_results()));
    case length_key(M::kExtsFieldNumber):
      return r.message(add_element(m.mutable_exts()));
    default:
      return r.skip(m.mutable_unknown_fields(), key);
  }
}

bool read_field(Reader& r, resp::Response& m, uint32_t key) {
  using M = resp::Response;
  switch (key) {
    case varint_key(M::kEcFieldNumber):
      return r.enumeration(m, key, resp::Response_ErrorCode_IsValid,
                           &M::set_ec);
    case length_key(M::kResultsFieldNumber):
      return r.message(add_element(m.mutable_results()));
    case length_key(M::kPackageExtsFieldNumber):
      return r.message(add_element(m.mutable_package_exts()));
    default:
      return r.skip(m.mutable_unknown_fields(), key);
  }
}

template <class M>
bool Reader::merge(M& message) {
  for (;;) {
    // The message's last byte read: its end, found without the stream's
    // slower tag read, which would find the same.
    if (in_.ExpectAtEnd()) return true;
    field_start_ = in_.CurrentPosition();
    const uint32_t key = in_.ReadTagNoLastTag();
    if (key == 0) {
      // The end of the message's bytes, or a tag that is 0, cut short or too
      // long: the message ends either way, and the caller's limit test tells
      // the two apart.
      if (!in_.ConsumedEntireMessage())
        record(stop_, varint_fault(field_start_, Fault::kZeroTag));
      return true;
    }
    if (!read_field(*this, message, key)) return false;
  }
}

bool Reader::skip(std::string* unknown_fields, uint32_t key) {
  StringOutputStream out(unknown_fields);
  CodedOutputStream unknown(&out, false);
  if (WireFormatLite::SkipField(&in_, key, &unknown)) return true;
  switch (WireFormatLite::GetTagWireType(key)) {
    case WireFormatLite::WIRETYPE_START_GROUP:
      return stop(Fault::kBadGroup);
    case WireFormatLite::WIRETYPE_END_GROUP:
      return stop(Fault::kEndGroup);
    case WireFormatLite::WIRETYPE_VARINT:
    case WireFormatLite::WIRETYPE_FIXED64:
    case WireFormatLite::WIRETYPE_LENGTH_DELIMITED:
    case WireFormatLite::WIRETYPE_FIXED32:
      return stop(Fault::kBadUnknown);
    default:
      return stop(Fault::kBadWireType);
  }
}

}  // namespace

ParseReport parse_answer(const void* data, int size, resp::Response& response) {
  GOOGLE_CHECK_GE(size, 0);
  Reader reader(data, size);
  reader.merge(response);
  return reader.report();
}

}  // namespace linkward
