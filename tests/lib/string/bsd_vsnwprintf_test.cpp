// The wide engine: where it differs from the narrow one, and that it shares the rest.

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <limits>

#include "format_test_util.h"

namespace {

using Row = FormatRow<std::u16string>;

const double kInf = std::numeric_limits<double>::infinity();
const char *const kNullText = nullptr;
const utf16_t *const kNullWide = nullptr;

TEST(BsdVsnwprintf, StringsAndCharacters)
{
   const Row rows[] = {
      {Format(U16("%s|%5s|%-3s|"), "a\xC3\xA9", "\xC3\xA9", "x"), u"a\u00e9|    \u00e9|x  |"},
      // A narrow precision counts bytes, and illegal UTF-8 ends the text.
      {Format(U16("%.2s|%.3s|%s|"), "a\xC3\xA9", "a\xC3\xA9", "ab\xC0\x80" "cd"), u"a|a\u00e9|ab|"},
      {Format(U16("%s|%.4s|%.0s|"), "\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80z", "ab"), u"\U0001F600|\U0001F600||"},
      {Format(U16("%s|%.2s|%S|%.3S"), kNullText, kNullText, kNullWide, kNullWide), u"(null)|(n|(null)|(nu"},
      // A wide precision counts units, pairs or not.
      {Format(U16("%S|%ls|%.2S|%.1S|"), U16("abc"), U16("de"), U16("xyz"), U16("\U0001F600")), u"abc|de|xy|\xD83D|"},
      {Format(U16("%c|%3c|%c"), 'A', 'b', EOF), u"A|  b|\xFFFF"},
      {Format(U16("%C|%lc"), 0x4E00, 0xD800), u"\x4E00|\xD800"},
   };
   Check(rows);
}

TEST(BsdVsnwprintf, NumbersShareTheNarrowBody)
{
   const Row rows[] = {
      {Format(U16("%d|%05d|%-4d|%#x|%X|%#o"), INT_MIN, -42, 7, 255u, 0xabcu, 8u), u"-2147483648|-0042|7   |0xff|ABC|010"},
      {Format(U16("%I64x|%I32d|%Iu|%p"), 0xd27237aaa93cc884ULL, -1, ~0ULL, reinterpret_cast<void *>(0xabc)),
       u"d27237aaa93cc884|-1|18446744073709551615|ABC"},
      {FormatIn(kIndian, U16("%'d|%'.1f|%.2e"), 1234567, 1234.25, 0.5), u"12.34.567|1.234,2|5,00e-01"},
      {Format(U16("%f|%e|%g|%G"), 1.5, 1.5, 0.0001, 1e-10), u"1.500000|1.500000e+00|0.0001|1E-10"},
      {Format(U16("%2$s %1$d"), 5, "abc"), u"abc 5"},
      {Format(U16("%a|%d"), 1.5, 7), u"a|0"},
      {Format(U16("<%d><%d><%d><%d><%d><%d><%d><%d>"), 1, 2, 3, 4, 5, 6, 7, 8), u"<1><2><3><4><5><6><7><8>"},
      // The digits' own text: infinities and NaN keep their case. %F takes the slot the
      // argument pass gave %G, which then reads past the table.
      {Format(U16("%E|%F|%G"), kInf, kInf), u"inf|inf|0"},
      {Format(U16("%f|%6f|"), -kInf, -kInf), u"-inf|  -inf|"},
      {Format(U16("%05f"), kInf), u"inf", 5},
      {Format(U16("%f"), std::numeric_limits<double>::quiet_NaN()), u"nan"},
   };
   Check(rows);
}

// A fixed buffer counts units; growing mode allocates exactly the text, or nothing.
TEST(BsdVsnwprintf, FixedBufferAndGrowingMode)
{
   const Row rows[] = {
      {FormatInto(0, U16("a%Sc"), U16("\U0001F600b")), u"", 5},
      {FormatInto(1, U16("a%Sc"), U16("\U0001F600b")), u"", 5},
      {FormatInto(3, U16("a%Sc"), U16("\U0001F600b")), u"a\xD83D", 5},
      {FormatInto(6, U16("a%Sc"), U16("\U0001F600b")), u"a\U0001F600bc"},
      {Format(U16("")), u""},
      {Format(U16("%100d"), 1), std::u16string(99, u' ') + u"1"},
      {Format(U16("ab%2147483646d"), 1), u"<null>", -1},
      {Format(U16("%.2147483647f"), 1.0), u"<null>", -1},
   };
   Check(rows);
}

} // namespace
