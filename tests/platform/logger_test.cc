#include "setvault/logger.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace KorvoSetvault {
namespace {

using setvault_test::LogCapture;

TEST(LoggerThreshold, LinesAboveTheThresholdAreDropped) {
  LogCapture log(2);
  SVLogger::Log(0, "error %d", 1);
  SVLogger::Log(2, "info %s", "x");
  SVLogger::Log(3, "write call");
  SVLogger::Log(4, "read call");
  const auto lines = log.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], std::make_pair(0, std::string("error 1")));
  EXPECT_EQ(lines[1], std::make_pair(2, std::string("info x")));
  EXPECT_TRUE(SVLogger::IsEnabled(2));
  EXPECT_FALSE(SVLogger::IsEnabled(3));
}

TEST(LoggerThreshold, DisabledLinesAreNeverFormatted) {
  LogCapture log(2);
  // Formatting this argument would read through an invalid pointer and crash;
  // a disabled line must return before looking at its arguments.
  const char* invalid = reinterpret_cast<const char*>(16);
  SVLogger::Log(4, "%s", invalid);
  SVLogger::LogErrCode(3, SV_ERR_SCHEMA_NOT_FOUND, invalid);
  EXPECT_TRUE(log.Lines().empty());
}

TEST(LoggerErrCode, FormatsTheCodesMessage) {
  LogCapture log(4);
  SVLogger::LogErrCode(0, SV_ERR_VALIDATION, "/mtu", "too large");
  SVLogger::LogErrCode(0, SV_ERR_WAIT, 42, "No child processes");
  EXPECT_TRUE(log.Contains(0, "Validation error at /mtu: too large"));
  EXPECT_TRUE(log.Contains(0, "Cannot wait for process 42: No child processes"));
}

TEST(LoggerBacktrace, WritesOneHeaderAndFrames) {
  LogCapture log(0);
  SVLogger::LogBacktrace();
  EXPECT_EQ(log.CountStartingWith(0, "Backtrace:"), 1);
  EXPECT_GE(log.CountStartingWith(0, "  #0 "), 1);
}

TEST(LoggerSinks, StderrSinkWritesPriorityAndLine) {
  setvault_test::TempDir dir;
  const std::string path = dir.File("stderr.txt");
  std::fflush(stderr);
  const int saved = dup(STDERR_FILENO);
  FILE* file = std::fopen(path.c_str(), "w");
  ASSERT_NE(file, nullptr);
  dup2(fileno(file), STDERR_FILENO);
  SVLogger::SetStderrSink();
  SVLogger::SetThreshold(2);
  SVLogger::Log(1, "disk %d%% full", 93);
  SVLogger::Log(3, "not written");
  std::fflush(stderr);
  dup2(saved, STDERR_FILENO);
  close(saved);
  std::fclose(file);
  SVLogger::SetCallbackSink([](int, const std::string&) {});

  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  EXPECT_EQ(text.str(), "setvault warning: disk 93% full\n");
}

TEST(LoggerThreads, ConcurrentCallersLoseNoLine) {
  LogCapture log(4);
  constexpr int kThreads = 4;
  constexpr int kLines = 500;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) SVLogger::Log(4, "thread %d line %d", t, i);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(log.CountStartingWith(4, "thread "), kThreads * kLines);
}

}  // namespace
}  // namespace KorvoSetvault
