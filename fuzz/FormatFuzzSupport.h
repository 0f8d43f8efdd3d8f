#pragma once
// What the two engine targets share: turning fuzzer bytes into a format that can only
// consume arguments that were really passed, a fixed argument list to format from, and the
// oracle: the fixed-size target holds exactly the prefix of what the growing mode produces,
// terminated, and both report the same length.
//
// Input layout: byte 0 selects the mode and the value rotation, byte 1 the capacity of the
// fixed-size target, the rest is the format (in 16-bit units for the wide engine).
//
// The argument list relies on the x86-64 System V convention (the host preset's only
// target): eight doubles travel in xmm registers, every other argument is a 64-bit general
// slot. A general slot read as int, pointer or 16-bit character is harmless, and a double
// read past the eighth takes a general slot's bits, which is harmless too. Only a string or
// %n conversion may not see an integer, and no read may go past the list.

#if !defined(__x86_64__) || defined(_WIN32)
#error "the argument list below is laid out for the x86-64 System V calling convention"
#endif

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include "string/bsd_vsnprintf.h"

namespace fuzzsupport {

constexpr size_t kDoubleArgs = 8;
constexpr size_t kGeneralArgs = 120;
// Each '%' takes one argument at most, each '*' one more, and an argument may take three
// 8-byte slots if the engine reads a long double; 36 * 3 stays below the 117 general slots
// that go on the stack.
constexpr unsigned kMaxArgumentIndex = 36;
constexpr unsigned kMaxDigitRun = 4;

enum Mode {
   kStrings,   // general slots are pointers to writable, terminated buffers
   kIntegers,  // general slots are integers; string and %n conversions are taken out
};

struct Header {
   Mode mode;
   unsigned rotation;
   size_t capacity;
};

inline Header ReadHeader(const uint8_t *data)
{
   return {(data[0] & 1) ? kIntegers : kStrings, unsigned(data[0] >> 1), data[1]};
}

// Rejects a format that might read past the argument list or ask for gigantic fields, and
// makes it safe for the mode. Without pointers no conversion may dereference. With pointers,
// or with a '*' that turns an argument into a width, every argument must be read as the type
// it was passed as. Two things would break that: two conversions naming one argument with
// different types (it is stored as one of them, so an address could be kept as 32 bits or a
// double's bits become a pointer or a width of billions), and %a, %A and %F, which reserve
// a slot in one pass of the engine and not in the other, so that later conversions shift.
// Both are the engine's defined behaviour; they are fuzzed where every slot is harmless.
template <typename Unit>
bool SanitizeFormat(std::basic_string<Unit> &format, Mode mode, bool &hasStar)
{
   hasStar = format.find(Unit('*')) != std::basic_string<Unit>::npos;
   const bool strictTypes = mode == kStrings || hasStar;

   unsigned percents = 0;
   unsigned stars = 0;
   unsigned maxIndex = 0;
   unsigned run = 0;
   unsigned runValue = 0;
   for (Unit &u : format) {
      if (u >= '0' && u <= '9') {
         if (++run > kMaxDigitRun) {
            return false;
         }
         runValue = runValue * 10 + unsigned(u - '0');
         continue;
      }
      if (u == '$' && strictTypes) {
         u = '|';
      } else if (u == '$' && run > 0 && runValue > maxIndex) {
         maxIndex = runValue;
      }
      run = 0;
      runValue = 0;
      if (u == '%') {
         ++percents;
      } else if (u == '*') {
         ++stars;  // each takes an argument, however many one conversion has
         if (mode == kStrings) {
            // An address as a width could be two billion. Not a digit: "*5$" must not
            // turn into an argument number of 95.
            u = '-';
         }
      } else if (strictTypes && (u == 'a' || u == 'A' || u == 'F')) {
         u = 'e';
      } else if (mode == kIntegers && (u == 's' || u == 'S' || u == 'n')) {
         u = 'd';
      }
   }
   return maxIndex + percents + stars <= kMaxArgumentIndex;
}

// Four 64-byte buffers, each a terminated narrow string and, read as 16-bit units, a
// terminated wide one; %n may write its eight bytes at their start.
struct StringArgs {
   alignas(8) unsigned char buffers[4][64];

   void Reset()
   {
      std::memset(buffers, 0, sizeof buffers);
      std::memcpy(buffers[0], "plain ascii text", 16);
      std::memcpy(buffers[1], "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 \xE6\x97\xA5\xE6\x9C\xAC", 22);
      // Lone and cut sequences: an engine must not run past the terminator on them.
      std::memcpy(buffers[2], "\xC3\xE2\x82\xF0\x9F\x98\xFF\xFE\x80\xBF" "end", 13);
      // As wide text: U+00E9, a surrogate pair, a lone high and a lone low surrogate.
      const uint16_t wide[] = {0x00E9, 0xD83D, 0xDE00, 0xD800, 0x0041, 0xDC00, 0x20AC, 0};
      std::memcpy(buffers[3], wide, sizeof wide);
   }
};

inline uint64_t IntegerValue(size_t i, unsigned rotation, bool small)
{
   static const uint64_t kWide[] = {
      0, 1, uint64_t(-1), 0x7fffffff, 0x80000000, 0xffffffff, 0x7fffffffffffffff,
      0x8000000000000000, 255, 256, 300, 65535, 65536, 1234567, 0xd27237aaa93cc884,
      uint64_t(-42), 9, 10, 99, 100, 0x41, 0xE9, 0x20AC, 1000000000000000000,
   };
   // Small values only when a '*' may turn one into a width or precision. INT_MIN stays:
   // its negation as a width is a case the engine must survive.
   static const uint64_t kSmall[] = {
      0, 1, uint64_t(-1), 5, uint64_t(-5), 17, 100, uint64_t(-100), 0x80000000, 3, 0x41, 255,
   };
   if (small) {
      return kSmall[(i + rotation) % (sizeof kSmall / sizeof kSmall[0])];
   }
   return kWide[(i + rotation) % (sizeof kWide / sizeof kWide[0])];
}

inline double DoubleValue(size_t i, unsigned rotation)
{
   static const double kValues[] = {
      0.0, -0.0, 1.5, -2.25e-300, 1e300, std::numeric_limits<double>::infinity(),
      -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN(),
      123456.789, 5e-324, 0.1, 1e21, 9.9999999, 0.5, 2.5, -1234567.0,
   };
   return kValues[(i + rotation) % (sizeof kValues / sizeof kValues[0])];
}

// The fixed argument list of one run: doubles, then pointers to the string buffers or
// integers, rotated by the header so that every position sees every kind of value.
struct ArgumentList {
   double doubles[kDoubleArgs];
   uint64_t general[kGeneralArgs];
};

inline ArgumentList MakeArgumentList(const Header &header, const StringArgs &strings, bool hasStar)
{
   ArgumentList list;
   for (size_t i = 0; i < kDoubleArgs; ++i) {
      list.doubles[i] = DoubleValue(i, header.rotation);
   }
   for (size_t i = 0; i < kGeneralArgs; ++i) {
      list.general[i] = header.mode == kStrings
                           ? uint64_t(reinterpret_cast<uintptr_t>(strings.buffers[(i + header.rotation) % 4]))
                           : IntegerValue(i, header.rotation, hasStar);
   }
   return list;
}

// What a growing call and a call into a fixed buffer of `capacity` units must agree on:
// the same result, the fixed text the grown one cut to fit and terminated, and nothing left
// allocated by a failed growing call. The grown text may stop short of the reported length:
// a zero-padded infinity or NaN counts its field width but gets no zeros.
template <typename CharT>
void CheckFixedAgainstGrown(const CharT *grown, int grownLength, const CharT *fixed, const CharT *fixedTarget,
                              int fixedLength, size_t capacity)
{
   if (grownLength < 0) {
      if (grown != nullptr) {
         __builtin_trap();
      }
      return;
   }
   if (grown == nullptr || fixedLength != grownLength || fixedTarget != fixed) {
      __builtin_trap();
   }
   // The terminator is looked for, not assumed at grown[grownLength], which can lie beyond
   // the allocation.
   size_t text = 0;
   while (grown[text] != 0) {
      ++text;
   }
   if (text > size_t(grownLength)) {
      __builtin_trap();
   }
   if (capacity > 0) {
      const size_t kept = std::min(text, capacity - 1);
      if (std::memcmp(fixed, grown, kept * sizeof *fixed) != 0 || fixed[kept] != 0) {
         __builtin_trap();
      }
   }
}

// The public entry of the engine for the unit type, called with the list's arguments.
template <typename CharT>
int Engine(CharT **buffer, size_t capacity, const CharT *format, ...)
{
   va_list ap;
   va_start(ap, format);
   int n;
   if constexpr (sizeof(CharT) == 1) {
      n = bsd_vsnprintf(buffer, capacity, format, ap);
   } else {
      n = bsd_vsnwprintf(buffer, capacity, format, ap);
   }
   va_end(ap);
   return n;
}

template <typename CharT, size_t... D, size_t... G>
int FormatWithList(std::index_sequence<D...>, std::index_sequence<G...>, CharT **buffer, size_t capacity,
                   const CharT *format, const ArgumentList &list)
{
   return Engine(buffer, capacity, format, list.doubles[D]..., list.general[G]...);
}

// One input through the growing and the fixed-size mode of an engine. The fixed buffer is
// exactly sized, so that a write past the capacity is caught; malloc(0) for capacity 0,
// which must not be written at all.
template <typename CharT>
int CheckEngine(std::basic_string<CharT> format, const Header &header)
{
   static StringArgs strings;
   bool hasStar = false;
   if (!SanitizeFormat(format, header.mode, hasStar)) {
      return -1;
   }
   const ArgumentList arguments = MakeArgumentList(header, strings, hasStar);
   auto run = [&](CharT **buffer, size_t capacity) {
      strings.Reset();  // %n of an earlier run must not change what this one reads
      return FormatWithList(std::make_index_sequence<kDoubleArgs>(), std::make_index_sequence<kGeneralArgs>(),
                            buffer, capacity, format.c_str(), arguments);
   };
   CharT *grown = nullptr;
   const int grownLength = run(&grown, 12345);
   CharT *fixed = static_cast<CharT *>(std::malloc(header.capacity * sizeof(CharT)));
   CharT *fixedTarget = fixed;
   const int fixedLength = run(&fixedTarget, header.capacity);
   CheckFixedAgainstGrown(grown, grownLength, fixed, fixedTarget, fixedLength, header.capacity);
   std::free(grown);
   std::free(fixed);
   return 0;
}

} // namespace fuzzsupport
