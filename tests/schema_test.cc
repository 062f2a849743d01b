// The wire schema, pinned by bytes: a query and an answer holding every field
// of the three schema files (repeated ones twice, the second empty; every
// int32 negative; every enumeration at a value other than its first) against
// bytes written from the key tables; then the required fields, the declared
// defaults and the enumerations.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "message_parse.h"
#include "kx_request.pb.h"
#include "kx_response.pb.h"
#include "wire.h"

namespace info = linkward::info;
namespace req = linkward::info::req;
namespace resp = linkward::info::resp;

namespace {

// Hex in which "-N" is a negative int32, "T" true and "{ ... }" a message,
// its length and then its bytes between `first` and `last`. -N and T as the
// runtime writes them (-N in ten bytes, T as 01), or, `in`, as the wire may
// also bring them: -N as its low 32 bits in five bytes, which only an int32
// reads back as itself and in which an enumeration keeps a value outside it;
// T as 02, which only a bool reads back as 01.
std::string hex(bool in, const std::string& text, const std::string& first = "",
                const std::string& last = "") {
  std::istringstream words(text);
  std::vector<std::string> open{first};  // the messages begun, innermost last
  for (std::string w; words >> w;) {
    if (w == "{") {
      open.push_back(first);
    } else if (w == "}") {
      const std::string message = open.back() + last;
      open.pop_back();
      open.back() += delimited(message);
    } else if (w == "T") {
      open.back() += in ? '\x02' : '\x01';
    } else if (w[0] == '-') {
      open.back() +=
          static_cast<char>(256 - std::stoi(w.substr(1))) +
          from_hex(in ? "ff ff ff 0f" : "ff ff ff ff ff ff ff ff 01");
    } else {
      open.back() += from_hex(w);
    }
  }
  return open.back() + last;
}

// A bytes field's value: a string field does not take a raw pointer.
#define BYTES(text) static_cast<const void*>(text), sizeof(text) - 1

// Adds two elements to a repeated field; returns the first.
template <class Field>
auto* two(Field* field) {
  auto* first = field->Add();
  field->Add();
  return first;
}

// Every request field and, inside, every field of the messages it holds:
// urls (an entity, then an empty one), kws (a keyword, then an empty one),
// then the request's own.
std::string request_bytes(bool in) {
  return hex(
      in,
      "0a { 08 -2 12 { 0a 01 75 10 01 18 02 22 01 68 2a { 08 14 12 01 6d 18 "
      "04 20 T } 2a { } 32 01 6c 3a { 0a 01 6b 12 01 76 } 3a { } 42 01 70 4a "
      "01 64 52 01 73 5a 01 74 a2 01 01 78 } 22 { 0a { } 10 -4 18 -5 20 -6 "
      "2a { 0a { } 10 -7 } 2a { } } 22 { } 2a 01 61 32 { 0a { } 10 -7 } 32 { "
      "} 3a { 08 -8 10 -9 1a 01 69 22 { } } 3a { } } 0a { } 12 { 08 -3 12 01 "
      "6b 1a 01 61 1a 01 62 22 { 0a 01 6b 12 01 76 } 22 { } } 12 { } 18 04 "
      "20 -1 2a 01 70 32 01 63 3a 01 76 42 01 73 4a 01 6d 52 01 6c 5a 01 6e "
      "62 01 66 6a 01 72 70 05 7a { 0a 01 6b 12 01 76 } 7a { } 82 01 01 74 "
      "8a 01 01 77");
}

req::Request request() {
  info::StringPair pair;
  pair.set_key(BYTES("k")), pair.set_value(BYTES("v"));
  req::Iframe iframe;
  iframe.mutable_url(), iframe.set_iframe_id(-7);
  req::Request m;
  req::URLEntity* entity = two(m.mutable_urls());
  entity->set_id(-2), entity->set_anchor(BYTES("a"));
  req::URL* url = entity->mutable_url();
  url->set_url(BYTES("u")), url->set_url_charset(req::URL::kCSGBK),
      url->set_url_type(req::URL::kIntercept), url->set_host(BYTES("h")),
      url->set_log(BYTES("l")), url->set_proxy_url(BYTES("p")),
      url->set_post_data(BYTES("d")), url->set_server_ip(BYTES("s")),
      url->set_trunk_url(BYTES("t")), url->set_proxy_host(BYTES("x"));
  req::MD5* md5 = two(url->mutable_md5s());
  md5->set_type(req::MD5::kQueryValue), md5->set_md5("m"),
      md5->set_src(req::MD5::kIm), md5->set_act(true);
  *two(url->mutable_url_exts()) = pair;
  req::Refer* refer = two(entity->mutable_refers());
  refer->mutable_url(), refer->set_refer_id(-4), refer->set_refer_type(-5),
      refer->set_refer_subtype(-6);
  *two(refer->mutable_subframes()) = iframe;
  *two(entity->mutable_subframes()) = iframe;
  req::ImInfo* im = two(entity->mutable_ims());
  im->set_type(-8), im->set_id(-9), im->set_im(BYTES("i")), im->mutable_md5();
  req::Keyword* keyword = two(m.mutable_kws());
  keyword->set_id(-3), keyword->set_keyword(BYTES("k")), keyword->add_md5s("a"),
      keyword->add_md5s("b");
  *two(keyword->mutable_kws_exts()) = pair;
  m.set_uv(req::Request::kUV4_ProtobufPlain), m.set_omd5_index(-1),
      m.set_product("p"), m.set_combo("c"), m.set_vk("v"), m.set_src("s"),
      m.set_mid("m"), m.set_le("l"), m.set_consume("n"), m.set_fb("f"),
      m.set_rule_group_id("r"),
      m.set_use_http_reason(req::Request::kUDPResponseError),
      m.set_stat_log("t"), m.set_version("w");
  *two(m.mutable_package_exts()) = pair;
  return m;
}

// The query, which the library builds, by its accessors: set through them,
// and parsed from bytes the wire may bring, it is the key tables' bytes.
TEST(Schema, TheQueryByItsBytes) {
  req::Request parsed;
  parsed.ParsePartialFromString(request_bytes(true));
  const std::string bytes = to_hex(request_bytes(false));
  EXPECT_EQ(to_hex(request().SerializePartialAsString()), bytes);
  EXPECT_EQ(to_hex(parsed.SerializePartialAsString()), bytes);
}

// Every response field and, inside, every field of the messages it holds,
// those of kx_common included: results (a result, then an empty one), then
// package_exts; each message's own fields between `first` and `last`.
std::string response_bytes(bool in, const std::string& first,
                           const std::string& last) {
  return hex(
      in,
      "08 06 12 { 08 02 10 -6 1a { } 22 { 0a 01 6d 10 -1 18 -2 20 -3 28 -4 "
      "30 01 38 -5 42 { 0a 01 6b 12 01 76 } 42 { } 4a { 0a { 08 -7 10 -8 18 "
      "-9 20 -10 28 T 30 00 } 4a 01 77 50 T } } 22 { } 2a { } 2a { } } 12 { } "
      "1a { } 1a { }",
      first, last);
}

// The same answer set through the accessors; within a message no two fields
// of one type hold the same value, so a parse that read one field into
// another would not come out as this.
resp::Response response() {
  info::StringPair pair;
  pair.set_key(BYTES("k")), pair.set_value(BYTES("v"));
  resp::Response m;
  m.set_ec(resp::Response::kPCSlimitError);
  resp::Result* result = two(m.mutable_results());
  result->set_ec(resp::Result::kNeedFullRefer), result->set_id(-6),
      result->mutable_merged_result();
  resp::MD5Result* md5 = two(result->mutable_md5_results());
  md5->set_md5("m"), md5->set_level(-1), md5->set_version(-2),
      md5->set_time(-3), md5->set_sub_type(-4),
      md5->set_cache_type(info::kCacheType1), md5->set_cache_duration_sec(-5);
  *two(md5->mutable_values()) = pair;
  info::WebScanResult* scan = md5->mutable_webscan_result();
  info::LeakCount* leak = scan->mutable_leak_count();
  leak->set_high(-7), leak->set_mid(-8), leak->set_low(-9), leak->set_info(-10),
      leak->set_sameip(true), leak->set_tamper(false);
  scan->set_illegal_words("w"), scan->set_tamper(true);
  two(result->mutable_exts()), two(m.mutable_package_exts());
  return m;
}

// The answer, which the library parses, by its accessors and its parse: set
// through the accessors it is the key tables' bytes; parsed as the wire may
// bring it, with an unknown field first in each message, it comes out as
// those bytes with the unknown fields last, as the runtime writes them. A
// known field kept as an unknown one would come out in another place.
TEST(Schema, TheAnswerByItsBytes) {
  const std::string unknown = from_hex("f0 01 01");
  const std::string in = response_bytes(true, unknown, "");
  resp::Response parsed;
  EXPECT_EQ(linkward::parse_message(in.data(), in.size(), parsed).fault,
            linkward::ParseFault::kNone);
  EXPECT_EQ(to_hex(response().SerializePartialAsString()),
            to_hex(response_bytes(false, "", "")));
  EXPECT_EQ(to_hex(parsed.SerializePartialAsString()),
            to_hex(response_bytes(false, "", unknown)));
}

// Empty when M, holding the fields whose keys are given (each a zero or an
// empty text), is complete, and leaving out any one of them it is not; else
// its name.
template <class M>
std::string needs(const std::vector<std::string>& required) {
  bool as_declared = true;
  for (size_t left_out = 0; left_out <= required.size(); ++left_out) {
    std::string hex;
    for (size_t i = 0; i < required.size(); ++i)
      if (i != left_out) hex += required[i] + " 00 ";
    as_declared &=
        M().ParseFromString(from_hex(hex)) == (left_out == required.size());
  }
  return as_declared ? "" : M().GetTypeName() + " ";
}

// The required fields, and the defaults the schema declares.
TEST(Schema, RequiredFieldsAndDefaults) {
  EXPECT_EQ(
      needs<info::StringPair>({"0a"}) + needs<info::LeakCount>({}) +
          needs<info::WebScanResult>({}) + needs<req::MD5>({"12"}) +
          needs<req::Keyword>({"08"}) + needs<req::URL>({}) +
          needs<req::Iframe>({}) + needs<req::Refer>({}) +
          needs<req::ImInfo>({}) + needs<req::URLEntity>({"08"}) +
          needs<req::Request>({"18", "2a", "32", "3a", "42", "4a", "6a"}) +
          needs<resp::MD5Result>({"10"}) + needs<resp::Result>({"10"}) +
          needs<resp::Response>({"08"}),
      "");
  EXPECT_TRUE(req::MD5().src() == req::MD5::kRowUrl &&
              req::URL().url_charset() == req::URL::kCSUnknown &&
              resp::MD5Result().cache_duration_sec() == 120);
}

// An enumeration's values and names, as its validity test sees them from its
// least value to its greatest, then a full stop.
#define ENUMERATION(scope, e)                                         \
  [] {                                                                \
    std::string seen;                                                 \
    for (int64_t v = scope::e##_MIN; v <= scope::e##_MAX; ++v)        \
      if (scope::e##_IsValid(static_cast<int>(v)))                    \
        seen += (seen.empty() ? "" : ",") + std::to_string(v) + " " + \
                scope::e##_Name(v);                                   \
    return seen + ".";                                                \
  }()

TEST(Schema, Enumerations) {
  EXPECT_EQ(
      ENUMERATION(req::MD5, Type) + ENUMERATION(req::MD5, Src) +
          ENUMERATION(req::URL, Type) + ENUMERATION(req::URL, Charset) +
          ENUMERATION(req::Request, UseHttpReason) +
          ENUMERATION(req::Request, UserLayerVersion) +
          ENUMERATION(resp::Result, ErrorCode) +
          ENUMERATION(resp::Response, ErrorCode) + ENUMERATION(info, CacheType),
      "0 kUnknown,1 kRawURL,2 kNormalizedURL,3 kResourceURL,4 kHost,5 kDomain,"
      "6 kDomain1,7 kDomain2,8 kDomain3,9 kDomain4,10 kDomain5,20 kQueryValue."
      "0 kUnknownSrc,1 kRowUrl,2 kIframe,3 kRefer,4 kIm."
      "0 kUnknown,1 kFull,2 kIntercept."
      "0 kCSUTF8,1 kCSGBK,2 kCSBIG5,255 kCSUnknown."
      "0 kUnknownHttpReason,1 kUDPTimeout,2 kDataPackageTooLarge,"
      "3 kUDPRequestFailedAllTheTime,4 kUDPNotAvailable,5 kUDPResponseError."
      "0 kUV0,1 kUV1,2 kUV2_TextEncrypt,3 kUV3_ProtobufEncrypt,"
      "4 kUV4_ProtobufPlain."
      "0 kOK,1 kNotFound,2 kNeedFullRefer."
      "0 kOK,1 kNotFound,2 kRequestDataError,3 kVKFailed,"
      "4 kRequestPackageTooLarge,5 kServerInternalError,6 kPCSlimitError."
      "0 kCacheType0,1 kCacheType1.");
}
#undef ENUMERATION

// The nine enumeration fields keep a value outside their enumeration among
// the unknown fields as its low 32 bits, as a build step rewrites protoc's
// parsers to do, not as all ten bytes of a negative one. A query and an
// answer hold `v` in every such field, each message's own after the messages
// it holds, since the runtime writes unknown fields last.
TEST(Schema, OutOfRangeEnumerationValuesAreKeptAs32BitVarints) {
  const auto query = [](bool kept) {
    return hex(kept,
               "0a { 12 { 2a { 08 -1 18 -1 } 10 -1 18 -1 } } 18 -1 70 -1");
  };
  const auto answer = [](bool kept) {
    return hex(kept, "12 { 22 { 30 -1 } 08 -1 } 08 -1");
  };
  req::Request request;
  resp::Response response;
  request.ParsePartialFromString(query(false));
  response.ParsePartialFromString(answer(false));
  EXPECT_EQ(to_hex(request.SerializePartialAsString()), to_hex(query(true)));
  EXPECT_EQ(to_hex(response.SerializePartialAsString()), to_hex(answer(true)));
}

// The checks the library keeps in every build type stop the call, the
// runtime's fatal ones throwing (nothing catches them in a caller): a null
// URL, a negative answer size (a caller's error no answer can cause), a
// message merged into itself (the library's compiled message code), and an
// enumeration set outside its values.
TEST(KeptChecksDeathTest, StopTheCall) {
  char out[64];
  int32_t length;
  EXPECT_DEATH(uncaught([&] {
                 create_proto_request(out, &length, 64, 1, nullptr, "m", "", 0);
               }),
               "CHECK failed: value != nullptr: ");
  for (int32_t size : {-1, INT32_MIN})
    EXPECT_DEATH(
        uncaught([&] { parser_proto_response(out, &length, 64, "", size); }),
        "CHECK failed: \\(size\\) >= \\(0\\)");
  req::Request request;
  EXPECT_DEATH(uncaught([&] { request.MergeFrom(request); }),
               "CHECK failed: \\(&from\\) != \\(_this\\): ");
  resp::Response response;
  EXPECT_DEATH(response.set_ec(static_cast<resp::Response::ErrorCode>(7)),
               "Response_ErrorCode_IsValid\\(value\\)");
}

}  // namespace
