#include "support/log_capture.h"

#include "setvault/logger.h"

namespace setvault_test {

LogCapture::LogCapture(int threshold) {
  KorvoSetvault::SVLogger::SetCallbackSink([this](int priority, const std::string& line) {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.emplace_back(priority, line);
  });
  KorvoSetvault::SVLogger::SetThreshold(threshold);
}

LogCapture::~LogCapture() {
  KorvoSetvault::SVLogger::SetCallbackSink([](int, const std::string&) {});
  KorvoSetvault::SVLogger::SetThreshold(2);
}

std::vector<std::pair<int, std::string>> LogCapture::Lines() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lines_;
}

bool LogCapture::Contains(int priority, const std::string& line) const {
  std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& entry : lines_) {
    if (entry.first == priority && entry.second == line) return true;
  }
  return false;
}

int LogCapture::CountStartingWith(int priority, const std::string& prefix) const {
  std::lock_guard<std::mutex> lock(mutex_);
  int count = 0;
  for (const auto& entry : lines_) {
    if (entry.first == priority && entry.second.compare(0, prefix.size(), prefix) == 0) ++count;
  }
  return count;
}

void LogCapture::Clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  lines_.clear();
}

}  // namespace setvault_test
