// A C++ caller that found linkward through find_package: writes an answer
// with the message classes and has the library classify it.
#include <cstdio>
#include <cstring>
#include <string>

#include "kx_response.pb.h"
#include "linkward.h"

namespace resp = linkward::info::resp;

int main() {
  resp::Response response;
  response.set_ec(resp::Response::kOK);
  resp::Result* result = response.add_results();
  result->set_id(1);
  resp::MD5Result* md5_result = result->add_md5_results();
  md5_result->set_level(60);
  md5_result->set_sub_type(20);
  const std::string answer = response.SerializeAsString();

  char record[534];
  int32_t record_len = 0;
  int32_t head[3] = {-1, -1, -1};
  if (parser_proto_response(record, &record_len, sizeof record, answer.data(),
                            static_cast<int32_t>(answer.size())) == 0)
    std::memcpy(head, record, sizeof head);
  const bool answer_right =
      record_len == 12 && head[0] == 4 && head[1] == 60 && head[2] == 20;
  const bool one_result_right =
      parser_one_result(*md5_result, record, sizeof record) == 12 &&
      std::memcmp(record, head, sizeof head) == 0;
  const bool token_right = has_value("sc=110|ssc=11020", "ssc=11020") == 1;
  if (!answer_right || !one_result_right || !token_right) {
    std::fprintf(stderr, "wrong: answer %d, one result %d, token %d\n",
                 answer_right, one_result_right, token_right);
    return 1;
  }
  std::printf("find_package consumer: verdict %d\n", head[0]);
  return 0;
}
