#include "setvault/exceptions.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "errors/error_messages.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

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
  std::set<int> codes;
  for (auto* entry = ErrorMessageTableBegin(); entry != ErrorMessageTableEnd(); ++entry) {
    SCOPED_TRACE(entry->code);
    EXPECT_TRUE(codes.insert(entry->code).second) << "duplicate row";
    EXPECT_EQ(Conversions(entry->format), entry->conversions);
    EXPECT_STREQ(ErrorMessageForId(entry->code), entry->format);
  }
  EXPECT_GE(codes.size(), 26u);
  EXPECT_STREQ(ErrorMessageForId(static_cast<SVErrorCodes>(4242)), "Unknown error code");
  // Codes raised through ThrowException carry zero or one "%s".
  for (SVErrorCodes code : {SV_ERR_DB_FILE, SV_ERR_SCHEMA_NOT_FOUND, SV_ERR_JSON_FILE}) {
    EXPECT_EQ(Conversions(ErrorMessageForId(code)), "s") << code;
  }
  EXPECT_EQ(Conversions(ErrorMessageForId(SV_ERR_EMPTY_OBJECT_LIST)), "");
}

TEST(Exceptions, TextCodeAndFindings) {
  LogCapture log;
  std::vector<ErrorInfo> errors = {{"/mtu", "too large"}, {"/name", "missing"}};
  ValidationException validation(1087, "bad", errors);
  errors.clear();  // the exception holds a copy
  EXPECT_EQ(validation.toString(),
            "Error Code: 1087\nMessage: bad\nDetails: \n/mtu: too large\n/name: missing\n");
  EXPECT_EQ(ValidationException(1089, "plain", errors).toString(),
            "Error Code: 1089\nMessage: plain\n");
  try {
    ThrowException<SetvaultException, const char*>(SV_ERR_SCHEMA_NOT_FOUND, "comp c grp g key k");
  } catch (const Mandrel::Lib::MandrelException& e) {
    EXPECT_EQ(e.GetDetailedMessage(), "Schema not found for comp c grp g key k");
    EXPECT_EQ(dynamic_cast<const SetvaultException&>(e).GetErrorCode(), 1037);
  }
  try {
    ThrowException<InvalidArgumentException>(SV_ERR_EMPTY_OBJECT_LIST);
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1061);
    EXPECT_STREQ(e.what(), ErrorMessageForId(SV_ERR_EMPTY_OBJECT_LIST));
  }
}

TEST(Exceptions, EveryExceptionLogsCodeMessageAndBacktraceUnlessSilenced) {
  LogCapture log;
  auto expect_logged = [&log](int code, const std::string& message, auto make) {
    log.Clear();
    make();
    EXPECT_TRUE(log.Contains(0, "[" + std::to_string(code) + "] " + message)) << message;
    EXPECT_EQ(log.CountStartingWith(0, "Backtrace:"), 1) << message;
    EXPECT_GT(log.CountStartingWith(0, "  #"), 0) << message;
  };
  expect_logged(1061, "argument", [] { InvalidArgumentException e(1061, "argument"); });
  expect_logged(2000, "type", [] { InvalidTypeException e(2000, "type"); });
  expect_logged(1090, "validation", [] { ValidationException e(1090, "validation"); });
  LogCapture silenced(-1);
  SetvaultException quiet(2000, "quiet");
  EXPECT_TRUE(silenced.Lines().empty());
}

TEST(Exceptions, PibMessageChainPrintsLastNodeFirst) {
  Mandrel::Lib::PibMessage chain;
  EXPECT_EQ(chain.ToString(), "");
  chain.Append("first", "value %d", 1);
  chain.Append("second", "%s", "two");
  EXPECT_EQ(chain.ToString(), "\nPib Stack: \n[second]: two[first]: value 1");
}

TEST(Exceptions, FormatHandlesNumbersTextsAndPercent) {
  EXPECT_EQ(Format("100%%"), "100%");
  EXPECT_EQ((Format<int, const char*>("%d-%s", 7, "x")), "7-x");
  const std::string long_text(5000, 'z');
  EXPECT_EQ(Format<const char*>("%s", long_text.c_str()), long_text);
}

}  // namespace
}  // namespace KorvoSetvault
