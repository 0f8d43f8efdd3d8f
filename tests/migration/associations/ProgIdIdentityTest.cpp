#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ProgIdIdentity.h"

namespace {

// One row per length class of the hash, and both ends of most of them. Each input is hashed
// from an exactly sized heap block (a read past its end fails under AddressSanitizer) and as
// the prefix of a longer buffer, as the migration hashes it: the bytes behind must not leak.
TEST(ProgIdHash64, ReferenceValues)
{
   const std::string k16 = "0123456789abcdef";
   const struct {
      std::string input;
      const char *expected;
   } rows[] = {
      {"", "9ae16a3b2f90404f"},
      {"a", "2420662cd003acfa"},
      {"abc", "3a912f483a4ece31"},
      {"abcd", "f75a3b8a1499428d"},
      {"abcdefgh", "4382a8d0fe8edb17"},
      {"abcdefghi", "66c7fa4eb3fab8d1"},
      {"abcdefghijklmnop", "b7c60922803552c1"},
      {"abcdefghijklmnopq", "034bb4fe133a33e6"},
      {k16 + k16, "186c0e3ffd9476f6"},
      {k16 + k16 + "0", "aac0e9e7a646dfb7"},
      {k16 + k16 + k16 + k16, "265291bf4fc91651"},
      {k16 + k16 + k16 + k16 + k16 + k16 + k16 + k16, "4dbb849a62bd092b"},
   };
   for (const auto &r : rows) {
      std::vector<uint8_t> exact(r.input.begin(), r.input.end());
      std::unique_ptr<uint8_t[]> block(exact.empty() ? nullptr : new uint8_t[exact.size()]);
      std::copy(exact.begin(), exact.end(), block.get());
      const std::string longer = r.input + "\xC3\xA9 trailing bytes that must be ignored";
      for (uint64_t hash : {ProgIdHash64(block.get(), exact.size()),
                            ProgIdHash64(reinterpret_cast<const uint8_t *>(longer.data()), r.input.size())}) {
         char hex[17];
         std::snprintf(hex, sizeof hex, "%016" PRIx64, hash);
         EXPECT_STREQ(hex, r.expected) << "length " << r.input.size();
      }
   }
}

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

TEST(ComputeProgId, Names)
{
   const struct {
      std::u16string_view guid;
      std::u16string_view appId;
      std::u16string_view displayName;
      const char *expected;
   } rows[] = {
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
   for (const auto &c : rows) {
      ProgIdText id = ComputeProgId(W(c.guid), W(c.appId), W(c.displayName));
      EXPECT_EQ(Narrow(id), c.expected) << Narrow(W(c.guid)) << " / " << Narrow(W(c.appId));
   }
}

// As WideCharToMultiByte does: the text ends at its first NUL, a lone surrogate is U+FFFD.
TEST(WideToUtf8, BytesIncludingTerminator)
{
   const struct {
      std::u16string_view text;
      std::vector<uint8_t> expected;  // with the terminator
   } rows[] = {
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
   for (const auto &c : rows) {
      Utf8Buffer utf8 = WideToUtf8(W(c.text));
      ASSERT_TRUE(utf8) << testing::PrintToString(c.expected);
      std::vector<uint8_t> got(utf8.bytes.get(), utf8.bytes.get() + utf8.size);
      EXPECT_EQ(got, c.expected);
   }
}

} // namespace
