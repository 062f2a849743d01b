// The query codec: builds the encoded query for one URL, and turns the
// service's encoded answer into the verdict record the router acts on.

#include "linkward.h"

#include <google/protobuf/stubs/logging.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "kx_request.pb.h"
#include "kx_response.pb.h"

#ifdef NDEBUG
#error "linkward keeps its checks and assertions in every build type"
#endif

namespace req = linkward::info::req;
namespace resp = linkward::info::resp;

namespace {

// ---------------------------------------------------------------------------
// The query

// Identifiers every query carries, whoever the caller is.
constexpr char kProduct[] = "smarthw";
constexpr char kCombo[] = "firewall";
constexpr char kSource[] = "url";
constexpr char kRuleGroup[] = "kxid:1";

bool request_arguments_refused(const char* out_buf, const int32_t* out_len,
                               const char* mid, uint32_t enable) {
  return out_buf == nullptr || out_len == nullptr || mid == nullptr ||
         enable == 0;
}

// A null URL stops the call on the runtime's fatal check, as the text setter
// of the runtime this library was designed on did; this runtime's setter would
// throw from std::string instead.
void set_url_text(req::URL* url, const char* value) {
  GOOGLE_CHECK(value != nullptr);
  url->set_url(value, std::strlen(value));
}

// A null vk with a length is refused with std::logic_error whatever C++
// runtime the library is built with: libstdc++'s std::string raises it, but
// libc++'s reads through the null pointer. The words are libstdc++'s.
void set_vk_bytes(req::Request& request, const void* vk, uint32_t vk_len) {
  if (vk == nullptr && vk_len != 0)
    throw std::logic_error("basic_string::_M_construct null not valid");
  request.set_vk(static_cast<const char*>(vk), vk_len);
}

// Every required field is set, also when the caller's value is empty, so the
// query is always complete.
void build_request(req::Request& request, const char* url, const char* mid,
                   const void* vk, uint32_t vk_len) {
  request.set_uv(req::Request::kUV3_ProtobufEncrypt);
  request.set_product(kProduct);
  request.set_combo(kCombo);
  set_vk_bytes(request, vk, vk_len);
  request.set_src(kSource);
  request.set_mid(mid, std::strlen(mid));
  request.set_rule_group_id(kRuleGroup);

  req::URLEntity* entity = request.add_urls();
  entity->set_id(0);
  set_url_text(entity->mutable_url(), url);
}

// ---------------------------------------------------------------------------
// The verdict

constexpr int kRecordHead = 12;  // code, level and sub-type, 32 bits each
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
  if (level == 50) return member("sc=101") ? 2 : 1;
  if (level < 50) return level == 0 ? 0 : 2;
  if (level == 70) return 5;
  if (level != 60) return 2;
  switch (sub_type) {
    case 10:
      if (!member("sc=110")) return 3;
      if (member("ssc=11020")) return 6;
      if (member("ssc=11021")) return 7;
      return 3;
    case 20:
      return 4;
    case 30:
      if (!member("sc=110")) return 2;
      if (member("ssc=11012")) return 6;
      if (member("ssc=11011")) return 7;
      return 2;
    default:
      return 2;
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

  const size_t room = static_cast<size_t>(out_size - kRecordHead);
  char* text = out_buf + kRecordHead;
  if (bnet[0] != '\0')
    return kRecordHead + put_text(text, room, "bnet.info=", bnet);
  if (kx[0] != '\0') return kRecordHead + put_text(text, room, "kx.info=", kx);
  return kRecordHead;
}

// ---------------------------------------------------------------------------
// The answer

// The first per-hash result reached decides: a result's merged_result, else
// the first of its md5_results; results holding neither are passed over.
// Returns the record's length, or 0 when no result held a per-hash result.
int walk_results(const resp::Response& response, char* out_buf, int out_size) {
  int record = 0;
  for (const resp::Result& result : response.results()) {
    if (result.has_merged_result()) {
      record = parser_one_result(result.merged_result(), out_buf, out_size);
      if (record > 0) return record;
    }
    for (const resp::MD5Result& md5_result : result.md5_results()) {
      record = parser_one_result(md5_result, out_buf, out_size);
      if (record > 0) return record;
    }
  }
  return record;
}

}  // namespace

// ---------------------------------------------------------------------------
// Exported entry points

int32_t create_proto_request(char* out_buf, int32_t* out_len, int32_t out_size,
                             uint32_t enable, const char* url, const char* mid,
                             const void* vk, uint32_t vk_len) {
  if (request_arguments_refused(out_buf, out_len, mid, enable)) return -1;

  req::Request request;
  build_request(request, url, mid, vk, vk_len);

  // Sized once: serialising with the cached sizes writes exactly these bytes.
  // The caller's lengths are 32-bit; a query they cannot describe stops the
  // call, as the runtime's own size conversion does.
  const size_t encoded = request.ByteSizeLong();
  GOOGLE_CHECK_LE(encoded, static_cast<size_t>(INT32_MAX));
  const int32_t size = static_cast<int32_t>(encoded);
  if (out_size < size) return -2;
  *out_len = size;
  request.SerializeWithCachedSizesToArray(reinterpret_cast<uint8_t*>(out_buf));
  return 0;
}

int parser_one_result(const resp::MD5Result& result, char* out_buf,
                      int out_size) {
  // The texts are only ever read up to their NUL, and every copy into them
  // ends with one, so emptying them takes one byte each; filling all 1,024
  // bytes with zeros took a third of the classification's time.
  WorkText bnet;
  WorkText kx;
  bnet[0] = kx[0] = '\0';
  const bool has_bnet = scan_values(result, bnet, kx);
  const int32_t code =
      has_bnet ? 8 : decide(result.level(), result.sub_type(), kx);
  return write_record(out_buf, out_size, code, result.level(),
                      result.sub_type(), bnet, kx);
}

int has_value(const char* list, const char* token) {
  if (list == nullptr || token == nullptr) return 0;
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

int32_t parser_proto_response(char* out_buf, int32_t* out_len, int32_t out_size,
                              const void* data, int32_t size) {
  if (out_buf == nullptr || out_len == nullptr || data == nullptr) return -1;

  resp::Response response;
  // A cut or malformed answer is walked as far as it parsed, and one that
  // lacks required fields is used all the same, so the parse's verdict is not
  // looked at; the partial parse also keeps the call silent.
  response.ParsePartialFromArray(data, size);
  if (response.ec() != resp::Response::kOK) return -3;
  if (response.results_size() == 0) return -4;

  *out_len = walk_results(response, out_buf, out_size);
  return 0;
}
