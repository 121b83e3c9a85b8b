// zorvan-inspect: shows what a message holds.

#include <getopt.h>

#include <memory>

#include "command.h"
#include "inspect_json.h"
#include "inspect_tree.h"
#include "message/codec.h"

namespace {

using namespace foundation::protobuf::common;  // NOLINT(google-build-using-namespace)

constexpr char kName[] = "zorvan-inspect";

std::string readFile(const std::string& path) {
  if (path == "-") return tools::readAll(stdin, "standard input");
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                             std::fclose);
  if (!file) throw std::system_error(errno, std::generic_category(), "cannot open " + path);
  return tools::readAll(file.get(), path);
}

void writeOutline(const EnvelopeOutline& outline, bool asResult, bool asJson) {
  Envelope envelope{decodeArrays(outline), std::nullopt, std::nullopt};
  if (asResult) {
    envelope.error = outline.error;
  } else {
    envelope.nargout = outline.nargout;
  }
  std::ios::sync_with_stdio(false);
  const auto writeEnvelope = asJson ? tools::writeJson : tools::writeTree;
  writeEnvelope(std::cout, asResult ? "ZORVAN_Result" : "ZORVAN_Params", envelope);
  if (!std::cout.flush()) throw std::runtime_error("cannot write the output");
}

// Returns the exit code.
int show(const std::string& path, bool asResult, bool asJson) {
  const std::string bytes = readFile(path);
  const EnvelopeOutline outline = readOutline(bytes);
  // A value that the end of the bytes cuts off is not shown.
  writeOutline(readOutline(std::string_view(bytes).substr(0, outline.whole)), asResult, asJson);
  if (outline.error && !asResult) {
    std::cerr << kName << ": the message is a result with an engine error, which --result shows\n";
  }
  if (!outline.broken) return 0;
  std::cerr << kName << ": the bytes break off or are no message; shown is what stands before\n";
  return 1;
}

constexpr char kUsage[] =
    "Usage: zorvan-inspect [--json] [--result] FILE\n"
    "Shows what a ZORVAN message holds: a tree for people, JSON for programs.\n\n"
    "  FILE      the message's file, - for standard input\n"
    "  --json    write one line of JSON instead of a tree; numbers that JSON lacks are the\n"
    "            texts \"NaN\", \"Inf\" and \"-Inf\"\n"
    "  --result  read the message as ZORVAN_Result, not ZORVAN_Params\n"
    "  --help    show this text\n\n"
    "The exit code is 0, or 1 when the message is broken or makes no sense.\n";

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
  const int files = argc - optind;
  if (files != 1) return tools::refuseOperands(kName, "FILE", files, kUsage);
  return show(argv[optind], asResult != 0, asJson != 0);
}

}  // namespace

int main(int argc, char** argv) {
  return tools::runCommand(kName, [&] { return inspect(argc, argv); });
}
