// Digits of integers and floating values for the formatting engines.
//
// The floating digits come from std::to_chars, which is correctly rounded and gives the
// same bytes with every standard library we build with. It is shaped here into the
// ecvt/fcvt interface the engines were written against: a bare digit string, the decimal
// position relative to its start, and a separate sign.

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstdint>
#include <cstring>

#include "string/bsd_fmt_int.h"
#include "string/bsd_vsnprintf.h"

char *UnsignedToText32(uint32_t value, char *end, int base, bool octalZero, const char *digits,
                       bool needGrouping, char separator, const char *grouping)
{
   return bsdfmt::UnsignedToText<char, uint32_t, int32_t>(value, end, base, octalZero, digits,
                                                         needGrouping, separator, grouping);
}

char *UnsignedToText64(uint64_t value, char *end, int base, bool octalZero, const char *digits,
                       bool needGrouping, char separator, const char *grouping)
{
   return bsdfmt::UnsignedToText64<char>(value, end, base, octalZero, digits, needGrouping,
                                         separator, grouping);
}

int ExponentText(char *out, int exponent, int letter)
{
   return bsdfmt::ExponentText<char>(out, exponent, letter);
}

namespace {

// The runtime routines this replaces hand out at most this many bytes of digits,
// terminator included; asking for more gives the most that fit, and the engines pad the
// rest with zeros.
constexpr int kDigitBufferSize = 349;
constexpr int kMaxDigits = kDigitBufferSize - 1;

// Decimal exponent of a finite, non-zero magnitude: the e in d.ddd * 10^e.
int DigitsDecimalExponent(double magnitude)
{
   char text[32];
   auto r = std::to_chars(text, text + sizeof text, magnitude, std::chars_format::scientific);
   *r.ptr = '\0';
   return atoi(strchr(text, 'e') + 1);
}

// `count` significant digits.
void DigitsSignificant(char *out, double magnitude, int count, int *position)
{
   if (count < 1) {
      count = 1;
   } else if (count > kMaxDigits) {
      count = kMaxDigits;
   }
   char text[kMaxDigits + 16];
   auto r = std::to_chars(text, text + sizeof text, magnitude, std::chars_format::scientific,
                          count - 1);
   *r.ptr = '\0';
   char *o = out;
   const char *p = text;
   for (; *p != 'e'; p++) {
      if (*p != '.') {
         *o++ = *p;
      }
   }
   *o = '\0';
   *position = atoi(p + 1) + 1;
}

// `count` digits behind the decimal point, leading zeros dropped.
void DigitsFixed(char *out, double magnitude, int count, int *position)
{
   int exponent = magnitude == 0 ? 0 : DigitsDecimalExponent(magnitude);
   int integerDigits = exponent >= 0 ? exponent + 1 : 0;
   if (count < 0) {
      count = 0;
   }
   if (static_cast<int64_t>(integerDigits) + count > kMaxDigits) {
      count = kMaxDigits > integerDigits ? kMaxDigits - integerDigits : 0;
   }
   // Up to 309 integer digits, the point and the fraction.
   char text[2 * kDigitBufferSize + 16];
   auto r = std::to_chars(text, text + sizeof text, magnitude, std::chars_format::fixed, count);
   *r.ptr = '\0';
   const char *point = strchr(text, '.');
   int integerLength = point ? static_cast<int>(point - text) : static_cast<int>(r.ptr - text);
   const char *p = text;
   int skipped = 0;
   while (*p == '0' || *p == '.') {
      if (*p == '0') {
         skipped++;
      }
      p++;
   }
   char *o = out;
   for (; *p != '\0'; p++) {
      if (*p != '.') {
         *o++ = *p;
      }
   }
   *o = '\0';
   if (o == out) {
      // Nothing left after rounding: the position is that of the value's first digit.
      *position = magnitude == 0 ? 0 : exponent + 1;
   } else {
      *position = integerLength - skipped;
   }
}

} // namespace

char *DoubleToDigits(double value, int mode, int count, int *position, int *sign, char **end)
{
   char *buffer = static_cast<char *>(malloc(kDigitBufferSize));
   if (buffer == nullptr) {
      return nullptr;
   }
   *sign = std::signbit(value) ? 1 : 0;
   if (std::isnan(value)) {
      strcpy(buffer, "nan");
      *position = 9999;
   } else if (std::isinf(value)) {
      strcpy(buffer, *sign ? "-inf" : "inf");
      *position = 9999;
   } else if (mode == 2) {
      DigitsSignificant(buffer, std::fabs(value), count, position);
   } else {
      DigitsFixed(buffer, std::fabs(value), count, position);
      if (buffer[0] == '\0' && *position < 0 && *position < -count) {
         *position = -count;
      }
   }
   char *e = buffer + strlen(buffer);
   while (e > buffer && e[-1] == '0') {
      e--;
   }
   *end = e;
   return buffer;
}

char *LongDoubleToDigits(const long double *value, int mode, int count, int *position, int *sign,
                         char **end)
{
   return DoubleToDigits(static_cast<double>(*value), mode, count, position, sign, end);
}
