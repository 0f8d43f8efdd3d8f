#include <cstdlib>
#include <cstring>
#include <vector>

#include "misc/codesetUtf8.h"
#include "misc/panic.h"
#include "unicode/unicode.h"

namespace {

struct CodePoints {
   std::vector<uint32_t> values;
   std::vector<size_t> offsets;  // byte offset of each code point, and the end
};

CodePoints UnicodeDecode(const char *text, const char *caller)
{
   CodePoints points;
   auto *p = reinterpret_cast<const unsigned char *>(text);
   const unsigned char *end = p + strlen(text);
   const unsigned char *start = p;
   while (p < end) {
      uint32_t v;
      int n = CodeSetDecodeUtf8(p, end, &v);
      if (n == 0 || (v >= 0xD800 && v <= 0xDFFF) || v >= 0x110000) {
         Panic("%s: invalid UTF8 string @ %p\n", caller, static_cast<const void *>(text));
      }
      points.values.push_back(v);
      points.offsets.push_back(static_cast<size_t>(p - start));
      p += n;
   }
   points.offsets.push_back(static_cast<size_t>(p - start));
   return points;
}

// Start and length made to fit the string.
void UnicodeClamp(size_t count, ptrdiff_t *start, ptrdiff_t *length)
{
   if (*start < 0 || static_cast<size_t>(*start) > count) {
      *start = static_cast<ptrdiff_t>(count);
   }
   size_t left = count - static_cast<size_t>(*start);
   if (*length < 0 || static_cast<size_t>(*length) > left) {
      *length = static_cast<ptrdiff_t>(left);
   }
}

// A simple case fold of one UTF-16 unit: the Latin, Greek and Cyrillic capitals of the
// basic plane, so that the result is the same on every platform.
uint32_t UnicodeFoldUnit(uint32_t u)
{
   if ((u >= 'A' && u <= 'Z') || (u >= 0xC0 && u <= 0xDE && u != 0xD7) ||
       (u >= 0x391 && u <= 0x3AB && u != 0x3A2) || (u >= 0x410 && u <= 0x42F)) {
      return u + 0x20;
   }
   if (u >= 0x400 && u <= 0x40F) {
      return u + 0x50;
   }
   return u;
}

void UnicodeToUtf16(const uint32_t *points, size_t count, std::vector<uint32_t> *units)
{
   for (size_t i = 0; i < count; i++) {
      uint32_t v = points[i];
      if (v >= 0x10000) {
         units->push_back(0xD800 | (v - 0x10000) >> 10);
         units->push_back(0xDC00 | ((v - 0x10000) & 0x3FF));
      } else {
         units->push_back(v);
      }
   }
}

bool UnicodeIsSurrogate(uint32_t u) { return u >= 0xD800 && u <= 0xDFFF; }

ptrdiff_t UnicodeFind(const char *text, ptrdiff_t start, ptrdiff_t length, const char *find,
                      ptrdiff_t findStart, ptrdiff_t findLength, bool last, const char *caller)
{
   CodePoints haystack = UnicodeDecode(text, caller);
   CodePoints needle = UnicodeDecode(find, caller);
   UnicodeClamp(haystack.values.size(), &start, &length);
   UnicodeClamp(needle.values.size(), &findStart, &findLength);
   if (findLength > length) {
      return -1;
   }
   const uint32_t *n = needle.values.data() + findStart;
   for (ptrdiff_t k = 0; k <= length - findLength; k++) {
      ptrdiff_t at = last ? start + length - findLength - k : start + k;
      if (findLength == 0 ||
          memcmp(haystack.values.data() + at, n, findLength * sizeof(uint32_t)) == 0) {
         return at;
      }
   }
   return -1;
}

} // namespace

char *Unicode_Substr(const char *text, ptrdiff_t start, ptrdiff_t length)
{
   CodePoints points = UnicodeDecode(text, "Unicode_Substr");
   UnicodeClamp(points.values.size(), &start, &length);
   size_t from = points.offsets[start];
   size_t to = points.offsets[start + length];
   char *result = static_cast<char *>(SafeMalloc(to - from + 1));
   memcpy(result, text + from, to - from);
   result[to - from] = '\0';
   return result;
}

ptrdiff_t Unicode_FindSubstrInRange(const char *text, ptrdiff_t start, ptrdiff_t length,
                                    const char *find, ptrdiff_t findStart,
                                    ptrdiff_t findLength)
{
   return UnicodeFind(text, start, length, find, findStart, findLength, false,
                      "Unicode_FindSubstrInRange");
}

ptrdiff_t Unicode_FindLastSubstrInRange(const char *text, ptrdiff_t start, ptrdiff_t length,
                                        const char *find, ptrdiff_t findStart,
                                        ptrdiff_t findLength)
{
   return UnicodeFind(text, start, length, find, findStart, findLength, true,
                      "Unicode_FindLastSubstrInRange");
}

int Unicode_CompareRange(const char *text1, ptrdiff_t start1, ptrdiff_t length1,
                         const char *text2, ptrdiff_t start2, ptrdiff_t length2,
                         bool ignoreCase)
{
   CodePoints a = UnicodeDecode(text1, "Unicode_CompareRange");
   CodePoints b = UnicodeDecode(text2, "Unicode_CompareRange");
   UnicodeClamp(a.values.size(), &start1, &length1);
   UnicodeClamp(b.values.size(), &start2, &length2);
   std::vector<uint32_t> u1;
   std::vector<uint32_t> u2;
   UnicodeToUtf16(a.values.data() + start1, length1, &u1);
   UnicodeToUtf16(b.values.data() + start2, length2, &u2);
   size_t i = 0;
   for (; i < u1.size() && i < u2.size(); i++) {
      uint32_t c1 = ignoreCase ? UnicodeFoldUnit(u1[i]) : u1[i];
      uint32_t c2 = ignoreCase ? UnicodeFoldUnit(u2[i]) : u2[i];
      if (c1 == c2) {
         continue;
      }
      // In UTF-16 a surrogate sorts below U+E000..U+FFFF; code point order puts it above.
      if (UnicodeIsSurrogate(c1) || UnicodeIsSurrogate(c2)) {
         c1 = UnicodeIsSurrogate(c1) ? 0x10000 : c1;
         c2 = UnicodeIsSurrogate(c2) ? 0x10000 : c2;
         if (c1 == c2) {
            // Both in pairs: the pairs' code points differ as their units do.
            c1 = u1[i];
            c2 = u2[i];
         }
      }
      return c1 < c2 ? -1 : 1;
   }
   return u1.size() == u2.size() ? 0 : (u1.size() < u2.size() ? -1 : 1);
}
