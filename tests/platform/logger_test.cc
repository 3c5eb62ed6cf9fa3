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

TEST(Logger, LinesAboveTheThresholdAreDroppedUnformatted) {
  LogCapture log(2);
  SVLogger::Log(0, "error %d", 1);
  SVLogger::LogErrCode(2, SV_ERR_WAIT, 42, "No child processes");
  // Formatting this argument would read through an invalid pointer and crash;
  // a disabled line must return before looking at its arguments.
  const char* invalid = reinterpret_cast<const char*>(16);
  SVLogger::Log(3, "%s", invalid);
  SVLogger::LogErrCode(3, SV_ERR_SCHEMA_NOT_FOUND, invalid);
  const std::vector<std::pair<int, std::string>> expected = {
      {0, "error 1"}, {2, "Cannot wait for process 42: No child processes"}};
  EXPECT_EQ(log.Lines(), expected);
  EXPECT_TRUE(SVLogger::IsEnabled(2));
  EXPECT_FALSE(SVLogger::IsEnabled(3));
}

TEST(Logger, StderrSinkWritesPriorityAndLine) {
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

TEST(Logger, ConcurrentCallersLoseNoLine) {
  LogCapture log(4);
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
