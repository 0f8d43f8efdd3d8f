#include "unicode/unicode.h"

#include <atomic>
#include <cctype>
#include <cstdint>
#include <cstring>

#include "misc/hashTable.h"
#include "misc/log.h"
#include "misc/panic.h"
#include "misc/platform.h"
#include "string/str.h"

const UnicodeEncodingRow unicodeEncodingTable[] = {
#include "unicode/unicodeEncodingTable.inc"
};
const int unicodeEncodingRowCount =
   static_cast<int>(sizeof unicodeEncodingTable / sizeof unicodeEncodingTable[0]);

namespace {

std::atomic<HashTable *> lookupCache{nullptr};
std::atomic<StringEncoding> currentEncoding{STRING_ENCODING_UNKNOWN};

// Letters and digits only, in lower case, compared without building the copies.
bool UnicodeNormalizedEqual(const char *a, const char *b)
{
   for (;;) {
      while (*a != '\0' && !isalnum(static_cast<unsigned char>(*a))) {
         a++;
      }
      while (*b != '\0' && !isalnum(static_cast<unsigned char>(*b))) {
         b++;
      }
      if (*a == '\0' || *b == '\0') {
         return *a == *b;
      }
      if (tolower(static_cast<unsigned char>(*a)) != tolower(static_cast<unsigned char>(*b))) {
         return false;
      }
      a++;
      b++;
   }
}

int UnicodeSearch(const char *name)
{
   if (strncmp(name, "windows-", 8) == 0 || strncmp(name, "Windows-", 8) == 0) {
      const char *digits = name + 8;
      if (*digits != '\0' && strspn(digits, "0123456789") == strlen(digits)) {
         long codePage = strtol(digits, nullptr, 10);
         for (int i = 0; i < unicodeEncodingRowCount; i++) {
            if (unicodeEncodingTable[i].windowsCodePage == codePage) {
               return i;
            }
         }
      }
   }
   for (int i = 0; i < unicodeEncodingRowCount; i++) {
      for (const char *const *n = unicodeEncodingTable[i].names; *n != nullptr; n++) {
         if (strcmp(*n, name) == 0) {
            return i;
         }
      }
   }
   for (int i = 0; i < unicodeEncodingRowCount; i++) {
      for (const char *const *n = unicodeEncodingTable[i].names; *n != nullptr; n++) {
         if (UnicodeNormalizedEqual(*n, name)) {
            return i;
         }
      }
   }
   return -1;
}

} // namespace

int UnicodeIANALookup(const char *name)
{
   HashTable *cache = HashTable_AllocOnce(
      &lookupCache, 128, HASH_ISTRING_KEY | HASH_FLAG_ATOMIC | HASH_FLAG_COPYKEY, nullptr);
   void *row;
   if (HashTable_Lookup(cache, name, &row)) {
      return static_cast<int>(reinterpret_cast<intptr_t>(row));
   }
   int index = UnicodeSearch(name);
   if (index < 0) {
      Log("%s: Did not find an IANA match for encoding \"%s\"\n", "UnicodeIANALookup", name);
      return -1;
   }
   HashTable_Insert(cache, name, reinterpret_cast<void *>(static_cast<intptr_t>(index)));
   return index;
}

StringEncoding Unicode_EncodingNameToEnum(const char *name)
{
   int index = UnicodeIANALookup(name);
   if (index < 0 || !unicodeEncodingTable[index].isSupported) {
      return STRING_ENCODING_UNKNOWN;
   }
   return unicodeEncodingTable[index].encoding;
}

const char *Unicode_EncodingEnumToName(StringEncoding encoding)
{
   encoding = Unicode_ResolveEncoding(encoding);
   for (int i = 0; i < unicodeEncodingRowCount; i++) {
      const UnicodeEncodingRow &row = unicodeEncodingTable[i];
      if (row.encoding == encoding) {
         return row.names[row.preferredMime];
      }
   }
   Log("%s: Unknown encoding %d.\n", "Unicode_EncodingEnumToName", encoding);
   Panic("NOT_REACHED %s:%d\n", "lib/unicode/unicodeSimpleTypes", 3197);
}

StringEncoding Unicode_GetCurrentEncoding()
{
   StringEncoding cached = currentEncoding.load();
   if (cached != STRING_ENCODING_UNKNOWN) {
      return cached;
   }
   static char name[20];  // written the same by every thread that gets here
   Str_Snprintf(name, sizeof name, "windows-%u", Platform_AnsiCodePage());
   int index = UnicodeIANALookup(name);
   StringEncoding encoding = index >= 0 && unicodeEncodingTable[index].isSupported
                                ? unicodeEncodingTable[index].encoding
                                : STRING_ENCODING_UNKNOWN;
   currentEncoding.store(encoding);
   return encoding;
}

StringEncoding Unicode_ResolveEncoding(StringEncoding encoding)
{
   return encoding == STRING_ENCODING_DEFAULT ? Unicode_GetCurrentEncoding() : encoding;
}
