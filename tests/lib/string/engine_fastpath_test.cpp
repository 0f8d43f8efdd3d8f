// The engines' short cuts against the long way round: fixed digits by exact integer scaling
// against the standard library's fixed text, and literal runs found by the C library's scan.
// Decimal digits two at a time are the differential test's, a locale read late the
// grouping table's.

#include <gtest/gtest.h>

#include <charconv>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "string/bsd_vsnprintf.h"

namespace {

struct Digits {
   std::string digits;  // up to the end pointer
   int position;
};

Digits FixedDigits(double value, int count)
{
   int position = 0;
   int sign = 0;
   char *end = nullptr;
   char *d = DoubleToDigits(value, 3, count, &position, &sign, &end);
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

// Ties on both sides of the even digit, values just below and above a tie in binary, the
// 64-bit limit of the scaled value (1e19 fits, 2^64 does not), the largest fraction taken
// exactly (27) and those beyond, left to the general conversion; both signs.
TEST(FixedDigits, MatchTheFixedTextAtEveryCount)
{
   const double values[] = {
      0.125, 0.375, 3.5, 1e15 + 0.5, 4503599627370497.5, 2.675, 1.005, 0.0005, 0.1, 0.3, 123456789.125, 1e19,
      18446744073709551616.0, 3.14159265358979, 0.4375, 0.05, 0.015, 0.0049999999999999, 999.9995, 1e-5,
      123456.789, 9.999999, 1e17, 1.8e19, 4294967295.5, 2.0 / 3.0, 1.0 / 7.0, 6.02e23, 1e-300, 65535.99999,
      0.000123456789, 9007199254740993.0, 1e10 + 0.25, 7.0 / 1024.0, 1.0 / 3.0, 5e-324, 1e-30, 0.0,
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
      }
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
   };
   for (const auto &r : rows) {
      EXPECT_EQ(r.got.result, r.result) << r.text;
      EXPECT_EQ(r.got.text, r.text);
   }
}

} // namespace
