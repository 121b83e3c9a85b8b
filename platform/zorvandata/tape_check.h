// Makes sure of a tape that came from elsewhere, before anything reads it.
#pragma once

#include "zorvandata/tape.h"

namespace foundation::zorvandata {

class ChildChecker {
 public:
  // Makes sure of the next child, which lies at a level of nesting.
  virtual void next(int level) = 0;

 protected:
  ~ChildChecker() = default;
};

// Checks the kinds, the lengths, the ranges of integers and the shapes of a tape of which the
// streams are filled in; that the streams are used up exactly, and that its one item, at `level`,
// is a 1-by-n cell. Text is not looked at, but for names. Fills in the rest. Throws
// MalformedMessageException, InvalidDimensionsException, InvalidFieldNameException,
// InvalidTextException or NestingTooDeepException. Returns how many elements the cell has.
size_t checkTape(Tape& tape, int level, ChildChecker& children);

// Checks the codes of `count` texts that use up both. Throws MalformedMessageException.
void checkTextCodes(std::string_view codes, std::string_view text, size_t count, bool mayMiss);

// Checks the bytes of logicals. Throws MalformedMessageException.
void checkLogicals(std::string_view elements);

}  // namespace foundation::zorvandata
