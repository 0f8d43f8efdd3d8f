// Bounded and allocating formatting over the engines.

#include "string/str.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "misc/panic.h"

size_t TrimUtf8End(const char *buf, size_t end)
{
   if (end == 0) {
      return 0;
   }
   size_t i = end - 1;
   // Position 0 is taken as a lead byte whatever it holds: the cut must stay in the text.
   while (i > 0 && (static_cast<unsigned char>(buf[i]) & 0xC0) == 0x80) {
      i--;
   }
   int c = static_cast<signed char>(buf[i]);
   size_t k = end - i;
   if (c >= 0) {
      return end;
   }
   // A lead byte of a k-byte sequence has k leading ones; shifted by 7 - k it leaves
   // exactly 0xFE in the low byte.
   unsigned shift = static_cast<unsigned>(7 - k) & 31u;
   return ((c >> shift) & 0xFF) == 0xFE ? end : i;
}

int Str_Vsnprintf(char *buffer, size_t size, const char *format, va_list ap)
{
   char *target = buffer;
   int n = bsd_vsnprintf(&target, size, format, ap);
   if (buffer == nullptr) {
      // A null buffer made the engine allocate; the caller wanted no text, only a count.
      free(target);
   }
   if (n >= 0 && static_cast<size_t>(n) < size) {
      return n;
   }
   if (size != 0 && buffer != nullptr) {
      buffer[TrimUtf8End(buffer, size - 1)] = '\0';
   }
   return -1;
}

int Str_Snprintf(char *buffer, size_t size, const char *format, ...)
{
   va_list ap;
   va_start(ap, format);
   int n = Str_Vsnprintf(buffer, size, format, ap);
   va_end(ap);
   return n;
}

int Str_Sprintf(char *buffer, size_t size, const char *format, ...)
{
   va_list ap;
   va_start(ap, format);
   int n = Str_Vsnprintf(buffer, size, format, ap);
   va_end(ap);
   if (n < 0) {
      Panic("%s:%d Buffer too small\n", "lib/string/str", 215);
   }
   return n;
}

char *Str_Strcpy(char *destination, const char *source, size_t size)
{
   size_t length = strlen(source);
   if (length >= size) {
      Panic("%s:%d Buffer too small\n", "lib/string/str", 285);
   }
   return static_cast<char *>(memcpy(destination, source, length + 1));
}

char *Str_Strcat(char *destination, const char *source, size_t size)
{
   size_t destinationLength = strlen(destination);
   size_t sourceLength = strlen(source);
   size_t sum = destinationLength + sourceLength;
   if (sum < destinationLength || sum >= size) {
      Panic("%s:%d Buffer too small\n", "lib/string/str", 442);
   }
   memcpy(destination + destinationLength, source, sourceLength + 1);
   return destination;
}

char *Str_Vasprintf(size_t *length, const char *format, va_list ap)
{
   char *buffer = nullptr;
   int n = bsd_vsnprintf(&buffer, 0, format, ap);
   if (n < 0) {
      return nullptr;
   }
   if (length != nullptr) {
      *length = static_cast<size_t>(n);
   }
   return buffer;
}

char *Str_Asprintf(size_t *length, const char *format, ...)
{
   va_list ap;
   va_start(ap, format);
   char *s = Str_Vasprintf(length, format, ap);
   va_end(ap);
   return s;
}

char *Str_SafeVasprintf(size_t *length, const char *format, va_list ap)
{
   char *s = Str_Vasprintf(length, format, ap);
   if (s == nullptr) {
      Panic("VERIFY %s:%d\n", "lib/string/str", 654);
   }
   return s;
}

char *Str_SafeAsprintf(size_t *length, const char *format, ...)
{
   va_list ap;
   va_start(ap, format);
   char *s = Str_SafeVasprintf(length, format, ap);
   va_end(ap);
   return s;
}

utf16_t *StrVaswprintfInternal(size_t *length, const utf16_t *format, va_list ap,
                               bool mustSucceed)
{
   size_t units = 0;
   while (format[units] != 0) {
      units++;
   }
   // An empty format still needs room for its terminator, or the buffer would never grow.
   size_t bytes = units != 0 ? units * 2 : 2;
   utf16_t *buffer = nullptr;
   for (;;) {
      size_t capacity = bytes;
      bytes *= 2;
      utf16_t *grown = static_cast<utf16_t *>(realloc(buffer, bytes));
      if (grown == nullptr) {
         free(buffer);
         buffer = nullptr;
         break;
      }
      buffer = grown;
      va_list args;
      va_copy(args, ap);
      utf16_t *target = buffer;
      int n = bsd_vsnwprintf(&target, capacity, format, args);
      va_end(args);
      // -1 widens to the largest unsigned value: a failed format retries with more room.
      if (static_cast<uint64_t>(static_cast<int64_t>(n)) < capacity) {
         if (length != nullptr) {
            *length = static_cast<size_t>(n);
         }
         break;
      }
   }
   if (buffer == nullptr && mustSucceed) {
      Panic("VERIFY %s:%d\n", "lib/string/str", 1049);
   }
   return buffer;
}

utf16_t *Str_SafeAswprintf(size_t *length, const utf16_t *format, ...)
{
   va_list ap;
   va_start(ap, format);
   utf16_t *s = StrVaswprintfInternal(length, format, ap, true);
   va_end(ap);
   return s;
}
