// A C++ caller through find_package: the message classes over the lite
// runtime that linkward::linkward brings, and the C++-only entry points.
#include "kx_response.pb.h"
#include "linkward.h"

int main() {
  linkward::info::resp::MD5Result result;
  result.set_level(60);
  result.set_sub_type(20);
  char record[LINKWARD_RECORD_SIZE];
  linkward_verdict v{};
  // Serialising is the runtime's code; the rest is linkward's.
  const bool right = result.SerializePartialAsString() == "\x10\x3c\x28\x14" &&
                     parser_one_result(result, record, sizeof record) == 12 &&
                     linkward_read_record(record, 12, sizeof record, &v) == 0 &&
                     v.code == 4 &&
                     has_value("sc=110|ssc=11020", "ssc=11020") == 1;
  return right ? 0 : 1;
}
