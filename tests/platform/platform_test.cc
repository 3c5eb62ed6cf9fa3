// The logger's stderr sink, and the base64 and UTF-8 checks at the edges a store value reaches.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/base64.h"
#include "platform/utf8.h"
#include "setvault/logger.h"

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

// Padding in the last group only; a multi-byte sequence with the lowest continuation byte
// that ends the text.
TEST(Encoding, PaddingAndSequencesAtTheEnd) {
  std::vector<unsigned char> out;
  EXPECT_TRUE(Base64Decode("AQ==", 4, &out));
  EXPECT_EQ(out, std::vector<unsigned char>{1});
  EXPECT_FALSE(Base64Decode("A===", 4, &out));
  EXPECT_TRUE(IsValidUtf8("caf\xc3\x80"));  // the lowest continuation byte, last
  EXPECT_FALSE(IsValidUtf8("caf\xc3"));
}

}  // namespace
}  // namespace KorvoSetvault
