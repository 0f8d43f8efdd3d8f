#pragma once
// Helpers that let a table row hold a formatted call and its expected bytes.

#include <cstdarg>
#include <cstdlib>
#include <string>

#include "string/bsd_vsnprintf.h"

#if defined(_WIN32)
#define U16(s) L##s
#else
#define U16(s) u##s
#endif

// Wide text as char16_t, so that gtest prints it and u"" literals compare in both presets.
inline std::u16string AsU16(const utf16_t *s, size_t n)
{
   std::u16string r;
   for (size_t i = 0; i < n; i++) {
      r.push_back(static_cast<char16_t>(s[i]));
   }
   return r;
}

inline std::u16string AsU16(const utf16_t *s)
{
   size_t n = 0;
   while (s[n] != 0) {
      n++;
   }
   return AsU16(s, n);
}

struct Formatted {
   std::string format;
   int result;
   std::string text;  // the whole allocated buffer up to its terminator
};

struct WideFormatted {
   std::u16string format;
   int result;
   std::u16string text;
};

// The "C" locale's data, independent of what is installed.
inline const BsdFormatLocale kPlainLocale = {'.', '\0', ""};
inline const BsdFormatLocale kCommaThrees = {'.', ',', "\3"};
inline const BsdFormatLocale kIndian = {',', '.', "\3\2"};

// Growing mode of the narrow core with explicit locale data.
inline Formatted VFormatIn(const BsdFormatLocale &locale, const char *format, va_list ap)
{
   char *out = nullptr;
   int n = BsdVsnprintfCore(&out, 0, &locale, format, ap);
   Formatted f{format, n, out != nullptr ? std::string(out) : std::string("<null>")};
   free(out);
   return f;
}

inline Formatted FormatIn(const BsdFormatLocale &locale, const char *format, ...)
{
   va_list ap;
   va_start(ap, format);
   Formatted f = VFormatIn(locale, format, ap);
   va_end(ap);
   return f;
}

inline Formatted Format(const char *format, ...)
{
   va_list ap;
   va_start(ap, format);
   Formatted f = VFormatIn(kPlainLocale, format, ap);
   va_end(ap);
   return f;
}

inline WideFormatted VWideFormatIn(const BsdFormatLocale &locale, const utf16_t *format,
                                   va_list ap)
{
   utf16_t *out = nullptr;
   int n = BsdVsnwprintfCore(&out, 0, &locale, format, ap);
   WideFormatted f{AsU16(format), n, out != nullptr ? AsU16(out) : std::u16string(u"<null>")};
   free(out);
   return f;
}

inline WideFormatted WideFormatIn(const BsdFormatLocale &locale, const utf16_t *format, ...)
{
   va_list ap;
   va_start(ap, format);
   WideFormatted f = VWideFormatIn(locale, format, ap);
   va_end(ap);
   return f;
}

inline WideFormatted WideFormat(const utf16_t *format, ...)
{
   va_list ap;
   va_start(ap, format);
   WideFormatted f = VWideFormatIn(kPlainLocale, format, ap);
   va_end(ap);
   return f;
}
