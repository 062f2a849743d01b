// The query: its exact bytes, its refusals and the caller's buffer.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "wire.h"

namespace {

// Empty values, and bytes that are no text, copied as given (the loader test
// holds a plain query); each made with another enable, since any but 0 gives
// the same query.
TEST(Request, ExactBytes) {
  const std::pair<Query, std::string> queries[] = {
      {make_query("", "", "", 4096, 0x80000000u),
       "0a 06 08 00 12 02 0a 00 18 03 2a 07 73 6d 61 72 74 68 77 32 08 66 69 "
       "72 65 77 61 6c 6c 3a 00 42 03 75 72 6c 4a 00 6a 06 6b 78 69 64 3a 31"},
      {make_query("\xff(", "\x80", {"\0\xff", 2}, 4096, 0xFFFFFFFFu),
       "0a 08 08 00 12 04 0a 02 ff 28 18 03 2a 07 73 6d 61 72 74 68 77 32 08 "
       "66 69 72 65 77 61 6c 6c 3a 02 00 ff 42 03 75 72 6c 4a 01 80 6a 06 6b "
       "78 69 64 3a 31"}};
  for (const auto& [query, hex] : queries) EXPECT_EQ(to_hex(query.bytes), hex);
}

// A refused call returns its code, or throws std::logic_error for a null vk
// with a length, as std::string does, and writes neither out_len nor the
// buffer, not even within the room it was given. A null vk of no length is
// an empty one; room of exactly the query's size is enough. (The lengths of
// queries of any size are the fuzz target's.)
TEST(Request, RefusalsAndNullVk) {
  std::vector<char> buffer(128, kGuard);
  char* const out = buffer.data();
  int32_t length = kUnsetLength;
  const auto call = [](char* out, int32_t* length, int32_t room,
                       uint32_t enable, const char* mid, const void* vk = "vk",
                       uint32_t vk_length = 2) {
    return create_proto_request(out, length, room, enable, "u", mid, vk,
                                vk_length);
  };
  EXPECT_EQ(call(nullptr, &length, 128, 1, "m"), -1);
  EXPECT_EQ(call(out, nullptr, 128, 1, "m"), -1);
  EXPECT_EQ(call(out, &length, 128, 1, nullptr), -1);
  EXPECT_EQ(call(out, &length, 128, 0, "m"), -1);
  const int32_t size = make_query("u", "m", "vk").length;
  for (int32_t room : {size - 1, 0, -1, INT32_MIN})
    EXPECT_EQ(call(out, &length, room, 1, "m"), -2) << "room " << room;
  EXPECT_THROW(call(out, &length, 128, 1, "m", nullptr, 1), std::logic_error);
  EXPECT_EQ(length, kUnsetLength);
  EXPECT_TRUE(untouched_from(buffer));
  ASSERT_EQ(call(out, &length, 128, 1, "m", nullptr, 0), 0);
  EXPECT_EQ(std::string(out, length), make_query("u", "m", "").bytes);
  EXPECT_EQ(make_query("u", "m", "vk", size).length, size);
}

}  // namespace
