// Integer text, floating digits and the UTF transforms, where the engines' tables don't reach
// (the allocating conversions are the engines' %S and wide %s),
// and the short cut of fixed digits (exact integer scaling) against the long way round.

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "format_test_util.h"

namespace {

// The 64-bit form is the engine's, and reached through it (differential and grouping
// tables); the 32-bit form's own grouping cases only from here.
TEST(UnsignedToText32, Groups)
{
   const struct {
      uint32_t value;
      bool group;
      char sep;
      const char *grouping;
      const char *want;
   } rows[] = {
      {123456789, true, ',', "\1\2\3", "123,456,78,9"},
      {0x80000000, true, ',', "\2", "21,47,48,36,48"},
      {1234567, true, ',', "\x7f", "1234567"},
      {1234567, true, ',', "\3\x7f", "1234,567"},
      {1234567, false, ',', "\3", "1234567"},
      {9, true, ',', "\1", "9"},
      {10, true, ',', "\1", "1,0"},
   };
   for (const auto &r : rows) {
      char buffer[100];
      char *end = buffer + sizeof buffer;
      EXPECT_EQ(std::string(UnsignedToText32(r.value, end, 10, false, "0123456789abcdef", r.group, r.sep, r.grouping), end),
                r.want);
   }
}

struct Digits {
   std::string digits;  // up to the end pointer
   int position;
   int sign;
};

// A long double goes through LongDoubleToDigits when `asLong` says so.
Digits ToDigits(long double value, int mode, int count, bool asLong = false)
{
   int position = 0;
   int sign = -1;
   char *end = nullptr;
   char *d = asLong ? LongDoubleToDigits(&value, mode, count, &position, &sign, &end)
                    : DoubleToDigits(static_cast<double>(value), mode, count, &position, &sign, &end);
   if (d == nullptr) {
      return {"<null>", 0, 0};
   }
   Digits r{std::string(d, end), position, sign};
   free(d);
   return r;
}

TEST(DoubleToDigits, DigitsPositionAndSign)
{
   const double inf = std::numeric_limits<double>::infinity();
   const struct {
      long double value;
      int mode;
      int count;
      const char *digits;
      int position;
      int sign;
      bool asLong = false;
   } rows[] = {
      {0.0, 2, 6, "", 1, 0},
      {-0.0, 2, 6, "", 1, 1},
      {0.0, 3, 6, "", 0, 0},
      {0.001, 3, 2, "", -2, 0},
      {0.5, 3, 0, "", 0, 0},
      {-2.5, 3, 1, "25", 1, 1},
      {5e-324, 3, 27, "", -27, 0},  // rounds to nothing: the position stops at the count
      {inf, 2, 6, "inf", 9999, 0},
      {-inf, 3, 6, "-inf", 9999, 1},
      {std::numeric_limits<double>::quiet_NaN(), 2, 6, "nan", 9999, 0},
      // Asked for more digits than the buffer holds: all of the double's exact value.
      {1.0 / 3.0, 3, 1000, "333333333333333314829616256247390992939472198486328125", 0, 0},
      {1.0 / 3.0, 2, 1000, "333333333333333314829616256247390992939472198486328125", 0, 0},
      // 0.1L is no double: the double nearest to it is what is printed.
      {0.1L, 2, 20, "10000000000000000555", 0, 0, true},
   };
   for (const auto &r : rows) {
      Digits d = ToDigits(r.value, r.mode, r.count, r.asLong);
      EXPECT_EQ(d.digits, r.digits) << r.value << " mode " << r.mode << " count " << r.count;
      EXPECT_EQ(d.position, r.position) << r.value << " mode " << r.mode << " count " << r.count;
      EXPECT_EQ(d.sign, r.sign) << r.value << " mode " << r.mode << " count " << r.count;
   }
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
      return {"", 0, 0};
   }
   int position = integerLength - static_cast<int>(first);
   s.erase(0, first);
   s.erase(s.find_last_not_of('0') + 1);
   return {s, position, 0};
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
   return {s, position, 0};
}

// Ties on both sides of the even digit, values just below and above a tie in binary, the
// 64-bit limit of the scaled value (1e19 fits, 2^64 does not), the largest fraction taken
// exactly (27) and those beyond, left to the general conversion; both signs. Significant
// digits by exact scaling: the exponent found from below, ties that carry into the next
// power of ten (99.5, 9999.5), an exact power (1000), 1e300 left to the general conversion.
TEST(DoubleToDigits, FixedAndSignificantDigitsMatchTheStandardLibrarysText)
{
   const double values[] = {
      0.125, 0.375, 3.5, 1e15 + 0.5, 4503599627370497.5, 2.675, 1.005, 0.0005, 0.1, 0.3, 123456789.125, 1e19,
      18446744073709551616.0, 3.14159265358979, 0.4375, 0.05, 0.015, 0.0049999999999999, 999.9995, 1e-5,
      123456.789, 9.999999, 1e17, 1.8e19, 4294967295.5, 2.0 / 3.0, 1.0 / 7.0, 6.02e23, 1e-300, 65535.99999,
      0.000123456789, 9007199254740993.0, 1e10 + 0.25, 7.0 / 1024.0, 1.0 / 3.0, 5e-324, 1e-30, 0.0,
      1.5, 9.9999, 99.5, 9.96, 1000.0, 9999.5, 0.001, 12345.678, 1e300,
   };
   for (double v : values) {
      for (int count = 0; count <= 40; count++) {
         Digits want = FixedDigitsFromText(v, count);
         Digits got = ToDigits(v, 3, count);
         EXPECT_EQ(got.digits, want.digits) << v << " to " << count;
         if (!want.digits.empty()) {
            EXPECT_EQ(got.position, want.position) << v << " to " << count;
         }
         Digits negative = ToDigits(-v, 3, count);
         EXPECT_EQ(negative.digits, got.digits) << -v << " to " << count;
         if (count >= 1 && count <= 25) {
            Digits significant = ToDigits(v, 2, count);
            Digits text = SignificantDigitsFromText(v, count);
            EXPECT_EQ(significant.digits, text.digits) << v << " to " << count << " digits";
            EXPECT_EQ(significant.position, text.position) << v << " to " << count << " digits";
         }
      }
   }
}

TEST(ConvertUtf16ToUtf8, ResultsAndStoppingPoints)
{
   const struct {
      std::vector<uint16_t> source;
      bool lenient;
      size_t room;
      int result;
      std::string bytes;
      size_t consumed;
   } rows[] = {
      {{0xE9, 0x7FF, 0x800}, false, 8, 0, "\xC3\xA9\xDF\xBF\xE0\xA0\x80", 3},
      {{0x20AC, 0xFFFF}, false, 8, 0, "\xE2\x82\xAC\xEF\xBF\xBF", 2},
      {{0xD83D, 0xDE00}, false, 8, 0, "\xF0\x9F\x98\x80", 2},
      {{0xDBFF, 0xDFFF}, false, 8, 0, "\xF4\x8F\xBF\xBF", 2},
      {{0xD83D}, false, 8, 1, "", 0},
      {{0x41, 0xD83D}, true, 8, 1, "A", 1},
      {{0xDE00}, true, 8, 0, "\xED\xB8\x80", 1},
      {{0xDE00}, false, 8, 3, "", 0},
      {{0xD83D, 0x41}, true, 8, 0, "\xED\xA0\xBD" "A", 2},
      {{0x41, 0xD83D, 0x41}, false, 8, 3, "A", 1},
      {{0xD83D, 0xDE00}, false, 3, 2, "", 0},
      {{0x41, 0x20AC}, false, 3, 2, "A", 1},
      {{0x41}, false, 0, 2, "", 0},
      {{}, false, 0, 0, "", 0},
   };
   for (const auto &r : rows) {
      std::vector<utf16_t> units(r.source.begin(), r.source.end());
      char out[16];
      const utf16_t *s = units.data();
      char *t = out;
      int result = ConvertUtf16ToUtf8(&s, units.data() + units.size(), &t, out + r.room, r.lenient);
      EXPECT_EQ(result, r.result) << "row with " << r.source.size() << " units, room " << r.room;
      EXPECT_EQ(std::string(out, t), r.bytes) << "result " << r.result;
      EXPECT_EQ(static_cast<size_t>(s - units.data()), r.consumed) << "result " << r.result;
   }
}

TEST(ConvertUtf8ToUtf16, ResultsAndStoppingPoints)
{
   const struct {
      std::string source;
      bool lenient;
      size_t room;
      int result;
      std::vector<uint16_t> units;
      size_t consumed;
   } rows[] = {
      {"\xC3\xA9\xE2\x82\xAC", false, 8, 0, {0xE9, 0x20AC}, 5},
      {"\xF4\x8F\xBF\xBF", false, 8, 0, {0xDBFF, 0xDFFF}, 4},
      {"\xC0\x80", true, 8, 3, {}, 0},
      {"a\xC1\xBF", false, 8, 3, {0x61}, 1},
      {"\xED\xA0\x80", true, 8, 3, {}, 0},
      {"\x80" "a", true, 8, 3, {}, 0},
      {"\xF8\x88\x80\x80\x80", true, 8, 3, {}, 0},
      {"\xC3\x28", false, 8, 3, {}, 0},
      {"\xC3", false, 8, 1, {}, 0},
      {"a\xE2\x82", true, 8, 1, {0x61}, 1},
      {"\xF0\x9F\x98\x80", false, 1, 2, {}, 0},
      {"ab", false, 1, 2, {0x61}, 1},
      {"A", false, 0, 2, {}, 0},
   };
   for (const auto &r : rows) {
      utf16_t out[16];
      const char *s = r.source.data();
      utf16_t *t = out;
      int result =
         ConvertUtf8ToUtf16(&s, r.source.data() + r.source.size(), &t, out + r.room, r.lenient);
      EXPECT_EQ(result, r.result) << r.source;
      EXPECT_EQ(std::vector<uint16_t>(out, t), r.units) << r.source;
      EXPECT_EQ(static_cast<size_t>(s - r.source.data()), r.consumed) << r.source;
   }
}

TEST(IsLegalUtf8, Boundaries)
{
   const struct {
      const char *bytes;
      size_t length;
      bool legal;
   } rows[] = {
      {"A", 1, true},
      {"\x80", 1, false},
      {"\xC2\x80", 2, true},
      {"\xC1\xBF", 2, false},
      {"\xDF\xC0", 2, false},
      {"\xE0\xA0\x80", 3, true},
      {"\xE0\x9F\xBF", 3, false},
      {"\xED\x9F\xBF", 3, true},
      {"\xEF\xBF\xBF", 3, true},
      {"\xF0\x90\x80\x80", 4, true},
      {"\xF0\x8F\xBF\xBF", 4, false},
      {"\xF4\x8F\xBF\xBF", 4, true},
      {"\xF4\x90\x80\x80", 4, false},
      {"\xF5\x80\x80\x80", 4, false},
      {"", 0, false},
   };
   for (const auto &r : rows) {
      EXPECT_EQ(IsLegalUtf8(r.bytes, r.length), r.legal) << r.length << " bytes";
   }
}

} // namespace
