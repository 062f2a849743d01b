// The verdict: one per-hash result of the answer classified by the decision
// table, and the record the router acts on written into the caller's buffer.

#include <algorithm>
#include <cstring>
#include <string_view>

#include "kx_response.pb.h"
#include "linkward.h"

namespace resp = linkward::info::resp;

namespace {

constexpr size_t kWorkTextSize = 512;
constexpr size_t kWorkTextMax = kWorkTextSize - 1;

using WorkText = char[kWorkTextSize];

constexpr std::string_view kBnetKey = "bnet.info";
constexpr std::string_view kKxKey = "kx.info";

// A value counts up to its first zero byte and at most 511 bytes; a later,
// shorter value replaces an earlier one completely.
void copy_value(WorkText& text, const std::string& value) {
  const size_t length = strnlen(value.c_str(), kWorkTextMax);
  std::memcpy(text, value.data(), length);
  text[length] = '\0';
}

// Looks through the pairs for the service's texts: the first "bnet.info"
// ends the scan; the last "kx.info" before it is the token list.
// Returns whether a "bnet.info" pair was found.
bool scan_values(const resp::MD5Result& result, WorkText& bnet, WorkText& kx) {
  for (const linkward::info::StringPair& pair : result.values()) {
    // Compared as views, length first: comparing a std::string with a C
    // text goes through an out-of-line call and a strlen per key.
    const std::string_view key = pair.key();
    if (key == kBnetKey) {
      copy_value(bnet, pair.value());
      return true;
    }
    if (key == kKxKey) copy_value(kx, pair.value());
  }
  return false;
}

// The decision table for an answer without "bnet.info". The two level-60
// branches differ on purpose and must stay so: sub-type 10 looks for the
// 1102x sub-codes and falls back to 3, sub-type 30 looks for the 1101x
// sub-codes and falls back to 2; within each the token tested first wins.
int32_t decide(int32_t level, int32_t sub_type, const char* kx) {
  const auto member = [kx](const char* token) {
    return has_value(kx, token) == 1;
  };
  if (level == 50)
    return member("sc=101") ? LINKWARD_VERDICT_DEFAULT
                            : LINKWARD_VERDICT_LEVEL_50;
  if (level < 50)
    return level == 0 ? LINKWARD_VERDICT_LEVEL_0 : LINKWARD_VERDICT_DEFAULT;
  if (level == 70) return LINKWARD_VERDICT_LEVEL_70;
  if (level != 60) return LINKWARD_VERDICT_DEFAULT;
  switch (sub_type) {
    case 10:
      if (!member("sc=110")) return LINKWARD_VERDICT_LEVEL_60_SUB_10;
      if (member("ssc=11020")) return LINKWARD_VERDICT_SSC_FIRST;
      if (member("ssc=11021")) return LINKWARD_VERDICT_SSC_SECOND;
      return LINKWARD_VERDICT_LEVEL_60_SUB_10;
    case 20:
      return LINKWARD_VERDICT_LEVEL_60_SUB_20;
    case 30:
      if (!member("sc=110")) return LINKWARD_VERDICT_DEFAULT;
      if (member("ssc=11012")) return LINKWARD_VERDICT_SSC_FIRST;
      if (member("ssc=11011")) return LINKWARD_VERDICT_SSC_SECOND;
      return LINKWARD_VERDICT_DEFAULT;
    default:
      return LINKWARD_VERDICT_DEFAULT;
  }
}

// What snprintf(out, room, "<label>%s", value) does, with plain copies: as
// much of label and value as fits in `room` bytes beside the NUL, nothing at
// all when room is 0, and the length of the whole text returned. snprintf
// took over a third of the classification's time and 2 KB of stack.
int put_text(char* out, size_t room, std::string_view label,
             const char* value) {
  const size_t value_length = std::strlen(value);
  const size_t whole = label.size() + value_length;
  // The usual case, all of it fits, copies the label at its fixed length,
  // which compiles to a few moves; the cut below is the rare one.
  if (whole < room) {
    std::memcpy(out, label.data(), label.size());
    std::memcpy(out + label.size(), value, value_length + 1);
  } else if (room > 0) {
    const size_t kept = room - 1;
    const size_t kept_label = std::min(label.size(), kept);
    std::memcpy(out, label.data(), kept_label);
    std::memcpy(out + kept_label, value, kept - kept_label);
    out[kept] = '\0';
  }
  return static_cast<int>(whole);
}

// The head is always written. The text is bounded by the room left after it
// (a capacity below 12 turns that bound into a huge unsigned one: a caller
// error this function does not detect), and its whole length is counted.
int write_record(char* out_buf, int out_size, int32_t code, int32_t level,
                 int32_t sub_type, const char* bnet, const char* kx) {
  const int32_t head[3] = {code, level, sub_type};
  std::memcpy(out_buf, head, sizeof head);

  const size_t room = static_cast<size_t>(out_size - LINKWARD_RECORD_HEAD_SIZE);
  char* text = out_buf + LINKWARD_RECORD_HEAD_SIZE;
  if (bnet[0] != '\0')
    return LINKWARD_RECORD_HEAD_SIZE + put_text(text, room, "bnet.info=", bnet);
  if (kx[0] != '\0')
    return LINKWARD_RECORD_HEAD_SIZE + put_text(text, room, "kx.info=", kx);
  return LINKWARD_RECORD_HEAD_SIZE;
}

}  // namespace

int parser_one_result(const resp::MD5Result& result, char* out_buf,
                      int out_size) {
  // The texts are only ever read up to their NUL, and every copy into them
  // ends with one, so emptying them takes one byte each; filling all 1,024
  // bytes with zeros took a third of the classification's time.
  WorkText bnet;
  WorkText kx;
  bnet[0] = kx[0] = '\0';
  const bool has_bnet = scan_values(result, bnet, kx);
  const int32_t code = has_bnet ? LINKWARD_VERDICT_BNET_INFO
                                : decide(result.level(), result.sub_type(), kx);
  return write_record(out_buf, out_size, code, result.level(),
                      result.sub_type(), bnet, kx);
}

int has_value(const char* list, const char* token) {
  if (list == nullptr || token == nullptr) return 0;
  // The empty token is a member where the list has an empty one; the search
  // below would find it at the same place forever.
  if (*token == '\0')
    return *list == '\0' || *list == '|' ||
           std::strstr(list, "||") != nullptr ||
           list[std::strlen(list) - 1] == '|';
  const size_t length = std::strlen(token);
  // A false hit resumes the search after its whole length.
  for (const char* hit = std::strstr(list, token); hit != nullptr;
       hit = std::strstr(hit + length, token)) {
    const bool starts = hit == list || hit[-1] == '|';
    const bool ends = hit[length] == '\0' || hit[length] == '|';
    if (starts && ends) return 1;
  }
  return 0;
}
