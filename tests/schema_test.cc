// The schema's behaviours that a wrong field, label, default or a missed
// build step would break.
#include <gtest/gtest.h>

#include <string>

#include "kx_common.pb.h"
#include "kx_request.pb.h"
#include "kx_response.pb.h"
#include "wire.h"

namespace info = linkward::info;
namespace req = linkward::info::req;
namespace resp = linkward::info::resp;

namespace {

// Parses the hex bytes (required fields or not) and writes them back.
template <typename Message>
std::string reserialised(const std::string& hex, Message* parsed = nullptr) {
  Message local;
  Message& message = parsed ? *parsed : local;
  EXPECT_TRUE(message.ParsePartialFromString(from_hex(hex))) << hex;
  return to_hex(message.SerializePartialAsString());
}

TEST(Schema, DeclaredDefaultsAreReadButNotWritten) {
  req::MD5 md5;
  EXPECT_EQ(md5.src(), req::MD5::kRowUrl);
  EXPECT_FALSE(md5.has_src());

  req::URL url;
  url.set_url("a");
  EXPECT_EQ(url.url_charset(), req::URL::kCSUnknown);
  EXPECT_EQ(url.url_type(), req::URL::kUnknown);
  EXPECT_EQ(to_hex(url.SerializeAsString()), "0a 01 61");
  url.set_url_charset(req::URL::kCSUnknown);
  EXPECT_EQ(to_hex(url.SerializeAsString()), "0a 01 61 10 ff 01");
  url.Clear();
  EXPECT_EQ(url.url_charset(), 255);
  EXPECT_EQ(url.SerializeAsString(), "");

  resp::MD5Result result;
  EXPECT_EQ(result.cache_duration_sec(), 120);
  EXPECT_EQ(reserialised("10 00 38 00", &result), "10 00 38 00");
  EXPECT_EQ(result.cache_duration_sec(), 0);
  result.Clear();
  EXPECT_EQ(result.cache_duration_sec(), 120);
}

TEST(Schema, FieldsAreWrittenByPresenceInNumberOrder) {
  req::URL url;
  url.set_proxy_host("p");
  url.set_trunk_url("t");
  url.set_url("");
  EXPECT_EQ(to_hex(url.SerializeAsString()), "0a 00 5a 01 74 a2 01 01 70");

  req::Refer refer;
  refer.set_refer_type(-1);
  EXPECT_EQ(to_hex(refer.SerializeAsString()),
            "18 ff ff ff ff ff ff ff ff ff 01");

  info::WebScanResult scan;
  EXPECT_EQ(reserialised("50 02", &scan), "50 01");
  EXPECT_TRUE(scan.tamper());

  info::StringPair empty_key;
  empty_key.set_key("");
  EXPECT_TRUE(empty_key.IsInitialized());
  EXPECT_EQ(to_hex(empty_key.SerializeAsString()), "0a 00");
}

TEST(Schema, UnknownFieldsComeBackAfterTheKnownOnes) {
  // URLEntity's free number 3, URL's 12 to 19, a known number with the wrong
  // wire type, an unknown number in a common message.
  EXPECT_EQ(reserialised<req::URLEntity>("1a 01 78 08 05"), "08 05 1a 01 78");
  EXPECT_EQ(reserialised<req::URL>("60 07 98 01 02 0a 01 61"),
            "0a 01 61 60 07 98 01 02");
  info::WebScanResult scan;
  EXPECT_EQ(reserialised("08 01 28 09 50 01", &scan), "50 01 08 01 28 09");
  EXPECT_FALSE(scan.has_leak_count());
  EXPECT_EQ(reserialised<resp::Response>("3a 02 68 69 08 00"),
            "08 00 3a 02 68 69");
}

TEST(Schema, OutOfRangeEnumerationValuesAreKeptAs32BitVarints) {
  req::MD5 md5;
  EXPECT_EQ(reserialised("08 0b 12 01 61 20 01", &md5), "12 01 61 20 01 08 0b");
  EXPECT_FALSE(md5.has_type());
  EXPECT_EQ(reserialised<req::MD5>("08 14"), "08 14");  // kQueryValue

  const std::string minus_one = "ff ff ff ff ff ff ff ff ff 01";
  const std::string kept = "ff ff ff ff 0f";
  // The six request fields and the three response fields.
  EXPECT_EQ(reserialised<req::MD5>("08 " + minus_one), "08 " + kept);
  EXPECT_EQ(reserialised<req::MD5>("18 " + minus_one), "18 " + kept);
  EXPECT_EQ(reserialised<req::URL>("10 " + minus_one), "10 " + kept);
  EXPECT_EQ(reserialised<req::URL>("18 " + minus_one), "18 " + kept);
  EXPECT_EQ(reserialised<req::Request>("70 " + minus_one), "70 " + kept);
  req::Request request;
  EXPECT_EQ(reserialised("18 " + minus_one, &request), "18 " + kept);
  EXPECT_FALSE(request.has_uv());
  EXPECT_EQ(reserialised<resp::MD5Result>("30 " + minus_one), "30 " + kept);
  EXPECT_EQ(reserialised<resp::Result>("08 " + minus_one), "08 " + kept);
  resp::Response response;
  EXPECT_EQ(reserialised("08 " + minus_one, &response), "08 " + kept);
  EXPECT_FALSE(response.has_ec());
  EXPECT_FALSE(response.IsInitialized());

  // Only the low 32 bits count: 2^32 + 1 is the valid value 1.
  req::URL url;
  EXPECT_EQ(reserialised("10 81 80 80 80 10", &url), "10 01");
  EXPECT_EQ(url.url_charset(), req::URL::kCSGBK);
  EXPECT_EQ(reserialised("10 03", &url), "10 03");
  EXPECT_FALSE(url.has_url_charset());
}

req::Request complete_request() {
  req::Request request;
  request.set_uv(req::Request::kUV0);
  request.set_product("");
  request.set_combo("");
  request.set_vk("");
  request.set_src("");
  request.set_mid("");
  request.set_rule_group_id("");
  return request;
}

TEST(Schema, RequestRequiredFieldsAreCheckedThroughTheTree) {
  req::Request request = complete_request();
  EXPECT_TRUE(request.IsInitialized());
  request.clear_rule_group_id();
  EXPECT_FALSE(request.IsInitialized());

  request = complete_request();
  req::URLEntity* entity = request.add_urls();
  EXPECT_FALSE(request.IsInitialized());
  entity->set_id(0);
  EXPECT_TRUE(request.IsInitialized());
  req::MD5* md5 = entity->mutable_url()->add_md5s();
  EXPECT_FALSE(request.IsInitialized());
  md5->set_md5("");
  EXPECT_TRUE(request.IsInitialized());
  entity->add_ims()->mutable_md5();
  EXPECT_FALSE(request.IsInitialized());

  request = complete_request();
  request.add_kws();
  EXPECT_FALSE(request.IsInitialized());
  request = complete_request();
  request.add_package_exts()->set_value("v");
  EXPECT_FALSE(request.IsInitialized());

  req::Iframe frame;
  EXPECT_TRUE(frame.IsInitialized());
  frame.mutable_url()->add_md5s();
  EXPECT_FALSE(frame.IsInitialized());
}

TEST(Schema, ResponseRequiredFieldsAreCheckedThroughTheTree) {
  resp::Response response;
  EXPECT_FALSE(response.ParseFromString(""));
  EXPECT_TRUE(response.ParseFromString(from_hex("08 00")));

  // A result with id, holding a merged_result or md5_results entry without
  // level; then one with level but a values entry without key.
  ASSERT_TRUE(
      response.ParsePartialFromString(from_hex("08 00 12 04 10 01 1a 00")));
  EXPECT_FALSE(response.IsInitialized());
  ASSERT_TRUE(
      response.ParsePartialFromString(from_hex("08 00 12 04 10 01 22 00")));
  EXPECT_FALSE(response.IsInitialized());
  ASSERT_TRUE(response.ParsePartialFromString(
      from_hex("08 00 12 08 10 01 22 04 10 00 42 00")));
  EXPECT_FALSE(response.IsInitialized());

  resp::Result result;
  result.set_ec(resp::Result::kNotFound);
  EXPECT_FALSE(result.IsInitialized());
  result.Clear();
  result.set_id(0);
  EXPECT_TRUE(result.IsInitialized());
}

TEST(Schema, RepeatedEntriesKeepTheirOrderAndRegroupByField) {
  resp::Result result;
  EXPECT_EQ(reserialised("22 02 10 01 2a 02 0a 00 22 02 10 02", &result),
            "22 02 10 01 22 02 10 02 2a 02 0a 00");
  ASSERT_EQ(result.md5_results_size(), 2);
  EXPECT_EQ(result.md5_results(1).level(), 2);

  // A singular message that occurs twice is merged.
  EXPECT_EQ(reserialised<resp::Result>("1a 02 10 05 1a 02 28 07"),
            "1a 04 10 05 28 07");
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
