// The narrow formatting engine: UTF-8 text into a caller's buffer or a growing one.

#include "string/bsd_printf_engine.h"
#include "string/bsd_vsnprintf.h"

int BsdVsnprintfCore(char **buffer, size_t capacity, const BsdFormatLocale *locale,
                     const char *format, va_list ap)
{
   return bsdfmt::FormatCore<char>(buffer, capacity, locale, format, ap);
}

int bsd_vsnprintf(char **buffer, size_t capacity, const char *format, va_list ap)
{
   // No locale handed in: the core reads localeconv() during this call, and only when a
   // conversion needs it, since the process may switch locales between calls.
   return BsdVsnprintfCore(buffer, capacity, nullptr, format, ap);
}
