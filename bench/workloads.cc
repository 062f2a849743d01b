#include "workloads.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kx_request.pb.h"
#include "kx_response.pb.h"
#include "linkward.h"
#include "stock_kx_response.pb.h"

namespace req = linkward::info::req;
namespace resp = linkward::info::resp;

namespace workload {

Query query_for_url_of(size_t url_bytes) {
  std::string url = "http://example.com/";
  for (size_t i = 0; url.size() < url_bytes; ++i)
    url += "abcdefghijklmnopqrstuvwxyz/"[i % 27];
  url.resize(url_bytes);
  // A device id as the router sends it, and a key with zero bytes in it.
  return {url, "3f2a9c41d07e8b5560e1c2d3a4b5f607",
          std::string("\x5e\x00\x91\x3c\x00\x7a\x22\xd4\x01\x9f\x00\x6b\x38"
                      "\xe0\x4c\x15",
                      16)};
}

int32_t library_query(const Query& q, char* out) {
  int32_t length = 0;
  const int32_t rc = create_proto_request(
      out, &length, kQueryRoom, 1, q.url.c_str(), q.mid.c_str(), q.vk.data(),
      static_cast<uint32_t>(q.vk.size()));
  return rc == 0 ? length : rc;
}

// The caller's texts arrive NUL-terminated, so the floor takes them as such.
int32_t floor_query(const Query& q, char* out) {
  req::Request request;
  request.set_uv(req::Request::kUV3_ProtobufEncrypt);
  request.set_product("smarthw");
  request.set_combo("firewall");
  request.set_vk(q.vk.data(), q.vk.size());
  request.set_src("url");
  request.set_mid(q.mid.c_str());
  request.set_rule_group_id("kxid:1");
  req::URLEntity* entity = request.add_urls();
  entity->set_id(0);
  entity->mutable_url()->set_url(q.url.c_str());
  const size_t size = request.ByteSizeLong();
  request.SerializeWithCachedSizesToArray(reinterpret_cast<uint8_t*>(out));
  return static_cast<int32_t>(size);
}

namespace {

// An answer without error: `empty_results` results that hold no per-hash
// result, then one holding a single per-hash result (level 60, sub-type 10)
// with the "kx.info" list `list`.
std::string answer_with(int empty_results, const std::string& list) {
  resp::Response response;
  response.set_ec(resp::Response::kOK);
  for (int id = 2; id < 2 + empty_results; ++id)
    response.add_results()->set_id(id);
  resp::Result* result = response.add_results();
  result->set_id(1);
  resp::MD5Result* md5_result = result->add_md5_results();
  md5_result->set_level(60);
  md5_result->set_sub_type(10);
  linkward::info::StringPair* pair = md5_result->add_values();
  pair->set_key("kx.info");
  pair->set_value(list);
  return response.SerializeAsString();
}

}  // namespace

std::string typical_answer() { return answer_with(0, kTypicalList); }

std::string long_text_answer() {
  // Tokens that are no member the classifier looks for, then the typical
  // list at the end, so every token search runs through the whole text.
  std::string list;
  for (int i = 0; list.size() < 511; ++i)
    list += "cat=" + std::to_string(1000 + i) + "|";
  list.resize(511 - std::strlen(kTypicalList));
  list.back() = '|';
  return answer_with(0, list + kTypicalList);
}

std::string late_result_answer() { return answer_with(100, kTypicalList); }

std::vector<Answer> answers() {
  // Every byte of the long text is scanned and copied into the record.
  return {{"typical", typical_answer(), 1.10},
          {"511-byte text", long_text_answer(), 1.20},
          {"after 100 empty", late_result_answer(), 1.10}};
}

int32_t library_answer(const std::string& answer, char* out) {
  int32_t length = 0;
  const int32_t rc =
      parser_proto_response(out, &length, kRecordRoom, answer.data(),
                            static_cast<int32_t>(answer.size()));
  return rc == 0 ? length : rc;
}

// The parse the library makes, and nothing else, as the runtime's own parser
// makes it: ParsePartialFromArray, since the library skips the
// initialisation check on purpose, into classes generated untouched.
int32_t floor_answer(const std::string& answer) {
  linkward_stock::info::resp::Response response;
  response.ParsePartialFromArray(answer.data(),
                                 static_cast<int>(answer.size()));
  return response.results_size();
}

int32_t checked_parse(const std::string& answer) {
  linkward_stock::info::resp::Response response;
  response.ParseFromArray(answer.data(), static_cast<int>(answer.size()));
  return response.results_size();
}

namespace {

[[noreturn]] void mismatch(const char* what) {
  std::fprintf(stderr, "bench: %s\n", what);
  std::exit(1);
}

}  // namespace

void check_floors_match() {
  for (size_t url_bytes : {20, 100, 1000}) {
    const Query q = query_for_url_of(url_bytes);
    char library[kQueryRoom];
    char floor[kQueryRoom];
    const int32_t length = library_query(q, library);
    if (length <= 0 || floor_query(q, floor) != length ||
        std::memcmp(library, floor, length) != 0)
      mismatch("the query floor writes other bytes than the library");
  }
  for (const Answer& answer : answers()) {
    resp::Response parsed;
    linkward_stock::info::resp::Response floor;
    if (!parsed.ParseFromString(answer.bytes) ||
        parsed.SerializeAsString() != answer.bytes ||
        !floor.ParseFromString(answer.bytes) ||
        floor.SerializeAsString() != answer.bytes)
      mismatch("an answer does not parse back to itself");
    char record[kRecordRoom];
    // Each reaches the typical per-hash result: code 7, with a text.
    int32_t code = 0;
    const bool text = library_answer(answer.bytes, record) > 12;
    std::memcpy(&code, record, sizeof code);
    if (!text || code != 7)
      mismatch("an answer does not reach its per-hash result");
  }
}

}  // namespace workload
