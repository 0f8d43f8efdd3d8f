#include "ProgIdIdentity.h"

#include <cstring>
#include <vector>

#include "string/str.h"

#if defined(_WIN32)
#include <windows.h>
#endif

#if defined(_WIN32)

Utf8Buffer WideToUtf8(const ProgIdText &text)
{
   Utf8Buffer result;
   int size = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, nullptr, 0, nullptr, nullptr);
   if (size <= 0) {
      return result;
   }
   std::unique_ptr<char[], FreeDeleter> bytes(static_cast<char *>(std::calloc(size_t(size), 1)));
   if (!bytes) {
      return result;
   }
   if (WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, bytes.get(), size, nullptr, nullptr) ==
       0) {
      return result;
   }
   result.bytes = std::move(bytes);
   result.size = size_t(size);
   return result;
}

#else

// The names to be matched were made by WideCharToMultiByte, so this does what it does with
// flags 0: stop at the first NUL and turn a lone surrogate into U+FFFD. (The support
// library's lenient transform would keep the surrogate's own three bytes instead.)
Utf8Buffer WideToUtf8(const ProgIdText &text)
{
   std::vector<char> out;
   const utf16_t *p = text.c_str();
   for (; *p != 0; ++p) {
      uint32_t cp = *p;
      if (cp >= 0xD800 && cp <= 0xDBFF && p[1] >= 0xDC00 && p[1] <= 0xDFFF) {
         cp = 0x10000 + ((cp - 0xD800) << 10) + (uint32_t(p[1]) - 0xDC00);
         ++p;
      } else if (cp >= 0xD800 && cp <= 0xDFFF) {
         cp = 0xFFFD;
      }
      if (cp < 0x80) {
         out.push_back(char(cp));
      } else if (cp < 0x800) {
         out.push_back(char(0xC0 | (cp >> 6)));
         out.push_back(char(0x80 | (cp & 0x3F)));
      } else if (cp < 0x10000) {
         out.push_back(char(0xE0 | (cp >> 12)));
         out.push_back(char(0x80 | ((cp >> 6) & 0x3F)));
         out.push_back(char(0x80 | (cp & 0x3F)));
      } else {
         out.push_back(char(0xF0 | (cp >> 18)));
         out.push_back(char(0x80 | ((cp >> 12) & 0x3F)));
         out.push_back(char(0x80 | ((cp >> 6) & 0x3F)));
         out.push_back(char(0x80 | (cp & 0x3F)));
      }
   }
   out.push_back('\0');

   Utf8Buffer result;
   result.bytes.reset(static_cast<char *>(std::calloc(out.size(), 1)));
   if (!result.bytes) {
      return result;
   }
   std::memcpy(result.bytes.get(), out.data(), out.size());
   result.size = out.size();
   return result;
}

#endif

namespace {

// The deployed names hash as many bytes of the UTF-8 text as the wide text has UTF-16 units,
// which may cut a character in two. Names found in users' registries only match this way.
bool HashText(const ProgIdText &text, ProgIdText &hexOut)
{
   Utf8Buffer utf8 = WideToUtf8(text);
   if (!utf8) {
      return false;
   }
   const size_t length = text.size();
   uint64_t hash;
   if (length < utf8.size) {
      hash = ProgIdHash64(reinterpret_cast<const uint8_t *>(utf8.bytes.get()), length);
   } else {
      // Only a text with an embedded NUL has fewer UTF-8 bytes than units: the conversion
      // stopped at the NUL. Hash zeros for the rest rather than read past the buffer.
      std::vector<uint8_t> padded(length, 0);
      std::memcpy(padded.data(), utf8.bytes.get(), utf8.size);
      hash = ProgIdHash64(padded.data(), length);
   }

   static const utf16_t format[] = {'%', 'I', '6', '4', 'x', 0};
   utf16_t *hex = Str_SafeAswprintf(nullptr, format, hash);
   hexOut = hex;
   std::free(hex);
   return true;
}

} // namespace

ProgIdText ComputeProgId(const ProgIdText &serverGuid, const ProgIdText &appId,
                         const ProgIdText &displayName)
{
   if (serverGuid.empty() || appId.empty()) {
      return ProgIdText();
   }

   // A text that cannot be converted has no name we could recognise; an empty ProgId
   // matches nothing, so the user's associations stay as they are.
   ProgIdText first;
   if (!HashText(serverGuid + appId, first)) {
      return ProgIdText();
   }
   ProgIdText second;
   if (!displayName.empty() && !HashText(displayName, second)) {
      return ProgIdText();
   }

   static const utf16_t prefix[] = {'E', 'l', 'd', 'r', 'i', 'x', 0};
   return prefix + first + second;
}
