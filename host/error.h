// error.h - the failures that end vexhost, and the exit codes they end it with.
// In:  thrown anywhere below main(). Out: main() prints one line "vexhost: <what>" and exits with the code.
#pragma once

#include <stdexcept>
#include <string>

namespace vex::host {

enum ExitCode : int {
  kExitOk = 0,
  kExitBadInput = 2,  // usage, configuration, unreadable or damaged capture, module that does not start
  kExitIdentity = 3,  // frames and their fates do not add up
};

// What the user gave cannot be used; the text says what, where and what to do, on one line.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace vex::host
