// The narrow engine on formats from the fuzzer, against itself (FormatFuzzSupport.h).
// Str_Vsnprintf on top of it adds TrimUtf8End, whose own target and the str tables cover it.

#include <cstdarg>

#include "FormatFuzzSupport.h"
#include "string/bsd_vsnprintf.h"

namespace {

int Format(char **buffer, size_t capacity, const char *format, ...)
{
   va_list ap;
   va_start(ap, format);
   int n = bsd_vsnprintf(buffer, capacity, format, ap);
   va_end(ap);
   return n;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   if (size < 2) {
      return 0;
   }
   return fuzzsupport::CheckEngine<char>(Format, std::string(reinterpret_cast<const char *>(data + 2), size - 2),
                                         fuzzsupport::ReadHeader(data));
}
