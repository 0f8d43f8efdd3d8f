// The narrow engine: exact bytes and results for what the comparison with the C library
// (differential_test.cpp) does not reach: sizes and conversions of its own, grouping and
// given locales, %C and %S, positions, %n, fixed buffers, failures and growth.

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <limits>

#include "format_test_util.h"

namespace {

using Row = FormatRow<std::string>;

const double kInf = std::numeric_limits<double>::infinity();
const double kNan = std::numeric_limits<double>::quiet_NaN();
const char *const kNullText = nullptr;
const utf16_t *const kNullWide = nullptr;

TEST(BsdVsnprintf, NumbersOfItsOwn)
{
   const Row rows[] = {
      {Format("%qd|%Ld|%ld|%lu", -5LL, 6LL, -5, 4000000000u), "-5|6|-5|4000000000"},
      {Format("%+ d|% +d", 5, 5), "+5|+5"},
      {Format("%I64x|%I64d|%I32d|%d", 0xd27237aaa93cc884ULL, -1LL, -1, 2), "d27237aaa93cc884|-1|-1|2"},
      {Format("%Id|%Iu|%Zd", 1LL << 40, ~0ULL, -3LL), "1099511627776|18446744073709551615|-3"},
      {Format("%D|%U|%O", -5, 7u, 8u), "-5|7|10"},
      {Format("%p|%.0p|", static_cast<void *>(nullptr), static_cast<void *>(nullptr)), "0||"},
      {Format("%p|%#p|%10p|", reinterpret_cast<void *>(0xabcdef), reinterpret_cast<void *>(0xab),
              reinterpret_cast<void *>(0x1234)),
       "ABCDEF|AB|      1234|"},
      {Format("%Le|%Lf", 1.5, 2.5), "1.500000e+00|2.500000"},
      {Format("%05f", kInf), "inf", 5},
      {Format("%1$F|%1$llx", static_cast<long long>(0xFFF0000000000000ULL)), "-INF|fff0000000000000"},
      {Format("%f|%G|%e", kNan, kNan, kNan), "nan|NAN|nan"},
   };
   Check(rows);
}

// A given locale rules every conversion, the first to need it or not.
TEST(BsdVsnprintf, GroupingAndGivenLocales)
{
   const Row rows[] = {
      {FormatIn(kCommaThrees, "%'d|%'d|%'d", 999, 1000, -1000), "999|1,000|-1,000"},
      {FormatIn(kPlainLocale, "%'d", 1234567), "1234567"},
      {FormatIn(kIndian, "%'d|%d", 1234567, 1234567), "12.34.567|1234567"},
      {FormatIn(kCommaThrees, "%'u|%'llu", 4294967295u, ULLONG_MAX), "4,294,967,295|18,446,744,073,709,551,615"},
      {FormatIn(kCommaThrees, "%'lld|%'x|%'o", -1234567890123LL, 0x123456, 01234567), "-1,234,567,890,123|123456|1234567"},
      {FormatIn(kCommaThrees, "%'010d", 1234567), "01,234,567"},
      {FormatIn(kCommaThrees, "%'f|%'.0f|%'.2f", 1234567.891, 1234.0, 999.5), "1,234,567.891000|1,234|999.50"},
      {FormatIn(kCommaThrees, "%'.0f|%'.1f", 1e20, 0.25), "100,000,000,000,000,000,000|0.2"},
      {FormatIn(kIndian, "%'f|%.1e", 1234567.5, 2.5), "12.34.567,500000|2,5e+00"},
      {FormatIn(kCommaThrees, "%'g|%'g", 1234567.0, 123456.0), "1.23457e+06|123,456"},
      {FormatIn(kIndian, "%d %.1f", 5, 1.5), "5 1,5"},
      {FormatIn(kIndian, "%.1f %.2f %'d", 1.5, 0.25, 1234567), "1,5 0,25 12.34.567"},
      {FormatIn(kIndian, "%'d %.1f", 1234, 2.5), "1.234 2,5"},
   };
   Check(rows);
}

TEST(BsdVsnprintf, CharactersAndStrings)
{
   const Row rows[] = {
      {Format("%03c|%c", 'D', 0x141), "00D|A"},
      {Format("a%cb", 0), "a", 3},
      {Format("%C|%lc", 'A', 'z'), "A|z"},
      {Format("%C", 0x4E00), "<null>", -1},
      {Format("%05s|%+s|% s", "ab", "x", "y"), "000ab|x|y"},
      {Format("%s|%.2s|%8s", kNullText, kNullText, kNullText), "(null)|(n|  (null)"},
      // A precision never splits a UTF-8 character.
      {Format("%.3s|%.2s|%5.2s", "a\xC3\xA9", "a\xC3\xA9", "a\xC3\xA9"), "a\xC3\xA9|a|    a"},
      {Format("%.2s", "\xE2\x82\xAC" "x"), ""},
      {Format("%S|%ls", U16("abc"), U16("de")), "abc|de"},
      {Format("%S|%.3S", kNullWide, kNullWide), "(null)|(nu"},
      {Format("%.3S|%.4S|%S", U16("\u00e9\u00e9\u00e9"), U16("\u00e9\u00e9\u00e9"), U16("\u00e9\u00e9\u00e9")),
       "\xC3\xA9|\xC3\xA9\xC3\xA9|\xC3\xA9\xC3\xA9\xC3\xA9"},
      // Three-byte characters need more room than twice the units: the conversion grows.
      {Format("%.5S|%.0S|%S", U16("\u20ac\u20ac\u20ac"), U16("abc"), U16("\u20ac\u20ac\u20ac")),
       "\xE2\x82\xAC||\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC"},
      {Format("%.3S|%.4S|", U16("\U0001F600"), U16("\U0001F600")), "|\xF0\x9F\x98\x80|"},
      // A pair becomes one character, a lone low surrogate its own three bytes, a lone high
      // one at the end nothing.
      {Format("%S|%S|%S", U16("\U0001F600"), U16("a\xDE00" "b"), U16("a\xD83D")),
       "\xF0\x9F\x98\x80|a\xED\xB8\x80" "b|a"},
      {Format("%6S|", U16("\u00e9")), "    \xC3\xA9|"},
   };
   Check(rows);
}

TEST(BsdVsnprintf, LiteralsUnknownConversionsAndPositions)
{
   const Row rows[] = {
      {Format(""), ""},
      {Format("100%%|%5%|%-3%|"), "100%|    %|%  |"},
      {Format("%k|%3k|%05k"), "k|  k|0000k"},
      {Format("%ws|%d", 5), "ws|5"},
      {Format("abc%"), "abc"},
      {Format("ab%-"), "ab"},
      {Format("%a|%A|%d", 1.5, 1.5, 7), "a|A|0"},
      // More pieces than one batch holds, and more arguments than the slots on the stack.
      {Format("<%d><%d><%d><%d><%d><%d><%d><%d><%d>", 1, 2, 3, 4, 5, 6, 7, 8, 9), "<1><2><3><4><5><6><7><8><9>"},
      {Format("%8$d|%1$d", 1, 2, 3, 4, 5, 6, 7, 8), "8|1"},
      {Format("%9$d", 1, 2, 3, 4, 5, 6, 7, 8, 9), "9"},
      {Format("%3$d|%1$d %1$d", 1, 2, 3), "3|1 1"},
      {Format("%2$s %d", 1, "x", 9), "x 9"},
      {Format("%*2$d|%*0$d|", 42, 4), "  42|4|"},
      {Format("%1$F|%1$llx", 0x3FF8000000000000LL), "1.500000|3ff8000000000000"},
      // %F reserves no slot in the argument pass, so the %d after it runs off the table.
      {Format("%F|%d", 5), "0.000000|0"},
   };
   Check(rows);
}

TEST(BsdVsnprintf, StoreCount)
{
   const struct {
      const char *format;
      uint64_t want;
   } rows[] = {
      {"abc%n|", 0xAAAAAAAA00000003ULL},     {"abc%ln|", 0xAAAAAAAA00000003ULL}, {"abc%hn|", 0xAAAAAAAAAAAA0003ULL},
      {"abc%hhn|", 0xAAAAAAAAAAAAAA03ULL},   {"abc%lln|", 3},                    {"abc%zn|", 3},
      {"abc%I64n|", 3},
   };
   for (const auto &r : rows) {
      uint64_t slot = 0xAAAAAAAAAAAAAAAAULL;
      Formatted f = Format(r.format, &slot);
      EXPECT_EQ(slot, r.want) << r.format;
      EXPECT_EQ(f.text.back(), '|') << r.format;
   }
}

constexpr char kHundred[] =
   "0123456789abcdefghijklmnopqrstuvwxyz0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_=+"
   "!@#$^&*()[]{}<";
static_assert(sizeof kHundred == 101, "a run of one hundred bytes");

// Literal runs are found by the C library's scan, which differs by platform. A total of
// exactly 0x7fffffff is still a result; beyond it the call fails before anything of the field
// is produced, and what was copied out stands, unterminated. The public entries read the
// process's locale, which in a test is "C": '.' and no grouping.
TEST(BsdVsnprintf, FixedBufferAndGrowingMode)
{
   const std::string hundred(kHundred);
   const Row rows[] = {
      {FormatInto(0, "%s%s", "abc", ""), "", 3},
      {FormatInto(1, "%s%s", "abc", ""), "", 3},
      {FormatInto(3, "%s%s", "ab", "c"), "ab", 3},
      {FormatInto(4, "%s%s", "ab", "c"), "abc", 3},
      {FormatInto(3, "%s%s", "a\xC3\xA9", ""), "a\xC3", 3},
      {FormatInto(5, "%s%s", "abc", "def"), "abcd", 6},
      {FormatInto(8, "%2147483647d", 1), "       ", 2147483647},
      {FormatInto(8, "%d%2147483647d", 12, 1), "12~~~~~~", -1},
      {FormatInto(101, kHundred), hundred},
      {FormatInto(100, kHundred), hundred.substr(0, 99), 100},
      {FormatInto(1, kHundred), "", 100},
      {FormatInto(200, "%d after", 7), "7 after"},
      {FormatInto(200, "before %d", 7), "before 7"},
      {FormatInto(200, "a%%b%%c"), "a%b%c"},
      {FormatInto(200, "run then percent at the end %"), "run then percent at the end "},
      {FormatInto(200, "%s and a long literal run between %d", "x", 5), "x and a long literal run between 5"},
      {FormatInto(200, "positions after literal text: %2$s %1$d", 5, "five"), "positions after literal text: five 5"},
      {FormatInto(10, "%s literal", "abcdefgh"), "abcdefgh ", 16},
      // Into a fixed buffer a field goes straight after what is pending, cut alike.
      {FormatInto(4, "%08X", 0xBEEFu), "000", 8},
      {FormatInto(4, "x%08X", 0xBEEFu), "x00", 9},
      {FormatInto(3, "%-5d|", -42), "-4", 6},
      {FormatInto(200, "%+210.3d|", 7), std::string(199, ' '), 211},
      {FormatInto(300, "%#-20x%c", 255u, 'z'), "0xff" + std::string(16, ' ') + "z"},
      {FormatInto(5, "ab%.3f", 3.14159), "ab3.", 7},
      {FormatInto(3, "%+.1e", 12.5), "+1", 8},
      {FormatInto(200, "%'d|%.1f", 1234567, 0.5), "1234567|0.5"},
      // Growing mode allocates exactly the text, or nothing.
      {Format("%300d", 1), std::string(299, ' ') + "1"},
      {Format("%s", std::string(1000, 'q').c_str()), std::string(1000, 'q')},
      {Format("%s%s", std::string(63, 'a').c_str(), "b"), std::string(63, 'a') + "b"},
      {Format("ab%2147483646d", 1), "<null>", -1},
      {Format("%*d|", INT_MIN, 1), "<null>", -1},
      {Format("%.2147483647f", 1.0), "<null>", -1},
      {Format("%s%2147483647d", "x", 1), "<null>", -1},
      {Format("ab%C", 0x4E00), "<null>", -1},
   };
   Check(rows);
}

} // namespace
