// Base64 and UTF-8 checks at the edges a store value reaches: padding in the last group
// only, and a multi-byte sequence with the lowest continuation byte that ends the text.
#include <gtest/gtest.h>

#include <vector>

#include "platform/base64.h"
#include "platform/utf8.h"

namespace KorvoSetvault {
namespace {

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
