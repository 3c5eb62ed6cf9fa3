#include "setvault/logger.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

// Enabled lines reach stderr with their priority's name; a line above the threshold returns
// before looking at its arguments (formatting this one would read through an invalid
// pointer and crash).
TEST(Logger, StderrSinkWritesEnabledLinesOnly) {
  const char* invalid = reinterpret_cast<const char*>(16);
  testing::internal::CaptureStderr();
  SVLogger::SetStderrSink();
  SVLogger::SetThreshold(2);
  SVLogger::Log(1, "disk %d%% full", 93);
  SVLogger::LogErrCode(2, SV_ERR_WAIT, 42, "No child processes");
  SVLogger::Log(3, "%s", invalid);
  SVLogger::LogErrCode(3, SV_ERR_SCHEMA_NOT_FOUND, invalid);
  const std::string written = testing::internal::GetCapturedStderr();
  SVLogger::SetCallbackSink([](int, const std::string&) {});
  EXPECT_EQ(written,
            "setvault warning: disk 93% full\n"
            "setvault info: Cannot wait for process 42: No child processes\n");
}

TEST(Logger, ConcurrentCallersLoseNoLine) {
  setvault_test::LogCapture log(4);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 500; ++i) SVLogger::Log(4, "thread %d line %d", t, i);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(log.CountStartingWith(4, "thread "), 4 * 500);
}

}  // namespace
}  // namespace KorvoSetvault
