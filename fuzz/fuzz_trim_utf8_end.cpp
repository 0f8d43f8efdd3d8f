// TrimUtf8End on arbitrary bytes (it may only shorten, and may read nothing at or beyond
// `end`) and on valid UTF-8 made from the input, where the answer is known: the last
// character boundary at or before `end`.
//
// Byte 0 picks the test: even for raw bytes, odd for generated text.

#include <cstdint>
#include <cstring>
#include <vector>

#include "string/bsd_vsnprintf.h"

namespace {

// Each call gets a copy of exactly `end` bytes, so a read at or past `end` is caught.
size_t TrimCopy(const std::vector<char> &text, size_t end)
{
   std::vector<char> copy(text.begin(), text.begin() + end);
   return TrimUtf8End(copy.data(), end);
}

void AppendUtf8(std::vector<char> &out, uint32_t cp)
{
   static const unsigned char kLead[] = {0, 0x00, 0xC0, 0xE0, 0xF0};  // by encoded length
   const int length = cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
   out.push_back(char(kLead[length] | cp >> 6 * (length - 1)));
   for (int shift = 6 * (length - 2); shift >= 0; shift -= 6) {
      out.push_back(char(0x80 | (cp >> shift & 0x3F)));
   }
}

// Three input bytes per character; the top two bits of the first choose the encoded
// length, so that all four lengths and their extreme values come up often.
void CheckValidText(const uint8_t *data, size_t size)
{
   std::vector<char> text;
   std::vector<size_t> boundaries{0};
   for (size_t i = 0; i + 2 < size; i += 3) {
      uint32_t bits = uint32_t(data[i] & 0x3F) << 16 | uint32_t(data[i + 1]) << 8 | data[i + 2];
      uint32_t cp;
      switch (data[i] >> 6) {
      case 0: cp = bits & 0x7F; break;
      case 1: cp = 0x80 + bits % (0x800 - 0x80); break;
      case 2:
         cp = 0x800 + bits % (0x10000 - 0x800 - 0x800);
         if (cp >= 0xD800) {
            cp += 0x800;  // skip the surrogates
         }
         break;
      default: cp = 0x10000 + bits % (0x110000 - 0x10000); break;
      }
      AppendUtf8(text, cp);
      boundaries.push_back(text.size());
   }
   size_t last = 0;
   for (size_t end = 0; end <= text.size(); ++end) {
      while (last + 1 < boundaries.size() && boundaries[last + 1] <= end) {
         ++last;
      }
      if (TrimCopy(text, end) != boundaries[last]) {
         __builtin_trap();
      }
   }
}

void CheckRawBytes(const uint8_t *data, size_t size)
{
   std::vector<char> text(data, data + size);
   for (size_t end = 0; end <= text.size(); ++end) {
      size_t trimmed = TrimCopy(text, end);
      if (trimmed > end) {
         __builtin_trap();
      }
      // An ASCII last byte always stays.
      if (end > 0 && static_cast<unsigned char>(text[end - 1]) < 0x80 && trimmed != end) {
         __builtin_trap();
      }
   }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   if (size < 1 || size > 1024) {
      return 0;
   }
   if (data[0] & 1) {
      CheckValidText(data + 1, size - 1);
   } else {
      CheckRawBytes(data + 1, size - 1);
   }
   return 0;
}
