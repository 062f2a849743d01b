// A C++ caller that found linkward through find_package: writes an answer
// with the message classes, has the library classify it, and reads the
// record with the header's reader.
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

  char record[LINKWARD_RECORD_SIZE];
  int32_t record_len = 0;
  linkward_verdict v{};
  const bool answer_right =
      parser_proto_response(record, &record_len, sizeof record, answer.data(),
                            static_cast<int32_t>(answer.size())) == 0 &&
      linkward_read_record(record, record_len, sizeof record, &v) == 0 &&
      v.code == 4 && v.level == 60 && v.sub_type == 20 && v.text == nullptr;
  char again[LINKWARD_RECORD_SIZE];
  const bool one_result_right =
      parser_one_result(*md5_result, again, sizeof again) ==
          LINKWARD_RECORD_HEAD_SIZE &&
      std::memcmp(again, record, LINKWARD_RECORD_HEAD_SIZE) == 0;
  const bool token_right = has_value("sc=110|ssc=11020", "ssc=11020") == 1;
  if (!answer_right || !one_result_right || !token_right) {
    std::fprintf(stderr, "wrong: answer %d, one result %d, token %d\n",
                 answer_right, one_result_right, token_right);
    return 1;
  }
  std::printf("find_package consumer: verdict %d\n", v.code);
  return 0;
}
