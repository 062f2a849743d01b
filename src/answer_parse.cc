// The messages' parse, field by field, as the runtime's classic coded input
// stream reads them. The parser protoc 3.21 writes for each class works on a
// stream of its own that merges cut and malformed input differently (a nested
// length may reach into the message around it, a value cut short is dropped or
// padded with bytes that never arrived, a tag of more than five bytes is
// refused); on well-formed input the two agree. The build replaces that parser
// with this one in every class (cmake/UseStreamMerge.cmake).
#include "answer_parse.h"

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

namespace linkward {
namespace {

namespace req = info::req;
namespace resp = info::resp;
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

// Reads the fields of one answer into its messages. Every reader returns
// false when the parse must stop; the first fault is the one reported, since
// the messages around a stop stop because it did.
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

  // One message's fields up to its limit. A tag of 0 ends the message as if
  // it were whole; whether it ended at its limit is the caller's test
  // (ended_whole_).
  template <class M>
  bool merge(M& message);

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
    if (!read_varint(length)) return stop(value_fault());
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
    const uint8_t* outer_limit;
    return enter(outer_limit) && merge(*child) && leave(outer_limit);
  }

  // Any other key, a known number under a wire type not its own included,
  // goes whole, key and payload, into the message's unknown fields.
  [[gnu::cold]] bool skip(std::string* unknown_fields, uint32_t key);

 private:
  bool skip_field(uint32_t key, CodedOutputStream& unknown);
  bool skip_group(uint32_t key, CodedOutputStream& unknown);

  int offset(const uint8_t* at) const { return static_cast<int>(at - bytes_); }
  // Bytes up to the limit of the message being read.
  uint32_t left() const { return static_cast<uint32_t>(limit_ - at_); }

  // A varint of at most ten bytes, as the classic stream reads one, its bits
  // past the 64th dropped; false when it runs into the limit or is longer.
  bool read_varint(uint64_t& value) {
    uint64_t read = 0;
    const uint8_t* at = at_;
    for (int shift = 0; shift < 7 * kVarintBytes; shift += 7) {
      if (at == limit_) return false;
      const uint8_t byte = *at++;
      read |= static_cast<uint64_t>(byte & 0x7f) << shift;
      if (byte < 0x80) {
        at_ = at;
        value = read;
        return true;
      }
    }
    return false;
  }

  // A field's key, its low 32 bits; 0 for a key of 0, and for one cut short
  // by the limit or longer than ten bytes. As the classic stream leaves it, a
  // key of 0 has been read, a cut one read up to the limit, a long one not
  // read at all.
  uint32_t read_key() {
    if (at_ != limit_ && *at_ < 0x80) return *at_++;
    uint64_t key;
    if (read_varint(key)) return static_cast<uint32_t>(key);
    if (limit_ - at_ < kVarintBytes) at_ = limit_;
    return 0;
  }

  template <class Integer>
  bool read_little_endian(Integer& value) {
    if (left() < sizeof value) return false;
    value = 0;
    for (size_t i = 0; i < sizeof value; ++i)
      value |= static_cast<Integer>(at_[i]) << (8 * i);
    at_ += sizeof value;
    return true;
  }

  // Its low 32 bits are the value of an int32 or an enumeration, however
  // long the varint; `value` is left as it was when the read fails.
  bool varint(uint64_t& value) {
    return read_varint(value) || stop(value_fault());
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
  bool enter(const uint8_t*& outer_limit) {
    uint64_t length;
    if (!read_varint(length) || length > INT32_MAX)
      return stop(value_fault(Fault::kBadLength));
    outer_limit = limit_;
    if (length <= left())
      limit_ = at_ + length;
    else
      record(reach_, limit_ < end_ ? Fault::kPastMessage : Fault::kPastBytes);
    return --depth_left_ >= 0 || stop(Fault::kTooDeep);
  }

  // A child that ended on a tag of 0 has said so already.
  bool leave(const uint8_t* outer_limit) {
    limit_ = outer_limit;
    ++depth_left_;
    return ended_whole_ || stop(Fault::kZeroTag);
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

  // Which end a read ran into: the current message's, or the bytes'.
  Fault cut_short() const {
    return limit_ < end_ ? Fault::kCutByMessage : Fault::kCutByBytes;
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
    const int end = offset(limit_);
    for (int i = start;; ++i) {
      if (i - start == kVarintBytes) return Fault::kOverlong;
      if (i >= end) return cut_short();
      if ((bytes_[i] & 0x80) == 0) return refused;
    }
  }

  const uint8_t* const bytes_;
  const uint8_t* const end_;
  const uint8_t* at_;         // where the reading is
  const uint8_t* limit_;      // where the message being read ends
  int depth_left_;            // nesting left to give
  bool ended_whole_ = false;  // the last message read ended at its limit
  int field_start_ = 0;
  Found stop_;   // where the parse stopped
  Found reach_;  // the first length that reached too far
};

// ---------------------------------------------------------------------------
// Each message's fields under the key each arrives with, read as its type is.
// The numbers are the generated classes' own, so that they follow proto/.
// First the answer's messages, those of kx_common among them.

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

// The query's messages.

bool read_field(Reader& r, req::MD5& m, uint32_t key) {
  using M = req::MD5;
  switch (key) {
    case varint_key(M::kTypeFieldNumber):
      return r.enumeration(m, key, M::Type_IsValid, &M::set_type);
    case length_key(M::kMd5FieldNumber):
      return r.bytes(m.mutable_md5());
    case varint_key(M::kSrcFieldNumber):
      return r.enumeration(m, key, M::Src_IsValid, &M::set_src);
    case varint_key(M::kActFieldNumber):
      return r.boolean(m, &M::act, &M::set_act);
    default:
      return r.skip(m.mutable_unknown_fields(), key);
  }
}

bool read_field(Reader& r, req::Keyword& m, uint32_t key) {
  using M = req::Keyword;
  switch (key) {
    case varint_key(M::kIdFieldNumber):
      return r.int32(m, &M::id, &M::set_id);
    case length_key(M::kKeywordFieldNumber):
      return r.bytes(m.mutable_keyword());
    case length_key(M::kMd5SFieldNumber):
      return r.bytes(add_element(m.mutable_md5s()));
    case length_key(M::kKwsExtsFieldNumber):
      return r.message(add_element(m.mutable_kws_exts()));
    default:
      return r.skip(m.mutable_unknown_fields(), key);
  }
}

bool read_field(Reader& r, req::URL& m, uint32_t key) {
  using M = req::URL;
  switch (key) {
    case length_key(M::kUrlFieldNumber):
      return r.bytes(m.mutable_url());
    case varint_key(M::kUrlCharsetFieldNumber):
      return r.enumeration(m, key, M::Charset_IsValid, &M::set_url_charset);
    case varint_key(M::kUrlTypeFieldNumber):
      return r.enumeration(m, key, M::Type_IsValid, &M::set_url_type);
    case length_key(M::kHostFieldNumber):
      return r.bytes(m.mutable_host());
    case length_key(M::kMd5SFieldNumber):
      return r.message(add_element(m.mutable_md5s()));
    case length_key(M::kLogFieldNumber):
      return r.bytes(m.mutable_log());
    case length_key(M::kUrlExtsFieldNumber):
      return r.message(add_element(m.mutable_url_exts()));
    case length_key(M::kProxyUrlFieldNumber):
      return r.bytes(m.mutable_proxy_url());
    case length_key(M::kPostDataFieldNumber):
      return r.bytes(m.mutable_post_data());
    case length_key(M::kServerIpFieldNumber):
      return r.bytes(m.mutable_server_ip());
    case length_key(M::kTrunkUrlFieldNumber):
      return r.bytes(m.mutable_trunk_url());
    case length_key(M::kProxyHostFieldNumber):
      return r.bytes(m.mutable_proxy_host());
    default:
      return r.skip(m.mutable_unknown_fields(), key);
  }
}

bool read_field(Reader& r, req::Iframe& m, uint32_t key) {
  using M = req::Iframe;
  switch (key) {
    case length_key(M::kUrlFieldNumber):
      return r.message(m.mutable_url());
    case varint_key(M::kIframeIdFieldNumber):
      return r.int32(m, &M::iframe_id, &M::set_iframe_id);
    default:
      return r.skip(m.mutable_unknown_fields(), key);
  }
}

bool read_field(Reader& r, req::Refer& m, uint32_t key) {
  using M = req::Refer;
  switch (key) {
    case length_key(M::kUrlFieldNumber):
      return r.message(m.mutable_url());
    case varint_key(M::kReferIdFieldNumber):
      return r.int32(m, &M::refer_id, &M::set_refer_id);
    case varint_key(M::kReferTypeFieldNumber):
      return r.int32(m, &M::refer_type, &M::set_refer_type);
    case varint_key(M::kReferSubtypeFieldNumber):
      return r.int32(m, &M::refer_subtype, &M::set_refer_subtype);
    case length_key(M::kSubframesFieldNumber):
      return r.message(add_element(m.mutable_subframes()));
    default:
      return r.skip(m.mutable_unknown_fields(), key);
  }
}

bool read_field(Reader& r, req::ImInfo& m, uint32_t key) {
  using M = req::ImInfo;
  switch (key) {
    case varint_key(M::kTypeFieldNumber):
      return r.int32(m, &M::type, &M::set_type);
    case varint_key(M::kIdFieldNumber):
      return r.int32(m, &M::id, &M::set_id);
    case length_key(M::kImFieldNumber):
      return r.bytes(m.mutable_im());
    case length_key(M::kMd5FieldNumber):
      return r.message(m.mutable_md5());
    default:
      return r.skip(m.mutable_unknown_fields(), key);
  }
}

bool read_field(Reader& r, req::URLEntity& m, uint32_t key) {
  using M = req::URLEntity;
  switch (key) {
    case varint_key(M::kIdFieldNumber):
      return r.int32(m, &M::id, &M::set_id);
    case length_key(M::kUrlFieldNumber):
      return r.message(m.mutable_url());
    case length_key(M::kRefersFieldNumber):
      return r.message(add_element(m.mutable_refers()));
    case length_key(M::kAnchorFieldNumber):
      return r.bytes(m.mutable_anchor());
    case length_key(M::kSubframesFieldNumber):
      return r.message(add_element(m.mutable_subframes()));
    case length_key(M::kImsFieldNumber):
      return r.message(add_element(m.mutable_ims()));
    default:
      return r.skip(m.mutable_unknown_fields(), key);
  }
}

bool read_field(Reader& r, req::Request& m, uint32_t key) {
  using M = req::Request;
  switch (key) {
    case length_key(M::kUrlsFieldNumber):
      return r.message(add_element(m.mutable_urls()));
    case length_key(M::kKwsFieldNumber):
      return r.message(add_element(m.mutable_kws()));
    case varint_key(M::kUvFieldNumber):
      return r.enumeration(m, key, M::UserLayerVersion_IsValid, &M::set_uv);
    case varint_key(M::kOmd5IndexFieldNumber):
      return r.int32(m, &M::omd5_index, &M::set_omd5_index);
    case length_key(M::kProductFieldNumber):
      return r.bytes(m.mutable_product());
    case length_key(M::kComboFieldNumber):
      return r.bytes(m.mutable_combo());
    case length_key(M::kVkFieldNumber):
      return r.bytes(m.mutable_vk());
    case length_key(M::kSrcFieldNumber):
      return r.bytes(m.mutable_src());
    case length_key(M::kMidFieldNumber):
      return r.bytes(m.mutable_mid());
    case length_key(M::kLeFieldNumber):
      return r.bytes(m.mutable_le());
    case length_key(M::kConsumeFieldNumber):
      return r.bytes(m.mutable_consume());
    case length_key(M::kFbFieldNumber):
      return r.bytes(m.mutable_fb());
    case length_key(M::kRuleGroupIdFieldNumber):
      return r.bytes(m.mutable_rule_group_id());
    case varint_key(M::kUseHttpReasonFieldNumber):
      return r.enumeration(m, key, M::UseHttpReason_IsValid,
                           &M::set_use_http_reason);
    case length_key(M::kPackageExtsFieldNumber):
      return r.message(add_element(m.mutable_package_exts()));
    case length_key(M::kStatLogFieldNumber):
      return r.bytes(m.mutable_stat_log());
    case length_key(M::kVersionFieldNumber):
      return r.bytes(m.mutable_version());
    default:
      return r.skip(m.mutable_unknown_fields(), key);
  }
}

template <class M>
bool Reader::merge(M& message) {
  for (;;) {
    if (at_ == limit_) {
      ended_whole_ = true;
      return true;
    }
    field_start_ = position();
    const uint32_t key = read_key();
    if (key == 0) {
      // A tag that is 0, cut short or too long: the message ends either way,
      // and the caller's test of ended_whole_ tells it from a whole one.
      ended_whole_ = false;
      record(stop_, varint_fault(field_start_, Fault::kZeroTag));
      return true;
    }
    if (!read_field(*this, message, key)) return false;
  }
}

bool Reader::skip(std::string* unknown_fields, uint32_t key) {
  StringOutputStream out(unknown_fields);
  CodedOutputStream unknown(&out, false);
  if (skip_field(key, unknown)) return true;
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

// The runtime's own skip (WireFormatLite::SkipField) refuses field number 0,
// which the classic merge skips like any other; so the skip is written out
// here, writing what it writes: the key and a varint in their shortest form,
// a length as its low 32 bits before the bytes are read (so that it stays
// when they are cut short), a group's records as they are skipped.
bool Reader::skip_field(uint32_t key, CodedOutputStream& unknown) {
  switch (WireFormatLite::GetTagWireType(key)) {
    case WireFormatLite::WIRETYPE_VARINT: {
      uint64_t value;
      if (!read_varint(value)) return false;
      unknown.WriteVarint32(key);
      unknown.WriteVarint64(value);
      return true;
    }
    case WireFormatLite::WIRETYPE_FIXED64: {
      uint64_t value;
      if (!read_little_endian(value)) return false;
      unknown.WriteVarint32(key);
      unknown.WriteLittleEndian64(value);
      return true;
    }
    case WireFormatLite::WIRETYPE_LENGTH_DELIMITED: {
      uint64_t read;
      if (!read_varint(read)) return false;
      const uint32_t length = static_cast<uint32_t>(read);
      unknown.WriteVarint32(key);
      unknown.WriteVarint32(length);
      if (static_cast<int32_t>(length) < 0 || length > left()) return false;
      unknown.WriteRaw(at_, static_cast<int>(length));
      at_ += length;
      return true;
    }
    case WireFormatLite::WIRETYPE_START_GROUP:
      unknown.WriteVarint32(key);
      return --depth_left_ >= 0 && skip_group(key, unknown);
    case WireFormatLite::WIRETYPE_FIXED32: {
      uint32_t value;
      if (!read_little_endian(value)) return false;
      unknown.WriteVarint32(key);
      unknown.WriteLittleEndian32(value);
      return true;
    }
    default:  // an end-group key with no group open, or wire type 6 or 7
      return false;
  }
}

// A group's fields up to its end-group key, which must be its own; the end
// of the message or a tag of 0 leaves it open.
bool Reader::skip_group(uint32_t key, CodedOutputStream& unknown) {
  for (;;) {
    const uint32_t inner = read_key();
    if (inner == 0) return false;
    if (WireFormatLite::GetTagWireType(inner) ==
        WireFormatLite::WIRETYPE_END_GROUP) {
      unknown.WriteVarint32(inner);
      ++depth_left_;
      return inner == key + 1;
    }
    if (!skip_field(inner, unknown)) return false;
  }
}

// The bytes the runtime's parse context may read past the data it says is
// available.
constexpr uintptr_t kSlopBytes = 16;

// How a whole merge ended: its bytes read, a fault, or a tag of 0 (or one cut
// short or too long, which the stream reads as 0) ending the outermost
// message early. Only a fault fails the merge; whether a tag of 0 does is the
// way in's to say, as it is for the runtime's own parse.
enum class Ending { kWhole, kFault, kZeroTag };

// One class's merge, behind a plain function pointer, so that all that does
// not depend on the class is compiled once rather than for each of 14.
using Merge = bool (*)(Reader&, void* message);

template <class M>
bool merge_as(Reader& reader, void* message) {
  return reader.merge(*static_cast<M*>(message));
}

Ending merge_bytes(Reader& reader, Merge merge, void* message) {
  if (!merge(reader, message)) return Ending::kFault;
  return reader.report().stopped ? Ending::kZeroTag : Ending::kWhole;
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
    const Ending ending = merge_bytes(reader, merge, message);
    return hand_back(ending, ptr + reader.position(), ctx);
  }
  // A stream in chunks: merged once all of it has arrived, so that what was
  // read comes out as it does from one piece. The stream is read to its end
  // even when a tag of 0 ends the message before it.
  const std::string bytes = gather(ptr, ctx);
  Reader reader(bytes.data(), static_cast<int>(bytes.size()), ctx->depth());
  return hand_back(merge_bytes(reader, merge, message), ptr, ctx);
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
LINKWARD_PARSE(info::StringPair)
LINKWARD_PARSE(info::LeakCount)
LINKWARD_PARSE(info::WebScanResult)
LINKWARD_PARSE(req::MD5)
LINKWARD_PARSE(req::Keyword)
LINKWARD_PARSE(req::URL)
LINKWARD_PARSE(req::Iframe)
LINKWARD_PARSE(req::Refer)
LINKWARD_PARSE(req::ImInfo)
LINKWARD_PARSE(req::URLEntity)
LINKWARD_PARSE(req::Request)
LINKWARD_PARSE(resp::MD5Result)
LINKWARD_PARSE(resp::Result)
LINKWARD_PARSE(resp::Response)
#undef LINKWARD_PARSE

}  // namespace linkward
