// What the commands share: reading a whole message, and failing with one line and exit code 1.
#pragma once

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace tools {

// Everything that is left in the file. Throws std::system_error when reading fails, and
// std::length_error when there is more than a message can hold.
inline std::string readAll(std::FILE* file, const std::string& name) {
  constexpr size_t kFirstSize = 65536;
  std::string bytes;
  size_t used = 0;
  do {
    bytes.resize(std::max(kFirstSize, 2 * used));
    used += std::fread(bytes.data() + used, 1, bytes.size() - used, file);
    if (std::ferror(file)) {
      throw std::system_error(errno, std::generic_category(), "cannot read " + name);
    }
    if (used > INT_MAX) throw std::length_error(name + " is larger than any message (2 GiB)");
  } while (used == bytes.size());
  bytes.resize(used);
  return bytes;
}

// Shows how a command is called, because that was asked for or because it was called wrongly;
// returns the exit code.
inline int showUsage(const std::string& usage, bool askedFor) {
  (askedFor ? std::cout : std::cerr) << usage;
  return askedFor ? 0 : 2;
}

// Says that a command takes exactly one operand, then how it is called; returns the exit code.
inline int refuseOperands(const char* name, const char* operand, int count,
                          const std::string& usage) {
  std::cerr << name << ": expected one " << operand << ", found " << count << '\n';
  return showUsage(usage, false);
}

// Runs the command and returns its exit code; an exception becomes a line on standard error.
template <class Command>
int runCommand(const char* name, Command command) {
  try {
    return command();
  } catch (const std::exception& failure) {
    std::cerr << name << ": " << failure.what() << '\n';
    return 1;
  }
}

}  // namespace tools
