// linkward: the library's front door for integrators. Builds the query for a
// URL, makes test answers and fixtures of any shape, and shows what the
// library makes of an answer, all through liblinkward's exported functions
// and message classes.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <limits>
#include <map>
#include <numeric>

#include "io.h"
#include "kx_response.pb.h"
#include "linkward.h"
#include "message_tree.h"
#include "verdict_report.h"

namespace {

using namespace tool;
namespace resp = linkward::info::resp;

#define LINKWARD_STRING(x) #x
#define LINKWARD_VERSION_TEXT(major, minor, patch) \
  LINKWARD_STRING(major) "." LINKWARD_STRING(minor) "." LINKWARD_STRING(patch)

// The query's fixed fields plus the longest length prefixes of the others.
constexpr size_t kQueryOverhead = 96;

const char kExitStatuses[] =
    "Exit status:\n"
    "  0  done\n"
    "  1  the output could not be written, or an internal failure\n"
    "  2  usage error: a bad option, argument or number\n"
    "  3  the input could not be read, or is not hex or JSON of the message\n"
    "  4  the library refused the answer or gave no verdict, or the bytes\n"
    "     do not parse as the named message\n";

// Every subcommand's help ends with its example and a pointer to the exit
// statuses, which the top-level help lists.
void describe(CLI::App* sub, const std::string& text) {
  sub->footer(text + "\nExit status: see linkward --help.");
}

// An empty name would otherwise pass for an option left out, or reach open()
// and come back as "No such file or directory".
const CLI::Validator kFileName(
    [](std::string& name) {
      return name.empty() ? std::string("the file name is empty") : "";
    },
    "");

// Numbers are read here rather than by CLI11, which takes 010 for octal,
// lets values past int64_t through, and calls 12.0 "not in range". The value
// goes on to CLI11 in plain decimal.
template <typename Number>
CLI::Option* add_number(CLI::App* sub, const std::string& name, Number& value,
                        const std::string& help,
                        int64_t least = std::numeric_limits<Number>::min(),
                        int64_t most = std::numeric_limits<Number>::max()) {
  const CLI::Validator whole(
      [least, most](std::string& text) {
        int64_t number = 0;
        const char* end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, number);
        if (error == std::errc::invalid_argument || stop != end)
          return "'" + text + "' is not a whole number";
        if (error != std::errc() || number < least || number > most)
          return text + " is outside " + std::to_string(least) + " to " +
                 std::to_string(most);
        text = std::to_string(number);
        return std::string();
      },
      "");
  return sub->add_option(name, value, help)->type_name("N")->transform(whole);
}

// -o FILE and --cut N, shared by the subcommands that make bytes: raw bytes
// into FILE; without it, hex on stdout.
struct OutputArgs {
  std::string path;
  int64_t cut = -1;  // keep all
};

void add_output(CLI::App* sub, OutputArgs& out) {
  sub->add_option("-o,--output", out.path,
                  "Write the raw bytes into FILE (- for stdout)")
      ->type_name("FILE")
      ->check(kFileName);
  add_number(sub, "--cut", out.cut, "Keep only the first N bytes", 0,
             std::numeric_limits<int32_t>::max());
}

void emit(const std::string& bytes, const OutputArgs& out) {
  const std::string kept =
      out.cut < 0 ? bytes : bytes.substr(0, static_cast<size_t>(out.cut));
  if (out.path.empty())
    write_stdout(format_hex(kept));
  else
    write_output(out.path, kept);
}

// [FILE|-], shared by the subcommands that read their input.
struct InputArgs {
  std::string path = "-";
  bool hex = false, json = false;
  CLI::Option* file = nullptr;
};

void add_input(CLI::App* sub, InputArgs& in, const std::string& what) {
  in.file = sub->add_option("FILE", in.path, what + "; - or none for stdin")
                ->type_name("")
                ->check(kFileName);
}

void add_hex_and_json(CLI::App* sub, InputArgs& in) {
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

// --as request|answer, for the subcommands that read either message.
void add_kind(CLI::App* sub, std::string& kind) {
  sub->add_option("--as", kind, "Which message")
      ->required()
      ->type_name("request|answer")
      ->check(CLI::IsMember({"request", "answer"}).description(""));
}

MessageKind kind_of(const std::string& kind) {
  return kind == "request" ? MessageKind::kRequest : MessageKind::kAnswer;
}

// ---------------------------------------------------------------------------
// request

struct RequestArgs {
  std::string url, mid, vk_hex, vk_file;
  OutputArgs out;
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
      ->check(kFileName)
      ->excludes(hex);
  add_output(sub, a.out);
  describe(sub, "Example: linkward request http://example.com/ --vk-hex 0102");
}

ExitStatus run_request(const RequestArgs& a) {
  if (!a.vk_file.empty()) refuse_output_over_input(a.out.path, a.vk_file);
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
  OutputArgs out;
  CLI::App* sub = nullptr;
  CLI::Option *sub_type_given, *kx_given, *bnet_given, *values_given;
};

void add_answer(CLI::App& app, AnswerArgs& a) {
  a.sub = app.add_subcommand(
      "answer", "Make an answer as the service would send it, for tests");
  CLI::App* sub = a.sub;
  add_number(sub, "--ec", a.ec, "The answer's error code, 0 (kOK) to 6", 0, 6);
  add_number(sub, "--level", a.level,
             "The per-hash result's level (default 0)");
  a.sub_type_given =
      add_number(sub, "--sub-type", a.sub_type, "Its sub_type (default unset)");
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
      "given. For other\nshapes, edit what inspect --json prints and "
      "encode it. Example:\n"
      "  linkward answer --level 60 --sub-type 10 --kx 'sc=110|ssc=11021'");
}

std::pair<std::string, std::string> split_pair(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos)
    throw Failure(kUsage, "--value '" + text + "' is not KEY=VALUE");
  return {text.substr(0, equals), text.substr(equals + 1)};
}

// The order of the pairs decides the verdict (the first bnet.info wins, the
// last kx.info before it is the token list), so they keep the command line's
// order.
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
  int32_t buffer = LINKWARD_RECORD_SIZE;
};

void add_verdict(CLI::App& app, VerdictArgs& a) {
  CLI::App* sub = app.add_subcommand(
      "verdict", "Show the verdict the library makes of answer bytes");
  add_input(sub, a.in, "The answer's bytes");
  add_hex_and_json(sub, a.in);
  add_number(sub, "--buffer", a.buffer,
             "The record buffer handed to the library, 12 to 1048576 "
             "(default 534)",
             LINKWARD_RECORD_HEAD_SIZE, 1 << 20);
  describe(sub,
           "Prints the verdict code (0 to 8) with the rule that chose it, the "
           "level,\nthe sub_type, the text and the per-hash result it came "
           "from; or the library's\nrefusal; then how the bytes parsed. "
           "Examples:\n"
           "  linkward verdict capture.bin\n"
           "  linkward answer --level 70 | linkward verdict --hex");
}

ExitStatus run_verdict(const VerdictArgs& a) {
  const VerdictReport report =
      report_verdict(load(a.in), a.buffer, a.in.json, a.in.hex);
  write_stdout(report.shown);
  return report.status;
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
  add_hex_and_json(sub, a.in);
  add_kind(sub, a.kind);
  describe(sub,
           "Shows every present field by name, bytes as escaped text, and "
           "unknown fields\nas hex with their numbers. Example:\n"
           "  linkward inspect capture.bin --as answer");
}

void note(const std::string& text) {
  std::fprintf(stderr, "linkward: note: %s\n", printable(text).c_str());
}

ExitStatus run_inspect(const InspectArgs& a) {
  const Inspection shown = inspect(load(a.in), kind_of(a.kind), a.in.json);
  write_stdout(shown.tree);
  const std::string name = source_name(a.in.path);
  if (!shown.fault.empty())
    throw Failure(kRefused, name + ": does not parse whole as " + shown.type +
                                ": " + shown.fault +
                                "; shown as far as it was read");
  if (!shown.complete) note(name + " lacks required fields of " + shown.type);
  if (!shown.canonical)
    note(name + " is not in the form the protobuf runtime writes: encode " +
         "gives that form, not these bytes");
  return kDone;
}

// ---------------------------------------------------------------------------
// encode

struct EncodeArgs {
  InputArgs in;
  std::string kind;
  OutputArgs out;
};

void add_encode(CLI::App& app, EncodeArgs& a) {
  CLI::App* sub = app.add_subcommand(
      "encode",
      "Turn the JSON that inspect --json prints back into bytes (hex, or raw "
      "with -o)");
  add_input(sub, a.in, "The JSON");
  add_kind(sub, a.kind);
  add_output(sub, a.out);
  describe(sub,
           "Fields by name as inspect --json shows them, unknown fields "
           "included. Example:\n"
           "  linkward inspect --json capture.bin --as answer > answer.json\n"
           "  linkward encode answer.json --as answer --cut 20 -o cut.bin");
}

ExitStatus run_encode(const EncodeArgs& a) {
  refuse_output_over_input(a.out.path, a.in.path);
  emit(encode(load(a.in), kind_of(a.kind), source_name(a.in.path)), a.out);
  return kDone;
}

// ---------------------------------------------------------------------------

// How many one-letter edits turn one word into the other.
size_t edits(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1,
                         diagonal + (a[i - 1] != b[j - 1] ? 1 : 0)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

// A subcommand within two edits of a word the command line did not expect.
std::string suggestion(const CLI::App* app) {
  if (!app->get_subcommands().empty()) return "";
  for (const std::string& word : app->remaining())
    for (const CLI::App* sub : app->get_subcommands({}))
      if (edits(word, sub->get_name()) <= 2)
        return "; did you mean '" + sub->get_name() + "'?";
  return "";
}

std::string usage_failure(const CLI::App* app, const CLI::Error& e) {
  std::string what = e.what();
  // CLI11's own message lists them last first.
  const std::vector<std::string> extras = app->remaining(true);
  if (dynamic_cast<const CLI::ExtrasError*>(&e) != nullptr && !extras.empty())
    what =
        (extras.size() == 1 ? "The following argument was not expected: "
                            : "The following arguments were not expected: ") +
        CLI::detail::join(extras, " ");
  return "linkward: " + printable(what + suggestion(app)) + " (see --help)\n";
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "Builds the query for a URL and decodes the service's answer with "
      "liblinkward.",
      "linkward"};
  app.failure_message(usage_failure);
  app.set_version_flag(
      "--version",
      std::string("linkward ") + LINKWARD_VERSION_TEXT(LINKWARD_VERSION_MAJOR,
                                                       LINKWARD_VERSION_MINOR,
                                                       LINKWARD_VERSION_PATCH),
      "Print the library's version");
  app.footer(kExitStatuses);

  RequestArgs request;
  AnswerArgs answer;
  VerdictArgs verdict;
  InspectArgs inspection;
  EncodeArgs encoding;
  add_request(app, request);
  add_answer(app, answer);
  add_verdict(app, verdict);
  add_inspect(app, inspection);
  add_encode(app, encoding);

  try {
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
      const int status = app.exit(e);
      write_stdout("");  // where --help and --version wrote
      return status == 0 ? kDone : kUsage;
    }
    if (app.got_subcommand("request")) return run_request(request);
    if (app.got_subcommand("answer")) return run_answer(answer);
    if (app.got_subcommand("verdict")) return run_verdict(verdict);
    if (app.got_subcommand("inspect")) return run_inspect(inspection);
    if (app.got_subcommand("encode")) return run_encode(encoding);
    throw Failure(kUsage,
                  "give a subcommand: request, answer, verdict, inspect or "
                  "encode (see --help)");
  } catch (const Failure& failure) {
    std::fprintf(stderr, "linkward: %s\n", printable(failure.what()).c_str());
    return failure.status;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "linkward: internal failure: %s\n",
                 printable(e.what()).c_str());
    return kFailed;
  }
}
