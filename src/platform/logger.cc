#include "setvault/logger.h"

#include <execinfo.h>
#include <syslog.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>

#include "setvault/format.h"

namespace KorvoSetvault {
namespace {

enum class SinkKind { kSyslog, kStderr, kCallback };

constexpr log_priority kDefaultThreshold = 2;
constexpr int kMaxBacktraceFrames = 64;

std::atomic<log_priority> g_threshold{kDefaultThreshold};

// Sink state, guarded by its mutex. Leaked on purpose: exceptions may be built
// (and so log) during static destruction.
struct SinkState {
  std::mutex mutex;
  SinkKind kind = SinkKind::kSyslog;
  std::string syslog_ident = "setvault";
  bool syslog_open = false;
  SVLogger::Callback callback;
};

SinkState& Sink() {
  static SinkState* state = new SinkState();
  return *state;
}

int SyslogLevel(log_priority priority) {
  switch (priority) {
    case 0:
      return LOG_ERR;
    case 1:
      return LOG_WARNING;
    case 2:
      return LOG_INFO;
    default:
      return LOG_DEBUG;
  }
}

const char* PriorityName(log_priority priority) {
  static const char* const kNames[] = {"error", "warning", "info", "write", "read"};
  if (priority < 0 || priority > 4) return "debug";
  return kNames[priority];
}

// Hands one formatted line to the current sink.
void Emit(log_priority priority, const std::string& line) {
  SinkState& sink = Sink();
  std::lock_guard<std::mutex> lock(sink.mutex);
  switch (sink.kind) {
    case SinkKind::kSyslog:
      if (!sink.syslog_open) {
        openlog(sink.syslog_ident.c_str(), LOG_PID, LOG_USER);
        sink.syslog_open = true;
      }
      syslog(SyslogLevel(priority), "%s", line.c_str());
      break;
    case SinkKind::kStderr:
      std::fprintf(stderr, "setvault %s: %s\n", PriorityName(priority), line.c_str());
      break;
    case SinkKind::kCallback:
      if (sink.callback) sink.callback(priority, line);
      break;
  }
}

}  // namespace

bool SVLogger::IsEnabled(log_priority priority) noexcept {
  return priority <= g_threshold.load(std::memory_order_relaxed);
}

void SVLogger::SetThreshold(log_priority threshold) noexcept {
  g_threshold.store(threshold, std::memory_order_relaxed);
}

log_priority SVLogger::GetThreshold() noexcept {
  return g_threshold.load(std::memory_order_relaxed);
}

void SVLogger::Log(log_priority priority, const char* format, ...) {
  if (!IsEnabled(priority)) return;
  va_list args;
  va_start(args, format);
  const std::string line = FormatV(format, args);
  va_end(args);
  Emit(priority, line);
}

void SVLogger::LogErrCode(log_priority priority, SVErrorCodes code, ...) {
  if (!IsEnabled(priority)) return;
  va_list args;
  va_start(args, code);
  const std::string line = FormatV(ErrorMessageForId(code), args);
  va_end(args);
  Emit(priority, line);
}

void SVLogger::LogBacktrace() noexcept {
  if (!IsEnabled(0)) return;
  void* frames[kMaxBacktraceFrames];
  const int count = backtrace(frames, kMaxBacktraceFrames);
  char** symbols = backtrace_symbols(frames, count);
  // Frame 0 is this function; the caller starts at 1.
  Emit(0, "Backtrace:");
  for (int i = 1; i < count; ++i) {
    Emit(0, Format<int, const char*>("  #%d %s", i - 1, symbols ? symbols[i] : "?"));
  }
  std::free(symbols);
}

void SVLogger::SetSyslogSink(const char* ident) {
  SinkState& sink = Sink();
  std::lock_guard<std::mutex> lock(sink.mutex);
  if (sink.syslog_open) {
    closelog();
    sink.syslog_open = false;
  }
  sink.syslog_ident = ident ? ident : "setvault";
  sink.kind = SinkKind::kSyslog;
}

void SVLogger::SetStderrSink() {
  SinkState& sink = Sink();
  std::lock_guard<std::mutex> lock(sink.mutex);
  sink.kind = SinkKind::kStderr;
}

void SVLogger::SetCallbackSink(Callback callback) {
  SinkState& sink = Sink();
  std::lock_guard<std::mutex> lock(sink.mutex);
  sink.callback = std::move(callback);
  sink.kind = SinkKind::kCallback;
}

}  // namespace KorvoSetvault
