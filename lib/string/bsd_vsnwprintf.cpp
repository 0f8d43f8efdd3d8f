// The wide formatting engine: UTF-16 text into a caller's buffer or a growing one.

#include "string/bsd_printf_engine.h"
#include "string/bsd_vsnprintf.h"

int BsdVsnwprintfCore(utf16_t **buffer, size_t capacity, const BsdFormatLocale *locale,
                      const utf16_t *format, va_list ap)
{
   return bsdfmt::FormatCore<utf16_t>(buffer, capacity, locale, format, ap);
}

int bsd_vsnwprintf(utf16_t **buffer, size_t capacity, const utf16_t *format, va_list ap)
{
   // The locale is asked lazily by the core: the decimal point once, the grouping only
   // for a conversion with the ' flag.
   return BsdVsnwprintfCore(buffer, capacity, nullptr, format, ap);
}
