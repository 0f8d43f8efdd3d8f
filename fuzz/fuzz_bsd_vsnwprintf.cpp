// The wide engine on formats from the fuzzer. Oracle: the fixed-size target holds exactly
// the prefix of what the growing mode produces, terminated, and both report the same length.

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "FormatFuzzSupport.h"
#include "string/bsd_vsnprintf.h"

using namespace fuzzsupport;

namespace {

int Format(utf16_t **buffer, size_t capacity, const utf16_t *format, ...)
{
   va_list ap;
   va_start(ap, format);
   int n = bsd_vsnwprintf(buffer, capacity, format, ap);
   va_end(ap);
   return n;
}

template <size_t... D, size_t... G>
int FormatWithList(std::index_sequence<D...>, std::index_sequence<G...>, utf16_t **buffer,
                   size_t capacity, const utf16_t *format, const double *doubles,
                   const uint64_t *general)
{
   return Format(buffer, capacity, format, doubles[D]..., general[G]...);
}

StringArgs gStrings;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   if (size < 2) {
      return 0;
   }
   Header header = ReadHeader(data);
   // The format in 16-bit units, little-endian; an odd last byte is dropped.
   std::basic_string<utf16_t> format;
   for (size_t i = 2; i + 1 < size; i += 2) {
      format.push_back(utf16_t(data[i] | data[i + 1] << 8));
   }
   bool hasStar = false;
   if (!SanitizeFormat(format, header.mode, hasStar)) {
      return -1;
   }

   const ArgumentList arguments = MakeArgumentList(header, gStrings, hasStar);
   auto run = [&](utf16_t **buffer, size_t capacity) {
      gStrings.Reset();  // %n of an earlier run must not change what this one reads
      return FormatWithList(std::make_index_sequence<kDoubleArgs>(),
                            std::make_index_sequence<kGeneralArgs>(), buffer, capacity,
                            format.c_str(), arguments.doubles, arguments.general);
   };

   utf16_t *grown = nullptr;
   int grownLength = run(&grown, 12345);

   // The capacity counts units. Exactly sized, so that a write past it is caught; malloc(0)
   // for capacity 0, which must not be written at all.
   utf16_t *fixed = static_cast<utf16_t *>(std::malloc(header.capacity * sizeof(utf16_t)));
   utf16_t *fixedTarget = fixed;
   int fixedLength = run(&fixedTarget, header.capacity);

   CheckFixedAgainstGrown(grown, grownLength, fixed, fixedTarget, fixedLength, header.capacity);
   std::free(grown);
   std::free(fixed);
   return 0;
}
