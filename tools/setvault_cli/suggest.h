// Unknown commands: the closest known ones are named instead of a bare
// parse error.
#ifndef SETVAULT_TOOLS_SETVAULT_SUGGEST_H_
#define SETVAULT_TOOLS_SETVAULT_SUGGEST_H_

#include <CLI/CLI.hpp>

namespace setvault_tool {

// True (after printing "unknown command" with the closest command names on
// standard error) when the first command word of `argv` names no command of
// `app`. Options before it and their values are skipped.
bool RejectUnknownCommand(CLI::App& app, int argc, char** argv);

}  // namespace setvault_tool

#endif  // SETVAULT_TOOLS_SETVAULT_SUGGEST_H_
