// The query: its exact bytes, its refusals and the caller's buffer.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "kx_request.pb.h"
#include "linkward.h"
#include "wire.h"

namespace req = linkward::info::req;

namespace {

TEST(Request, MatchesTheServiceExamplesByteForByte) {
  Query abc = make_query("abc", "M1", std::string("\x01\x02", 2));
  ASSERT_EQ(abc.rc, 0);
  EXPECT_EQ(to_hex(abc.bytes),
            "0a 09 08 00 12 05 0a 03 61 62 63 18 03 2a 07 73 6d 61 72 74 68 "
            "77 32 08 66 69 72 65 77 61 6c 6c 3a 02 01 02 42 03 75 72 6c 4a "
            "02 4d 31 6a 06 6b 78 69 64 3a 31");

  Query empty = make_query("", "", "");
  ASSERT_EQ(empty.rc, 0);
  EXPECT_EQ(to_hex(empty.bytes),
            "0a 06 08 00 12 02 0a 00 18 03 2a 07 73 6d 61 72 74 68 77 32 08 "
            "66 69 72 65 77 61 6c 6c 3a 00 42 03 75 72 6c 4a 00 6a 06 6b 78 "
            "69 64 3a 31");
}

TEST(Request, RefusesMissingArgumentsWithoutWriting) {
  char buffer[128];
  std::memset(buffer, kGuard, sizeof buffer);
  int32_t length = -7;
  const char vk[] = {1, 2};
  EXPECT_EQ(create_proto_request(nullptr, &length, 128, 1, "u", "m", vk, 2),
            -1);
  EXPECT_EQ(create_proto_request(buffer, nullptr, 128, 1, "u", "m", vk, 2), -1);
  EXPECT_EQ(create_proto_request(buffer, &length, 128, 1, "u", nullptr, vk, 2),
            -1);
  EXPECT_EQ(create_proto_request(buffer, &length, 128, 0, "u", "m", vk, 2), -1);
  EXPECT_EQ(length, -7);
  EXPECT_TRUE(untouched_from(std::vector<char>(buffer, buffer + 128), 0));
}

TEST(Request, EveryNonZeroEnableGivesTheSameBytes) {
  const std::string expected = make_query("u", "m", "k").bytes;
  for (uint32_t enable : {1u, 2u, 0x80000000u, 0xFFFFFFFFu})
    EXPECT_EQ(make_query("u", "m", "k", 4096, enable).bytes, expected);
}

TEST(Request, BufferBoundary) {
  const int32_t size = make_query("http://a/", "mid", "vk").length;
  ASSERT_EQ(size, 46 + 9 + 3 + 2);

  for (int32_t capacity : {size - 1, 0, -1, -2147483647 - 1}) {
    Query short_of = make_query("http://a/", "mid", "vk", capacity);
    EXPECT_EQ(short_of.rc, -2) << capacity;
    EXPECT_EQ(short_of.length, -7) << capacity;
    EXPECT_TRUE(untouched_from(short_of.buffer, 0)) << capacity;
  }

  Query exact = make_query("http://a/", "mid", "vk", size);
  EXPECT_EQ(exact.rc, 0);
  EXPECT_EQ(exact.length, size);

  Query larger = make_query("http://a/", "mid", "vk", size + 40);
  EXPECT_EQ(larger.rc, 0);
  EXPECT_EQ(larger.bytes, exact.bytes);
  EXPECT_TRUE(untouched_from(larger.buffer, size));
}

TEST(Request, LengthsCrossingTheOneByteVarint) {
  // The entity holds 6 + u bytes: a 121-byte URL still fits one length byte,
  // a 122-byte one does not.
  Query u121 = make_query(std::string(121, 'a'), "", "");
  EXPECT_EQ(to_hex(u121.bytes.substr(0, 2)), "0a 7f");
  EXPECT_EQ(u121.length, 46 + 121);
  Query u122 = make_query(std::string(122, 'a'), "", "");
  EXPECT_EQ(to_hex(u122.bytes.substr(0, 3)), "0a 80 01");
  EXPECT_EQ(u122.length, 46 + 122 + 1);

  // mid and vk lengths: 127 in one byte, 128 in two.
  EXPECT_EQ(make_query("", std::string(127, 'm'), "").length, 46 + 127);
  EXPECT_EQ(make_query("", std::string(128, 'm'), "").length, 46 + 128 + 1);
  EXPECT_EQ(make_query("", "", std::string(128, 'v')).length, 46 + 128 + 1);
  // A URL long enough to need three length bytes in every enclosing message.
  EXPECT_EQ(make_query(std::string(20000, 'a'), "", "", 30000).length,
            46 + 20000 + 2 + 2 + 2);
}

TEST(Request, DecodesToTheCallerValuesCopiedAsGiven) {
  const std::string url("http://\xff\xfe/\xc3(", 12);
  const std::string vk("\x00\x01\x00\xff", 4);
  Query q = make_query(url, "mid\x80", vk);
  ASSERT_EQ(q.rc, 0);

  req::Request decoded;
  ASSERT_TRUE(decoded.ParseFromString(q.bytes));
  EXPECT_EQ(decoded.uv(), req::Request::kUV3_ProtobufEncrypt);
  EXPECT_EQ(decoded.product(), "smarthw");
  EXPECT_EQ(decoded.combo(), "firewall");
  EXPECT_EQ(decoded.vk(), vk);
  EXPECT_EQ(decoded.src(), "url");
  EXPECT_EQ(decoded.mid(), "mid\x80");
  EXPECT_EQ(decoded.rule_group_id(), "kxid:1");
  ASSERT_EQ(decoded.urls_size(), 1);
  EXPECT_TRUE(decoded.urls(0).has_id());
  EXPECT_EQ(decoded.urls(0).id(), 0);
  EXPECT_EQ(decoded.urls(0).url().url(), url);
  EXPECT_FALSE(decoded.urls(0).url().has_url_charset());
  EXPECT_FALSE(decoded.has_use_http_reason());
  EXPECT_EQ(decoded.kws_size(), 0);
  EXPECT_EQ(decoded.SerializeAsString(), q.bytes);
}

TEST(Request, EmptyVkMayComeAsANullPointer) {
  char buffer[64];
  int32_t length = 0;
  ASSERT_EQ(create_proto_request(buffer, &length, 64, 1, "", "", nullptr, 0),
            0);
  EXPECT_EQ(std::string(buffer, length), make_query("", "", "").bytes);
}

TEST(Request, NullVkWithLengthThrowsAndWritesNothing) {
  char buffer[64];
  std::memset(buffer, kGuard, sizeof buffer);
  int32_t length = -7;
  EXPECT_THROW(
      create_proto_request(buffer, &length, 64, 1, "u", "m", nullptr, 1),
      std::logic_error);
  EXPECT_EQ(length, -7);
  EXPECT_TRUE(untouched_from(std::vector<char>(buffer, buffer + 64), 0));
}

TEST(RequestDeathTest, NullUrlStopsOnTheRuntimeCheck) {
  char buffer[64];
  int32_t length = 0;
  // The runtime's fatal check throws; nothing catches it in a caller.
  EXPECT_DEATH(uncaught([&] {
                 create_proto_request(buffer, &length, 64, 1, nullptr, "m", "",
                                      0);
               }),
               "CHECK failed: value != nullptr: ");
}

}  // namespace
