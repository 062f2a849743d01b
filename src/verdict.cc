// The verdict: one per-hash result of the answer classified by the decision
// table, and the record the router acts on written into the caller's buffer.

#include <algorithm>
#include <cstring>
#include <string_view>

#include "kx_response.pb.h"
#include "linkward.h"

namespace resp = linkward::info::resp;

namespace {

// A value counts up to its first zero byte and at most this many bytes.
constexpr size_t kTextMax = 511;

constexpr std::string_view kBnetKey = "bnet.info";
constexpr std::string_view kKxKey = "kx.info";

// The tokens the decision table asks about, and their texts.
enum Token {
  kSc101,
  kSc110,
  kSsc11020,
  kSsc11021,
  kSsc11012,
  kSsc11011,
  kTokenCount
};
constexpr std::string_view kTokens[kTokenCount] = {
    "sc=101", "sc=110", "ssc=11020", "ssc=11021", "ssc=11012", "ssc=11011"};

// Only the members that begin as every token does are compared, and the C
// library's memchr finds those.
constexpr char kTokenStart = 's';

// A token holding no "|" is a whole member exactly when has_value says so;
// the search for members relies on each beginning with kTokenStart.
constexpr bool tokens_searchable() {
  for (const std::string_view token : kTokens)
    if (token.empty() || token[0] != kTokenStart ||
        token.find('|') != std::string_view::npos)
      return false;
  return true;
}
static_assert(tokens_searchable(), "a token the member search cannot find");

// Which of the tokens are whole members of a "|"-separated list.
class Members {
 public:
  explicit Members(std::string_view list);
  bool has(Token token) const { return (found_ >> token & 1) != 0; }

 private:
  unsigned found_ = 0;
};

// string_view's ==, with the test of the lengths inline: at -Os that
// operator stays a call of its own, made for every key.
bool same(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size()) == 0;
}

// `from` up to the first `c` before `end`, or `end`.
const char* find(const char* from, const char* end, char c) {
  const void* at = std::memchr(from, c, static_cast<size_t>(end - from));
  return at != nullptr ? static_cast<const char*>(at) : end;
}

// Whether the member that starts at `at`, `left` bytes before the end of
// the list, is `token`.
bool member_is(const char* at, size_t left, std::string_view token) {
  return left >= token.size() &&
         (left == token.size() || at[token.size()] == '|') &&
         std::memcmp(at, token.data(), token.size()) == 0;
}

// One pass: each search starts at a member's first byte, so the first
// kTokenStart it finds is either the first byte of the member it starts, or
// lies inside a member that does not begin with it and is skipped whole. A
// member found to be a token ends where the token does.
Members::Members(std::string_view list) {
  const char* const end = list.data() + list.size();
  for (const char* at = list.data(); at != end;) {
    const char* const hit = find(at, end, kTokenStart);
    if (hit == end) break;
    const char* bar = nullptr;
    if (hit == list.data() || hit[-1] == '|') {
      for (int token = 0; token < kTokenCount; ++token) {
        if (!member_is(hit, static_cast<size_t>(end - hit), kTokens[token]))
          continue;
        found_ |= 1u << token;
        bar = hit + kTokens[token].size();
        break;
      }
    }
    if (bar == nullptr) bar = find(hit, end, '|');
    at = bar == end ? end : bar + 1;
  }
}

// A value's text: up to its first zero byte and at most kTextMax bytes.
std::string_view text_of(const std::string& value) {
  return {value.data(), strnlen(value.c_str(), kTextMax)};
}

// The service's texts, read where they lie in the pairs.
struct Texts {
  bool has_bnet = false;
  std::string_view bnet;
  std::string_view kx;
};

// Looks through the pairs for the service's texts: the first "bnet.info"
// ends the scan; the last "kx.info" before it is the token list.
Texts scan_values(const resp::MD5Result& result) {
  Texts texts;
  const std::string* kx = nullptr;
  for (const linkward::info::StringPair& pair : result.values()) {
    // Compared as views, length first: comparing a std::string with a C
    // text goes through an out-of-line call and a strlen per key.
    const std::string_view key = pair.key();
    if (same(key, kBnetKey)) {
      texts.has_bnet = true;
      texts.bnet = text_of(pair.value());
      break;
    }
    if (same(key, kKxKey)) kx = &pair.value();
  }
  if (kx != nullptr) texts.kx = text_of(*kx);
  return texts;
}

// The decision table for an answer without "bnet.info". The two level-60
// branches differ on purpose and must stay so: sub-type 10 looks for the
// 1102x sub-codes and falls back to 3, sub-type 30 looks for the 1101x
// sub-codes and falls back to 2; within each the token tested first wins.
int32_t decide(int32_t level, int32_t sub_type, const Members& in) {
  if (level == 50)
    return in.has(kSc101) ? LINKWARD_VERDICT_DEFAULT
                          : LINKWARD_VERDICT_LEVEL_50;
  if (level < 50)
    return level == 0 ? LINKWARD_VERDICT_LEVEL_0 : LINKWARD_VERDICT_DEFAULT;
  if (level == 70) return LINKWARD_VERDICT_LEVEL_70;
  if (level != 60) return LINKWARD_VERDICT_DEFAULT;
  switch (sub_type) {
    case 10:
      if (!in.has(kSc110)) return LINKWARD_VERDICT_LEVEL_60_SUB_10;
      if (in.has(kSsc11020)) return LINKWARD_VERDICT_SSC_FIRST;
      if (in.has(kSsc11021)) return LINKWARD_VERDICT_SSC_SECOND;
      return LINKWARD_VERDICT_LEVEL_60_SUB_10;
    case 20:
      return LINKWARD_VERDICT_LEVEL_60_SUB_20;
    case 30:
      if (!in.has(kSc110)) return LINKWARD_VERDICT_DEFAULT;
      if (in.has(kSsc11012)) return LINKWARD_VERDICT_SSC_FIRST;
      if (in.has(kSsc11011)) return LINKWARD_VERDICT_SSC_SECOND;
      return LINKWARD_VERDICT_DEFAULT;
    default:
      return LINKWARD_VERDICT_DEFAULT;
  }
}

// What snprintf(out, room, "<label>%s", value) does, with plain copies and
// without snprintf's stack: as much of label and value as fits in `room`
// bytes beside the NUL, nothing at all when room is 0, and the length of the
// whole text returned.
int put_text(char* out, size_t room, std::string_view label,
             std::string_view value) {
  const size_t whole = label.size() + value.size();
  // The usual case, all of it fits, copies the label at its fixed length,
  // which compiles to a few moves; the cut below is the rare one. The value
  // goes through std::copy_n, which GCC leaves to the C library at every
  // level: at -Os on x86-64 it makes a memcpy of unknown length a
  // `rep movsb`, slower than the library's copy for a long text.
  if (whole < room) {
    std::memcpy(out, label.data(), label.size());
    std::copy_n(value.data(), value.size(), out + label.size());
    out[whole] = '\0';
  } else if (room > 0) {
    const size_t kept = room - 1;
    const size_t kept_label = std::min(label.size(), kept);
    std::memcpy(out, label.data(), kept_label);
    std::copy_n(value.data(), kept - kept_label, out + kept_label);
    out[kept] = '\0';
  }
  return static_cast<int>(whole);
}

// The head is always written. The text is bounded by the room left after it
// (a capacity below 12 turns that bound into a huge unsigned one: a caller
// error this function does not detect), and its whole length is counted.
int write_record(char* out_buf, int out_size, int32_t code, int32_t level,
                 int32_t sub_type, const Texts& texts) {
  const int32_t head[3] = {code, level, sub_type};
  std::memcpy(out_buf, head, sizeof head);

  const size_t room = static_cast<size_t>(out_size - LINKWARD_RECORD_HEAD_SIZE);
  char* text = out_buf + LINKWARD_RECORD_HEAD_SIZE;
  if (!texts.bnet.empty())
    return LINKWARD_RECORD_HEAD_SIZE +
           put_text(text, room, "bnet.info=", texts.bnet);
  if (!texts.kx.empty())
    return LINKWARD_RECORD_HEAD_SIZE +
           put_text(text, room, "kx.info=", texts.kx);
  return LINKWARD_RECORD_HEAD_SIZE;
}

}  // namespace

// The texts are read where the pairs hold them and copied once, into the
// record: the list is never copied to be searched.
int parser_one_result(const resp::MD5Result& result, char* out_buf,
                      int out_size) {
  const Texts texts = scan_values(result);
  const int32_t code =
      texts.has_bnet
          ? LINKWARD_VERDICT_BNET_INFO
          : decide(result.level(), result.sub_type(), Members(texts.kx));
  return write_record(out_buf, out_size, code, result.level(),
                      result.sub_type(), texts);
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
