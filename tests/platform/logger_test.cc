#include "setvault/logger.h"

#include <gtest/gtest.h>

#include <string>

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

}  // namespace
}  // namespace KorvoSetvault
