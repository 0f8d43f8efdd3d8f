// Against the C library's snprintf, over the part of the format language where both must
// give the same bytes: integers of every size with every flag, strings, and the floating
// conversions (infinities without the zero flag).

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "format_test_util.h"

namespace {

const char *const kFlags[] = {"", "-", "+", " ", "0", "-+", "+0", " 0", "- ", "-0"};
const char *const kWidths[] = {"", "1", "5", "12", "25"};
const char *const kPrecisions[] = {"", ".", ".0", ".1", ".3", ".10", ".22"};

template <typename... Args>
void Compare(const std::string &format, Args... args)
{
   char expected[512];
   int want = snprintf(expected, sizeof expected, format.c_str(), args...);
   Formatted got = Format(format.c_str(), args...);
   ASSERT_LT(want, static_cast<int>(sizeof expected));
   EXPECT_EQ(got.text, std::string(expected)) << "format \"" << format << "\"";
   EXPECT_EQ(got.result, want) << "format \"" << format << "\"";
}

std::vector<std::string> Directives(const char *conversion, bool alternate, bool zero = true)
{
   std::vector<std::string> directives;
   for (const char *flags : kFlags) {
      if (!zero && strchr(flags, '0') != nullptr) {
         continue;
      }
      for (const char *width : kWidths) {
         for (const char *precision : kPrecisions) {
            std::string directive = std::string("%") + flags + width + precision + conversion;
            directives.push_back(directive);
            if (alternate) {
               directives.push_back(std::string("%#") + flags + width + precision + conversion);
            }
         }
      }
   }
   return directives;
}

TEST(Differential, IntegersOfEverySize)
{
   const int ints[] = {0, 1, -1, 7, -42, 255, 256, 1000, 65535, 65536, INT_MAX, INT_MIN, 1234567};
   const long long longs[] = {0, 1, -1, LLONG_MAX, LLONG_MIN, 1LL << 40, -(1LL << 33),
                              9999999999LL};
   for (const char *c : {"d", "i", "u", "o", "x", "X"}) {
      bool alternate = c[0] == 'o' || c[0] == 'x' || c[0] == 'X';
      for (const char *size : {"", "h", "hh"}) {
         for (const std::string &directive : Directives((std::string(size) + c).c_str(), alternate)) {
            for (int v : ints) {
               Compare("<" + directive + ">", v);
            }
         }
      }
      for (const char *size : {"ll", "z", "j", "t"}) {
         for (const std::string &directive : Directives((std::string(size) + c).c_str(), alternate)) {
            for (long long v : longs) {
               Compare("<" + directive + ">", v);
            }
         }
      }
   }
}

TEST(Differential, StringsAndCharacters)
{
   const char *const strings[] = {"", "a", "abc", "hello, world"};
   for (const char *flags : {"", "-"}) {
      for (const char *width : kWidths) {
         for (const char *precision : kPrecisions) {
            std::string directive = std::string("%") + flags + width + precision;
            for (const char *s : strings) {
               Compare("[" + directive + "s]", s);
            }
            if (precision[0] == '\0') {
               Compare("[" + directive + "c]", 'q');
            }
         }
      }
   }
}

// An infinity with the zero flag counts its width but gets no zeros, unlike the C library's.
TEST(Differential, FloatingConversions)
{
   const double inf = DBL_MAX * 2;
   const double values[] = {0.0, -0.0, 1.0, -1.0, 0.5, 1.5, 2.5, -2.5, 0.1, 0.125, 123.456,
                            -987654.321, 1e-5, 0.0001, 1e-300, 1e300, 12345678.9, 9.9999999,
                            99999.5, 0.000123456, DBL_MAX, DBL_MIN, 5e-324, 1e15, 1e16, 1e21};
   for (const char *c : {"e", "E", "f", "g", "G"}) {
      for (const std::string &directive : Directives(c, true)) {
         for (double v : values) {
            Compare("{" + directive + "}", v);
         }
      }
      for (const std::string &directive : Directives(c, true, false)) {
         Compare(directive, inf);
         Compare(directive, -inf);
      }
   }
   for (const char *c : {"e", "f", "g"}) {
      Compare(std::string("%.40") + c, 1.0 / 3.0);
      Compare(std::string("%.17") + c, 0.1);
      Compare(std::string("%.0") + c, 0.5);
   }
}

TEST(Differential, StarsAndPositions)
{
   Compare("%*d|%-*d|%.*d|", 5, 42, 6, 42, 3, 7);
   Compare("%*d|%*s|", -5, 42, -4, "ab");
   Compare("%.*f|%.*s|", -1, 1.5, -3, "abcdef");
   Compare("%2$s %1$d %2$s", 5, "ab");
   Compare("%1$*2$.*3$f|%1$e", 3.14159, 10, 2);
   Compare("%3$s%2$s%1$s", "a", "b", "c");
}

} // namespace
