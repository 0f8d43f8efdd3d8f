// Bounded and allocating formatting: cuts, terminators, and the Panic texts.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "format_test_util.h"
#include "misc/panic.h"
#include "string/str.h"

namespace {

// Complete text keeps its end (the trim fuzz target walks every end of valid text); these
// are the bytes that are no valid text.
TEST(TrimUtf8End, CutsOnlyIncompleteCharacters)
{
   const struct {
      const char *text;
      size_t end;
      size_t want;
   } rows[] = {
      {"", 0, 0},
      {"x\xF0\x9F\x98\x80", 4, 1},
      {"\x80", 1, 1},           // position 0 is never examined as a continuation
      {"\x80\x80", 2, 0},
      {"ab\xA9", 3, 3},         // a stray continuation after ASCII passes
      {"a\xC3\xA9\xA9", 4, 1},  // too many continuations for the lead
      {"\xFE\x80\x80\x80\x80\x80\x80\x80", 8, 0},
   };
   for (const auto &r : rows) {
      EXPECT_EQ(TrimUtf8End(r.text, r.end), r.want) << r.text << " at " << r.end;
   }
}

// The result and every byte of the buffer, six at least.
Formatted Snprintf(size_t size, const char *format, ...)
{
   char buffer[16];
   memset(buffer, 'x', sizeof buffer);
   va_list ap;
   va_start(ap, format);
   int n = Str_Vsnprintf(buffer, size, format, ap);
   va_end(ap);
   return {n, std::string(buffer, size < 6 ? 6 : size)};
}

TEST(StrVsnprintf, TrimsAndTerminates)
{
   const FormatRow<std::string> rows[] = {
      {Snprintf(0, "%s", ""), "xxxxxx", -1},
      {Snprintf(1, "%s", "abc"), std::string("\0xxxxx", 6), -1},
      {Snprintf(1, "%s", ""), std::string("\0xxxxx", 6), 0},
      {Snprintf(3, "a%s", "\xC3\xA9"), std::string("a\0\0xxx", 6), -1},
      {Snprintf(4, "a%s", "\xC3\xA9"), std::string("a\xC3\xA9\0xx", 6), 3},
      {Snprintf(4, "a\xE2\x82\xAC"), std::string("a\0\x82\0xx", 6), -1},
      {Snprintf(6, "%d", 12345), std::string("12345\0", 6), 5},
      {Snprintf(6, "%d", 123456), std::string("12345\0", 6), -1},
   };
   Check(rows);
   EXPECT_EQ(Str_Snprintf(nullptr, 0, "%s", "abc"), -1);  // a null buffer only counts
}

// What fits is written whole; one byte less ends the process with the caller's line.
TEST(StrCopies, FitOrPanic)
{
   char buffer[8] = "ab";
   EXPECT_EQ(Str_Strcat(buffer, "cd", 5), buffer);
   EXPECT_STREQ(buffer, "abcd");
   EXPECT_DEATH(Str_Strcat(buffer, "e", 5), "^lib/string/str:442 Buffer too small\n$");
   EXPECT_EQ(Str_Strcpy(buffer, "wxyz", 5), buffer);
   EXPECT_STREQ(buffer, "wxyz");
   EXPECT_STREQ(Str_Strcpy(buffer, "", 1), "");
   EXPECT_DEATH(Str_Strcpy(buffer, "abcde", 5), "^lib/string/str:285 Buffer too small\n$");
   EXPECT_DEATH(Str_Strcpy(buffer, "", 0), "^lib/string/str:285 Buffer too small\n$");
   EXPECT_EQ(Str_Sprintf(buffer, 4, "%d", 123), 3);
   EXPECT_STREQ(buffer, "123");
   EXPECT_DEATH(Str_Sprintf(buffer, 4, "%d", 1234), "^lib/string/str:215 Buffer too small\n$");
}

char *SafeVasprintf(size_t *length, const char *format, ...)
{
   va_list ap;
   va_start(ap, format);
   char *s = Str_SafeVasprintf(length, format, ap);
   va_end(ap);
   return s;
}

TEST(StrAsprintf, TextAndLengthOrNothing)
{
   size_t length = 99;
   char *s = Str_Asprintf(&length, "%s-%d", "ab", 42);
   EXPECT_STREQ(s, "ab-42");
   EXPECT_EQ(length, 5u);
   free(s);
   s = SafeVasprintf(&length, "%S", U16("\u00e9"));
   EXPECT_STREQ(s, "\xC3\xA9");
   EXPECT_EQ(length, 2u);
   free(s);
   s = Str_SafeAsprintf(nullptr, "");
   EXPECT_STREQ(s, "");
   free(s);
   EXPECT_EQ(Str_Asprintf(&length, "ab%2147483646d", 1), nullptr);
   EXPECT_EQ(length, 2u);  // left alone
   EXPECT_DEATH(Str_SafeAsprintf(nullptr, "ab%2147483646d", 1), "^VERIFY lib/string/str:654\n$");
   EXPECT_DEATH(SafeVasprintf(nullptr, "ab%2147483646d", 1), "^VERIFY lib/string/str:654\n$");
}

utf16_t *Aswprintf(bool mustSucceed, const utf16_t *format, ...)
{
   va_list ap;
   va_start(ap, format);
   utf16_t *s = StrVaswprintfInternal(nullptr, format, ap, mustSucceed);
   va_end(ap);
   return s;
}

std::u16string Taken(utf16_t *s)
{
   std::u16string r = s != nullptr ? AsU16(s) : u"<null>";
   free(s);
   return r;
}

// The room starts at twice the format's length and doubles until the text and its
// terminator fit; a text exactly as long as the room needs one more round.
TEST(StrVaswprintfInternal, GrowsUntilTheTextFits)
{
   const struct {
      std::u16string got;
      std::u16string want;
   } rows[] = {
      {Taken(Aswprintf(true, U16("%I64x"), 0ULL)), u"0"},
      {Taken(Aswprintf(true, U16(""))), u""},
      {Taken(Aswprintf(true, U16("%s"), "abcd")), u"abcd"},
      {Taken(Aswprintf(true, U16("%s"), std::string(1000, 'w').c_str())), std::u16string(1000, u'w')},
      {Taken(Aswprintf(true, U16("a%sb"), "\xC3\xA9")), u"a\u00e9b"},
      {Taken(Aswprintf(true, U16("%'d|%.1f"), 1234567, 0.5)), u"1234567|0.5"},  // the process's "C" locale
   };
   for (const auto &r : rows) {
      EXPECT_EQ(r.got, r.want);
   }
   size_t length = 0;
   EXPECT_EQ(Taken(Str_SafeAswprintf(&length, U16("%d-%S"), 12, U16("xyz"))), u"12-xyz");
   EXPECT_EQ(length, 6u);
}

// These run the retry loop until the allocator refuses; Wine may grant huge reservations,
// so they run on the host only.
#if !defined(_WIN32)
TEST(StrVaswprintfInternal, FailingFormatEndsWhenMemoryEnds)
{
   EXPECT_EQ(Aswprintf(false, U16("ab%2147483646d"), 1), nullptr);
   EXPECT_DEATH(Aswprintf(true, U16("ab%2147483646d"), 1), "VERIFY lib/string/str:1049\n$");
}
#endif

TEST(Panic, FormatsWithTheLibraryEngine)
{
   EXPECT_DEATH(Panic("%s:%d %S %I64x\n", "file", 7, U16("\u00e9"), 0xabULL), "^file:7 \xC3\xA9 ab\n$");
}

} // namespace
