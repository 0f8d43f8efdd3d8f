#pragma once
// The formatted output engines and the number and UTF routines beneath them.
//
// Narrow text is UTF-8, wide text is UTF-16 in utf16_t units. Both engines work on a
// memory target: with *buffer null they allocate the result (free it with free()),
// otherwise they store at most capacity - 1 characters, terminate when capacity is not 0,
// and return the length the whole text has, so a result of capacity or more means that
// the text was cut. -1 means failure (total beyond 0x7fffffff, no memory, or a wide
// character with no narrow form).

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "misc/vtrChar16.h"

int bsd_vsnprintf(char **buffer, size_t capacity, const char *format, va_list ap);
int bsd_vsnwprintf(utf16_t **buffer, size_t capacity, const utf16_t *format, va_list ap);

// What the engines take from the locale. The public entries read it with localeconv();
// the cores take it explicitly so that callers and tests can format for any locale.
struct BsdFormatLocale {
   char decimalPoint;     // first byte of the locale's decimal_point
   char thousandsSep;     // first byte of thousands_sep ('\0' if it is empty)
   const char *grouping;  // the locale's grouping string; "" means no grouping
};

// A null locale makes the core query localeconv() itself, when a conversion needs it.
int BsdVsnprintfCore(char **buffer, size_t capacity, const BsdFormatLocale *locale,
                     const char *format, va_list ap);
int BsdVsnwprintfCore(utf16_t **buffer, size_t capacity, const BsdFormatLocale *locale,
                      const utf16_t *format, va_list ap);

// Cuts buf[0, end) so that it does not end inside a UTF-8 character; returns the new end.
size_t TrimUtf8End(const char *buf, size_t end);

// ---- Integers -------------------------------------------------------------------------

// Write value backwards so that the text ends just before `end`; return its start.
// base is 8, 10 or 16 (anything else aborts). digits holds at least 16 digit characters.
// Grouping applies to base 10 only: `grouping` is a locale grouping string, CHAR_MAX
// (0x7f) stops grouping, and its last size repeats.
char *UnsignedToText32(uint32_t value, char *end, int base, bool octalZero,
                       const char *digits, bool needGrouping, char separator,
                       const char *grouping);
char *UnsignedToText64(uint64_t value, char *end, int base, bool octalZero,
                       const char *digits, bool needGrouping, char separator,
                       const char *grouping);

// Writes letter, sign and at least two exponent digits to out; returns the length.
int ExponentText(char *out, int exponent, int letter);

// ---- Floating values ------------------------------------------------------------------

// mode 2: `count` significant digits; any other mode: `count` digits behind the point.
// Returns an allocated digit string (free() it), or null. *position is where the decimal
// point stands relative to the first digit, *sign is non-zero for a negative value and
// *end points behind the last digit that is not a trailing '0'. Infinities and NaN give
// "inf", "-inf" or "nan" with position 9999.
char *DoubleToDigits(double value, int mode, int count, int *position, int *sign, char **end);
// The same into a caller's buffer of kDoubleDigitsSize bytes, the most digits there can be
// plus the terminator: the engines keep it on the stack, so a floating conversion needs no
// heap.
constexpr int kDoubleDigitsSize = 349;
void DoubleToDigitsInto(char *buffer, double value, int mode, int count, int *position,
                        int *sign, char **end);
// Formats *value as the 64-bit double that the format's `L` size stands for.
char *LongDoubleToDigits(const long double *value, int mode, int count, int *position,
                         int *sign, char **end);

// ---- UTF-16 <-> UTF-8 -----------------------------------------------------------------

enum UtfConversionResult {
   UTF_CONVERSION_DONE = 0,
   UTF_CONVERSION_SOURCE_CUT = 1,    // the source ends inside a character
   UTF_CONVERSION_TARGET_FULL = 2,
   UTF_CONVERSION_ILLEGAL = 3,
};

// On any result but DONE both pointers stand on the character that was not converted.
// `lenient` lets lone surrogates through (UTF-16 side) or writes U+FFFD for decoded
// surrogates and values beyond U+10FFFF (UTF-8 side).
int ConvertUtf16ToUtf8(const utf16_t **source, const utf16_t *sourceEnd, char **target,
                       char *targetEnd, bool lenient);
int ConvertUtf8ToUtf16(const char **source, const char *sourceEnd, utf16_t **target,
                       utf16_t *targetEnd, bool lenient);
bool IsLegalUtf8(const char *bytes, size_t length);

// Allocating conversions (free() the result). limit is a byte limit, or -1 for none;
// the conversion stops at a character boundary within the limit. Null on no memory.
char *WideToUtf8String(const utf16_t *text, ptrdiff_t limit);
utf16_t *Utf8ToWideString(const char *text, ptrdiff_t limit);
