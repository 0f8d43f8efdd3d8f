#pragma once
// Encoding names and the library's UTF-8 strings: making them from bytes in any encoding,
// and cutting, searching and comparing them by code point.

#include <cstddef>
#include <cstdint>

typedef int32_t StringEncoding;
enum : StringEncoding {
   STRING_ENCODING_UNKNOWN = -2,
   STRING_ENCODING_DEFAULT = -1,  // the process's current encoding; an argument only
   STRING_ENCODING_UTF8 = 0,
   STRING_ENCODING_UTF16_LE = 1,
   STRING_ENCODING_UTF16_BE = 2,
   STRING_ENCODING_UTF16 = 3,
   STRING_ENCODING_UTF32_LE = 4,
   STRING_ENCODING_UTF32_BE = 5,
   STRING_ENCODING_UTF32 = 6,
   STRING_ENCODING_US_ASCII = 7,
   STRING_ENCODING_ISO_8859_1 = 8,
};

struct UnicodeEncodingRow {
   int32_t mibEnum;          // -1: none
   int32_t windowsCodePage;  // -1: none
   StringEncoding encoding;
   bool isSupported;
   int32_t preferredMime;    // index of the name to show
   const char *names[20];    // the IANA name first; null after the last
};
extern const UnicodeEncodingRow unicodeEncodingTable[];
extern const int unicodeEncodingRowCount;

int UnicodeIANALookup(const char *name);  // row index, or -1
StringEncoding Unicode_EncodingNameToEnum(const char *name);
const char *Unicode_EncodingEnumToName(StringEncoding encoding);
StringEncoding Unicode_GetCurrentEncoding();
StringEncoding Unicode_ResolveEncoding(StringEncoding encoding);

// A new UTF-8 string from `length` bytes (-1: up to the encoding's terminator). Bad bytes
// become substitutes; text that cannot be converted at all is a panic. Null gives null.
char *Unicode_AllocWithLength(const void *buffer, ptrdiff_t length, StringEncoding encoding);
// The same, but bad text gives null.
char *UnicodeAllocStrict(const void *buffer, ptrdiff_t length, StringEncoding encoding);
// The bytes with each one that is not plain printable written as \xHH; null without memory.
char *UnicodeEscapeBytes(const void *buffer, size_t length);

// Positions and lengths count code points; a negative or too large start means the end, a
// negative or too long length means up to the end. Invalid UTF-8 is a panic.
char *Unicode_Substr(const char *text, ptrdiff_t start, ptrdiff_t length);
ptrdiff_t Unicode_FindSubstrInRange(const char *text, ptrdiff_t start, ptrdiff_t length,
                                    const char *find, ptrdiff_t findStart,
                                    ptrdiff_t findLength);
ptrdiff_t Unicode_FindLastSubstrInRange(const char *text, ptrdiff_t start, ptrdiff_t length,
                                        const char *find, ptrdiff_t findStart,
                                        ptrdiff_t findLength);
// -1, 0 or 1, in code point order.
int Unicode_CompareRange(const char *text1, ptrdiff_t start1, ptrdiff_t length1,
                         const char *text2, ptrdiff_t start2, ptrdiff_t length2,
                         bool ignoreCase);

// The environment variable as UTF-8, or null. The text stays valid over one change of the
// variable, so a caller that keeps it is not left with freed memory.
const char *GetEnvCached(const char *name);
