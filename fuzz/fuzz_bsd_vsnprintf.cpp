// The narrow engine on formats from the fuzzer. Oracles: the fixed-size target holds exactly
// the prefix of what the growing mode produces, terminated, and both report the same length;
// Str_Vsnprintf on a buffer of the same size gives the length or -1 as the total says, and a
// cut text is a terminated prefix that, when the text is valid UTF-8, ends on a character.

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "FormatFuzzSupport.h"
#include "string/bsd_vsnprintf.h"
#include "string/str.h"

using namespace fuzzsupport;

namespace {

// `bounded` goes through Str_Vsnprintf, with *buffer as its buffer.
int Format(bool bounded, char **buffer, size_t capacity, const char *format, ...)
{
   va_list ap;
   va_start(ap, format);
   int n = bounded ? Str_Vsnprintf(*buffer, capacity, format, ap)
                   : bsd_vsnprintf(buffer, capacity, format, ap);
   va_end(ap);
   return n;
}

template <size_t... D, size_t... G>
int FormatWithList(std::index_sequence<D...>, std::index_sequence<G...>, bool bounded,
                   char **buffer, size_t capacity, const char *format, const double *doubles,
                   const uint64_t *general)
{
   return Format(bounded, buffer, capacity, format, doubles[D]..., general[G]...);
}

bool IsValidUtf8(const char *text, size_t length)
{
   std::vector<utf16_t> units(length);
   const char *s = text;
   utf16_t *t = units.data();
   return ConvertUtf8ToUtf16(&s, text + length, &t, units.data() + units.size(), false) ==
          UTF_CONVERSION_DONE;
}

StringArgs gStrings;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   if (size < 2) {
      return 0;
   }
   Header header = ReadHeader(data);
   std::string format(reinterpret_cast<const char *>(data + 2), size - 2);
   bool hasStar = false;
   if (!SanitizeFormat(format, header.mode, hasStar)) {
      return -1;
   }

   const ArgumentList arguments = MakeArgumentList(header, gStrings, hasStar);
   auto run = [&](char **buffer, size_t capacity, bool bounded = false) {
      gStrings.Reset();  // %n of an earlier run must not change what this one reads
      return FormatWithList(std::make_index_sequence<kDoubleArgs>(),
                            std::make_index_sequence<kGeneralArgs>(), bounded, buffer,
                            capacity, format.c_str(), arguments.doubles, arguments.general);
   };

   char *grown = nullptr;
   int grownLength = run(&grown, 12345);

   // Exactly sized, so that a write past the capacity is caught; malloc(0) for capacity 0,
   // which must not be written at all.
   char *fixed = static_cast<char *>(std::malloc(header.capacity));
   char *fixedTarget = fixed;
   int fixedLength = run(&fixedTarget, header.capacity);
   char *bounded = static_cast<char *>(std::malloc(header.capacity));
   char *boundedTarget = bounded;
   int boundedLength = run(&boundedTarget, header.capacity, true);

   const bool fits = grownLength >= 0 && size_t(grownLength) < header.capacity;
   if (boundedLength != (fits ? grownLength : -1)) {
      __builtin_trap();
   }
   size_t boundedText = 0;
   if (header.capacity > 0) {
      // Terminated within the buffer, whatever happened.
      while (boundedText < header.capacity && bounded[boundedText] != '\0') {
         ++boundedText;
      }
      if (boundedText == header.capacity) {
         __builtin_trap();
      }
   }

   const size_t text = CheckFixedAgainstGrown(grown, grownLength, fixed, fixedTarget, fixedLength, header.capacity);
   if (grownLength >= 0 && header.capacity > 0) {
      const size_t kept = std::min(text, header.capacity - 1);
      // The bounded text is the engine's, cut back to a character boundary if it was cut.
      if (boundedText > kept || std::memcmp(bounded, grown, boundedText) != 0) {
         __builtin_trap();
      }
      if (fits && boundedText != kept) {
         __builtin_trap();
      }
      if (boundedText < text && IsValidUtf8(grown, text) &&
          (static_cast<unsigned char>(grown[boundedText]) & 0xC0) == 0x80) {
         __builtin_trap();
      }
   }
   std::free(grown);
   std::free(fixed);
   std::free(bounded);
   return 0;
}
