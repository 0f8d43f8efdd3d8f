#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "ProgIdIdentity.h"

namespace {

// char16_t literals work in both presets; utf16_t is wchar_t on Windows.
ProgIdText W(std::u16string_view units)
{
   return ProgIdText(units.begin(), units.end());
}

std::string Narrow(const ProgIdText &text)
{
   std::string out;
   for (utf16_t unit : text) {
      out += unit < 0x80 ? char(unit) : '?';
   }
   return out;
}

struct ProgIdCase {
   std::u16string_view guid;
   std::u16string_view appId;
   std::u16string_view displayName;
   const char *expected;
};

const ProgIdCase kProgIdCases[] = {
   {u"11111111-2222-3333-4444-555555555555", u"winword", u"Word Document",
    "Eldrixd27237aaa93cc8844e532b5ad12164f4"},
   {u"11111111-2222-3333-4444-555555555555", u"winword", u"", "Eldrixd27237aaa93cc884"},
   // 83 joined units (the long path of the hash); the display name's hash has 15 digits.
   {u"{AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE}", u"Microsoft.Office.WINWORD.EXE.15.and.more.text",
    u"Document", "Eldrix5f85e5ef300d5ff286784f644b5ea7f"},
   // Two units each: the hashes take "g" plus half of the e-acute, and half of it alone.
   {u"g", u"\u00e9", u"\u00e9", "Eldrixbc0b859683d65ff095d0c49eb10a97ea"},
   // A surrogate pair is two units: two of its four bytes are hashed.
   {u"g", u"x", u"\U0001F600", "Eldrixfaec985bcc2a523d8b3914bed02b7ff"},
   // A lone surrogate converts to U+FFFD, as WideCharToMultiByte does; 4 bytes of "ab\uFFFDc".
   {u"ab", u"\xD800" u"c", u"", "Eldrixcd6110fb658b67f"},
   // The conversion ends at an embedded NUL; the units behind it count as zero bytes.
   {std::u16string_view(u"g\0x", 3), u"y", u"", "Eldrixa3a56d3ed276f8e9"},
   {u"11111111-2222-3333-4444-555555555555", u"", u"Word Document", ""},
   {u"", u"winword", u"Word Document", ""},
   {u"", u"", u"", ""},
};

TEST(ComputeProgId, Names)
{
   for (const ProgIdCase &c : kProgIdCases) {
      ProgIdText id = ComputeProgId(W(c.guid), W(c.appId), W(c.displayName));
      EXPECT_EQ(Narrow(id), c.expected) << Narrow(W(c.guid)) << " / " << Narrow(W(c.appId));
   }
}

struct Utf8Case {
   std::u16string_view text;
   std::vector<uint8_t> expected;  // with the terminator
};

const Utf8Case kUtf8Cases[] = {
   {u"", {0x00}},
   {u"a", {0x61, 0x00}},
   {u"\u007f\u0080", {0x7F, 0xC2, 0x80, 0x00}},
   {u"\u07ff\u0800", {0xDF, 0xBF, 0xE0, 0xA0, 0x80, 0x00}},
   {u"\uffff", {0xEF, 0xBF, 0xBF, 0x00}},
   {u"\U0001F600", {0xF0, 0x9F, 0x98, 0x80, 0x00}},
   {u"\U0010FFFF", {0xF4, 0x8F, 0xBF, 0xBF, 0x00}},
   {u"\xD800" u"b", {0xEF, 0xBF, 0xBD, 0x62, 0x00}},
   {u"\xDC00", {0xEF, 0xBF, 0xBD, 0x00}},
   {u"a\xD83D", {0x61, 0xEF, 0xBF, 0xBD, 0x00}},
   {u"\xDE00\xD83D", {0xEF, 0xBF, 0xBD, 0xEF, 0xBF, 0xBD, 0x00}},
   {std::u16string_view(u"a\0b", 3), {0x61, 0x00}},
};

TEST(WideToUtf8, BytesIncludingTerminator)
{
   for (const Utf8Case &c : kUtf8Cases) {
      Utf8Buffer utf8 = WideToUtf8(W(c.text));
      ASSERT_TRUE(utf8) << testing::PrintToString(c.expected);
      std::vector<uint8_t> got(utf8.bytes.get(), utf8.bytes.get() + utf8.size);
      EXPECT_EQ(got, c.expected);
   }
}

} // namespace
