// Encoding names, the table's telling rows, strings from bytes, and code-point operations.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "unicode/unicode.h"

namespace {

std::string Take(char *s)
{
   std::string r = s != nullptr ? s : "<null>";
   free(s);
   return r;
}

std::string NameOfRow(int row)
{
   return row < 0 ? "<none>" : unicodeEncodingTable[row].names[unicodeEncodingTable[row].preferredMime];
}

// Each lookup step by a name that only it resolves; where a row is telling, its fields and
// the name its encoding goes back to.
TEST(UnicodeEncodingNames, LookupStepsAndTellingRows)
{
   const struct {
      const char *name, *row;  // the preferred name of the row found
      StringEncoding encoding;
      int mib = 0, codePage = 0;
      const char *first = nullptr;  // null: the row's fields are not checked
   } rows[] = {
      {"windows-1252", "windows-1252", Unicode_EncodingNameToEnum("windows-1252")},
      {"Windows-57011", "Windows-57011", 314, -1, 57011, "Windows-57011"},
      {"windows-20127", "ASCII", 7, 3, 20127, "ANSI_X3.4-1968"},  // by code page, not by name
      {"Windows-abc", "<none>", STRING_ENCODING_UNKNOWN},
      {"UTF8", "UTF-8", 0, 106, 65001, "UTF-8"},
      {"latin_1", "ISO-8859-1", 8, 4, 28591, "ISO_8859-1:1987"},
      {"ISO_8859-1:1987", "ISO-8859-1", 8},
      {"x-utf-16be", "UTF-16BE", 2, 1013, 1201, "UTF-16BE"},
      {"UTF-16LE", "UTF-16LE", 1, 1014, 1200, "UTF-16LE"},
      {"ISO-8859-6-I", "ISO-8859-6", Unicode_EncodingNameToEnum("ISO-8859-6")},
      {"BS_4730", "BS_4730", STRING_ENCODING_UNKNOWN},  // known, refused
      {"no-such-thing", "<none>", STRING_ENCODING_UNKNOWN},
   };
   for (const auto &r : rows) {
      const int found = UnicodeIANALookup(r.name);
      EXPECT_EQ(NameOfRow(found), r.row) << r.name;
      EXPECT_EQ(Unicode_EncodingNameToEnum(r.name), r.encoding) << r.name;
      if (r.first != nullptr) {
         const UnicodeEncodingRow &row = unicodeEncodingTable[found];
         EXPECT_EQ(row.mibEnum, r.mib) << r.name;
         EXPECT_EQ(row.windowsCodePage, r.codePage) << r.name;
         EXPECT_EQ(row.encoding, r.encoding) << r.name;
         EXPECT_STREQ(row.names[0], r.first) << r.name;
         EXPECT_STREQ(Unicode_EncodingEnumToName(r.encoding), r.row);
      }
   }
   EXPECT_EQ(UnicodeIANALookup("utf8"), UnicodeIANALookup("UTF8"));  // from the cache
   int supported = 0;
   for (int i = 0; i < unicodeEncodingRowCount; i++) {
      supported += unicodeEncodingTable[i].isSupported;
   }
   EXPECT_EQ(unicodeEncodingRowCount, 325);
   EXPECT_EQ(supported, 77);
   EXPECT_EQ(Unicode_ResolveEncoding(STRING_ENCODING_DEFAULT), Unicode_GetCurrentEncoding());
   EXPECT_NE(Unicode_GetCurrentEncoding(), STRING_ENCODING_UNKNOWN);
}

TEST(UnicodeAlloc, FromBytesInAnyEncoding)
{
   const char16_t wide[] = u"a\u00e9\U0001F600";
   const struct { std::string got; std::string want; } rows[] = {
      {Take(Unicode_AllocWithLength("ab\0cd", -1, STRING_ENCODING_UTF8)), "ab"},
      {Take(Unicode_AllocWithLength("ab\0cd", 5, STRING_ENCODING_UTF8)), std::string("ab\0cd", 5).c_str()},
      {Take(Unicode_AllocWithLength(wide, -1, STRING_ENCODING_UTF16_LE)),
       "a\xC3\xA9\xF0\x9F\x98\x80"},
      {Take(Unicode_AllocWithLength("a\x80", 2, STRING_ENCODING_US_ASCII)), "a\xEF\xBF\xBD"},
      {Take(Unicode_AllocWithLength("\xE9", -1, STRING_ENCODING_ISO_8859_1)), "\xC3\xA9"},
      {Take(Unicode_AllocWithLength(nullptr, 3, STRING_ENCODING_UTF8)), "<null>"},
      {Take(UnicodeAllocStrict("a\xC3", -1, STRING_ENCODING_UTF8)), "<null>"},
      {Take(UnicodeAllocStrict("a\x80", -1, STRING_ENCODING_US_ASCII)), "<null>"},
      {Take(UnicodeAllocStrict(wide, 4, STRING_ENCODING_UTF16_LE)), "a\xC3\xA9"},
      {Take(UnicodeEscapeBytes("a\x01\xFF~", 4)), "a\\x01\\xff~"},
   };
   for (const auto &r : rows) {
      EXPECT_EQ(r.got, r.want);
   }
}

TEST(UnicodeOperations, CutSearchCompareByCodePoint)
{
   const char *text = "a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80z";  // a é 中 😀 z
   const struct { std::string got; std::string want; } cuts[] = {
      {Take(Unicode_Substr(text, 1, 2)), "\xC3\xA9\xE4\xB8\xAD"},
      {Take(Unicode_Substr(text, 3, -1)), "\xF0\x9F\x98\x80z"},
      {Take(Unicode_Substr(text, 4, 99)), "z"},
      {Take(Unicode_Substr(text, 9, 1)), ""},
      {Take(Unicode_Substr(text, -1, 1)), ""},
   };
   for (const auto &r : cuts) {
      EXPECT_EQ(r.got, r.want);
   }
   const struct { ptrdiff_t got; ptrdiff_t want; } finds[] = {
      {Unicode_FindSubstrInRange(text, 0, -1, "\xF0\x9F\x98\x80", 0, -1), 3},
      {Unicode_FindSubstrInRange(text, 0, 3, "\xF0\x9F\x98\x80", 0, -1), -1},
      {Unicode_FindSubstrInRange("abab", 1, -1, "ab", 0, -1), 2},
      {Unicode_FindLastSubstrInRange("abab", 0, -1, "ab", 0, -1), 2},
      {Unicode_FindLastSubstrInRange("abab", 0, 3, "ab", 0, -1), 0},
      {Unicode_FindSubstrInRange("abc", 0, -1, "xbx", 1, 1), 1},
      {Unicode_FindSubstrInRange("abc", 0, -1, "", 0, -1), 0},
      {Unicode_FindLastSubstrInRange("abc", 0, -1, "", 0, -1), 3},
      {Unicode_CompareRange("abc", 0, -1, "abd", 0, -1, false), -1},
      {Unicode_CompareRange("ab", 0, -1, "abc", 0, -1, false), -1},
      {Unicode_CompareRange("xabc", 1, 2, "ab", 0, -1, false), 0},
      {Unicode_CompareRange("\xC3\x89T\xC3\x89", 0, -1, "\xC3\xA9t\xC3\xA9", 0, -1, true), 0},
      {Unicode_CompareRange("ABC", 0, -1, "abc", 0, -1, false), -1},
      // U+1F600 (a surrogate pair) sorts after U+FFFD by code point, not by unit.
      {Unicode_CompareRange("\xF0\x9F\x98\x80", 0, -1, "\xEF\xBF\xBD", 0, -1, false), 1},
      {Unicode_CompareRange("\xF0\x9F\x98\x80", 0, -1, "\xF0\x9F\x98\x81", 0, -1, false), -1},
   };
   for (size_t i = 0; i < sizeof finds / sizeof finds[0]; i++) {
      EXPECT_EQ(finds[i].got, finds[i].want) << "row " << i;
   }
}

} // namespace
