// Error codes and their texts, the exceptions' texts and logging, and the formatting helpers.
#include "setvault/exceptions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "errors/error_messages.h"
#include "support/thrown.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ExpectError;
using setvault_test::LogCapture;

// The printf conversions of `format`, one letter per argument ("%%" skipped).
std::string Conversions(const std::string& format) {
  std::string letters;
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%' || format[++i] == '%') continue;
    while (std::string("-+ #0123456789.lhz").find(format[i]) != std::string::npos) ++i;
    letters += format[i] == 'i' ? 'd' : format[i];
  }
  return letters;
}

TEST(ErrorMessages, EveryCodeHasOneTextWhoseConversionsMatchItsArguments) {
  for (auto* entry = ErrorMessageTableBegin(); entry != ErrorMessageTableEnd(); ++entry) {
    SCOPED_TRACE(entry->code);
    // Rows in code order, none twice.
    EXPECT_TRUE(entry == ErrorMessageTableBegin() || entry[-1].code < entry->code);
    EXPECT_EQ(Conversions(entry->format), entry->conversions);
    EXPECT_STREQ(ErrorMessageForId(entry->code), entry->format);
  }
  EXPECT_STREQ(ErrorMessageForId(static_cast<SVErrorCodes>(4242)), "Unknown error code");
}

// Each exception logs "[code] message" and a backtrace, unless the log is silenced.
TEST(Exceptions, TextCodeFindingsAndLog) {
  LogCapture log;
  std::vector<ErrorInfo> errors = {{"/mtu", "too large"}, {"/name", "missing"}};
  ValidationException validation(1087, "bad", errors);
  EXPECT_EQ(validation.toString(),
            "Error Code: 1087\nMessage: bad\nDetails: \n/mtu: too large\n/name: missing\n");
  EXPECT_EQ(ValidationException(1089, "plain").toString(), "Error Code: 1089\nMessage: plain\n");
  const std::string long_text(5000, 'z');  // formatted whole, however long
  ExpectError(
      [&] { ThrowException<SetvaultException>(SV_ERR_SCHEMA_NOT_FOUND, long_text.c_str()); }, 1037,
      "Schema not found for " + long_text);
  ExpectError<InvalidArgumentException>(
      [] { ThrowException<InvalidArgumentException>(SV_ERR_EMPTY_OBJECT_LIST); }, 1061,
      ErrorMessageForId(SV_ERR_EMPTY_OBJECT_LIST));
  EXPECT_TRUE(log.Contains(0, "[1087] bad") && log.Contains(0, "[1089] plain"));
  EXPECT_EQ(log.CountStartingWith(0, "Backtrace:"), 4);
  EXPECT_GE(log.CountStartingWith(0, "  #"), 4);
  LogCapture silenced(-1);
  SetvaultException quiet(2000, "quiet");
  EXPECT_TRUE(silenced.Lines().empty());
  // A message chain prints its last node first.
  Mandrel::Lib::PibMessage chain;
  EXPECT_EQ(chain.ToString(), "");
  chain.Append("first", "value %d", 1);
  chain.Append("second", "%s", "two");
  EXPECT_EQ(chain.ToString(), "\nPib Stack: \n[second]: two[first]: value 1");
}

}  // namespace
}  // namespace KorvoSetvault
