// Bounded and allocating formatting: cuts, terminators, and the Panic texts.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "format_test_util.h"
#include "misc/panic.h"
#include "string/str.h"

namespace {

TEST(TrimUtf8End, CutsOnlyIncompleteCharacters)
{
   const struct {
      const char *text;
      size_t end;
      size_t want;
   } rows[] = {
      {"", 0, 0},
      {"abc", 3, 3},
      {"\xE2\x82\xAC", 3, 3},
      {"\xE2\x82\xAC", 1, 0},
      {"x\xF0\x9F\x98\x80", 5, 5},
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

struct Bounded {
   int result;
   std::string buffer;  // every byte of the buffer
};

Bounded Snprintf(size_t size, const char *format, ...)
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
   const struct {
      Bounded got;
      int result;
      std::string buffer;
   } rows[] = {
      {Snprintf(0, "%s", ""), -1, "xxxxxx"},
      {Snprintf(1, "%s", "abc"), -1, std::string("\0xxxxx", 6)},
      {Snprintf(1, "%s", ""), 0, std::string("\0xxxxx", 6)},
      {Snprintf(3, "a%s", "\xC3\xA9"), -1, std::string("a\0\0xxx", 6)},
      {Snprintf(4, "a%s", "\xC3\xA9"), 3, std::string("a\xC3\xA9\0xx", 6)},
      {Snprintf(3, "abc"), -1, std::string("ab\0xxx", 6)},
      {Snprintf(4, "a\xE2\x82\xAC"), -1, std::string("a\0\x82\0xx", 6)},
      {Snprintf(5, "a\xE2\x82\xAC"), 4, std::string("a\xE2\x82\xAC\0x", 6)},
      {Snprintf(6, "%d", 12345), 5, std::string("12345\0", 6)},
      {Snprintf(6, "%d", 123456), -1, std::string("12345\0", 6)},
   };
   for (const auto &r : rows) {
      EXPECT_EQ(r.got.result, r.result);
      EXPECT_EQ(r.got.buffer, r.buffer);
   }
}

TEST(StrVsnprintf, NullBufferOnlyCounts)
{
   EXPECT_EQ(Str_Snprintf(nullptr, 0, "%s", "abc"), -1);
}

TEST(StrSprintf, FitsOrStops)
{
   char buffer[4];
   EXPECT_EQ(Str_Sprintf(buffer, sizeof buffer, "%d", 123), 3);
   EXPECT_STREQ(buffer, "123");
   EXPECT_DEATH(Str_Sprintf(buffer, sizeof buffer, "%d", 1234),
                "^lib/string/str:215 Buffer too small\n$");
}

TEST(StrStrcpy, SourceMustBeShorterThanSize)
{
   char buffer[8] = "zzzzzzz";
   EXPECT_EQ(Str_Strcpy(buffer, "abcd", 5), buffer);
   EXPECT_STREQ(buffer, "abcd");
   EXPECT_STREQ(Str_Strcpy(buffer, "", 1), "");
   EXPECT_DEATH(Str_Strcpy(buffer, "abcde", 5), "^lib/string/str:285 Buffer too small\n$");
   EXPECT_DEATH(Str_Strcpy(buffer, "", 0), "^lib/string/str:285 Buffer too small\n$");
}

TEST(StrStrcat, SumMustBeShorterThanSize)
{
   char buffer[8] = "ab";
   EXPECT_EQ(Str_Strcat(buffer, "cd", 5), buffer);
   EXPECT_STREQ(buffer, "abcd");
   EXPECT_DEATH(Str_Strcat(buffer, "e", 5), "^lib/string/str:442 Buffer too small\n$");
   EXPECT_STREQ(buffer, "abcd");
}

TEST(StrAsprintf, LengthAndResult)
{
   size_t length = 99;
   char *s = Str_Asprintf(&length, "%s-%d", "ab", 42);
   ASSERT_NE(s, nullptr);
   EXPECT_STREQ(s, "ab-42");
   EXPECT_EQ(length, 5u);
   free(s);

   s = Str_Asprintf(nullptr, "");
   ASSERT_NE(s, nullptr);
   EXPECT_STREQ(s, "");
   free(s);

   length = 99;
   EXPECT_EQ(Str_Asprintf(&length, "ab%2147483646d", 1), nullptr);
   EXPECT_EQ(length, 99u);

   s = Str_SafeAsprintf(&length, "%S", U16("\u00e9"));
   EXPECT_STREQ(s, "\xC3\xA9");
   EXPECT_EQ(length, 2u);
   free(s);
}

TEST(StrSafeAsprintf, FailureReportsLine654)
{
   EXPECT_DEATH(Str_SafeAsprintf(nullptr, "ab%2147483646d", 1), "^VERIFY lib/string/str:654\n$");
   auto viaList = [](const char *format, ...) {
      va_list ap;
      va_start(ap, format);
      char *s = Str_SafeVasprintf(nullptr, format, ap);
      va_end(ap);
      return s;
   };
   EXPECT_DEATH(viaList("ab%2147483646d", 1), "^VERIFY lib/string/str:654\n$");
}

std::u16string SafeAswprintf(const utf16_t *format, ...)
{
   va_list ap;
   va_start(ap, format);
   utf16_t *s = StrVaswprintfInternal(nullptr, format, ap, true);
   va_end(ap);
   std::u16string r = AsU16(s);
   free(s);
   return r;
}

TEST(StrVaswprintfInternal, GrowsUntilTheTextFits)
{
   const std::string longText(1000, 'w');
   const struct {
      std::u16string got;
      std::u16string want;
   } rows[] = {
      {SafeAswprintf(U16("%I64x"), 0ULL), u"0"},
      {SafeAswprintf(U16("")), u""},
      {SafeAswprintf(U16("%s"), longText.c_str()), std::u16string(1000, u'w')},
      {SafeAswprintf(U16("a%sb"), "\xC3\xA9"), u"a\u00e9b"},
   };
   for (const auto &r : rows) {
      EXPECT_EQ(r.got, r.want);
   }
   size_t length = 0;
   utf16_t *s = Str_SafeAswprintf(&length, U16("%d-%S"), 12, U16("xyz"));
   EXPECT_EQ(AsU16(s), u"12-xyz");
   EXPECT_EQ(length, 6u);
   free(s);
}

// These run the retry loop until the allocator refuses; Wine may grant huge reservations,
// so they run on the host only.
#if !defined(_WIN32)
utf16_t *Aswprintf(bool mustSucceed, const utf16_t *format, ...)
{
   va_list ap;
   va_start(ap, format);
   utf16_t *s = StrVaswprintfInternal(nullptr, format, ap, mustSucceed);
   va_end(ap);
   return s;
}

TEST(StrVaswprintfInternal, FailingFormatEndsWhenMemoryEnds)
{
   EXPECT_EQ(Aswprintf(false, U16("ab%2147483646d"), 1), nullptr);
   EXPECT_DEATH(Aswprintf(true, U16("ab%2147483646d"), 1), "VERIFY lib/string/str:1049\n$");
}
#endif

TEST(Panic, FormatsWithTheLibraryEngine)
{
   EXPECT_DEATH(Panic("%s:%d %S %I64x\n", "file", 7, U16("\u00e9"), 0xabULL),
                "^file:7 \xC3\xA9 ab\n$");
}

} // namespace
