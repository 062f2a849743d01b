// The query: one Request about one URL, with the caller's mid and vk and the
// identifiers every query carries, encoded into the caller's buffer.

#include <google/protobuf/stubs/logging.h>

#include <cstring>
#include <stdexcept>

#include "add_element.h"
#include "kx_request.pb.h"
#include "linkward.h"

#ifdef NDEBUG
#error "linkward keeps its checks and assertions in every build type"
#endif

namespace req = linkward::info::req;

namespace {

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

  req::URLEntity* entity = linkward::add_element(request.mutable_urls());
  entity->set_id(0);
  set_url_text(entity->mutable_url(), url);
}

}  // namespace

int32_t create_proto_request(char* out_buf, int32_t* out_len, int32_t out_size,
                             uint32_t enable, const char* url, const char* mid,
                             const void* vk, uint32_t vk_len) {
  if (request_arguments_refused(out_buf, out_len, mid, enable))
    return LINKWARD_ERR_ARGUMENT;

  req::Request request;
  build_request(request, url, mid, vk, vk_len);

  // Sized once: serialising with the cached sizes writes exactly these bytes.
  // The caller's lengths are 32-bit; a query they cannot describe stops the
  // call, as the runtime's own size conversion does.
  const size_t encoded = request.ByteSizeLong();
  GOOGLE_CHECK_LE(encoded, static_cast<size_t>(INT32_MAX));
  const int32_t size = static_cast<int32_t>(encoded);
  if (out_size < size) return LINKWARD_ERR_TOO_SMALL;
  *out_len = size;
  request.SerializeWithCachedSizesToArray(reinterpret_cast<uint8_t*>(out_buf));
  return LINKWARD_OK;
}
