#pragma once
// Helpers that let a table row hold a formatted call and its expected bytes.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <string>
#include <type_traits>

#include "string/bsd_vsnprintf.h"

#if defined(_WIN32)
#define U16(s) L##s
#else
#define U16(s) u##s
#endif

// Wide text as char16_t, so that gtest prints it and u"" literals compare in both presets.
inline std::u16string AsU16(const utf16_t *s, size_t n)
{
   return std::u16string(s, s + n);
}

inline std::u16string AsU16(const utf16_t *s)
{
   size_t n = 0;
   while (s[n] != 0) {
      n++;
   }
   return AsU16(s, n);
}

// The result and the whole allocated buffer up to its terminator ("<null>" if none).
template <typename Text>
struct FormattedAs {
   int result;
   Text text;
};
using Formatted = FormattedAs<std::string>;
using WideFormatted = FormattedAs<std::u16string>;

// The "C" locale's data, independent of what is installed.
inline const BsdFormatLocale kPlainLocale = {'.', '\0', ""};
inline const BsdFormatLocale kCommaThrees = {'.', ',', "\3"};
inline const BsdFormatLocale kIndian = {',', '.', "\3\2"};

// Growing mode of either core with explicit locale data.
template <typename CharT>
auto FormatIn(const BsdFormatLocale &locale, const CharT *format, ...)
{
   CharT *out = nullptr;
   va_list ap;
   va_start(ap, format);
   int n;
   if constexpr (std::is_same_v<CharT, char>) {
      n = BsdVsnprintfCore(&out, 0, &locale, format, ap);
   } else {
      n = BsdVsnwprintfCore(&out, 0, &locale, format, ap);
   }
   va_end(ap);
   using Text = std::conditional_t<std::is_same_v<CharT, char>, std::string, std::u16string>;
   static const char kNull[] = "<null>";
   FormattedAs<Text> f{n, out == nullptr ? Text(kNull, kNull + 6) : Text(out, out + std::char_traits<CharT>::length(out))};
   free(out);
   return f;
}

// A public entry into a fixed buffer of `capacity` units, which stays the target: the result
// and the text up to the terminator, or all `capacity` units when none was written. Nothing
// may be written behind the capacity.
template <typename CharT>
auto FormatInto(size_t capacity, const CharT *format, ...)
{
   CharT buffer[512];
   std::fill(buffer, buffer + 512, CharT('~'));
   CharT *target = buffer;
   va_list ap;
   va_start(ap, format);
   int n;
   if constexpr (std::is_same_v<CharT, char>) {
      n = bsd_vsnprintf(&target, capacity, format, ap);
   } else {
      n = bsd_vsnwprintf(&target, capacity, format, ap);
   }
   va_end(ap);
   EXPECT_EQ(target, buffer);
   EXPECT_EQ(buffer[capacity], CharT('~')) << "capacity " << capacity;
   using Text = std::conditional_t<std::is_same_v<CharT, char>, std::string, std::u16string>;
   return FormattedAs<Text>{n, Text(buffer, std::find(buffer, buffer + capacity, CharT(0)))};
}

template <typename CharT, typename... Args>
auto Format(const CharT *format, Args... args)
{
   return FormatIn(kPlainLocale, format, args...);
}

constexpr int kTextLength = -100;  // the expected result is the length of the expected text

template <typename Text>
struct FormatRow {
   FormattedAs<Text> got;
   Text want;
   int wantResult = kTextLength;
};

template <typename Text, size_t N>
void Check(const FormatRow<Text> (&rows)[N])
{
   for (size_t i = 0; i < N; i++) {
      const FormatRow<Text> &r = rows[i];
      int want = r.wantResult == kTextLength ? static_cast<int>(r.want.size()) : r.wantResult;
      EXPECT_EQ(r.got.text, r.want) << "row " << i;
      EXPECT_EQ(r.got.result, want) << "row " << i;
   }
}
