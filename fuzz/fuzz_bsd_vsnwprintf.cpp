// The wide engine on formats from the fuzzer, against itself (FormatFuzzSupport.h). The
// format comes in 16-bit units, little-endian; an odd last byte is dropped.

#include "FormatFuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   if (size < 2) {
      return 0;
   }
   std::basic_string<utf16_t> format;
   for (size_t i = 2; i + 1 < size; i += 2) {
      format.push_back(utf16_t(data[i] | data[i + 1] << 8));
   }
   return fuzzsupport::CheckEngine(format, fuzzsupport::ReadHeader(data));
}
