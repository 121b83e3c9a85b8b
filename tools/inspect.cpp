// zorvan-inspect: shows what a message holds.

#include <getopt.h>

#include <memory>

#include "command.h"
#include "inspect_json.h"
#include "inspect_tree.h"
#include "message/codec.h"

namespace {

using foundation::protobuf::common::Envelope;

std::string readFile(const std::string& path) {
  if (path == "-") return tools::readAll(stdin, "standard input");
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                             std::fclose);
  if (!file) throw std::system_error(errno, std::generic_category(), "cannot open " + path);
  return tools::readAll(file.get(), path);
}

void show(const std::string& path, bool asResult, bool asJson) {
  Envelope envelope = foundation::protobuf::common::decodeEnvelope(readFile(path));
  if (asResult) {
    envelope.nargout.reset();
  } else {
    envelope.error.reset();
  }
  std::ios::sync_with_stdio(false);
  const auto write = asJson ? tools::writeJson : tools::writeTree;
  write(std::cout, asResult ? "ZORVAN_Result" : "ZORVAN_Params", envelope);
  if (!std::cout.flush()) throw std::runtime_error("cannot write the output");
}

constexpr char kUsage[] =
    "Usage: zorvan-inspect [--json] [--result] FILE\n"
    "Shows what a ZORVAN message holds: a tree for people, JSON for programs.\n\n"
    "  FILE      the message's file, - for standard input\n"
    "  --json    write one line of JSON instead of a tree\n"
    "  --result  read the message as ZORVAN_Result, not ZORVAN_Params\n"
    "  --help    show this text\n";

int inspect(int argc, char** argv) {
  int asJson = 0;
  int asResult = 0;
  const option options[] = {{"json", no_argument, &asJson, 1},
                            {"result", no_argument, &asResult, 1},
                            {"help", no_argument, nullptr, 'h'},
                            {nullptr, 0, nullptr, 0}};
  for (int found = 0; (found = getopt_long(argc, argv, "h", options, nullptr)) != -1;) {
    if (found != 0) return tools::showUsage(kUsage, found == 'h');
  }
  if (argc - optind != 1) return tools::showUsage(kUsage, false);
  show(argv[optind], asResult != 0, asJson != 0);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return tools::runCommand("zorvan-inspect", [&] { return inspect(argc, argv); });
}
