// The wire schema, pinned in one place: every field of every message read
// from its row (repeated fields twice, every int32 a negative number in five
// bytes, which only an int32 reads back as itself), what absent fields read,
// the required fields and the enumerations. No field's number, type, label or
// default, nor an enumeration value, changes without a failure here.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "answer_parse.h"
#include "kx_common.pb.h"
#include "kx_request.pb.h"
#include "kx_response.pb.h"
#include "wire.h"

namespace info = linkward::info;
namespace req = linkward::info::req;
namespace resp = linkward::info::resp;

namespace {

template <class... T>
std::string values(const T&... v) {
  std::ostringstream out;
  ((out << v << '|'), ...);
  return out.str();
}

// One message, by its name without the package: bytes holding every field,
// and what its fields read from them and from an empty message.
struct Pinned {
  std::string message, bytes;
  const char *fields, *absent;
  std::vector<std::string> required;  // the keys of the required fields
  std::function<std::string(const std::string&)> read;  // the fields' values
  std::function<bool(const std::string&)> complete;
};

// Parses with the runtime; every key must be a known field's.
template <class M, class Read>
Pinned pin(const std::string& hex, const char* fields, const char* absent,
           std::vector<std::string> required, Read read) {
  const auto reads = [read](auto& bytes) {
    M m;
    if (!m.ParsePartialFromString(bytes) || !m.unknown_fields().empty())
      return "unknown fields: " + to_hex(m.unknown_fields());
    return read(m);
  };
  const auto complete = [](auto& bytes) { return M().ParseFromString(bytes); };
  const std::string name = M::default_instance().GetTypeName();
  const std::string message = name.substr(name.rfind('.') + 1);
  return {message, from_hex(hex), fields, absent, required, reads, complete};
}

// -2, -3, ... as 32-bit varints.
const std::string n2 = " fe ff ff ff 0f ", n3 = " fd ff ff ff 0f ",
                  n4 = " fc ff ff ff 0f ", n5 = " fb ff ff ff 0f ",
                  n6 = " fa ff ff ff 0f ";

// What a row reads from its message `m`: the values given, in that order.
#define READ(...) [](const auto& m) { return values(__VA_ARGS__); }

std::vector<Pinned> schema() {
  using namespace info;
  using namespace req;
  using namespace resp;
  return {
      pin<StringPair>("0a 01 6b 12 01 76", "k|v|", "||", {"0a"},
                      READ(m.key(), m.value())),
      pin<LeakCount>(
          "08" + n2 + "10" + n3 + "18" + n4 + "20" + n5 + "28 02 30 03",
          "-2|-3|-4|-5|1|1|", "0|0|0|0|0|0|", {},
          READ(m.high(), m.mid(), m.low(), m.info(), m.sameip(), m.tamper())),
      pin<WebScanResult>(
          "0a 00 4a 01 77 50 02", "1|w|1|", "0||0|", {},
          READ(m.has_leak_count(), m.illegal_words(), m.tamper())),
      pin<MD5>("08 14 12 01 6d 18 04 20 02", "20|m|4|1|", "0||1|0|", {"12"},
               READ(m.type(), m.md5(), m.src(), m.act())),
      pin<Keyword>("08" + n2 + "12 01 6b 1a 01 61 1a 01 62 22 00 22 00",
                   "-2|k|2|2|", "0||0|0|", {"08"},
                   READ(m.id(), m.keyword(), m.md5s_size(), m.kws_exts_size())),
      pin<URL>(
          "0a 01 75 10 01 18 02 22 01 68 2a 00 2a 00 32 01 6c 3a 00 3a 00 "
          "42 01 70 4a 01 64 52 01 73 5a 01 74 a2 01 01 78",
          "u|1|2|h|2|l|2|p|d|s|t|x|", "|255|0||0||0||||||", {},
          READ(m.url(), m.url_charset(), m.url_type(), m.host(), m.md5s_size(),
               m.log(), m.url_exts_size(), m.proxy_url(), m.post_data(),
               m.server_ip(), m.trunk_url(), m.proxy_host())),
      pin<Iframe>("0a 00 10" + n2, "1|-2|", "0|0|", {},
                  READ(m.has_url(), m.iframe_id())),
      pin<Refer>("0a 00 10" + n2 + "18" + n3 + "20" + n4 + "2a 00 2a 00",
                 "1|-2|-3|-4|2|", "0|0|0|0|0|", {},
                 READ(m.has_url(), m.refer_id(), m.refer_type(),
                      m.refer_subtype(), m.subframes_size())),
      pin<ImInfo>("08" + n2 + "10" + n3 + "1a 01 6d 22 00", "-2|-3|m|1|",
                  "0|0||0|", {}, READ(m.type(), m.id(), m.im(), m.has_md5())),
      pin<URLEntity>("08" + n2 +
                         "12 00 22 00 22 00 2a 01 61 32 00 32 00 3a 00 "
                         "3a 00",
                     "-2|1|2|a|2|2|", "0|0|0||0|0|", {"08"},
                     READ(m.id(), m.has_url(), m.refers_size(), m.anchor(),
                          m.subframes_size(), m.ims_size())),
      pin<Request>(
          "0a 00 0a 00 12 00 12 00 18 04 20" + n2 +
              "2a 01 70 32 01 63 3a 01 76 42 01 73 4a 01 6d 52 01 6c "
              "5a 01 6e 62 01 66 6a 01 72 70 05 7a 00 7a 00 82 01 01 "
              "74 8a 01 01 77",
          "2|2|4|-2|p|c|v|s|m|l|n|f|r|5|2|t|w|", "0|0|0|0||||||||||0|0|||",
          {"18", "2a", "32", "3a", "42", "4a", "6a"},
          READ(m.urls_size(), m.kws_size(), m.uv(), m.omd5_index(), m.product(),
               m.combo(), m.vk(), m.src(), m.mid(), m.le(), m.consume(), m.fb(),
               m.rule_group_id(), m.use_http_reason(), m.package_exts_size(),
               m.stat_log(), m.version())),
      pin<MD5Result>("0a 01 6d 10" + n2 + "18" + n3 + "20" + n4 + "28" + n5 +
                         "30 01 38" + n6 + "42 00 42 00 4a 00",
                     "m|-2|-3|-4|-5|1|-6|2|1|", "|0|0|0|0|0|120|0|0|", {"10"},
                     READ(m.md5(), m.level(), m.version(), m.time(),
                          m.sub_type(), m.cache_type(), m.cache_duration_sec(),
                          m.values_size(), m.has_webscan_result())),
      pin<Result>("08 02 10" + n2 + "1a 00 22 00 22 00 2a 00 2a 00",
                  "2|-2|1|2|2|", "0|0|0|0|0|", {"10"},
                  READ(m.ec(), m.id(), m.has_merged_result(),
                       m.md5_results_size(), m.exts_size())),
      pin<Response>("08 06 12 00 12 00 1a 00 1a 00", "6|2|2|", "0|0|0|", {"08"},
                    READ(m.ec(), m.results_size(), m.package_exts_size())),
  };
}
#undef READ

// Each message reads its fields from its row and its defaults from nothing.
// Holding its required fields alone, each a zero or an empty text, it is
// complete, and leaving out any one of them it is not.
TEST(Schema, EveryMessage) {
  for (const Pinned& p : schema()) {
    EXPECT_EQ(p.read(p.bytes), p.fields) << p.message;
    EXPECT_EQ(p.read(""), p.absent) << p.message;
    for (size_t left_out = 0; left_out <= p.required.size(); ++left_out) {
      std::string hex;  // the required fields but the one left out
      for (size_t i = 0; i < p.required.size(); ++i)
        if (i != left_out) hex += p.required[i] + " 00 ";
      EXPECT_EQ(p.complete(from_hex(hex)), left_out == p.required.size())
          << p.message << " leaving out required field " << left_out;
    }
  }
}

// Sets every bytes field from a raw pointer and a size, which a string
// field's setter does not take: a bytes field turned into a string does not
// compile.
[[maybe_unused]] void set_raw_bytes(req::Request& r, const void* raw) {
  r.add_package_exts()->set_key(raw, 0);
  r.add_package_exts()->set_value(raw, 0);
  r.add_kws()->set_keyword(raw, 0);
  r.add_urls()->set_anchor(raw, 0);
  r.add_urls()->add_ims()->set_im(raw, 0);
  req::URL* url = r.add_urls()->mutable_url();
  url->set_url(raw, 0);
  url->set_host(raw, 0);
  url->set_log(raw, 0);
  url->set_proxy_url(raw, 0);
  url->set_post_data(raw, 0);
  url->set_server_ip(raw, 0);
  url->set_trunk_url(raw, 0);
  url->set_proxy_host(raw, 0);
}

// The answer's messages, each with every field, nested as deep as an answer
// goes, and an unknown field first in each: the library's parse must read
// them as the runtime does, which writes unknown fields after known ones, so
// that a known field kept as an unknown one comes out in another place.
TEST(Schema, TheLibrarysParseReadsEveryFieldOfTheAnswer) {
  std::map<std::string, std::string> row;
  for (const Pinned& p : schema())
    row[p.message] = from_hex("f0 01 01") + p.bytes;
  const std::string answer =
      row["Response"] +
      nested(2, row["Result"] +
                    nested(3, row["MD5Result"] + nested(8, row["StringPair"]) +
                                  nested(9, row["WebScanResult"] +
                                                nested(1, row["LeakCount"]))));
  resp::Response ours, runtimes;
  ASSERT_TRUE(runtimes.ParsePartialFromString(answer));
  const int size = static_cast<int>(answer.size());
  EXPECT_EQ(linkward::parse_answer(answer.data(), size, ours).fault,
            linkward::ParseFault::kNone);
  EXPECT_EQ(to_hex(ours.SerializePartialAsString()),
            to_hex(runtimes.SerializePartialAsString()));
}

// An enumeration's values and names, as its validity test sees them from its
// least value to its greatest.
#define ENUMERATION(scope, e)                                       \
  [] {                                                              \
    std::string seen;                                               \
    for (int64_t v = scope::e##_MIN; v <= scope::e##_MAX; ++v)      \
      if (scope::e##_IsValid(static_cast<int>(v)))                  \
        seen += std::to_string(v) + " " + scope::e##_Name(v) + ","; \
    return seen;                                                    \
  }()

TEST(Schema, Enumerations) {
  EXPECT_EQ(ENUMERATION(req::MD5, Type),
            "0 kUnknown,1 kRawURL,2 kNormalizedURL,3 kResourceURL,4 kHost,"
            "5 kDomain,6 kDomain1,7 kDomain2,8 kDomain3,9 kDomain4,"
            "10 kDomain5,20 kQueryValue,");
  EXPECT_EQ(ENUMERATION(req::MD5, Src),
            "0 kUnknownSrc,1 kRowUrl,2 kIframe,3 kRefer,4 kIm,");
  EXPECT_EQ(ENUMERATION(req::URL, Type), "0 kUnknown,1 kFull,2 kIntercept,");
  EXPECT_EQ(ENUMERATION(req::URL, Charset),
            "0 kCSUTF8,1 kCSGBK,2 kCSBIG5,255 kCSUnknown,");
  EXPECT_EQ(ENUMERATION(req::Request, UseHttpReason),
            "0 kUnknownHttpReason,1 kUDPTimeout,2 kDataPackageTooLarge,"
            "3 kUDPRequestFailedAllTheTime,4 kUDPNotAvailable,"
            "5 kUDPResponseError,");
  EXPECT_EQ(ENUMERATION(req::Request, UserLayerVersion),
            "0 kUV0,1 kUV1,2 kUV2_TextEncrypt,3 kUV3_ProtobufEncrypt,"
            "4 kUV4_ProtobufPlain,");
  EXPECT_EQ(ENUMERATION(resp::Result, ErrorCode),
            "0 kOK,1 kNotFound,2 kNeedFullRefer,");
  EXPECT_EQ(ENUMERATION(resp::Response, ErrorCode),
            "0 kOK,1 kNotFound,2 kRequestDataError,3 kVKFailed,"
            "4 kRequestPackageTooLarge,5 kServerInternalError,"
            "6 kPCSlimitError,");
  EXPECT_EQ(ENUMERATION(info, CacheType), "0 kCacheType0,1 kCacheType1,");
}
#undef ENUMERATION

// The nine enumeration fields keep a value outside their enumeration among
// the unknown fields as its low 32 bits, as a build step rewrites protoc's
// parsers to do, not as all ten bytes of a negative one. A query and an
// answer hold `v` in every such field, each message's own after the messages
// it holds, since the runtime writes unknown fields last.
TEST(Schema, OutOfRangeEnumerationValuesAreKeptAs32BitVarints) {
  const auto query = [](const std::string& v) {
    const std::string url = nested(5, from_hex("08" + v + "18" + v)) +
                            from_hex("10" + v + "18" + v);
    return nested(1, nested(2, url)) + from_hex("18" + v + "70" + v);
  };
  const auto answer = [](const std::string& v) {
    return nested(2, nested(4, from_hex("30" + v)) + from_hex("08" + v)) +
           from_hex("08" + v);
  };
  const std::string minus_one = " ff ff ff ff ff ff ff ff ff 01 ",
                    kept = " ff ff ff ff 0f ";
  req::Request request;
  resp::Response response;
  request.ParsePartialFromString(query(minus_one));
  response.ParsePartialFromString(answer(minus_one));
  EXPECT_EQ(to_hex(request.SerializePartialAsString()), to_hex(query(kept)));
  EXPECT_EQ(to_hex(response.SerializePartialAsString()), to_hex(answer(kept)));
}

TEST(SchemaDeathTest, TheLibrarysChecksAndAssertionsAreInForce) {
  // Self-merge is checked inside the library's compiled message code.
  req::Request request;
  EXPECT_DEATH(uncaught([&] { request.MergeFrom(request); }),
               "CHECK failed: \\(&from\\) != \\(_this\\): ");
  resp::Response response;
  EXPECT_DEATH(response.set_ec(static_cast<resp::Response::ErrorCode>(7)),
               "Response_ErrorCode_IsValid\\(value\\)");
}

}  // namespace
