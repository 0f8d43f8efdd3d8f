// Encoding-name lookup on arbitrary names. Oracles: a row found holds the name exactly or
// after normalisation (letters and digits, lower case), or is the row of the code page a
// "windows-N" name gives; no name is refused that some row's name normalises to; and a
// second lookup, now from the cache, gives the same row.

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "unicode/unicode.h"

namespace {

std::string Normalized(const char *name)
{
   std::string out;
   for (; *name != '\0'; name++) {
      if (isalnum(static_cast<unsigned char>(*name))) {
         out += static_cast<char>(tolower(static_cast<unsigned char>(*name)));
      }
   }
   return out;
}

bool RowHasName(int row, const std::string &normalized)
{
   for (const char *const *n = unicodeEncodingTable[row].names; *n != nullptr; n++) {
      if (Normalized(*n) == normalized) {
         return true;
      }
   }
   return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   std::string name(reinterpret_cast<const char *>(data), size < 64 ? size : 64);
   name = name.c_str();  // up to the first NUL
   const std::string normalized = Normalized(name.c_str());
   int row = UnicodeIANALookup(name.c_str());
   bool windowsNumber = strncasecmp(name.c_str(), "windows-", 8) == 0 && name.size() > 8 &&
                        name.find_first_not_of("0123456789", 8) == std::string::npos;
   if (row >= 0) {
      bool byCodePage = windowsNumber && unicodeEncodingTable[row].windowsCodePage ==
                                            atol(name.c_str() + 8);
      if (!RowHasName(row, normalized) && !byCodePage) {
         __builtin_trap();
      }
   } else {
      for (int i = 0; i < unicodeEncodingRowCount; i++) {
         if (RowHasName(i, normalized)) {
            __builtin_trap();
         }
      }
   }
   if (UnicodeIANALookup(name.c_str()) != row) {
      __builtin_trap();
   }
   return 0;
}
