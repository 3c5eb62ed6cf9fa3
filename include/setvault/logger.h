// SVLogger: the library's diagnostic log.
//
// Every line has a priority: 0 error, 1 warning, 2 information, 3 write and
// transaction calls, 4 read and object-model calls. A line is written only when
// its priority is at most the threshold (default 2); the threshold is checked
// before anything is formatted, so disabled trace lines cost one comparison.
//
// Lines go to one sink at a time: syslog (the default), standard error, or a
// callback of the host's. All calls are safe from any thread.
//
//   KorvoSetvault::SVLogger::SetCallbackSink(
//       [](int priority, const std::string& line) { MyLog(priority, line); });
//   KorvoSetvault::SVLogger::SetThreshold(4);   // trace every API call
#ifndef SETVAULT_LOGGER_H_
#define SETVAULT_LOGGER_H_

#include <functional>
#include <string>

#include "setvault/error_codes.h"
#include "setvault/export.h"

namespace KorvoSetvault {

// A log priority: 0 error ... 4 read-call trace.
typedef int log_priority;

class SETVAULT_EXPORT SVLogger {
 public:
  // Receives each enabled line, without a trailing newline. Called on the
  // logging thread, under the logger's lock: it must not log itself.
  using Callback = std::function<void(log_priority priority, const std::string& line)>;

  // Writes one printf-style line at `priority`.
  static void Log(log_priority priority, const char* format, ...)
      __attribute__((format(printf, 2, 3)));

  // Writes the message of `code` (ErrorMessageForId), formatted with the
  // further arguments, which must match the code's conversions.
  static void LogErrCode(log_priority priority, SVErrorCodes code, ...);

  // Writes the calling thread's stack at priority 0, one line per frame.
  // Never throws.
  static void LogBacktrace() noexcept;

  // True when a line of `priority` would be written.
  static bool IsEnabled(log_priority priority) noexcept;

  // Sets the highest priority that is written (default 2). A negative value
  // silences the log.
  static void SetThreshold(log_priority threshold) noexcept;
  static log_priority GetThreshold() noexcept;

  // Selects the sink. Syslog uses `ident` (copied) as the program name.
  static void SetSyslogSink(const char* ident = "setvault");
  static void SetStderrSink();
  static void SetCallbackSink(Callback callback);
};

}  // namespace KorvoSetvault

#endif  // SETVAULT_LOGGER_H_
