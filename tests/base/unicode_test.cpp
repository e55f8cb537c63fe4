#include "base/unicode.h"

#include <gtest/gtest.h>

namespace tavora {
namespace {

TEST(Unicode, RoundTripsEveryPlaneAndReplacesMalformedInput) {
  const std::u16string text = u"a\u00E9\u4E2D\U0001F600\U0010FFFF";
  const std::string utf8 = Utf16ToUtf8(text);
  EXPECT_EQ(utf8, "a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF");
  EXPECT_EQ(Utf8ToUtf16(utf8), text);
  EXPECT_EQ(Utf16ToUtf8(std::u16string(1, char16_t(0xD800))), "\xEF\xBF\xBD");
  EXPECT_EQ(Utf16ToUtf8(std::u16string{char16_t(0xDC00), u'x'}), "\xEF\xBF\xBDx");
  EXPECT_EQ(Utf8ToUtf16("\xC0\xAF"), u"\uFFFD\uFFFD");      // overlong '/'
  EXPECT_EQ(Utf8ToUtf16("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD");  // a surrogate
  EXPECT_EQ(Utf8ToUtf16("\xE4\xB8"), u"\uFFFD\uFFFD");      // cut short
  EXPECT_EQ(Utf8ToUtf16("\xF4\x90\x80\x80"), u"\uFFFD\uFFFD\uFFFD\uFFFD");  // past U+10FFFF
}

}  // namespace
}  // namespace tavora
