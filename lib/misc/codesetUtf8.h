#pragma once
// The one UTF-8 decoder of the code-set layer and the code-point operations.

#include <cstdint>

// The character at p: its length (1 to 4) and value, or 0 for bytes that do not start a
// well-formed sequence. Surrogates and values past U+10FFFF decode; UTF-16 refuses them.
inline int CodeSetDecodeUtf8(const unsigned char *p, const unsigned char *end, uint32_t *value)
{
   unsigned c = p[0];
   if (c < 0x80) {
      *value = c;
      return 1;
   }
   if (c < 0xC2 || c > 0xF4) {
      return 0;
   }
   int n = c <= 0xDF ? 2 : c <= 0xEF ? 3 : 4;
   if (end - p < n) {
      return 0;
   }
   uint32_t v = c & (0x7Fu >> n);
   for (int i = 1; i < n; i++) {
      if ((p[i] & 0xC0) != 0x80) {
         return 0;
      }
      v = v << 6 | (p[i] & 0x3F);
   }
   if (v < (1u << (n + (n - 1) * 4))) {
      return 0;  // overlong
   }
   *value = v;
   return n;
}
