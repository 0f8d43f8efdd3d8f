#pragma once
// Integer and exponent text for both engines: one body, instantiated for narrow and for
// 16-bit characters. Internal to lib/string.

#include <climits>
#include <cstdint>
#include <cstdlib>

namespace bsdfmt {

// "00" "01" ... "99": the two digits of each remainder by 100.
inline constexpr char kDigitPairs[201] =
   "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
   "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
   "8081828384858687888990919293949596979899";

// Decimal digits with no separators to place, written backwards so that they end just
// before `cp`; returns their start. With no digit to count, taking two digits per division
// halves the chain of dependent divisions that dominates this loop.
template <typename CharT, typename UInt>
inline CharT *DecimalText(UInt value, CharT *cp)
{
   while (value >= 100) {
      unsigned pair = static_cast<unsigned>(value % 100) * 2;
      value /= 100;
      cp -= 2;
      cp[0] = static_cast<CharT>(kDigitPairs[pair]);
      cp[1] = static_cast<CharT>(kDigitPairs[pair + 1]);
   }
   if (value >= 10) {
      unsigned pair = static_cast<unsigned>(value) * 2;
      cp -= 2;
      cp[0] = static_cast<CharT>(kDigitPairs[pair]);
      cp[1] = static_cast<CharT>(kDigitPairs[pair + 1]);
   } else {
      *--cp = static_cast<CharT>('0' + value);
   }
   return cp;
}

// Hexadecimal digits from `digits` (either case), at least one, ending just before `cp`.
template <typename CharT, typename UInt>
inline CharT *HexText(UInt value, CharT *cp, const CharT *digits)
{
   do {
      *--cp = digits[value & 15];
      value >>= 4;
   } while (value != 0);
   return cp;
}

// 32-bit division is the cheaper one, and most values fit.
template <typename CharT>
inline CharT *DecimalText64(uint64_t value, CharT *cp)
{
   if (value <= UINT32_MAX) {
      return DecimalText<CharT, uint32_t>(static_cast<uint32_t>(value), cp);
   }
   return DecimalText<CharT, uint64_t>(value, cp);
}

// Base 10 with separators divides signed: most values are below the signed limit and
// signed division by a constant is the cheaper one on the machines this came from. One
// unsigned step brings a larger value into range; that digit counts towards the first group.
template <typename CharT, typename UInt, typename SInt>
CharT *UnsignedToText(UInt value, CharT *cp, int base, bool octalZero, const CharT *digits,
                      bool needGrouping, CharT separator, const char *grouping)
{
   switch (base) {
   case 10: {
      if (value < 10 || !needGrouping) {
         return DecimalText<CharT, UInt>(value, cp);
      }
      int ndig = 0;
      SInt sval;
      if (value > static_cast<UInt>(~static_cast<UInt>(0) >> 1)) {
         *--cp = static_cast<CharT>('0' + value % 10);
         ndig++;
         sval = static_cast<SInt>(value / 10);
      } else {
         sval = static_cast<SInt>(value);
      }
      do {
         *--cp = static_cast<CharT>('0' + sval % 10);
         ndig++;
         if (needGrouping && ndig == *grouping && *grouping != CHAR_MAX && sval > 9) {
            *--cp = separator;
            ndig = 0;
            if (grouping[1] != '\0') {
               grouping++;
            }
         }
         sval /= 10;
      } while (sval != 0);
      return cp;
   }
   case 8:
      do {
         *--cp = static_cast<CharT>('0' + (value & 7));
         value >>= 3;
      } while (value != 0);
      if (octalZero && *cp != '0') {
         *--cp = '0';
      }
      return cp;
   case 16:
      return HexText<CharT, UInt>(value, cp, digits);
   default:
      abort();
   }
}

template <typename CharT>
CharT *UnsignedToText64(uint64_t value, CharT *end, int base, bool octalZero,
                        const CharT *digits, bool needGrouping, CharT separator,
                        const char *grouping)
{
   if (value <= UINT32_MAX) {
      return UnsignedToText<CharT, uint32_t, int32_t>(static_cast<uint32_t>(value), end, base,
                                                      octalZero, digits, needGrouping,
                                                      separator, grouping);
   }
   return UnsignedToText<CharT, uint64_t, int64_t>(value, end, base, octalZero, digits,
                                                   needGrouping, separator, grouping);
}

template <typename CharT>
int ExponentText(CharT *out, int exponent, int letter)
{
   CharT *p = out;
   *p++ = static_cast<CharT>(letter);
   unsigned magnitude;
   if (exponent < 0) {
      magnitude = 0u - static_cast<unsigned>(exponent);
      *p++ = '-';
   } else {
      magnitude = static_cast<unsigned>(exponent);
      *p++ = '+';
   }
   CharT reversed[12];
   int n = 0;
   do {
      reversed[n++] = static_cast<CharT>('0' + magnitude % 10);
      magnitude /= 10;
   } while (magnitude != 0);
   if (n < 2) {
      reversed[n++] = '0';
   }
   while (n > 0) {
      *p++ = reversed[--n];
   }
   return static_cast<int>(p - out);
}

} // namespace bsdfmt
