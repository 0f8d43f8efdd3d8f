// The narrow engine on formats from the fuzzer, against itself (FormatFuzzSupport.h).
// Str_Vsnprintf on top of it adds TrimUtf8End, whose own target and the str tables cover it.

#include "FormatFuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   if (size < 2) {
      return 0;
   }
   return fuzzsupport::CheckEngine(std::string(reinterpret_cast<const char *>(data + 2), size - 2),
                                   fuzzsupport::ReadHeader(data));
}
