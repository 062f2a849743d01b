// linkward: the library's front door for integrators. Builds the query for a
// URL, makes test answers, and shows what the library makes of an answer,
// all through liblinkward's exported functions and message classes.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>

#include "io.h"
#include "kx_response.pb.h"
#include "linkward.h"
#include "message_tree.h"

namespace {

using namespace tool;
namespace resp = linkward::info::resp;
using Json = nlohmann::ordered_json;

// Room for a verdict record with the longest text the library makes.
constexpr int32_t kWholeRecord = 534;
constexpr int32_t kRecordHead = 12;  // code, level, sub-type
// The query's fixed fields plus the longest length prefixes of the others.
constexpr size_t kQueryOverhead = 96;

const char kExitStatuses[] =
    "Exit status:\n"
    "  0  done\n"
    "  1  the output could not be written, or an internal failure\n"
    "  2  usage error: a bad option, argument or number\n"
    "  3  the input could not be read, or is not hex\n"
    "  4  the library refused the answer or gave no verdict, or the bytes\n"
    "     do not parse as the named message\n";

std::string source_name(const std::string& path) {
  return path == "-" ? "stdin" : path;
}

// Every subcommand's help ends with its example and a pointer to the exit
// statuses, which the top-level help lists.
void describe(CLI::App* sub, const std::string& text) {
  sub->footer(text + "\nExit status: see linkward --help.");
}

// -o FILE: raw bytes into FILE; without it, hex on stdout.
void add_output(CLI::App* sub, std::string& path) {
  sub->add_option("-o,--output", path, "Write the raw bytes into FILE")
      ->type_name("FILE");
}

void emit(const std::string& bytes, const std::string& path) {
  if (path.empty())
    write_stdout(format_hex(bytes));
  else
    write_file(path, bytes);
}

// [FILE|-] [--hex] [--json], shared by the subcommands that read bytes.
struct InputArgs {
  std::string path = "-";
  bool hex = false, json = false;
  CLI::Option* file = nullptr;
};

void add_input(CLI::App* sub, InputArgs& in, const std::string& what) {
  in.file = sub->add_option("FILE", in.path, what + "; - or none for stdin")
                ->type_name("");
  sub->add_flag("--hex", in.hex, "Read hex text (blanks and newlines allowed)");
  sub->add_flag("--json", in.json, "Print JSON");
}

// A missing FILE means stdin, but a person at a terminal most likely forgot
// the file: say so rather than wait for typed bytes.
std::string load(const InputArgs& in) {
  if (in.file->count() == 0 && isatty(STDIN_FILENO))
    throw Failure(kUsage, "no input: give a FILE, or pipe the bytes in");
  const std::string bytes = read_input(in.path);
  return in.hex ? parse_hex(bytes, source_name(in.path), kUnreadable) : bytes;
}

// ---------------------------------------------------------------------------
// request

struct RequestArgs {
  std::string url, mid, vk_hex, vk_file, out;
};

void add_request(CLI::App& app, RequestArgs& a) {
  CLI::App* sub = app.add_subcommand(
      "request", "Print the encoded query for URL (hex, or raw with -o)");
  sub->add_option("URL", a.url, "The URL to ask about")
      ->required()
      ->type_name("");
  sub->add_option("--mid", a.mid, "The client's mid text (default empty)");
  CLI::Option* hex = sub->add_option("--vk-hex", a.vk_hex,
                                     "The vk bytes as hex (default none)")
                         ->type_name("HEX");
  sub->add_option("--vk-file", a.vk_file, "Read the vk bytes from FILE")
      ->type_name("FILE")
      ->excludes(hex);
  add_output(sub, a.out);
  describe(sub, "Example: linkward request http://example.com/ --vk-hex 0102");
}

ExitStatus run_request(const RequestArgs& a) {
  const std::string vk = a.vk_file.empty()
                             ? parse_hex(a.vk_hex, "--vk-hex", kUsage)
                             : read_input(a.vk_file);
  const size_t room = kQueryOverhead + a.url.size() + a.mid.size() + vk.size();
  if (room > static_cast<size_t>(std::numeric_limits<int32_t>::max()))
    throw Failure(kUsage, "the URL, mid and vk are too long for one query");

  std::string query(room, '\0');
  int32_t length = 0;
  const int32_t rc = create_proto_request(
      query.data(), &length, static_cast<int32_t>(room), 1, a.url.c_str(),
      a.mid.c_str(), vk.data(), static_cast<uint32_t>(vk.size()));
  if (rc != 0)
    throw Failure(kRefused,
                  "the library refused the query: " + std::to_string(rc));
  query.resize(length);
  emit(query, a.out);
  return kDone;
}

// ---------------------------------------------------------------------------
// answer

struct AnswerArgs {
  int32_t ec = 0, level = 0, sub_type = 0;
  bool merged = false;
  std::vector<std::string> kx, bnet, values;
  std::string out;
  CLI::App* sub = nullptr;
  CLI::Option *sub_type_given, *kx_given, *bnet_given, *values_given;
};

void add_answer(CLI::App& app, AnswerArgs& a) {
  a.sub = app.add_subcommand(
      "answer", "Make an answer as the service would send it, for tests");
  CLI::App* sub = a.sub;
  sub->add_option("--ec", a.ec, "The answer's error code, 0 (kOK) to 6")
      ->type_name("N")
      ->check(CLI::Range(0, 6).description(""));
  sub->add_option("--level", a.level, "The per-hash result's level (default 0)")
      ->type_name("N");
  a.sub_type_given =
      sub->add_option("--sub-type", a.sub_type, "Its sub_type (default unset)")
          ->type_name("N");
  a.kx_given = sub->add_option("--kx", a.kx, "Add a kx.info pair with TEXT");
  a.bnet_given =
      sub->add_option("--bnet", a.bnet, "Add a bnet.info pair with TEXT");
  a.values_given = sub->add_option("--value", a.values, "Add a pair")
                       ->type_name("KEY=VALUE");
  sub->add_flag("--merged", a.merged,
                "Hold it as merged_result, not as the first md5_results");
  add_output(sub, a.out);
  describe(
      sub,
      "One result holding one per-hash result; the pairs in the order "
      "given. Example:\n"
      "  linkward answer --level 60 --sub-type 10 --kx 'sc=110|ssc=11021'");
}

std::pair<std::string, std::string> split_pair(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos)
    throw Failure(kUsage, "--value '" + escaped(text) + "' is not KEY=VALUE");
  return {text.substr(0, equals), text.substr(equals + 1)};
}

// The order of the pairs decides the verdict (the first bnet.info wins, the
// last kx.info is the token list), so they keep the command line's order.
std::vector<std::pair<std::string, std::string>> pairs_in_order(
    const AnswerArgs& a) {
  std::vector<std::pair<std::string, std::string>> pairs;
  std::map<const CLI::Option*, size_t> taken;
  for (const CLI::Option* option : a.sub->parse_order()) {
    if (option == a.kx_given)
      pairs.emplace_back("kx.info", a.kx.at(taken[option]++));
    else if (option == a.bnet_given)
      pairs.emplace_back("bnet.info", a.bnet.at(taken[option]++));
    else if (option == a.values_given)
      pairs.push_back(split_pair(a.values.at(taken[option]++)));
  }
  return pairs;
}

ExitStatus run_answer(const AnswerArgs& a) {
  resp::Response response;
  response.set_ec(static_cast<resp::Response::ErrorCode>(a.ec));
  resp::Result* result = response.add_results();
  // The library does not read the id; 1 makes the typical answer the very
  // bytes the benchmarks measure.
  result->set_id(1);
  resp::MD5Result* verdict =
      a.merged ? result->mutable_merged_result() : result->add_md5_results();
  verdict->set_level(a.level);
  if (a.sub_type_given->count() > 0) verdict->set_sub_type(a.sub_type);
  for (const auto& [key, value] : pairs_in_order(a)) {
    linkward::info::StringPair* pair = verdict->add_values();
    pair->set_key(key);
    pair->set_value(value);
  }
  emit(response.SerializeAsString(), a.out);
  return kDone;
}

// ---------------------------------------------------------------------------
// verdict

struct VerdictArgs {
  InputArgs in;
  int32_t buffer = kWholeRecord;
};

void add_verdict(CLI::App& app, VerdictArgs& a) {
  CLI::App* sub = app.add_subcommand(
      "verdict", "Show the verdict the library makes of answer bytes");
  add_input(sub, a.in, "The answer's bytes");
  sub->add_option("--buffer", a.buffer,
                  "The record buffer handed to the library, 12 to 1048576 "
                  "(default 534)")
      ->type_name("N")
      ->check(CLI::Range(kRecordHead, 1 << 20).description(""));
  describe(sub,
           "Prints the verdict code (0 to 8) with the rule that chose it, the "
           "level,\nthe sub_type and the text; or the library's refusal. "
           "Examples:\n"
           "  linkward verdict capture.bin\n"
           "  linkward answer --level 70 | linkward verdict --hex");
}

// The codes are the library's interface; the labels say which rule chose them.
const char* verdict_label(int32_t code) {
  static const char* const kLabels[] = {
      "level 0",
      "level 50 without sc=101",
      "no other rule applies",
      "level 60, sub-type 10, no matching sub-code",
      "level 60, sub-type 20",
      "level 70",
      "level 60 with sc=110 and ssc=11020 or ssc=11012",
      "level 60 with sc=110 and ssc=11021 or ssc=11011",
      "a bnet.info pair is present",
  };
  return code >= 0 && code <= 8 ? kLabels[code] : "not a verdict code";
}

const char* refusal_meaning(int32_t rc) {
  switch (rc) {
    case -1:
      return "a required pointer was null";
    case -3:
      return "the answer carries a service error code";
    case -4:
      return "the answer holds no results";
    default:
      return "not a documented return value";
  }
}

// What parser_proto_response said, decoded from its record.
struct Outcome {
  int32_t returned = 0, length = 0;
  int32_t code = 0, level = 0, sub_type = 0;
  bool has_text = false, cut = false;
  std::string text;  // as far as the buffer held it
};

Outcome decide(const std::string& answer, int32_t capacity) {
  std::vector<char> record(capacity, '\0');
  Outcome o;
  o.returned =
      parser_proto_response(record.data(), &o.length, capacity, answer.data(),
                            static_cast<int32_t>(answer.size()));
  if (o.returned != 0 || o.length < kRecordHead) return o;
  int32_t head[3];
  std::memcpy(head, record.data(), sizeof head);
  o.code = head[0];
  o.level = head[1];
  o.sub_type = head[2];
  o.has_text = o.length > kRecordHead;
  o.cut = o.length >= capacity;
  const char* text = record.data() + kRecordHead;
  o.text.assign(text, strnlen(text, capacity - kRecordHead));
  return o;
}

std::string outcome_text(const Outcome& o, int32_t capacity) {
  if (o.returned != 0)
    return "refused: " + std::to_string(o.returned) + ", " +
           refusal_meaning(o.returned) + "\n";
  if (o.length == 0) return "no verdict: no result holds a per-hash result\n";
  std::string text = "verdict: " + std::to_string(o.code) + " (" +
                     verdict_label(o.code) + ")\n" +
                     "level: " + std::to_string(o.level) + "\n" +
                     "sub_type: " + std::to_string(o.sub_type) + "\n";
  text += o.has_text ? "text: \"" + escaped(o.text) + "\"" : "text: none";
  if (o.cut)
    text += " (cut to fit --buffer " + std::to_string(capacity) +
            "; the whole text is " + std::to_string(o.length - kRecordHead) +
            " bytes)";
  return text + "\nrecord: " + std::to_string(o.length) + " bytes\n";
}

std::string outcome_json(const Outcome& o) {
  Json j{{"returned", o.returned}};
  if (o.returned != 0) {
    j["meaning"] = refusal_meaning(o.returned);
  } else if (o.length == 0) {
    j["record_length"] = 0;
    j["meaning"] = "no result holds a per-hash result";
  } else {
    j["record_length"] = o.length;
    j["verdict"] = o.code;
    j["label"] = verdict_label(o.code);
    j["level"] = o.level;
    j["sub_type"] = o.sub_type;
    j["text"] = o.has_text ? Json(escaped(o.text)) : Json(nullptr);
    j["text_cut"] = o.cut;
  }
  return j.dump(2) + "\n";
}

ExitStatus run_verdict(const VerdictArgs& a) {
  const Outcome o = decide(load(a.in), a.buffer);
  write_stdout(a.in.json ? outcome_json(o) : outcome_text(o, a.buffer));
  return o.returned == 0 && o.length > 0 ? kDone : kRefused;
}

// ---------------------------------------------------------------------------
// inspect

struct InspectArgs {
  InputArgs in;
  std::string kind;
};

void add_inspect(CLI::App& app, InspectArgs& a) {
  CLI::App* sub = app.add_subcommand(
      "inspect", "Show the decoded message tree of a query or an answer");
  add_input(sub, a.in, "The message's bytes");
  sub->add_option("--as", a.kind, "What the bytes are")
      ->required()
      ->type_name("request|answer")
      ->check(CLI::IsMember({"request", "answer"}).description(""));
  describe(sub,
           "Shows every present field by name, bytes as escaped text, and "
           "unknown fields\nas hex with their numbers. Example:\n"
           "  linkward inspect capture.bin --as answer");
}

ExitStatus run_inspect(const InspectArgs& a) {
  const MessageKind kind =
      a.kind == "request" ? MessageKind::kRequest : MessageKind::kAnswer;
  const Inspection shown = inspect(load(a.in), kind, a.in.json);
  write_stdout(shown.tree);
  const std::string name = source_name(a.in.path);
  if (!shown.fault.empty())
    throw Failure(kRefused, name + ": does not parse whole as " + shown.type +
                                ": " + shown.fault +
                                "; shown as far as it was read");
  if (!shown.complete)
    std::fprintf(stderr, "linkward: note: %s lacks required fields of %s\n",
                 name.c_str(), shown.type.c_str());
  return kDone;
}

// ---------------------------------------------------------------------------

std::string usage_failure(const CLI::App*, const CLI::Error& e) {
  return std::string("linkward: ") + e.what() + " (see --help)\n";
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "Builds the query for a URL and decodes the service's answer with "
      "liblinkward.",
      "linkward"};
  app.failure_message(usage_failure);
  app.set_version_flag("--version", std::string("linkward ") + LINKWARD_VERSION,
                       "Print the library's version");
  app.footer(kExitStatuses);

  RequestArgs request;
  AnswerArgs answer;
  VerdictArgs verdict;
  InspectArgs inspection;
  add_request(app, request);
  add_answer(app, answer);
  add_verdict(app, verdict);
  add_inspect(app, inspection);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? kDone : kUsage;
  }
  try {
    if (app.got_subcommand("request")) return run_request(request);
    if (app.got_subcommand("answer")) return run_answer(answer);
    if (app.got_subcommand("verdict")) return run_verdict(verdict);
    if (app.got_subcommand("inspect")) return run_inspect(inspection);
    throw Failure(kUsage,
                  "give a subcommand: request, answer, verdict or inspect "
                  "(see --help)");
  } catch (const Failure& failure) {
    std::fprintf(stderr, "linkward: %s\n", failure.what());
    return failure.status;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "linkward: internal failure: %s\n", e.what());
    return kFailed;
  }
}
