// How the setvault tool reports a failed command, in the user's words, and
// which exit status it gets.
#ifndef SETVAULT_TOOLS_SETVAULT_ERRORS_H_
#define SETVAULT_TOOLS_SETVAULT_ERRORS_H_

#include <exception>

namespace setvault_tool {

// Prints the failure `e` on standard error and returns the exit status for
// it. `waited_ms` is how long the command ran, reported for a busy store.
int ReportFailure(const std::exception& e, long waited_ms);

}  // namespace setvault_tool

#endif  // SETVAULT_TOOLS_SETVAULT_ERRORS_H_
