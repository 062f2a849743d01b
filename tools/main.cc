// linkward: builds the query for a URL, makes test answers and fixtures of
// any shape, and shows what the library makes of an answer, all through
// liblinkward's exported functions and message classes.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <vector>

#include "io.h"
#include "kx_response.pb.h"
#include "linkward.h"
#include "message_tree.h"

namespace {

using namespace tool;
namespace resp = linkward::info::resp;

const char kExitStatuses[] =
    "Exit status:\n"
    "  0  done\n"
    "  1  the output could not be written, or an internal failure\n"
    "  2  usage error: a bad option, argument or number\n"
    "  3  the input could not be read, or is not hex or JSON of the message\n"
    "  4  the library refused the answer or gave no verdict, or the bytes\n"
    "     do not parse as the named message\n";

// The codes by their names in linkward.h, which says what each means.
#define NAMED(code) \
  { code, #code }
const std::pair<int32_t, const char*> kNames[] = {
    NAMED(LINKWARD_VERDICT_LEVEL_0),
    NAMED(LINKWARD_VERDICT_LEVEL_50),
    NAMED(LINKWARD_VERDICT_DEFAULT),
    NAMED(LINKWARD_VERDICT_LEVEL_60_SUB_10),
    NAMED(LINKWARD_VERDICT_LEVEL_60_SUB_20),
    NAMED(LINKWARD_VERDICT_LEVEL_70),
    NAMED(LINKWARD_VERDICT_SSC_FIRST),
    NAMED(LINKWARD_VERDICT_SSC_SECOND),
    NAMED(LINKWARD_VERDICT_BNET_INFO),
};
const std::pair<int32_t, const char*> kReturns[] = {
    NAMED(LINKWARD_OK), NAMED(LINKWARD_ERR_ARGUMENT),
    NAMED(LINKWARD_ERR_SERVICE), NAMED(LINKWARD_ERR_NO_RESULTS)};
#undef NAMED

template <size_t N>
const char* name_of(const std::pair<int32_t, const char*> (&names)[N],
                    int32_t code) {
  for (const auto& [number, name] : names)
    if (number == code) return name;
  return "not a documented value";
}

// An empty name would otherwise pass for an option left out.
const CLI::Validator kFileName(
    [](const std::string& name) {
      return name.empty() ? std::string("the file name is empty") : "";
    },
    "");

struct Args {
  std::string url, mid, vk_hex, vk_file;    // request
  int32_t ec = 0, level = 0, sub_type = 0;  // answer
  bool merged = false;
  CLI::Option* sub_type_given = nullptr;
  std::vector<std::pair<std::string, std::string>> pairs;  // in given order
  std::string input, kind;  // verdict, inspect, encode
  bool hex = false, json = false;
  int32_t buffer = LINKWARD_RECORD_SIZE;
  std::string output;  // request, answer, encode
};

// The input's name: "-", stdin, when none is given.
std::string input_path(const Args& a) {
  return a.input.empty() ? "-" : a.input;
}

// A missing FILE means stdin, but a person at a terminal most likely forgot
// the file: say so rather than wait for typed bytes.
std::string load(const Args& a) {
  if (a.input.empty() && isatty(STDIN_FILENO))
    throw Failure(kUsage, "no input: give a FILE, or pipe the bytes in");
  const std::string bytes = read_input(input_path(a));
  return a.hex ? parse_hex(bytes, source_name(input_path(a)), kUnreadable)
               : bytes;
}

// Raw bytes into -o's file; without it, hex on stdout.
void emit(const std::string& bytes, const Args& a) {
  if (a.output.empty())
    write_stdout(format_hex(bytes));
  else
    write_output(a.output, bytes);
}

void add_io(CLI::App* sub, Args& a, const std::string& input, bool output,
            bool hex_and_json, bool kind) {
  if (!input.empty())
    sub->add_option("FILE", a.input, input + "; - or none for stdin")
        ->type_name("")
        ->check(kFileName);
  if (hex_and_json) {
    sub->add_flag("--hex", a.hex, "Read hex text (blanks allowed)");
    sub->add_flag("--json", a.json, "Print JSON");
  }
  if (kind)
    sub->add_option("--as", a.kind, "Which message")
        ->required()
        ->type_name("request|answer")
        ->check(CLI::IsMember({"request", "answer"}).description(""));
  if (output)
    sub->add_option("-o,--output", a.output,
                    "Write the raw bytes into FILE (- for stdout)")
        ->type_name("FILE")
        ->check(kFileName);
}

// --kx, --bnet and --value add a pair each, in the command line's order,
// which decides the verdict (the first bnet.info wins, the last kx.info
// before it is the token list).
void add_pair_option(CLI::App* sub, Args& a, const char* name, const char* key,
                     const char* help) {
  sub->add_option_function<std::string>(
         name,
         [&a, key](const std::string& given) {
           const size_t equals = given.find('=');
           if (*key != '\0')
             a.pairs.emplace_back(key, given);
           else if (equals == std::string::npos)
             throw CLI::ValidationError("--value", given + " is not KEY=VALUE");
           else
             a.pairs.emplace_back(given.substr(0, equals),
                                  given.substr(equals + 1));
         },
         help)
      ->trigger_on_parse();
}

void add_commands(CLI::App& app, Args& a) {
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
  add_io(sub, a, "", true, false, false);

  sub = app.add_subcommand(
      "answer", "Make an answer as the service would send it, for tests");
  sub->add_option("--ec", a.ec, "The answer's error code, 0 (kOK) to 6")
      ->check(CLI::Range(0, 6));
  sub->add_option("--level", a.level, "The per-hash result's level");
  a.sub_type_given =
      sub->add_option("--sub-type", a.sub_type, "Its sub_type (default unset)");
  add_pair_option(sub, a, "--kx", "kx.info", "Add a kx.info pair with TEXT");
  add_pair_option(sub, a, "--bnet", "bnet.info",
                  "Add a bnet.info pair with TEXT");
  add_pair_option(sub, a, "--value", "", "Add a pair KEY=VALUE");
  sub->add_flag("--merged", a.merged,
                "Hold it as merged_result, not as the first md5_results");
  add_io(sub, a, "", true, false, false);

  sub = app.add_subcommand(
      "verdict", "Show the verdict the library makes of answer bytes");
  add_io(sub, a, "The answer's bytes", false, true, false);
  sub->add_option("--buffer", a.buffer,
                  "The record buffer handed to the library (default 534)")
      ->check(CLI::Range(LINKWARD_RECORD_HEAD_SIZE, 1 << 20));

  add_io(app.add_subcommand(
             "inspect", "Show the decoded message tree of a query or answer"),
         a, "The message's bytes", false, true, true);
  add_io(app.add_subcommand("encode",
                            "Turn the JSON that inspect --json prints back "
                            "into bytes (hex, or raw with -o)"),
         a, "The JSON", true, false, true);
}

ExitStatus run_request(const Args& a) {
  refuse_output_over_input(a.output, a.vk_file);
  const std::string vk = a.vk_file.empty()
                             ? parse_hex(a.vk_hex, "--vk-hex", kUsage)
                             : read_input(a.vk_file);
  // The library alone knows the query's size: it is asked with the texts'
  // sizes, then with twice the room each time it says -2.
  std::string query;
  int32_t length = 0, rc = LINKWARD_ERR_TOO_SMALL;
  for (size_t room = 1 + a.url.size() + a.mid.size() + vk.size();
       rc == LINKWARD_ERR_TOO_SMALL; room *= 2) {
    if (query.size() == INT32_MAX)
      throw Failure(kUsage, "the URL, mid and vk are too long for one query");
    query.resize(std::min<size_t>(room, INT32_MAX));
    rc = create_proto_request(query.data(), &length,
                              static_cast<int32_t>(query.size()), 1,
                              a.url.c_str(), a.mid.c_str(), vk.data(),
                              static_cast<uint32_t>(vk.size()));
  }
  if (rc != LINKWARD_OK)
    throw Failure(kRefused,
                  "the library refused the query: " + std::to_string(rc));
  query.resize(length);
  emit(query, a);
  return kDone;
}

ExitStatus run_answer(const Args& a) {
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
  for (const auto& [key, value] : a.pairs) {
    linkward::info::StringPair* pair = verdict->add_values();
    pair->set_key(key);
    pair->set_value(value);
  }
  emit(response.SerializeAsString(), a);
  return kDone;
}

MessageKind kind_of(const Args& a) {
  return a.kind == "request" ? MessageKind::kRequest : MessageKind::kAnswer;
}

ExitStatus run_inspect(const Args& a) {
  const Inspection shown = inspect(load(a), kind_of(a), a.json);
  write_stdout(shown.tree);
  const std::string name = source_name(input_path(a));
  if (!shown.fault.empty())
    throw Failure(kRefused, name + ": does not parse whole as " + shown.type +
                                ": " + shown.fault +
                                "; shown as far as it was read");
  const auto note = [](const std::string& text) {
    std::fprintf(stderr, "linkward: note: %s\n", escaped(text, false).c_str());
  };
  if (!shown.complete) note(name + " lacks required fields of " + shown.type);
  if (!shown.canonical)
    note(name + " is not in the form the protobuf runtime writes: encode " +
         "gives that form, not these bytes");
  return kDone;
}

// One object for both views: the text view is its members, one a line.
ExitStatus run_verdict(const Args& a) {
  const std::string answer = load(a);
  const auto size = static_cast<int32_t>(answer.size());
  std::vector<char> record(a.buffer, '\0');
  int32_t length = 0;
  const int32_t returned = parser_proto_response(record.data(), &length,
                                                 a.buffer, answer.data(), size);
  linkward_verdict v{};
  const bool has_record =
      returned == LINKWARD_OK &&
      linkward_read_record(record.data(), length, a.buffer, &v) == 0;
  Json j{{"returned", returned}};
  if (has_record)
    j.update({{"verdict", v.code},
              {"name", name_of(kNames, v.code)},
              {"level", v.level},
              {"sub_type", v.sub_type},
              {"text", v.text ? json_bytes(v.text) : Json()},
              {"text_cut", v.text_cut != 0},
              {"record_length", length}});
  else
    j["name"] = returned == LINKWARD_OK ? "no result holds a per-hash result"
                                        : name_of(kReturns, returned);
  // The bytes parsed again, as the library parsed them, for the error code
  // it read and for where its parse stopped.
  linkward::info::resp::Response response;
  const linkward::ParseReport parse =
      linkward::parse_message(answer.data(), size, response);
  j["error_code"] =
      linkward::info::resp::Response_ErrorCode_Name(response.ec());
  j["parse"] = parse.fault == linkward::ParseFault::kNone
                   ? "whole, " + std::to_string(parse.offset) + " bytes"
                   : parse_fault(parse);
  if (!a.hex && !answer.empty() &&
      answer.find_first_not_of("0123456789abcdefABCDEF \t\r\n") ==
          std::string::npos)
    j["hint"] = "the bytes look like hex text: add --hex";

  std::string text = a.json ? j.dump(2) + "\n" : "";
  for (const auto& [name, value] : j.items())
    if (!a.json)
      text += name + ": " +
              (value.is_string() && name != "text" ? value.get<std::string>()
                                                   : value.dump()) +
              "\n";
  write_stdout(text);
  return has_record ? kDone : kRefused;
}

ExitStatus run(CLI::App& app, const Args& a) {
  if (app.got_subcommand("request")) return run_request(a);
  if (app.got_subcommand("answer")) return run_answer(a);
  if (app.got_subcommand("inspect")) return run_inspect(a);
  if (app.got_subcommand("encode")) {
    refuse_output_over_input(a.output, input_path(a));
    emit(encode(load(a), kind_of(a), source_name(input_path(a))), a);
    return kDone;
  }
  if (!app.got_subcommand("verdict"))
    throw Failure(kUsage,
                  "give a subcommand: request, answer, verdict, inspect or "
                  "encode (see --help)");
  return run_verdict(a);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "Builds the query for a URL and decodes the service's answer with "
      "liblinkward.",
      "linkward"};
  app.failure_message([](const CLI::App*, const CLI::Error& e) {
    return "linkward: " + escaped(e.what(), false) + " (see --help)\n";
  });
  app.set_version_flag("--version",
                       "linkward " + std::to_string(LINKWARD_VERSION_MAJOR) +
                           "." + std::to_string(LINKWARD_VERSION_MINOR) + "." +
                           std::to_string(LINKWARD_VERSION_PATCH),
                       "Print the library's version");
  app.footer(kExitStatuses);
  Args args;
  add_commands(app, args);
  try {
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
      const int status = app.exit(e);
      write_stdout("");  // where --help and --version wrote
      return status == 0 ? kDone : kUsage;
    }
    return run(app, args);
  } catch (const Failure& failure) {
    std::fprintf(stderr, "linkward: %s\n",
                 escaped(failure.what(), false).c_str());
    return failure.status;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "linkward: internal failure: %s\n",
                 escaped(e.what(), false).c_str());
    return kFailed;
  }
}
