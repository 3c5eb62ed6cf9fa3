// What the setvault tool prints: JSON results (pretty and coloured on a
// terminal, compact when piped or asked for), notes and errors on standard
// error, and the exit statuses.
#ifndef SETVAULT_TOOLS_SETVAULT_OUTPUT_H_
#define SETVAULT_TOOLS_SETVAULT_OUTPUT_H_

#include <stdexcept>
#include <string>

namespace setvault_tool {

// Exit statuses, the same for every command.
enum ExitStatus {
  kExitOk = 0,
  kExitFailed = 1,    // the operation failed
  kExitUsage = 2,     // the command line is wrong
  kExitNotFound = 3,  // nothing stored / not found
  kExitRefused = 4,   // validation refused the data
  kExitBusy = 5,      // another process holds the store
};

// A failure the tool reports in its own words, with the exit status to use.
class ToolError : public std::runtime_error {
 public:
  ToolError(ExitStatus status, const std::string& message)
      : std::runtime_error(message), status_(status) {}
  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

// How results are printed; set once from the command line.
struct OutputOptions {
  bool compact = false;  // one line per result
  bool colour = false;   // ANSI colours for keys, strings and literals
};

// Decides compact and colour output: compact when `compact` is asked for or
// standard output is not a terminal; colour only on a terminal and unless
// `no_colour` or $NO_COLOR is set.
void ConfigureOutput(bool compact, bool no_colour);

// Prints the compact JSON text `json` on standard output as configured,
// followed by a newline. Text that is not JSON is printed as it is.
void PrintJson(const std::string& json);

// Prints "setvault: <text>" on standard error.
void Note(const std::string& text);

// A creation or modification time of the store ("YYYY-MM-DD HH:MM:SS", UTC)
// in ISO 8601 with the zone marked: "YYYY-MM-DDTHH:MM:SSZ". Other text is
// returned unchanged.
std::string UtcTime(const std::string& stored);

}  // namespace setvault_tool

#endif  // SETVAULT_TOOLS_SETVAULT_OUTPUT_H_
