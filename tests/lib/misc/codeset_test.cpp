// The built-in conversions byte for byte. That ICU gives the same bytes for every pair both
// paths support is the differential fuzz target's, whose seeds hold every kind of invalid
// sequence.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "misc/codeset.h"

namespace {

struct Result {
   bool ok;
   std::string bytes;  // everything in the buffer, the prefix included
   bool operator==(const Result &) const = default;
};

Result Convert(const char *from, const std::string &text, const char *to, unsigned policy,
               bool icu = false)
{
   DynBuf out;
   DynBuf_Init(&out);
   DynBuf_Append(&out, "<", 1);  // a failure must leave what was there
   dontUseIcu = !icu;
   bool ok = CodeSet_GenericToGeneric(from, text.data(), text.size(), to, policy, &out);
   dontUseIcu = true;
   Result r{ok, std::string(out.data, out.size)};
   DynBuf_Destroy(&out);
   return r;
}

std::string Bytes(const std::u16string &units, bool bigEndian)
{
   std::string bytes;
   for (char16_t u : units) {
      bytes += static_cast<char>(bigEndian ? u >> 8 : u & 0xFF);
      bytes += static_cast<char>(bigEndian ? u & 0xFF : u >> 8);
   }
   return bytes;
}
std::string Le(const std::u16string &units) { return Bytes(units, false); }
std::string Be(const std::u16string &units) { return Bytes(units, true); }

const Result kFailed{false, "<"};
Result Ok(const std::string &bytes) { return {true, "<" + bytes}; }

TEST(CodeSetBuiltIn, ConvertsAndRefuses)
{
   const struct { Result got; Result want; } rows[] = {
      {Convert("UTF-8", "a\xC3\xA9" "b", "US-ASCII", CSGTG_TRANSLIT), Ok("a\x1A" "b")},
      {Convert("UTF-8", "a\xC3\xA9" "b", "US-ASCII", CSGTG_IGNORE), Ok("ab")},
      {Convert("UTF-8", "a\xC3\xA9" "b", "US-ASCII", CSGTG_NORMAL), kFailed},
      {Convert("UTF-8", "\xF0\x9F\x98\x80!", "US-ASCII", CSGTG_TRANSLIT), Ok("\x1A!")},
      {Convert("UTF-8", "\xE0\x80\x80", "US-ASCII", CSGTG_TRANSLIT), Ok("\x1A\x1A\x1A")},
      // Encoded surrogates and values past U+10FFFF decode as one character on this path.
      {Convert("UTF-8", "\xED\xA0\x80.", "US-ASCII", CSGTG_TRANSLIT), Ok("\x1A.")},
      {Convert("UTF-8", "\xF4\x90\x80\x80", "US-ASCII", CSGTG_IGNORE), Ok("")},
      // A soft hyphen is a character like any other here (ICU would drop it unasked).
      {Convert("UTF-8", "a\xC2\xAD", "US-ASCII", CSGTG_NORMAL), kFailed},
      {Convert("US-ASCII", "a\x80", "UTF-8", CSGTG_TRANSLIT), Ok("a\xEF\xBF\xBD")},
      {Convert("US-ASCII", "a\x80", "UTF-8", CSGTG_IGNORE), Ok("a")},
      {Convert("US-ASCII", "a\x80", "UTF-8", CSGTG_NORMAL), kFailed},
      {Convert("ISO-8859-1", "a\xE9\xFF", "UTF-8", CSGTG_NORMAL), Ok("a\xC3\xA9\xC3\xBF")},
      {Convert("UTF-8", "\xC0\x80", "UTF-16LE", CSGTG_NORMAL), kFailed},
      {Convert("UTF-8", "\xE0\x80\x80", "UTF-16LE", CSGTG_NORMAL), kFailed},
      {Convert("UTF-8", "\xED\xA0\x80", "UTF-16LE", CSGTG_NORMAL), kFailed},
      {Convert("UTF-8", "\xF4\x90\x80\x80", "UTF-16LE", CSGTG_NORMAL), kFailed},
      {Convert("UTF-8", "abcdefghi\xF0\x9F\x98\x80", "UTF-16LE", CSGTG_NORMAL), Ok(Le(u"abcdefghi\U0001F600"))},
      {Convert("UTF-16LE", Le(u"a\u00e9\u20ac\U0001F600"), "UTF-8", CSGTG_NORMAL), Ok("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80")},
      {Convert("UTF-16BE", Be(u"a\u00e9"), "UTF-8", CSGTG_NORMAL), Ok("a\xC3\xA9")},
      {Convert("UTF-16LE", Le(u"a") + Le(std::u16string(1, 0xD83D)), "UTF-8", 0), kFailed},
      {Convert("UTF-16LE", Le(std::u16string(1, 0xDE00)), "UTF-8", CSGTG_NORMAL), kFailed},
      {Convert("UTF-16LE", "abc", "UTF-8", CSGTG_NORMAL), kFailed},
      {Convert("UTF-8", "ok", "UTF-8", CSGTG_NORMAL), Ok("ok")},
      {Convert("UTF-8", "\xC3", "UTF-8", CSGTG_NORMAL), kFailed},
      {Convert("US-ASCII", "\x80", "US-ASCII", CSGTG_NORMAL), kFailed},
      {Convert("UTF-8", "", "Shift_JIS", CSGTG_NORMAL), Ok("")},
      {Convert("UTF-8", "a", "Shift_JIS", CSGTG_NORMAL), kFailed},
      {Convert("UTF-8", "a", "no-such-encoding", CSGTG_NORMAL), kFailed},
   };
   for (size_t i = 0; i < sizeof rows / sizeof rows[0]; i++) {
      EXPECT_EQ(rows[i].got, rows[i].want) << "row " << i;
   }
}

TEST(CodeSetBuiltIn, TerminatedCopiesAndValidation)
{
   char *out = nullptr;
   size_t size = 0;
   ASSERT_TRUE(CodeSet_Utf8ToUtf16le("a\xC3\xA9", 3, &out, &size));
   EXPECT_EQ(std::string(out, size + 2), Le(u"a\u00e9") + std::string(2, '\0'));
   free(out);
   EXPECT_FALSE(CodeSet_Utf16leToUtf8("a", 1, &out, &size));
   EXPECT_EQ(out, nullptr);
   EXPECT_TRUE(CodeSet_Validate("", 0, "UTF-8"));
   EXPECT_TRUE(CodeSet_Validate("\xC3\xA9", 2, "UTF-8"));
   EXPECT_FALSE(CodeSet_Validate("\xC3", 1, "UTF-8"));
   EXPECT_FALSE(CodeSet_Validate("\xE9", 1, "US-ASCII"));
   // Without icu.dll (Wine has none) the ICU path fails as an open does, and doesn't crash.
   if (CodeSetGetIcu() == nullptr) {
      EXPECT_EQ(Convert("UTF-8", "a", "UTF-16LE", 0, true), kFailed);
   }
}

} // namespace
