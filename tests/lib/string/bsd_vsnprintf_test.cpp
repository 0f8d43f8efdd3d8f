// The narrow engine: exact bytes and results for each conversion, flag and size that the
// comparison with the C library (differential_test.cpp) does not reach.

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "format_test_util.h"

namespace {

using Row = FormatRow<std::string>;

const double kInf = std::numeric_limits<double>::infinity();
const double kNan = std::numeric_limits<double>::quiet_NaN();
const char *const kNullText = nullptr;
const utf16_t *const kNullWide = nullptr;

TEST(BsdVsnprintf, Integers)
{
   const Row rows[] = {
      {Format("%d|%i", INT_MIN, INT_MAX), "-2147483648|2147483647"},
      {Format("%qd|%Ld", -5LL, 6LL), "-5|6"},
      {Format("%ld|%lu", -5, 4000000000u), "-5|4000000000"},
      {Format("%05d", -42), "-0042"},
      {Format("%-5d|", 42), "42   |"},
      {Format("%.0d|", 0), "|"},
      {Format("%+d|% d|%+ d|% +d", 5, 5, 5, 5), "+5| 5|+5|+5"},
      {Format("%I64x", 0xd27237aaa93cc884ULL), "d27237aaa93cc884"},
      {Format("%I64d", -1LL), "-1"},
      {Format("%I32d|%d", -1, 2), "-1|2"},
      {Format("%Id|%Iu", 1LL << 40, ~0ULL), "1099511627776|18446744073709551615"},
      {Format("%zu|%Zd|%jd|%td", static_cast<size_t>(1) << 33, -3LL, -4LL, -5LL),
       "8589934592|-3|-4|-5"},
      {Format("%hd|%hu", 40000, 70000), "-25536|4464"},
      {Format("%hhd|%hhd|%hhu|%hhx", 300, 200, 257, 511), "44|-56|1|ff"},
      {Format("%D|%U|%O", -5, 7u, 8u), "-5|7|10"},
      {Format("%p", static_cast<void *>(nullptr)), "0"},
      {Format("%p|%#p", reinterpret_cast<void *>(0xabcdef), reinterpret_cast<void *>(0xab)),
       "ABCDEF|AB"},
      {Format("%10p|", reinterpret_cast<void *>(0x1234)), "      1234|"},
      {Format("%.0p|", static_cast<void *>(nullptr)), "|"},
   };
   Check(rows);
}

TEST(BsdVsnprintf, Grouping)
{
   const Row rows[] = {
      {FormatIn(kCommaThrees, "%'d|%'d|%'d", 999, 1000, -1000), "999|1,000|-1,000"},
      {FormatIn(kPlainLocale, "%'d", 1234567), "1234567"},
      {FormatIn(kIndian, "%'d", 1234567), "12.34.567"},
      {FormatIn(kCommaThrees, "%'u", 4294967295u), "4,294,967,295"},
      {FormatIn(kCommaThrees, "%'llu", ULLONG_MAX), "18,446,744,073,709,551,615"},
      {FormatIn(kCommaThrees, "%'lld", -1234567890123LL), "-1,234,567,890,123"},
      {FormatIn(kCommaThrees, "%'x|%'o", 0x123456, 01234567), "123456|1234567"},
      {FormatIn(kCommaThrees, "%'010d", 1234567), "01,234,567"},
      {FormatIn(kCommaThrees, "%'f", 1234567.891), "1,234,567.891000"},
      {FormatIn(kCommaThrees, "%'.0f|%'.2f", 1234.0, 999.5), "1,234|999.50"},
      {FormatIn(kCommaThrees, "%'.0f", 1e20), "100,000,000,000,000,000,000"},
      {FormatIn(kCommaThrees, "%'.1f", 0.25), "0.2"},
      {FormatIn(kIndian, "%'f", 1234567.5), "12.34.567,500000"},
      {FormatIn(kIndian, "%.1f|%.1e", 2.5, 2.5), "2,5|2,5e+00"},
      {FormatIn(kCommaThrees, "%'g", 1234567.0), "1.23457e+06"},
      {FormatIn(kCommaThrees, "%'g", 123456.0), "123,456"},
   };
   Check(rows);
}

TEST(BsdVsnprintf, CharactersAndStrings)
{
   const Row rows[] = {
      {Format("%c|%3c|%-3c|%03c", 'A', 'B', 'C', 'D'), "A|  B|C  |00D"},
      {Format("%c", 0x141), "A"},
      {Format("a%cb", 0), "a", 3},
      {Format("%C|%lc", 'A', 'z'), "A|z"},
      {Format("%C", 0x4E00), "<null>", -1},
      {Format("%s|%5s|%-5s|%05s", "ab", "ab", "ab", "ab"), "ab|   ab|ab   |000ab"},
      {Format("%+s|% s", "x", "y"), "x|y"},
      {Format("%s|%.2s|%8s", kNullText, kNullText, kNullText), "(null)|(n|  (null)"},
      {Format("%.3s|%.2s|%5.2s", "a\xC3\xA9", "a\xC3\xA9", "a\xC3\xA9"),
       "a\xC3\xA9|a|    a"},
      {Format("%.2s", "\xE2\x82\xAC" "x"), ""},
      {Format("%S|%ls", U16("abc"), U16("de")), "abc|de"},
      {Format("%S|%.3S", kNullWide, kNullWide), "(null)|(nu"},
      {Format("%.3S", U16("\u00e9\u00e9\u00e9")), "\xC3\xA9"},
      {Format("%.4S|%S", U16("\u00e9\u00e9\u00e9"), U16("\u00e9\u00e9\u00e9")),
       "\xC3\xA9\xC3\xA9|\xC3\xA9\xC3\xA9\xC3\xA9"},
      {Format("%.5S|%.0S|", U16("\u20ac\u20ac\u20ac"), U16("abc")), "\xE2\x82\xAC||"},
      {Format("%S", U16("\U0001F600")), "\xF0\x9F\x98\x80"},
      {Format("%S", U16("a\xDE00" "b")), "a\xED\xB8\x80" "b"},
      {Format("%S", U16("a\xD83D")), "a"},
      {Format("%6S|", U16("\u00e9")), "    \xC3\xA9|"},
   };
   Check(rows);
}

TEST(BsdVsnprintf, LiteralsAndUnknownConversions)
{
   const Row rows[] = {
      {Format(""), ""},
      {Format("100%%|%5%|%-3%|"), "100%|    %|%  |"},
      {Format("%k|%3k|%05k"), "k|  k|0000k"},
      {Format("%ws|%d", 5), "ws|5"},
      {Format("abc%"), "abc"},
      {Format("ab%-"), "ab"},
      {Format("%a|%A|%d", 1.5, 1.5, 7), "a|A|0"},
      {Format("<%d><%d><%d><%d><%d><%d><%d><%d><%d>", 1, 2, 3, 4, 5, 6, 7, 8, 9),
       "<1><2><3><4><5><6><7><8><9>"},
   };
   Check(rows);
}

TEST(BsdVsnprintf, PositionalArguments)
{
   const Row rows[] = {
      {Format("%1$d %1$d", 7), "7 7"},
      {Format("%3$d", 1, 2, 3), "3"},
      {Format("%2$s %d", 1, "x", 9), "x 9"},
      {Format("%*2$d|", 42, 4), "  42|"},
      {Format("%*0$d|", 9), "9|"},
      {Format("%9$d", 1, 2, 3, 4, 5, 6, 7, 8, 9), "9"},
      {Format("%1$F|%1$llx", 0x3FF8000000000000LL), "1.500000|3ff8000000000000"},
      // %F reserves no slot in the argument pass, so the %d after it runs off the table.
      {Format("%F|%d", 5), "0.000000|0"},
   };
   Check(rows);
}

TEST(BsdVsnprintf, Floating)
{
   const Row rows[] = {
      {Format("%.2f|%.0f|%.0f|%.0f", 1.005, 0.5, 1.5, 2.5), "1.00|0|2|2"},
      {Format("%#.0f|%.3f|%.2f", 1.0, 0.0001, 0.0096), "1.|0.000|0.01"},
      {Format("%Le|%Lf", 1.5, 2.5), "1.500000e+00|2.500000"},
      {Format("%g|%g|%g", 0.0, 100000.0, 1000000.0), "0|100000|1e+06"},
      {Format("%05f", kInf), "inf", 5},
      {Format("%1$F|%1$llx", static_cast<long long>(0xFFF0000000000000ULL)), "-INF|fff0000000000000"},
      {Format("%f|%G|%e", kNan, kNan, kNan), "nan|NAN|nan"},
   };
   Check(rows);
}

TEST(BsdVsnprintf, StoreCount)
{
   const struct {
      const char *format;
      uint64_t want;
   } rows[] = {
      {"abc%n|", 0xAAAAAAAA00000003ULL},
      {"abc%ln|", 0xAAAAAAAA00000003ULL},
      {"abc%hn|", 0xAAAAAAAAAAAA0003ULL},
      {"abc%hhn|", 0xAAAAAAAAAAAAAA03ULL},
      {"abc%lln|", 3},
      {"abc%zn|", 3},
      {"abc%I64n|", 3},
      {"%5d%n|", 0xAAAAAAAA00000005ULL},
   };
   for (const auto &r : rows) {
      uint64_t slot = 0xAAAAAAAAAAAAAAAAULL;
      Formatted f = strstr(r.format, "%5d") != nullptr ? Format(r.format, 1, &slot)
                                                      : Format(r.format, &slot);
      EXPECT_EQ(slot, r.want) << r.format;
      EXPECT_EQ(f.text.back(), '|') << r.format;
   }
}

int FormatFixed(char *buffer, size_t capacity, const char *format, ...)
{
   va_list ap;
   va_start(ap, format);
   char *target = buffer;
   int n = BsdVsnprintfCore(&target, capacity, &kPlainLocale, format, ap);
   va_end(ap);
   EXPECT_EQ(target, buffer);  // a fixed buffer is never replaced
   return n;
}

TEST(BsdVsnprintf, FixedBuffer)
{
   struct {
      size_t capacity;
      const char *a;
      const char *b;
      const char *want;  // bytes up to the capacity, terminator included when written
      size_t wantBytes;
      int wantResult;
   } rows[] = {
      {0, "abc", "", "xxxx", 4, 3},
      {1, "abc", "", "\0xxx", 4, 3},
      {3, "ab", "c", "ab\0x", 4, 3},
      {4, "ab", "c", "abc\0", 4, 3},
      {3, "a\xC3\xA9", "", "a\xC3\0", 3, 3},
      {5, "abc", "def", "abcd\0", 5, 6},
   };
   for (const auto &r : rows) {
      char buffer[16];
      memset(buffer, 'x', sizeof buffer);
      EXPECT_EQ(FormatFixed(buffer, r.capacity, "%s%s", r.a, r.b), r.wantResult) << r.capacity;
      EXPECT_EQ(std::string(buffer, r.wantBytes), std::string(r.want, r.wantBytes)) << r.capacity;
   }
}

TEST(BsdVsnprintf, Failures)
{
   // Totals past 0x7fffffff fail before anything of the field is produced.
   const Row rows[] = {
      {Format("ab%2147483646d", 1), "<null>", -1},
      {Format("%*d|", INT_MIN, 1), "<null>", -1},
      {Format("%.2147483647f", 1.0), "<null>", -1},
      {Format("%s%2147483647d", "x", 1), "<null>", -1},
      {Format("ab%C", 0x4E00), "<null>", -1},
   };
   Check(rows);

   // In a fixed buffer the conversions already copied out stand, unterminated.
   char buffer[8];
   memset(buffer, 'x', sizeof buffer);
   EXPECT_EQ(FormatFixed(buffer, sizeof buffer, "%d%2147483647d", 12, 1), -1);
   EXPECT_EQ(std::string(buffer, sizeof buffer), "12xxxxxx");
}

TEST(BsdVsnprintf, GrowingModeAllocatesExactText)
{
   const Row rows[] = {
      {Format("%300d", 1), std::string(299, ' ') + "1"},
      {Format("%s", std::string(1000, 'q').c_str()), std::string(1000, 'q')},
      {Format("%s%s", std::string(63, 'a').c_str(), "b"), std::string(63, 'a') + "b"},
   };
   Check(rows);
}

TEST(BsdVsnprintf, PublicEntryUsesTheProcessLocale)
{
   // The test process runs in the "C" locale: '.' and no grouping.
   char *out = nullptr;
   auto call = [&](const char *format, ...) {
      va_list ap;
      va_start(ap, format);
      int n = bsd_vsnprintf(&out, 0, format, ap);
      va_end(ap);
      return n;
   };
   EXPECT_EQ(call("%'d|%.1f", 1234567, 0.5), 11);
   ASSERT_NE(out, nullptr);
   EXPECT_STREQ(out, "1234567|0.5");
   free(out);
}

} // namespace
