// zorvan-loopback: an engine small enough to test against.

#include <getopt.h>

#include "command.h"
#include "loopback_functions.h"
#include "message/codec.h"

namespace {

using namespace foundation::protobuf::common;  // NOLINT(google-build-using-namespace)

std::string answerTo(const std::string& function) {
  const Envelope parameters = decodeEnvelope(tools::readAll(stdin, "standard input"));
  return encodeEnvelope(tools::callFunction(function, parameters));
}

std::string usage() {
  return "Usage: zorvan-loopback FUNCTION\n"
         "Reads one parameters message from standard input, calls a function and writes its "
         "result\nmessage to standard output, with at most nargout outputs.\n\n" +
         tools::describeFunctions();
}

int loopback(int argc, char** argv) {
  const option options[] = {{"help", no_argument, nullptr, 'h'}, {nullptr, 0, nullptr, 0}};
  const int found = getopt_long(argc, argv, "h", options, nullptr);
  if (found != -1) return tools::showUsage(usage(), found == 'h');
  if (argc - optind != 1) {
    return tools::refuseOperands("zorvan-loopback", "FUNCTION", argc - optind, usage());
  }

  const std::string answer = answerTo(argv[optind]);
  const size_t written = std::fwrite(answer.data(), 1, answer.size(), stdout);
  if (written != answer.size() || std::fflush(stdout) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot write the answer");
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return tools::runCommand("zorvan-loopback", [&] { return loopback(argc, argv); });
}
