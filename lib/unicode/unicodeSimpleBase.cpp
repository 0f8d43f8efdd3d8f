#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "misc/codeset.h"
#include "misc/hashTable.h"
#include "misc/panic.h"
#include "misc/platform.h"
#include "string/str.h"
#include "unicode/unicode.h"

namespace {

size_t UnicodeLengthWithTerminator(const void *buffer, StringEncoding encoding)
{
   size_t unit = 1;
   if (encoding == STRING_ENCODING_UTF16 || encoding == STRING_ENCODING_UTF16_LE ||
       encoding == STRING_ENCODING_UTF16_BE) {
      unit = 2;
   } else if (encoding == STRING_ENCODING_UTF32 || encoding == STRING_ENCODING_UTF32_LE ||
              encoding == STRING_ENCODING_UTF32_BE) {
      unit = 4;
   }
   static const char zeros[4] = {};
   auto *bytes = static_cast<const char *>(buffer);
   size_t length = 0;
   while (memcmp(bytes + length, zeros, unit) != 0) {
      length += unit;
   }
   return length;
}

// Resolves the encoding and gives the length in bytes (-1: up to its terminator).
size_t UnicodeResolveLength(const void *buffer, ptrdiff_t length, StringEncoding *encoding)
{
   *encoding = Unicode_ResolveEncoding(*encoding);
   return length == -1 ? UnicodeLengthWithTerminator(buffer, *encoding)
                       : static_cast<size_t>(length);
}

char *UnicodeToUtf8(const void *buffer, size_t length, StringEncoding encoding,
                    unsigned policy)
{
   DynBuf output;
   DynBuf_Init(&output);
   if (!CodeSet_GenericToGeneric(Unicode_EncodingEnumToName(encoding),
                                 static_cast<const char *>(buffer), length, "UTF-8", policy,
                                 &output) ||
       !DynBuf_Append(&output, "", 1)) {
      DynBuf_Destroy(&output);
      return nullptr;
   }
   return DynBuf_Detach(&output);
}

struct EnvValue {
   char *value;
   EnvValue *before;  // the record it replaced, kept for callers who still hold its text
};
std::atomic<HashTable *> envCache{nullptr};

char *EnvRead(const char *name)
{
#if defined(_WIN32)
   char *wideName = nullptr;
   size_t wideSize = 0;
   if (!CodeSet_Utf8ToUtf16le(name, strlen(name), &wideName, &wideSize)) {
      return nullptr;
   }
   const wchar_t *value = _wgetenv(reinterpret_cast<wchar_t *>(wideName));
   int savedErrno = errno;
   uint32_t savedError = Platform_GetLastError();
   free(wideName);
   errno = savedErrno;
   Platform_SetLastError(savedError);
   return value != nullptr ? Unicode_AllocWithLength(value, -1, STRING_ENCODING_UTF16_LE)
                           : nullptr;
#else
   const char *value = getenv(name);
   return value != nullptr ? Unicode_AllocWithLength(value, -1, STRING_ENCODING_UTF8)
                           : nullptr;
#endif
}

} // namespace

char *UnicodeEscapeBytes(const void *buffer, size_t length)
{
   auto *bytes = static_cast<const unsigned char *>(buffer);
   size_t size = length * 4 + 1;
   if (size / 4 < length) {
      return nullptr;
   }
   char *out = static_cast<char *>(malloc(size));
   if (out == nullptr) {
      return nullptr;
   }
   char *q = out;
   static const char hex[] = "0123456789abcdef";
   for (size_t i = 0; i < length; i++) {
      unsigned char b = bytes[i];
      if (b >= 0x20 && b < 0x7F) {
         *q++ = static_cast<char>(b);
      } else {
         *q++ = '\\';
         *q++ = 'x';
         *q++ = hex[b >> 4];
         *q++ = hex[b & 15];
      }
   }
   *q = '\0';
   return out;
}

char *Unicode_AllocWithLength(const void *buffer, ptrdiff_t length, StringEncoding encoding)
{
   if (buffer == nullptr) {
      return nullptr;
   }
   size_t size = UnicodeResolveLength(buffer, length, &encoding);
   char *text = UnicodeToUtf8(buffer, size, encoding, CSGTG_TRANSLIT);
   if (text == nullptr) {
      char *escaped = UnicodeEscapeBytes(buffer, size);
      Panic("%s: Couldn't convert invalid buffer [%s] from %s to Unicode.\n",
            "Unicode_AllocWithLength",
            escaped != nullptr ? escaped : "(couldn't escape bytes)",
            Unicode_EncodingEnumToName(encoding));
   }
   return text;
}

char *UnicodeAllocStrict(const void *buffer, ptrdiff_t length, StringEncoding encoding)
{
   if (buffer == nullptr) {
      return nullptr;
   }
   size_t size = UnicodeResolveLength(buffer, length, &encoding);
   auto *bytes = static_cast<const char *>(buffer);
   if (encoding == STRING_ENCODING_UTF8 || encoding == STRING_ENCODING_US_ASCII) {
      if (!CodeSet_Validate(bytes, size, Unicode_EncodingEnumToName(encoding))) {
         return nullptr;
      }
      char *copy = static_cast<char *>(SafeMalloc(size + 1));
      memcpy(copy, bytes, size);
      copy[size] = '\0';
      return copy;
   }
   if (encoding == STRING_ENCODING_UTF16_LE) {
      char *text = nullptr;
      return CodeSet_Utf16leToUtf8(bytes, size, &text, nullptr) ? text : nullptr;
   }
   return UnicodeToUtf8(buffer, size, encoding, CSGTG_NORMAL);
}

const char *GetEnvCached(const char *name)
{
   char *value = EnvRead(name);
   if (value == nullptr) {
      return nullptr;
   }
   HashTable *cache = HashTable_AllocOnce(
      &envCache, 128, HASH_STRING_KEY | HASH_FLAG_ATOMIC | HASH_FLAG_COPYKEY, nullptr);
   for (;;) {
      void *found;
      if (!HashTable_Lookup(cache, name, &found)) {
         auto *fresh = static_cast<EnvValue *>(SafeMalloc(sizeof(EnvValue)));
         *fresh = {value, nullptr};
         if (HashTable_Insert(cache, name, fresh)) {
            return value;
         }
         free(fresh);
         continue;  // another thread added the name first
      }
      auto *current = static_cast<EnvValue *>(found);
      if (strcmp(current->value, value) == 0) {
         free(value);
         return current->value;
      }
      auto *fresh = static_cast<EnvValue *>(SafeMalloc(sizeof(EnvValue)));
      *fresh = {value, current};
      if (HashTable_ReplaceIfEqual(cache, name, current, fresh)) {
         // Only what is two changes old goes.
         if (EnvValue *old = current->before) {
            current->before = nullptr;
            free(old->value);
            free(old);
         }
         return value;
      }
      free(fresh);
   }
}
