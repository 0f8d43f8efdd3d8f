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
constexpr int kDigitBufferSize = kDoubleDigitsSize;
constexpr int kMaxDigits = kDigitBufferSize - 1;
// A double has at most this many digits before the point.
constexpr int kMaxIntegerDigits = 309;

// The exponent that std::to_chars writes behind the 'e' of its scientific form: a sign and
// at least two digits. Read here because atoi goes through the locale-aware strtol.
int ScientificExponent(const char *p)
{
   bool negative = *p == '-';
   if (*p == '-' || *p == '+') {
      p++;
   }
   int n = 0;
   for (; *p >= '0' && *p <= '9'; p++) {
      n = n * 10 + (*p - '0');
   }
   return negative ? -n : n;
}

// Decimal exponent of a finite, non-zero magnitude: the e in d.ddd * 10^e.
int DigitsDecimalExponent(double magnitude)
{
   char text[32];
   auto r = std::to_chars(text, text + sizeof text, magnitude, std::chars_format::scientific);
   *r.ptr = '\0';
   return ScientificExponent(strchr(text, 'e') + 1);
}

#if defined(__SIZEOF_INT128__)
// 5^0 to 5^27: the largest power whose product with a 53-bit significand fits 128 bits.
constexpr int kMaxExactFraction = 27;
constexpr uint64_t kPowersOf5[kMaxExactFraction + 1] = {
   1ull, 5ull, 25ull, 125ull, 625ull, 3125ull, 15625ull, 78125ull, 390625ull, 1953125ull,
   9765625ull, 48828125ull, 244140625ull, 1220703125ull, 6103515625ull, 30517578125ull,
   152587890625ull, 762939453125ull, 3814697265625ull, 19073486328125ull, 95367431640625ull,
   476837158203125ull, 2384185791015625ull, 11920928955078125ull, 59604644775390625ull,
   298023223876953125ull, 1490116119384765625ull, 7450580596923828125ull};

// The bits of a non-negative double and its biased binary exponent, which is 0 for zero
// and the subnormals: the exact conversions below leave those to the general path.
int BiasedExponent(double magnitude, uint64_t *bits)
{
   memcpy(bits, &magnitude, sizeof *bits);
   return static_cast<int>(*bits >> 52);
}

// `count` digits behind the point for the common case of a short fraction of a moderate
// value, without the general conversion: value * 10^count is m * 5^count * 2^shift
// exactly, and rounding that to an integer (ties to even, as the general path does) is
// a shift. Gives false when the scaled value does not fit 64 bits or rounds to nothing;
// the general path takes those.
bool DigitsFixedExact(char *out, double magnitude, int count, int *position, char **end)
{
   uint64_t bits;
   int biased = BiasedExponent(magnitude, &bits);
   if (count > kMaxExactFraction || biased == 0) {
      return false;
   }
   uint64_t significand = (bits & ((uint64_t{1} << 52) - 1)) | (uint64_t{1} << 52);
   int shift = biased - 1075 + count;
   unsigned __int128 scaled = static_cast<unsigned __int128>(significand) * kPowersOf5[count];
   uint64_t rounded;
   if (shift >= 0) {
      if (shift >= 64 || (scaled >> (64 - shift)) != 0) {
         return false;
      }
      rounded = static_cast<uint64_t>(scaled << shift);
   } else {
      int k = -shift;
      if (k >= 128) {
         return false;
      }
      unsigned __int128 quotient = scaled >> k;
      unsigned __int128 remainder = scaled - (quotient << k);
      unsigned __int128 half = static_cast<unsigned __int128>(1) << (k - 1);
      if (quotient >= UINT64_MAX) {
         return false;
      }
      rounded = static_cast<uint64_t>(quotient);
      if (remainder > half || (remainder == half && (rounded & 1) != 0)) {
         rounded++;
      }
   }
   if (rounded == 0) {
      return false;
   }
   char text[24];
   char *textEnd = text + sizeof text;
   char *first = bsdfmt::DecimalText64<char>(rounded, textEnd);
   size_t n = static_cast<size_t>(textEnd - first);
   memcpy(out, first, n);
   out[n] = '\0';
   *position = static_cast<int>(n) - count;
   *end = out + n;
   return true;
}
#endif

#if defined(__SIZEOF_INT128__)
// Significant digits that the scaled integer above holds whatever they are.
constexpr int kMaxExactSignificant = 19;
constexpr int kExactPowersOf10 = 23;  // 10^0 to 10^22 are exact doubles
constexpr double kPowersOf10[kExactPowersOf10] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                  1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                  1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// `count` significant digits are the digits of the value with count - 1 - E digits behind
// the point, E being its decimal exponent, so the exact fixed conversion above gives them
// too. E is found on the way: the search starts from the decimal exponent of 2^b, b the
// binary exponent, which is E or one below it (floor(b * log10(2)) is (b * 78913) >> 18 for
// every b a double has), moved up where a comparison with an exact power of ten shows that
// the value has reached it. While there are more than `count` digits, one digit less goes
// behind the point. Below E there are always more; at E there are `count`, or `count` + 1
// when they rounded up to 10^count, and then one step more gives 10^(count - 1) with the
// position one higher, which is what the general conversion gives. False for what the
// fixed conversion leaves to the general path.
bool DigitsSignificantExact(char *out, double magnitude, int count, int *position, char **end)
{
   uint64_t bits;
   int biased = BiasedExponent(magnitude, &bits);
   if (count < 1 || count > kMaxExactSignificant || biased == 0) {
      return false;
   }
   int start = ((biased - 1023) * 78913) >> 18;
   // Where the next power of ten is exact as a double, one comparison tells whether E is
   // above the start, and saves the round that would find it out.
   if (start >= -1 && start + 1 < kExactPowersOf10 && magnitude >= kPowersOf10[start + 1]) {
      start++;
   }
   for (int exponent = start; exponent <= start + 2; exponent++) {
      int fraction = count - 1 - exponent;
      if (fraction < 0 || !DigitsFixedExact(out, magnitude, fraction, position, end)) {
         return false;
      }
      if (*end - out <= count) {
         return *end - out == count;
      }
   }
   return false;
}
#endif

// `count` significant digits. Returns the end of the digits.
char *DigitsSignificant(char *out, double magnitude, int count, int *position)
{
#if defined(__SIZEOF_INT128__)
   char *exactEnd;
   if (DigitsSignificantExact(out, magnitude, count, position, &exactEnd)) {
      return exactEnd;
   }
#endif
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
   *position = ScientificExponent(p + 1) + 1;
   return o;
}

// `count` digits behind the decimal point, leading zeros dropped. Returns the end of the
// digits.
char *DigitsFixed(char *out, double magnitude, int count, int *position)
{
   if (count < 0) {
      count = 0;
   }
#if defined(__SIZEOF_INT128__)
   char *exactEnd;
   if (DigitsFixedExact(out, magnitude, count, position, &exactEnd)) {
      return exactEnd;
   }
#endif
   // The exponent costs a conversion of its own. It is needed to cut a long fraction to
   // the digit limit, which no value can reach with this few digits behind the point,
   // and to place a value that rounds to nothing; it is found only then.
   int exponent = 0;
   bool haveExponent = false;
   if (count > kMaxDigits - kMaxIntegerDigits) {
      exponent = magnitude == 0 ? 0 : DigitsDecimalExponent(magnitude);
      haveExponent = true;
      int integerDigits = exponent >= 0 ? exponent + 1 : 0;
      if (static_cast<int64_t>(integerDigits) + count > kMaxDigits) {
         count = kMaxDigits > integerDigits ? kMaxDigits - integerDigits : 0;
      }
   }
   // Up to 309 integer digits, the point and the fraction.
   char text[2 * kDigitBufferSize + 16];
   auto r = std::to_chars(text, text + sizeof text, magnitude, std::chars_format::fixed, count);
   *r.ptr = '\0';
   const char *point = static_cast<const char *>(memchr(text, '.', static_cast<size_t>(r.ptr - text)));
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
      if (!haveExponent && magnitude != 0) {
         exponent = DigitsDecimalExponent(magnitude);
      }
      *position = magnitude == 0 ? 0 : exponent + 1;
   } else {
      *position = integerLength - skipped;
   }
   return o;
}

} // namespace

char *DoubleToDigits(double value, int mode, int count, int *position, int *sign, char **end)
{
   char *buffer = static_cast<char *>(malloc(kDigitBufferSize));
   if (buffer == nullptr) {
      return nullptr;
   }
   DoubleToDigitsInto(buffer, value, mode, count, position, sign, end);
   return buffer;
}

void DoubleToDigitsInto(char *buffer, double value, int mode, int count, int *position,
                        int *sign, char **end)
{
   *sign = std::signbit(value) ? 1 : 0;
   char *e;
   if (std::isnan(value)) {
      memcpy(buffer, "nan", 4);
      e = buffer + 3;
      *position = 9999;
   } else if (std::isinf(value)) {
      const char *text = *sign ? "-inf" : "inf";
      size_t n = strlen(text);
      memcpy(buffer, text, n + 1);
      e = buffer + n;
      *position = 9999;
   } else if (mode == 2) {
      e = DigitsSignificant(buffer, std::fabs(value), count, position);
   } else {
      e = DigitsFixed(buffer, std::fabs(value), count, position);
      if (buffer[0] == '\0' && *position < 0 && *position < -count) {
         *position = -count;
      }
   }
   while (e > buffer && e[-1] == '0') {
      e--;
   }
   *end = e;
}

char *LongDoubleToDigits(const long double *value, int mode, int count, int *position, int *sign,
                         char **end)
{
   return DoubleToDigits(static_cast<double>(*value), mode, count, position, sign, end);
}
