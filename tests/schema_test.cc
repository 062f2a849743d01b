// The wire schema, pinned in one place: every field of every message read
// from bytes written by the key tables (repeated fields twice, every int32 as
// a negative number in five bytes, so that only an int32 reads it back as
// itself), what absent fields read, which fields are required, and the
// enumerations. A field's number, type, label or default, or an enumeration
// value, cannot change without one of these failing or not compiling.
#include <gtest/gtest.h>

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

struct Pinned {
  std::string message;
  std::function<std::string(const std::string&)> read;  // the fields' values
  std::string bytes;
  const char* fields;  // read from `bytes`
  const char* absent;  // read from an empty message
};

// Parses with the runtime; every key must be a known field's.
template <class M, class Fields>
Pinned pin(const std::string& hex, const char* fields, const char* absent,
           Fields read) {
  return {M::default_instance().GetTypeName(),
          [read](const std::string& bytes) {
            M m;
            if (!bytes.empty() && (!m.ParsePartialFromString(bytes) ||
                                   !m.unknown_fields().empty()))
              return "unknown fields: " + to_hex(m.unknown_fields());
            return read(m);
          },
          from_hex(hex), fields, absent};
}

// -2, -3, ... as 32-bit varints.
const std::string n2 = " fe ff ff ff 0f ", n3 = " fd ff ff ff 0f ",
                  n4 = " fc ff ff ff 0f ", n5 = " fb ff ff ff 0f ",
                  n6 = " fa ff ff ff 0f ";

std::vector<Pinned> schema() {
  using namespace info;
  using namespace req;
  using namespace resp;
  return {
      pin<StringPair>("0a 01 6b 12 01 76", "k|v|", "||",
                      [](auto& m) { return values(m.key(), m.value()); }),
      pin<LeakCount>(
          "08" + n2 + "10" + n3 + "18" + n4 + "20" + n5 + "28 02 30 03",
          "-2|-3|-4|-5|1|1|", "0|0|0|0|0|0|",
          [](auto& m) {
            return values(m.high(), m.mid(), m.low(), m.info(), m.sameip(),
                          m.tamper());
          }),
      pin<WebScanResult>("0a 00 4a 01 77 50 02", "1|w|1|", "0||0|",
                         [](auto& m) {
                           return values(m.has_leak_count(), m.illegal_words(),
                                         m.tamper());
                         }),
      pin<MD5>(
          "08 14 12 01 6d 18 04 20 02", "20|m|4|1|", "0||1|0|",
          [](auto& m) { return values(m.type(), m.md5(), m.src(), m.act()); }),
      pin<Keyword>("08" + n2 + "12 01 6b 1a 01 61 1a 01 62 22 00 22 00",
                   "-2|k|2|2|", "0||0|0|",
                   [](auto& m) {
                     return values(m.id(), m.keyword(), m.md5s_size(),
                                   m.kws_exts_size());
                   }),
      pin<URL>("0a 01 75 10 01 18 02 22 01 68 2a 00 2a 00 32 01 6c 3a 00 3a 00 "
               "42 01 70 4a 01 64 52 01 73 5a 01 74 a2 01 01 78",
               "u|1|2|h|2|l|2|p|d|s|t|x|", "|255|0||0||0||||||",
               [](auto& m) {
                 return values(m.url(), m.url_charset(), m.url_type(), m.host(),
                               m.md5s_size(), m.log(), m.url_exts_size(),
                               m.proxy_url(), m.post_data(), m.server_ip(),
                               m.trunk_url(), m.proxy_host());
               }),
      pin<Iframe>("0a 00 10" + n2, "1|-2|", "0|0|",
                  [](auto& m) { return values(m.has_url(), m.iframe_id()); }),
      pin<Refer>("0a 00 10" + n2 + "18" + n3 + "20" + n4 + "2a 00 2a 00",
                 "1|-2|-3|-4|2|", "0|0|0|0|0|",
                 [](auto& m) {
                   return values(m.has_url(), m.refer_id(), m.refer_type(),
                                 m.refer_subtype(), m.subframes_size());
                 }),
      pin<ImInfo>("08" + n2 + "10" + n3 + "1a 01 6d 22 00", "-2|-3|m|1|",
                  "0|0||0|",
                  [](auto& m) {
                    return values(m.type(), m.id(), m.im(), m.has_md5());
                  }),
      pin<URLEntity>("08" + n2 +
                         "12 00 22 00 22 00 2a 01 61 32 00 32 00 3a 00 "
                         "3a 00",
                     "-2|1|2|a|2|2|", "0|0|0||0|0|",
                     [](auto& m) {
                       return values(m.id(), m.has_url(), m.refers_size(),
                                     m.anchor(), m.subframes_size(),
                                     m.ims_size());
                     }),
      pin<Request>(
          "0a 00 0a 00 12 00 12 00 18 04 20" + n2 +
              "2a 01 70 32 01 63 3a 01 76 42 01 73 4a 01 6d 52 01 6c "
              "5a 01 6e 62 01 66 6a 01 72 70 05 7a 00 7a 00 82 01 01 "
              "74 8a 01 01 77",
          "2|2|4|-2|p|c|v|s|m|l|n|f|r|5|2|t|w|", "0|0|0|0||||||||||0|0|||",
          [](auto& m) {
            return values(m.urls_size(), m.kws_size(), m.uv(), m.omd5_index(),
                          m.product(), m.combo(), m.vk(), m.src(), m.mid(),
                          m.le(), m.consume(), m.fb(), m.rule_group_id(),
                          m.use_http_reason(), m.package_exts_size(),
                          m.stat_log(), m.version());
          }),
      pin<MD5Result>("0a 01 6d 10" + n2 + "18" + n3 + "20" + n4 + "28" + n5 +
                         "30 01 38" + n6 + "42 00 42 00 4a 00",
                     "m|-2|-3|-4|-5|1|-6|2|1|", "|0|0|0|0|0|120|0|0|",
                     [](auto& m) {
                       return values(m.md5(), m.level(), m.version(), m.time(),
                                     m.sub_type(), m.cache_type(),
                                     m.cache_duration_sec(), m.values_size(),
                                     m.has_webscan_result());
                     }),
      pin<Result>("08 02 10" + n2 + "1a 00 22 00 22 00 2a 00 2a 00",
                  "2|-2|1|2|2|", "0|0|0|0|0|",
                  [](auto& m) {
                    return values(m.ec(), m.id(), m.has_merged_result(),
                                  m.md5_results_size(), m.exts_size());
                  }),
      pin<Response>("08 06 12 00 12 00 1a 00 1a 00", "6|2|2|", "0|0|0|",
                    [](auto& m) {
                      return values(m.ec(), m.results_size(),
                                    m.package_exts_size());
                    }),
  };
}

TEST(Schema, EveryFieldOfEveryMessage) {
  for (const Pinned& p : schema()) {
    EXPECT_EQ(p.read(p.bytes), p.fields) << p.message;
    EXPECT_EQ(p.read(""), p.absent) << p.message;
  }
  // A declared default is read, not written, and comes back on clearing.
  req::URL url;
  url.set_url_charset(req::URL::kCSGBK);
  url.Clear();
  EXPECT_EQ(url.url_charset(), req::URL::kCSUnknown);
  EXPECT_EQ(url.SerializeAsString(), "");
}

// Every bytes field takes a raw pointer and a size, which a string field's
// setter does not: a bytes field turned into a string does not compile.
[[maybe_unused]] void bytes_fields_take_raw_bytes(req::Request& r) {
  const void* raw = "";
  info::StringPair* pair = r.add_package_exts();
  pair->set_key(raw, 0);
  pair->set_value(raw, 0);
  r.add_kws()->set_keyword(raw, 0);
  req::URLEntity* entity = r.add_urls();
  entity->set_anchor(raw, 0);
  entity->add_ims()->set_im(raw, 0);
  req::URL* url = entity->mutable_url();
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
// goes, and an unknown field in each: the library's parse must read them as
// the runtime does, leaving nothing else among the unknown fields.
TEST(Schema, TheLibrarysParseReadsEveryFieldOfTheAnswer) {
  std::map<std::string, std::string> row;
  for (const Pinned& p : schema())
    row[p.message] = p.bytes + from_hex("f0 01 01");
  const auto at = [&row](const char* name) {
    return row["linkward.info." + std::string(name)];
  };
  const std::string answer =
      at("resp.Response") +
      nested(2,
             at("resp.Result") +
                 nested(3, at("resp.MD5Result") + nested(8, at("StringPair")) +
                               nested(9, at("WebScanResult") +
                                             nested(1, at("LeakCount")))));
  resp::Response ours, runtimes;
  ASSERT_TRUE(runtimes.ParsePartialFromString(answer));
  EXPECT_EQ(linkward::parse_answer(answer.data(),
                                   static_cast<int>(answer.size()), ours)
                .fault,
            linkward::ParseFault::kNone);
  EXPECT_EQ(to_hex(ours.SerializePartialAsString()),
            to_hex(runtimes.SerializePartialAsString()));
  const auto unknown = [](const resp::Response& r) {
    const resp::MD5Result& merged = r.results(2).merged_result();
    return values(
        to_hex(r.unknown_fields()), to_hex(r.results(2).unknown_fields()),
        to_hex(merged.unknown_fields()),
        to_hex(merged.values(2).unknown_fields()),
        to_hex(merged.webscan_result().unknown_fields()),
        to_hex(merged.webscan_result().leak_count().unknown_fields()));
  };
  EXPECT_EQ(unknown(ours), unknown(runtimes));
}

// Required fields: a message holding them alone is complete, and without any
// one of them it is not; messages without any are complete empty.
template <class M>
std::function<std::string()> required(void (*set)(M&),
                                      std::vector<void (M::*)()> clears = {}) {
  return [=] {
    M m;
    set(m);
    std::string complete = m.IsInitialized() ? "complete" : "incomplete";
    for (void (M::*clear)() : clears) {
      M without = m;
      (without.*clear)();
      if (without.IsInitialized()) complete += ", but without one too";
    }
    return complete;
  };
}

TEST(Schema, RequiredFields) {
  using Q = req::Request;
  for (const auto& check : {
           required<info::StringPair>([](auto& m) { m.set_key(""); },
                                      {&info::StringPair::clear_key}),
           required<req::MD5>([](auto& m) { m.set_md5(""); },
                              {&req::MD5::clear_md5}),
           required<req::Keyword>([](auto& m) { m.set_id(0); },
                                  {&req::Keyword::clear_id}),
           required<req::URLEntity>([](auto& m) { m.set_id(0); },
                                    {&req::URLEntity::clear_id}),
           required<Q>(
               [](auto& m) {
                 m.set_uv(Q::kUV0);
                 for (std::string* text :
                      {m.mutable_product(), m.mutable_combo(), m.mutable_vk(),
                       m.mutable_src(), m.mutable_mid(),
                       m.mutable_rule_group_id()})
                   text->clear();
               },
               {&Q::clear_uv, &Q::clear_product, &Q::clear_combo, &Q::clear_vk,
                &Q::clear_src, &Q::clear_mid, &Q::clear_rule_group_id}),
           required<resp::MD5Result>([](auto& m) { m.set_level(0); },
                                     {&resp::MD5Result::clear_level}),
           required<resp::Result>([](auto& m) { m.set_id(0); },
                                  {&resp::Result::clear_id}),
           required<resp::Response>(
               [](auto& m) { m.set_ec(resp::Response::kOK); },
               {&resp::Response::clear_ec}),
       })
    EXPECT_EQ(check(), "complete");
  using Lite = const google::protobuf::MessageLite*;
  for (Lite m : std::initializer_list<Lite>{
           &info::LeakCount::default_instance(),
           &info::WebScanResult::default_instance(),
           &req::URL::default_instance(), &req::Iframe::default_instance(),
           &req::Refer::default_instance(), &req::ImInfo::default_instance()})
    EXPECT_TRUE(m->IsInitialized()) << m->GetTypeName();
}

// Every enumeration: its values and names, as its validity test sees them,
// and its bounds. The generated names follow one pattern, which the row
// spells out once.
struct Enumeration {
  bool (*valid)(int);
  std::function<std::string(int)> name;
  int min, max, size;
  const char* values;
};
#define ENUMERATION(scope, owner, e, values)                \
  Enumeration {                                             \
    scope::owner##_##e##_IsValid,                           \
        [](int v) { return scope::owner##_##e##_Name(v); }, \
        scope::owner::e##_MIN, scope::owner::e##_MAX,       \
        scope::owner::e##_ARRAYSIZE, values                 \
  }

TEST(Schema, Enumerations) {
  const Enumeration enumerations[] = {
      ENUMERATION(req, MD5, Type,
                  "0 kUnknown,1 kRawURL,2 kNormalizedURL,3 kResourceURL,"
                  "4 kHost,5 kDomain,6 kDomain1,7 kDomain2,8 kDomain3,"
                  "9 kDomain4,10 kDomain5,20 kQueryValue,"),
      ENUMERATION(req, MD5, Src,
                  "0 kUnknownSrc,1 kRowUrl,2 kIframe,3 kRefer,4 kIm,"),
      ENUMERATION(req, URL, Type, "0 kUnknown,1 kFull,2 kIntercept,"),
      ENUMERATION(req, URL, Charset,
                  "0 kCSUTF8,1 kCSGBK,2 kCSBIG5,255 kCSUnknown,"),
      ENUMERATION(req, Request, UseHttpReason,
                  "0 kUnknownHttpReason,1 kUDPTimeout,2 kDataPackageTooLarge,"
                  "3 kUDPRequestFailedAllTheTime,4 kUDPNotAvailable,"
                  "5 kUDPResponseError,"),
      ENUMERATION(req, Request, UserLayerVersion,
                  "0 kUV0,1 kUV1,2 kUV2_TextEncrypt,3 kUV3_ProtobufEncrypt,"
                  "4 kUV4_ProtobufPlain,"),
      ENUMERATION(resp, Result, ErrorCode,
                  "0 kOK,1 kNotFound,2 kNeedFullRefer,"),
      ENUMERATION(resp, Response, ErrorCode,
                  "0 kOK,1 kNotFound,2 kRequestDataError,3 kVKFailed,"
                  "4 kRequestPackageTooLarge,5 kServerInternalError,"
                  "6 kPCSlimitError,"),
      {info::CacheType_IsValid, [](int v) { return info::CacheType_Name(v); },
       info::CacheType_MIN, info::CacheType_MAX, info::CacheType_ARRAYSIZE,
       "0 kCacheType0,1 kCacheType1,"},
  };
  for (const auto& e : enumerations) {
    std::string seen;
    for (int v = -1; v <= 256; ++v)
      if (e.valid(v)) seen += std::to_string(v) + " " + e.name(v) + ",";
    EXPECT_EQ(seen, e.values);
    EXPECT_FALSE(e.valid(INT32_MIN) || e.valid(INT32_MAX)) << e.values;
    EXPECT_TRUE(e.min == 0 && e.valid(e.max) && e.size == e.max + 1)
        << e.values;
  }
}
#undef ENUMERATION

// The nine enumeration fields keep a value outside their enumeration among
// the unknown fields as its low 32 bits, five bytes at most, where the
// runtime's generated parsers, before a build step rewrites them, keep all
// ten bytes of a negative one.
template <class M>
std::string reserialised(const std::string& hex) {
  M m;
  m.ParsePartialFromString(from_hex(hex));
  return to_hex(m.SerializePartialAsString());
}

TEST(Schema, OutOfRangeEnumerationValuesAreKeptAs32BitVarints) {
  const std::string minus_one = " ff ff ff ff ff ff ff ff ff 01";
  const std::string kept = " ff ff ff ff 0f";
  for (const auto& [round_trip, key] : std::initializer_list<
           std::pair<std::string (*)(const std::string&), std::string>>{
           {reserialised<req::MD5>, "08"},
           {reserialised<req::MD5>, "18"},
           {reserialised<req::URL>, "10"},
           {reserialised<req::URL>, "18"},
           {reserialised<req::Request>, "18"},
           {reserialised<req::Request>, "70"},
           {reserialised<resp::MD5Result>, "30"},
           {reserialised<resp::Result>, "08"},
           {reserialised<resp::Response>, "08"}})
    EXPECT_EQ(round_trip(key + minus_one), key + kept);
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
