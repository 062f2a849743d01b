// The answer: the service's bytes parsed, its error code and results looked
// at, and the first per-hash result handed to the classifier.

#include "kx_response.pb.h"
#include "linkward.h"
#include "message_parse.h"

namespace resp = linkward::info::resp;

namespace {

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

int32_t parser_proto_response(char* out_buf, int32_t* out_len, int32_t out_size,
                              const void* data, int32_t size) {
  if (out_buf == nullptr || out_len == nullptr || data == nullptr)
    return LINKWARD_ERR_ARGUMENT;

  resp::Response response;
  // A cut or malformed answer is walked as far as it parsed, and one that
  // lacks required fields is used all the same, so how the parse went is not
  // looked at. It is the parse Response::ParsePartialFromArray makes, called
  // without the runtime's parse context around it, which would add a tenth to
  // the typical answer's cost.
  linkward::parse_message(data, size, response);
  if (response.ec() != resp::Response::kOK) return LINKWARD_ERR_SERVICE;
  if (response.results_size() == 0) return LINKWARD_ERR_NO_RESULTS;

  *out_len = walk_results(response, out_buf, out_size);
  return LINKWARD_OK;
}
