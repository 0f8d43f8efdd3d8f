#include "misc/codeset.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "misc/codesetUtf8.h"
#include "misc/panic.h"
#include "unicode/unicode.h"

#if defined(_WIN32)
#include <windows.h>
#endif

bool dontUseIcu = true;

namespace {

// ---- The built-in path -------------------------------------------------------------------

// How many bytes an undecodable sequence at p spans when it is passed over: the longest
// start of a well-formed sequence, at least one byte, so that a substitute stands for what
// a reader would see as one broken character.
int CodeSetInvalidLength(const unsigned char *p, const unsigned char *end)
{
   unsigned c = p[0];
   if (c < 0xC2 || c > 0xF4) {
      return 1;
   }
   int n = c <= 0xDF ? 2 : c <= 0xEF ? 3 : 4;
   unsigned low = c == 0xE0 ? 0xA0 : c == 0xF0 ? 0x90 : 0x80;
   unsigned high = c == 0xED ? 0x9F : c == 0xF4 ? 0x8F : 0xBF;
   int i = 1;
   for (; i < n && p + i < end; i++) {
      unsigned b = p[i];
      if (b < (i == 1 ? low : 0x80) || b > (i == 1 ? high : 0xBF)) {
         break;
      }
   }
   return i;
}

inline bool CodeSetIsAscii8(const unsigned char *p)
{
   uint64_t word;
   memcpy(&word, p, 8);
   return (word & 0x8080808080808080ull) == 0;
}

inline void CodeSetPut16(unsigned char *q, uint32_t unit, bool bigEndian)
{
   q[bigEndian ? 1 : 0] = static_cast<unsigned char>(unit);
   q[bigEndian ? 0 : 1] = static_cast<unsigned char>(unit >> 8);
}

inline uint32_t CodeSetGet16(const unsigned char *p, bool bigEndian)
{
   return bigEndian ? (p[0] << 8 | p[1]) : (p[1] << 8 | p[0]);
}

bool CodeSetUtf8ToUtf16(const char *buffer, size_t size, DynBuf *output, bool bigEndian)
{
   // One unit per byte at most.
   if (size * 2 < size || !DynBuf_Enlarge(output, output->size + size * 2)) {
      return false;
   }
   auto *p = reinterpret_cast<const unsigned char *>(buffer);
   const unsigned char *end = p + size;
   auto *q = reinterpret_cast<unsigned char *>(output->data + output->size);
   while (p < end) {
      if (end - p >= 8 && !bigEndian && CodeSetIsAscii8(p)) {
         for (int i = 0; i < 8; i++) {
            q[2 * i] = p[i];
            q[2 * i + 1] = 0;
         }
         p += 8;
         q += 16;
         continue;
      }
      uint32_t v;
      int n = CodeSetDecodeUtf8(p, end, &v);
      if (n == 0 || (v >= 0xD800 && v <= 0xDFFF) || v >= 0x110000) {
         return false;
      }
      p += n;
      if (v >= 0x10000) {
         v -= 0x10000;
         CodeSetPut16(q, 0xD800 | v >> 10, bigEndian);
         CodeSetPut16(q + 2, 0xDC00 | (v & 0x3FF), bigEndian);
         q += 4;
      } else {
         CodeSetPut16(q, v, bigEndian);
         q += 2;
      }
   }
   output->size = reinterpret_cast<char *>(q) - output->data;
   return true;
}

bool CodeSetUtf16ToUtf8(const char *buffer, size_t size, DynBuf *output, bool bigEndian)
{
   // Three bytes per unit at most (a pair gives four for two).
   if (size % 2 != 0 || !DynBuf_Enlarge(output, output->size + size / 2 * 3)) {
      return false;
   }
   auto *p = reinterpret_cast<const unsigned char *>(buffer);
   const unsigned char *end = p + size;
   auto *q = reinterpret_cast<unsigned char *>(output->data + output->size);
   while (p < end) {
      uint32_t v = CodeSetGet16(p, bigEndian);
      p += 2;
      if (v < 0x80) {
         *q++ = static_cast<unsigned char>(v);
         continue;
      }
      if (v >= 0xD800 && v <= 0xDFFF) {
         if (v >= 0xDC00 || p == end) {
            return false;
         }
         uint32_t low = CodeSetGet16(p, bigEndian);
         if (low < 0xDC00 || low > 0xDFFF) {
            return false;
         }
         p += 2;
         v = 0x10000 + ((v - 0xD800) << 10) + (low - 0xDC00);
         q[0] = static_cast<unsigned char>(0xF0 | v >> 18);
         q[1] = static_cast<unsigned char>(0x80 | (v >> 12 & 0x3F));
         q[2] = static_cast<unsigned char>(0x80 | (v >> 6 & 0x3F));
         q[3] = static_cast<unsigned char>(0x80 | (v & 0x3F));
         q += 4;
      } else if (v < 0x800) {
         q[0] = static_cast<unsigned char>(0xC0 | v >> 6);
         q[1] = static_cast<unsigned char>(0x80 | (v & 0x3F));
         q += 2;
      } else {
         q[0] = static_cast<unsigned char>(0xE0 | v >> 12);
         q[1] = static_cast<unsigned char>(0x80 | (v >> 6 & 0x3F));
         q[2] = static_cast<unsigned char>(0x80 | (v & 0x3F));
         q += 3;
      }
   }
   output->size = reinterpret_cast<char *>(q) - output->data;
   return true;
}

bool CodeSetAsciiToUtf8(const char *buffer, size_t size, unsigned policy, DynBuf *output)
{
   if (size * 3 < size || !DynBuf_Enlarge(output, output->size + size * 3)) {
      return false;
   }
   char *q = output->data + output->size;
   for (size_t i = 0; i < size; i++) {
      if (static_cast<unsigned char>(buffer[i]) < 0x80) {
         *q++ = buffer[i];
      } else if (policy == CSGTG_NORMAL) {
         return false;
      } else if ((policy & 1) != 0) {
         memcpy(q, "\xEF\xBF\xBD", 3);
         q += 3;
      }
   }
   output->size = q - output->data;
   return true;
}

bool CodeSetUtf8ToAscii(const char *buffer, size_t size, unsigned policy, DynBuf *output)
{
   if (!DynBuf_Enlarge(output, output->size + size)) {
      return false;
   }
   auto *p = reinterpret_cast<const unsigned char *>(buffer);
   const unsigned char *end = p + size;
   char *q = output->data + output->size;
   while (p < end) {
      if (*p < 0x80) {
         *q++ = static_cast<char>(*p++);
         continue;
      }
      if (policy == CSGTG_NORMAL) {
         return false;
      }
      uint32_t v;
      int n = CodeSetDecodeUtf8(p, end, &v);
      p += n != 0 ? n : CodeSetInvalidLength(p, end);
      if ((policy & 1) != 0) {
         *q++ = 0x1A;
      }
   }
   output->size = q - output->data;
   return true;
}

bool CodeSetLatin1ToUtf8(const char *buffer, size_t size, DynBuf *output)
{
   if (size * 2 < size || !DynBuf_Enlarge(output, output->size + size * 2)) {
      return false;
   }
   char *q = output->data + output->size;
   for (size_t i = 0; i < size; i++) {
      auto b = static_cast<unsigned char>(buffer[i]);
      if (b < 0x80) {
         *q++ = static_cast<char>(b);
      } else {
         *q++ = static_cast<char>(0xC0 | b >> 6);
         *q++ = static_cast<char>(0x80 | (b & 0x3F));
      }
   }
   output->size = q - output->data;
   return true;
}

#if defined(_WIN32)

// Whether MultiByteToWideChar may be told to refuse invalid input: from Windows XP (5.1)
// on, and on Windows 2000 from its fourth service pack.
DWORD CodeSetMultiByteFlags()
{
   static int flags = -1;  // computed twice on a race, with the same result
   if (flags == -1) {
      OSVERSIONINFOEXA info = {};
      info.dwOSVersionInfoSize = sizeof info;
      GetVersionExA(reinterpret_cast<OSVERSIONINFOA *>(&info));
      bool refuses = info.dwMajorVersion > 5 ||
                     (info.dwMajorVersion == 5 &&
                      (info.dwMinorVersion != 0 || info.wServicePackMajor >= 4));
      flags = refuses ? MB_ERR_INVALID_CHARS : 0;
   }
   return static_cast<DWORD>(flags);
}

bool CodeSetUtf16ToAnsi(const char *buffer, size_t size, DynBuf *output)
{
   if (size % 2 != 0 || size / 2 > 0x7FFFFFFF) {
      return false;
   }
   auto *units = reinterpret_cast<const wchar_t *>(buffer);
   int count = static_cast<int>(size / 2);
   int needed = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, units, count, nullptr, 0,
                                    nullptr, nullptr);
   if (needed <= 0 || !DynBuf_Enlarge(output, output->size + needed)) {
      return false;
   }
   BOOL usedDefault = FALSE;
   int written = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, units, count,
                                     output->data + output->size, needed, nullptr,
                                     &usedDefault);
   if (written <= 0 || usedDefault) {
      return false;
   }
   output->size += written;
   return true;
}

bool CodeSetAnsiToUtf16(const char *buffer, size_t size, DynBuf *output)
{
   if (size > 0x7FFFFFFF) {
      return false;
   }
   DWORD flags = CodeSetMultiByteFlags();
   size_t start = output->size;
   int room = static_cast<int>(size) + 1;
   int written;
   for (;;) {
      if (!DynBuf_Enlarge(output, start + static_cast<size_t>(room) * 2)) {
         return false;
      }
      written = MultiByteToWideChar(CP_ACP, flags, buffer, static_cast<int>(size),
                                    reinterpret_cast<wchar_t *>(output->data + start), room);
      if (written > 0 || GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
         break;
      }
      room *= 2;
   }
   if (written <= 0) {
      return false;
   }
   if (flags == 0) {
      // Without the flag bad bytes pass silently: they show as a round trip that differs.
      DynBuf back;
      DynBuf_Init(&back);
      bool same = CodeSetUtf16ToAnsi(output->data + start, static_cast<size_t>(written) * 2,
                                     &back) &&
                  back.size == size && memcmp(back.data, buffer, size) == 0;
      DynBuf_Destroy(&back);
      if (!same) {
         return false;
      }
   }
   output->size = start + static_cast<size_t>(written) * 2;
   return true;
}


// Through UTF-16 for the current encoding; the intermediate text is dropped either way.
bool CodeSetViaUtf16(const char *buffer, size_t size, DynBuf *output,
                     bool (*first)(const char *, size_t, DynBuf *),
                     bool (*second)(const char *, size_t, DynBuf *))
{
   DynBuf wide;
   DynBuf_Init(&wide);
   size_t start = output->size;
   bool ok = first(buffer, size, &wide) && second(wide.data, wide.size, output);
   DynBuf_Destroy(&wide);
   if (!ok) {
      output->size = start;
   }
   return ok;
}

bool CodeSetUtf8ToUtf16Le(const char *b, size_t n, DynBuf *o) { return CodeSetUtf8ToUtf16(b, n, o, false); }
bool CodeSetUtf16LeToUtf8(const char *b, size_t n, DynBuf *o) { return CodeSetUtf16ToUtf8(b, n, o, false); }

#endif

bool CodeSetIsBuiltIn(StringEncoding encoding)
{
   return encoding == STRING_ENCODING_UTF8 || encoding == STRING_ENCODING_UTF16_LE ||
          encoding == STRING_ENCODING_UTF16_BE || encoding == STRING_ENCODING_US_ASCII ||
          encoding == STRING_ENCODING_ISO_8859_1;
}

bool CodeSetBuiltInConvert(StringEncoding s, StringEncoding t, const char *buffer, size_t size,
                           unsigned policy, DynBuf *output)
{
   StringEncoding c = Unicode_GetCurrentEncoding();
   bool viaSystem = c != STRING_ENCODING_UNKNOWN && !CodeSetIsBuiltIn(c);
#if defined(_WIN32)
   if (viaSystem && s == c && t == STRING_ENCODING_UTF8) {
      return CodeSetViaUtf16(buffer, size, output, CodeSetAnsiToUtf16, CodeSetUtf16LeToUtf8);
   }
   if (viaSystem && s == c && t == STRING_ENCODING_UTF16_LE) {
      return CodeSetAnsiToUtf16(buffer, size, output);
   }
   if (viaSystem && s == STRING_ENCODING_UTF8 && t == c) {
      return CodeSetViaUtf16(buffer, size, output, CodeSetUtf8ToUtf16Le, CodeSetUtf16ToAnsi);
   }
   if (viaSystem && s == STRING_ENCODING_UTF16_LE && t == c) {
      return CodeSetUtf16ToAnsi(buffer, size, output);
   }
   if (viaSystem && s == STRING_ENCODING_UTF16_BE && t == c) {
      std::string swapped(buffer, size);
      for (size_t i = 0; i + 1 < size; i += 2) {
         std::swap(swapped[i], swapped[i + 1]);
      }
      return CodeSetUtf16ToAnsi(swapped.data(), size, output);
   }
#else
   (void)viaSystem;  // a host's current encoding is UTF-8, converted below
#endif
   if (s == STRING_ENCODING_UTF8 && t == STRING_ENCODING_UTF16_LE) {
      return CodeSetUtf8ToUtf16(buffer, size, output, false);
   }
   if (s == STRING_ENCODING_UTF8 && t == STRING_ENCODING_US_ASCII) {
      return CodeSetUtf8ToAscii(buffer, size, policy, output);
   }
   if (s == STRING_ENCODING_UTF16_LE && t == STRING_ENCODING_UTF8) {
      return CodeSetUtf16ToUtf8(buffer, size, output, false);
   }
   if (s == STRING_ENCODING_UTF16_BE && t == STRING_ENCODING_UTF8) {
      return CodeSetUtf16ToUtf8(buffer, size, output, true);
   }
   if (s == STRING_ENCODING_US_ASCII && t == STRING_ENCODING_UTF8) {
      return CodeSetAsciiToUtf8(buffer, size, policy, output);
   }
   if (s == STRING_ENCODING_ISO_8859_1 && t == STRING_ENCODING_UTF8) {
      return CodeSetLatin1ToUtf8(buffer, size, output);
   }
   return false;
}

bool CodeSetBuiltInValidate(StringEncoding encoding, const char *buffer, size_t size)
{
   DynBuf scratch;
   DynBuf_Init(&scratch);
   bool ok = true;
   if (encoding == STRING_ENCODING_UTF8) {
      ok = CodeSetUtf8ToUtf16(buffer, size, &scratch, false);
   } else if (encoding == STRING_ENCODING_UTF16_LE || encoding == STRING_ENCODING_UTF16_BE) {
      ok = CodeSetUtf16ToUtf8(buffer, size, &scratch, encoding == STRING_ENCODING_UTF16_BE);
   } else if (encoding == STRING_ENCODING_US_ASCII) {
      for (size_t i = 0; i < size && ok; i++) {
         ok = static_cast<unsigned char>(buffer[i]) < 0x80;
      }
   } else if (encoding == Unicode_GetCurrentEncoding()) {
      ok = CodeSetBuiltInConvert(encoding, STRING_ENCODING_UTF8, buffer, size, CSGTG_NORMAL,
                                 &scratch);
   }
   DynBuf_Destroy(&scratch);
   return ok;
}

// ---- The ICU path ------------------------------------------------------------------------

bool CodeSetIcuConvert(const char *sourceName, const char *buffer, size_t size,
                       const char *targetName, unsigned policy, DynBuf *output)
{
   if (policy > CSGTG_IGNORE) {
      Panic("NOT_IMPLEMENTED %s:%d\n", "lib/misc/codeset", 969);
   }
   const CodeSetIcu *icu = CodeSetGetIcu();
   if (icu == nullptr) {
      return false;
   }
   CodeSetIcuError error = 0;
   UConverter *source = icu->open(sourceName, &error);
   UConverter *target = error <= 0 ? icu->open(targetName, &error) : nullptr;
   bool ok = error <= 0;
   if (ok) {
      icu->setToUCallBack(source, icu->toU[policy], nullptr, nullptr, nullptr, &error);
      icu->setFromUCallBack(target, icu->fromU[policy], nullptr, nullptr, nullptr, &error);
      ok = error <= 0;
   }
   size_t start = output->size;
   size_t room = size + 4;
   ok = ok && room >= size && DynBuf_Enlarge(output, start + room);
   if (ok) {
      char16_t pivot[1024];
      char16_t *pivotSource = pivot;
      char16_t *pivotTarget = pivot;
      const char *in = buffer;
      char *out = output->data + start;
      bool reset = true;
      for (;;) {
         error = 0;
         icu->convertEx(target, source, &out, output->data + output->allocated, &in,
                        buffer + size, pivot, &pivotSource, &pivotTarget, pivot + 1024, reset,
                        true, &error);
         reset = false;
         if (error != kIcuBufferOverflow) {
            break;
         }
         // Grow and go on where it stopped: the converters keep their state.
         size_t used = out - output->data;
         if (!DynBuf_Enlarge(output, output->allocated * 2)) {
            break;
         }
         out = output->data + used;
      }
      ok = error <= 0;
      if (ok) {
         output->size = out - output->data;
      }
   }
   if (source != nullptr) {
      icu->close(source);
   }
   if (target != nullptr) {
      icu->close(target);
   }
   return ok;
}

bool CodeSetIcuValidate(const char *buffer, size_t size, const char *name)
{
   const CodeSetIcu *icu = CodeSetGetIcu();
   if (icu == nullptr) {
      return false;
   }
   CodeSetIcuError error = 0;
   UConverter *converter = icu->open(name, &error);
   if (error > 0) {
      return false;
   }
   icu->setToUCallBack(converter, icu->toU[0], nullptr, nullptr, nullptr, &error);
   error = 0;
   // No room for the text: an overflow says that all of it converted.
   icu->toUChars(converter, nullptr, 0, buffer, static_cast<int32_t>(size), &error);
   icu->close(converter);
   return error == kIcuBufferOverflow;
}

bool CodeSetTerminatedCopy(const char *sourceName, const char *buffer, size_t size,
                           const char *targetName, char **result, size_t *resultSize)
{
   DynBuf output;
   DynBuf_Init(&output);
   static const char zeros[4] = {};
   bool ok = CodeSet_GenericToGeneric(sourceName, buffer, size, targetName, CSGTG_NORMAL,
                                      &output);
   size_t length = output.size;
   ok = ok && DynBuf_Append(&output, zeros, dontUseIcu ? 2 : 4);
   if (!ok) {
      DynBuf_Destroy(&output);
      *result = nullptr;
      return false;
   }
   if (resultSize != nullptr) {
      *resultSize = length;
   }
   *result = DynBuf_Detach(&output);
   return true;
}

} // namespace

bool CodeSet_GenericToGeneric(const char *sourceName, const char *buffer, size_t size,
                              const char *targetName, unsigned policy, DynBuf *output)
{
   if (!dontUseIcu) {
      return CodeSetIcuConvert(sourceName, buffer, size, targetName, policy, output);
   }
   if (size == 0) {
      return true;
   }
   StringEncoding s = Unicode_EncodingNameToEnum(sourceName);
   StringEncoding t = Unicode_EncodingNameToEnum(targetName);
   if (s == STRING_ENCODING_UNKNOWN || t == STRING_ENCODING_UNKNOWN) {
      return false;
   }
   if (s == t) {
      return CodeSetBuiltInValidate(s, buffer, size) && DynBuf_Append(output, buffer, size);
   }
   size_t start = output->size;
   if (!CodeSetBuiltInConvert(s, t, buffer, size, policy, output)) {
      output->size = start;
      return false;
   }
   return true;
}

bool CodeSet_Utf8ToUtf16le(const char *buffer, size_t size, char **result, size_t *resultSize)
{
   return CodeSetTerminatedCopy("UTF-8", buffer, size, "UTF-16LE", result, resultSize);
}

bool CodeSet_Utf16leToUtf8(const char *buffer, size_t size, char **result, size_t *resultSize)
{
   return CodeSetTerminatedCopy("UTF-16LE", buffer, size, "UTF-8", result, resultSize);
}

bool CodeSet_Validate(const char *buffer, size_t size, const char *name)
{
   if (size > 0x7FFFFFFF) {
      Panic("VERIFY %s:%d\n", "lib/misc/codeset", 1673);
   }
   if (size == 0) {
      return true;
   }
   if (!dontUseIcu) {
      return CodeSetIcuValidate(buffer, size, name);
   }
   DynBuf scratch;
   DynBuf_Init(&scratch);
   bool ok = CodeSet_GenericToGeneric(name, buffer, size, "UTF-8", CSGTG_NORMAL, &scratch);
   DynBuf_Destroy(&scratch);
   return ok;
}
