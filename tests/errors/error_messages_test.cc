#include "errors/error_messages.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace KorvoSetvault {
namespace {

// The printf conversions of `format`, one letter per argument ("%%" skipped).
std::string Conversions(const std::string& format) {
  std::string letters;
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') continue;
    ++i;
    if (i < format.size() && format[i] == '%') continue;
    while (i < format.size() && std::string("-+ #0123456789.lhz").find(format[i]) != std::string::npos) ++i;
    if (i < format.size()) letters += format[i] == 'i' ? 'd' : format[i];
  }
  return letters;
}

TEST(ErrorMessages, EveryCodeHasAClearTextWhoseConversionsMatchItsArguments) {
  std::set<int> codes;
  for (auto* entry = ErrorMessageTableBegin(); entry != ErrorMessageTableEnd(); ++entry) {
    SCOPED_TRACE(entry->code);
    EXPECT_TRUE(codes.insert(entry->code).second) << "duplicate row";
    EXPECT_EQ(Conversions(entry->format), entry->conversions);
    EXPECT_STREQ(ErrorMessageForId(entry->code), entry->format);
    EXPECT_GE(std::string(entry->format).size(), 2u);
  }
  for (int code : {1002, 1030, 1032, 1037, 1041, 1046, 1048, 1049, 1061, 1062, 1080, 1081, 1082,
                   1083, 1084, 1086, 1087, 1088, 1089, 1090, 1091, 1102, 1103, 1104, 1105, 2000}) {
    EXPECT_EQ(codes.count(code), 1u) << "no message for " << code;
  }
}

TEST(ErrorMessages, ThrowHelperCodesTakeAtMostOneText) {
  // Codes raised through ThrowException carry zero or one "%s".
  for (SVErrorCodes code : {SV_ERR_DB_FILE, SV_ERR_INSTANCE_ID_VALUE, SV_ERR_SCHEMA_NOT_FOUND,
                            SV_ERR_SUBOBJECT_INSTANCES, SV_ERR_SUBOBJECT_NEEDS_INSTANCE,
                            SV_ERR_SUBOBJECT_NOT_ARRAY, SV_ERR_JSON_FILE, SV_ERR_JSON_PARSE}) {
    EXPECT_EQ(Conversions(ErrorMessageForId(code)), "s") << code;
  }
  for (SVErrorCodes code : {SV_ERR_EMPTY_OBJECT_LIST, SV_ERR_MIXED_TYPES, SV_ERR_NULL_OBJECT}) {
    EXPECT_EQ(Conversions(ErrorMessageForId(code)), "") << code;
  }
}

TEST(ErrorMessages, UnknownCodeGivesAFixedText) {
  const std::string text = ErrorMessageForId(static_cast<SVErrorCodes>(4242));
  EXPECT_EQ(text, "Unknown error code");
}

}  // namespace
}  // namespace KorvoSetvault
