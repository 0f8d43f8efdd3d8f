// UTF-16 <-> UTF-8 transforms for the formatting engines.

#include <cstdlib>
#include <cstring>

#include "misc/panic.h"
#include "string/bsd_vsnprintf.h"

namespace {

// Both engines let ill-formed UTF-16 through rather than lose a whole argument to a lone
// surrogate; a 0 here would make such text fail the call instead.
const bool kUtf16Lenient = true;

// What the UTF-8 lead byte says about the number of bytes that follow it.
int Utf8TrailingCount(unsigned char lead)
{
   if (lead < 0xC0) {
      return 0;
   }
   if (lead < 0xE0) {
      return 1;
   }
   if (lead < 0xF0) {
      return 2;
   }
   if (lead < 0xF8) {
      return 3;
   }
   if (lead < 0xFC) {
      return 4;
   }
   return 5;
}

// Removes the length marks that the shifted sum of a sequence carries.
const uint32_t kUtf8LengthOffset[6] = {
   0x00000000, 0x00003080, 0x000E2080, 0x03C82080, 0xFA082080, 0x82082080,
};

size_t Utf16Length(const utf16_t *text)
{
   const utf16_t *p = text;
   while (*p != 0) {
      p++;
   }
   return static_cast<size_t>(p - text);
}

} // namespace

int ConvertUtf16ToUtf8(const utf16_t **source, const utf16_t *sourceEnd, char **target,
                       char *targetEnd, bool lenient)
{
   const utf16_t *s = *source;
   char *t = *target;
   int result = UTF_CONVERSION_DONE;
   while (s < sourceEnd) {
      const utf16_t *start = s;
      uint32_t c = *s++;
      if (c >= 0xD800 && c <= 0xDBFF) {
         if (s >= sourceEnd) {
            s = start;
            result = UTF_CONVERSION_SOURCE_CUT;
            break;
         }
         uint32_t low = *s;
         if (low >= 0xDC00 && low <= 0xDFFF) {
            c = ((c - 0xD800) << 10) + (low - 0xDC00) + 0x10000;
            s++;
         } else if (!lenient) {
            s = start;
            result = UTF_CONVERSION_ILLEGAL;
            break;
         }
      } else if (c >= 0xDC00 && c <= 0xDFFF && !lenient) {
         s = start;
         result = UTF_CONVERSION_ILLEGAL;
         break;
      }
      int bytes = c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
      if (targetEnd - t < bytes) {
         s = start;
         result = UTF_CONVERSION_TARGET_FULL;
         break;
      }
      unsigned char *u = reinterpret_cast<unsigned char *>(t);
      switch (bytes) {
      case 1:
         u[0] = static_cast<unsigned char>(c);
         break;
      case 2:
         u[0] = static_cast<unsigned char>(0xC0 | (c >> 6));
         u[1] = static_cast<unsigned char>(0x80 | (c & 0x3F));
         break;
      case 3:
         u[0] = static_cast<unsigned char>(0xE0 | (c >> 12));
         u[1] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
         u[2] = static_cast<unsigned char>(0x80 | (c & 0x3F));
         break;
      default:
         u[0] = static_cast<unsigned char>(0xF0 | (c >> 18));
         u[1] = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F));
         u[2] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
         u[3] = static_cast<unsigned char>(0x80 | (c & 0x3F));
         break;
      }
      t += bytes;
   }
   *source = s;
   *target = t;
   return result;
}

bool IsLegalUtf8(const char *bytes, size_t length)
{
   if (length < 1 || length > 4) {
      return false;
   }
   const unsigned char *s = reinterpret_cast<const unsigned char *>(bytes);
   unsigned char lead = s[0];
   if ((lead >= 0x80 && lead <= 0xC1) || lead >= 0xF5) {
      return false;
   }
   for (size_t i = 1; i < length; i++) {
      if (s[i] < 0x80 || s[i] > 0xBF) {
         return false;
      }
   }
   if (length >= 2) {
      unsigned char second = s[1];
      if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
          (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second >= 0x90)) {
         return false;
      }
   }
   return true;
}

int ConvertUtf8ToUtf16(const char **source, const char *sourceEnd, utf16_t **target,
                       utf16_t *targetEnd, bool lenient)
{
   const char *s = *source;
   utf16_t *t = *target;
   int result = UTF_CONVERSION_DONE;
   while (s < sourceEnd) {
      int trailing = Utf8TrailingCount(static_cast<unsigned char>(*s));
      if (trailing >= sourceEnd - s) {
         result = UTF_CONVERSION_SOURCE_CUT;
         break;
      }
      if (!IsLegalUtf8(s, static_cast<size_t>(trailing) + 1)) {
         result = UTF_CONVERSION_ILLEGAL;
         break;
      }
      uint32_t c = 0;
      for (int i = 0; i <= trailing; i++) {
         c = (c << 6) + static_cast<unsigned char>(s[i]);
      }
      c -= kUtf8LengthOffset[trailing];
      if (t >= targetEnd) {
         result = UTF_CONVERSION_TARGET_FULL;
         break;
      }
      if ((c >= 0xD800 && c <= 0xDFFF) || c >= 0x110000) {
         if (!lenient) {
            result = UTF_CONVERSION_ILLEGAL;
            break;
         }
         *t++ = static_cast<utf16_t>(0xFFFD);
      } else if (c < 0x10000) {
         *t++ = static_cast<utf16_t>(c);
      } else {
         if (targetEnd - t < 2) {
            result = UTF_CONVERSION_TARGET_FULL;
            break;
         }
         c -= 0x10000;
         *t++ = static_cast<utf16_t>(0xD800 + (c >> 10));
         *t++ = static_cast<utf16_t>(0xDC00 + (c & 0x3FF));
      }
      s += trailing + 1;
   }
   *source = s;
   *target = t;
   return result;
}

char *WideToUtf8String(const utf16_t *text, ptrdiff_t limit)
{
   size_t units = Utf16Length(text);
   size_t n = units * 2;
   bool bounded = limit >= 0;
   size_t bound = bounded ? static_cast<size_t>(limit) : 0;
   size_t cap = bounded && bound < n ? bound : n;

   // The spare bytes take the terminator; a cap of units * 2 already holds most texts.
   char *out = static_cast<char *>(malloc(cap + 4));
   if (out == nullptr) {
      return nullptr;
   }
   const utf16_t *s = text;
   char *t = out;
   for (;;) {
      int r = ConvertUtf16ToUtf8(&s, text + units, &t, out + cap, kUtf16Lenient);
      if (r == UTF_CONVERSION_DONE) {
         break;
      }
      if (r == UTF_CONVERSION_TARGET_FULL) {
         if (bounded && cap == bound) {
            break;
         }
         size_t used = static_cast<size_t>(t - out);
         cap *= 2;
         if (bounded && cap > bound) {
            cap = bound;
         }
         char *grown = static_cast<char *>(realloc(out, cap + 4));
         if (grown == nullptr) {
            free(out);
            return nullptr;
         }
         out = grown;
         t = out + used;
         continue;
      }
      if (r == UTF_CONVERSION_SOURCE_CUT || r == UTF_CONVERSION_ILLEGAL) {
         if (!kUtf16Lenient) {
            free(out);
            return nullptr;
         }
         break;
      }
      Panic("NOT_IMPLEMENTED %s:%d\n", "lib/string/bsd_vsnprintf", 409);
   }
   *t = '\0';
   return out;
}

utf16_t *Utf8ToWideString(const char *text, ptrdiff_t limit)
{
   size_t length = strlen(text);
   size_t cap = limit >= 0 && static_cast<size_t>(limit) < length ? static_cast<size_t>(limit)
                                                                    : length;
   const char *sourceEnd = text + cap;
   utf16_t *out = static_cast<utf16_t *>(malloc(cap * 2 + 2));
   if (out == nullptr) {
      return nullptr;
   }
   const char *s = text;
   utf16_t *t = out;
   for (;;) {
      // Illegal UTF-8 ends the text where it starts: the units so far are kept.
      int r = ConvertUtf8ToUtf16(&s, sourceEnd, &t, out + cap, true);
      if (r == UTF_CONVERSION_DONE || r == UTF_CONVERSION_SOURCE_CUT ||
          r == UTF_CONVERSION_ILLEGAL) {
         break;
      }
      if (r == UTF_CONVERSION_TARGET_FULL) {
         size_t used = static_cast<size_t>(t - out);
         cap = cap == 0 ? 1 : cap * 2;
         utf16_t *grown = static_cast<utf16_t *>(realloc(out, cap * 2 + 2));
         if (grown == nullptr) {
            free(out);
            return nullptr;
         }
         out = grown;
         t = out + used;
         continue;
      }
      Panic("NOT_IMPLEMENTED %s:%d\n", "lib/string/bsd_vsnwprintf", 421);
   }
   *t = 0;
   return out;
}
