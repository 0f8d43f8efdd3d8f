// The narrow formatting engine: UTF-8 text into a caller's buffer or a growing one.

#include <clocale>

#include "string/bsd_printf_engine.h"
#include "string/bsd_vsnprintf.h"

int BsdVsnprintfCore(char **buffer, size_t capacity, const BsdFormatLocale *locale,
                     const char *format, va_list ap)
{
   return bsdfmt::FormatCore<char>(buffer, capacity, locale, format, ap);
}

int bsd_vsnprintf(char **buffer, size_t capacity, const char *format, va_list ap)
{
   // Read on every call: the process may switch locales between calls.
   const struct lconv *lc = localeconv();
   BsdFormatLocale locale;
   locale.decimalPoint = lc->decimal_point != nullptr ? lc->decimal_point[0] : '.';
   locale.thousandsSep = lc->thousands_sep != nullptr ? lc->thousands_sep[0] : '\0';
   locale.grouping = lc->grouping != nullptr ? lc->grouping : "";
   return BsdVsnprintfCore(buffer, capacity, &locale, format, ap);
}
