// LogCapture: records the library's log lines for the lifetime of the object.
#ifndef SETVAULT_TESTS_SUPPORT_LOG_CAPTURE_H_
#define SETVAULT_TESTS_SUPPORT_LOG_CAPTURE_H_

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace setvault_test {

class LogCapture {
 public:
  // Routes the log to this object and sets the threshold (default: all lines).
  explicit LogCapture(int threshold = 4);
  // Restores the default threshold and a silent callback sink.
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // Every captured (priority, line), in order.
  std::vector<std::pair<int, std::string>> Lines() const;
  // True when some line at `priority` equals `line`.
  bool Contains(int priority, const std::string& line) const;
  // Number of lines at `priority` that start with `prefix`.
  int CountStartingWith(int priority, const std::string& prefix) const;
  void Clear();

 private:
  mutable std::mutex mutex_;
  std::vector<std::pair<int, std::string>> lines_;
};

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_SUPPORT_LOG_CAPTURE_H_
