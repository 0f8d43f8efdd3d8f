// The engines' short cuts against the long way round: fixed and significant digits by exact
// integer scaling, decimal digits two at a time, literal runs found by the C library's scan,
// fields copied without the batch, and the locale read only when a conversion asks for it.

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "string/bsd_vsnprintf.h"
#include "string/str.h"

namespace {

struct Digits {
   std::string digits;  // up to the end pointer
   int position;
};

Digits FixedDigits(double value, int count, int mode = 3)
{
   int position = 0;
   int sign = 0;
   char *end = nullptr;
   char *d = DoubleToDigits(value, mode, count, &position, &sign, &end);
   if (d == nullptr) {
      return {"<null>", 0};
   }
   Digits r{std::string(d, end), position};
   free(d);
   return r;
}

// The same digits taken from the standard library's fixed text: the point removed, leading
// zeros dropped and counted, trailing zeros dropped.
Digits FixedDigitsFromText(double value, int count)
{
   char text[512];
   auto r = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, count);
   std::string s(text, r.ptr);
   size_t point = s.find('.');
   int integerLength = static_cast<int>(point == std::string::npos ? s.size() : point);
   if (point != std::string::npos) {
      s.erase(point, 1);
   }
   size_t first = s.find_first_not_of('0');
   if (first == std::string::npos) {
      return {"", 0};
   }
   int position = integerLength - static_cast<int>(first);
   s.erase(0, first);
   s.erase(s.find_last_not_of('0') + 1);
   return {s, position};
}

// The same from the scientific text: `count` significant digits, the exponent read.
Digits SignificantDigitsFromText(double value, int count)
{
   char text[512];
   auto r = std::to_chars(text, text + sizeof text, value, std::chars_format::scientific, count - 1);
   std::string s(text, r.ptr);
   size_t e = s.find('e');
   int position = std::stoi(s.substr(e + 1)) + 1;
   s.erase(e);
   s.erase(std::remove(s.begin(), s.end(), '.'), s.end());
   s.erase(s.find_last_not_of('0') + 1);
   return {s, position};
}

// Ties, the 64-bit limit of the scaled value, the largest fraction taken exactly and the
// values that are left to the general conversion, worked out by hand in decimal.
TEST(FixedDigits, ExactScalingRoundsAsTheGeneralConversion)
{
   const struct {
      double value;
      int count;
      const char *digits;
      int position;
   } rows[] = {
      {0.125, 2, "12", 0},    // a tie: to the even digit
      {0.375, 2, "38", 0},    // a tie: up to the even digit
      {3.5, 0, "4", 1},
      {1e15 + 0.5, 0, "1", 16},
      {4503599627370497.5, 0, "4503599627370498", 16},
      {2.675, 2, "267", 1},   // below the tie in binary
      {1.005, 2, "1", 1},
      {0.0005, 3, "1", -2},   // just above the tie in binary
      {0.1, 20, "10000000000000000555", 0},
      {0.3, 17, "29999999999999999", 0},
      {1.0 / 3.0, 27, "333333333333333314829616256", 0},
      {123456789.125, 10, "123456789125", 9},
      {1e19, 0, "1", 20},                              // scaled value fits 64 bits
      {18446744073709551616.0, 0, "18446744073709551616", 20},  // 2^64: it does not
      {1e19, 1, "1", 20},
      {5e-324, 27, "", -27},  // a subnormal that rounds to nothing
      {1e-30, 27, "", -27},
      {0.0, 5, "", 0},
      // Significant digits (given as -count): the exponent found from below, ties, carries.
      {0.125, -2, "12", 0},
      {99.5, -2, "1", 3},     // a tie that rounds up to the next power of ten
      {9.96, -2, "1", 2},
      {1000.0, -1, "1", 4},   // 2^9: one below the decimal exponent
      {9999.5, -4, "1", 5},   // just below 10^4, rounds up to it
      {0.001, -3, "1", -2},
      {12345.678, -6, "123457", 5},
      {1e300, -6, "1", 301},  // left to the general conversion
      {5e-324, -3, "494", -323},
   };
   for (const auto &r : rows) {
      Digits d = r.count < 0 ? FixedDigits(r.value, -r.count, 2) : FixedDigits(r.value, r.count);
      EXPECT_EQ(d.digits, r.digits) << r.value << " to " << r.count;
      EXPECT_EQ(d.position, r.position) << r.value << " to " << r.count;
   }
}

TEST(FixedDigits, EveryShortConversionMatchesTheText)
{
   const double values[] = {
      3.14159265358979, 0.4375,        2.5,         0.05,     0.015,   0.0049999999999999,
      999.9995,         1e-5,          123456.789,  9.999999, 1e17,    1.8e19,
      4294967295.5,     2.0 / 3.0,     1.0 / 7.0,   6.02e23,  1e-300,  65535.99999,
      0.000123456789,   9007199254740993.0, 1e10 + 0.25, 7.0 / 1024.0,
   };
   for (double v : values) {
      for (int count = 0; count <= 40; count++) {
         Digits want = FixedDigitsFromText(v, count);
         Digits got = FixedDigits(v, count);
         EXPECT_EQ(got.digits, want.digits) << v << " to " << count;
         if (!want.digits.empty()) {
            EXPECT_EQ(got.position, want.position) << v << " to " << count;
         }
         Digits negative = FixedDigits(-v, count);
         EXPECT_EQ(negative.digits, got.digits) << -v << " to " << count;
         if (count >= 1 && count <= 25) {
            Digits significant = FixedDigits(v, count, 2);
            Digits text = SignificantDigitsFromText(v, count);
            EXPECT_EQ(significant.digits, text.digits) << v << " to " << count << " digits";
            EXPECT_EQ(significant.position, text.position) << v << " to " << count << " digits";
         }
      }
   }
}

std::string Format(const char *format, ...)
{
   char buffer[512];
   va_list ap;
   va_start(ap, format);
   int n = Str_Vsnprintf(buffer, sizeof buffer, format, ap);
   va_end(ap);
   return n < 0 ? std::string("<-1>") : std::string(buffer, static_cast<size_t>(n));
}

TEST(EngineFastPaths, DecimalDigitsOfEveryLength)
{
   const struct {
      std::string got;
      const char *want;
   } rows[] = {
      {Format("%d", 0), "0"},
      {Format("%d", 9), "9"},
      {Format("%d", 10), "10"},
      {Format("%d", 99), "99"},
      {Format("%d", 100), "100"},
      {Format("%d", -1000), "-1000"},
      {Format("%d", 10001), "10001"},
      {Format("%d", INT_MAX), "2147483647"},
      {Format("%d", INT_MIN), "-2147483648"},
      {Format("%u", 2147483648u), "2147483648"},
      {Format("%u", 4294967295u), "4294967295"},
      {Format("%lld", 4294967296LL), "4294967296"},
      {Format("%lld", LLONG_MIN), "-9223372036854775808"},
      {Format("%llu", 9223372036854775808ULL), "9223372036854775808"},
      {Format("%llu", 18446744073709551615ULL), "18446744073709551615"},
      {Format("%llu", 10000000000000000000ULL), "10000000000000000000"},
      {Format("%hd", -1234), "-1234"},
      {Format("%05d", 42), "00042"},
   };
   for (const auto &r : rows) {
      EXPECT_EQ(r.got, r.want);
   }
}

struct Stored {
   int result;
   std::string text;
};

Stored FormatInto(size_t capacity, const char *format, ...)
{
   char buffer[512];
   memset(buffer, '#', sizeof buffer);
   char *target = buffer;
   va_list ap;
   va_start(ap, format);
   int n = bsd_vsnprintf(&target, capacity, format, ap);
   va_end(ap);
   return {n, std::string(buffer, strnlen(buffer, sizeof buffer))};
}

constexpr char kHundred[] =
   "0123456789abcdefghijklmnopqrstuvwxyz0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_=+"
   "!@#$^&*()[]{}<";
static_assert(sizeof kHundred == 101, "a run of one hundred bytes");

TEST(EngineFastPaths, LiteralRunsAroundConversionsAndCapacity)
{
   const std::string hundred(kHundred);
   const struct {
      Stored got;
      int result;
      std::string text;
   } rows[] = {
      {FormatInto(200, kHundred), 100, hundred},
      {FormatInto(101, kHundred), 100, hundred},
      {FormatInto(100, kHundred), 100, hundred.substr(0, 99)},
      {FormatInto(50, kHundred), 100, hundred.substr(0, 49)},
      {FormatInto(1, kHundred), 100, ""},
      {FormatInto(200, "%d after", 7), 7, "7 after"},
      {FormatInto(200, "before %d", 7), 8, "before 7"},
      {FormatInto(200, "a%%b%%c"), 5, "a%b%c"},
      {FormatInto(200, "run then percent at the end %"), 28, "run then percent at the end "},
      {FormatInto(200, "%s and a long literal run between %d", "x", 5), 34,
       "x and a long literal run between 5"},
      {FormatInto(200, "positions after literal text: %2$s %1$d", 5, "five"), 36,
       "positions after literal text: five 5"},
      {FormatInto(10, "%s literal", "abcdefgh"), 16, "abcdefgh "},
      // Into a fixed buffer a field goes straight after what is pending, cut alike.
      {FormatInto(4, "%08X", 0xBEEFu), 8, "000"},
      {FormatInto(4, "x%08X", 0xBEEFu), 9, "x00"},
      {FormatInto(3, "%-5d|", -42), 6, "-4"},
      {FormatInto(200, "%+210.3d|", 7), 211, std::string(199, ' ')},
      {FormatInto(300, "%#-20x%c", 255u, 'z'), 21, "0xff" + std::string(16, ' ') + "z"},
      {FormatInto(5, "ab%.3f", 3.14159), 7, "ab3."},
      {FormatInto(3, "%+.1e", 12.5), 8, "+1"},
   };
   for (const auto &r : rows) {
      EXPECT_EQ(r.got.result, r.result) << r.text;
      EXPECT_EQ(r.got.text, r.text);
   }
}

std::string FormatWith(const BsdFormatLocale &locale, const char *format, ...)
{
   char *out = nullptr;
   va_list ap;
   va_start(ap, format);
   int n = BsdVsnprintfCore(&out, 0, &locale, format, ap);
   va_end(ap);
   std::string s = n < 0 ? std::string("<-1>") : std::string(out);
   free(out);
   return s;
}

// The locale is read when a conversion first needs it; a given locale still rules every
// conversion after the first.
TEST(EngineFastPaths, GivenLocaleServesEveryConversion)
{
   const BsdFormatLocale commaPoint = {',', '.', "\3"};
   const struct {
      std::string got;
      const char *want;
   } rows[] = {
      {FormatWith(commaPoint, "%d %.1f", 5, 1.5), "5 1,5"},
      {FormatWith(commaPoint, "%.1f %.2f %'d", 1.5, 0.25, 1234567), "1,5 0,25 1.234.567"},
      {FormatWith(commaPoint, "%'d %.1f", 1234, 2.5), "1.234 2,5"},
      {FormatWith(commaPoint, "%e", 1.5), "1,500000e+00"},
      {FormatWith(commaPoint, "%d", 1234567), "1234567"},
   };
   for (const auto &r : rows) {
      EXPECT_EQ(r.got, r.want);
   }
}

} // namespace
