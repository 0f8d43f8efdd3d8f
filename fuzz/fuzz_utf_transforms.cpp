// The two UTF transforms on arbitrary input. Oracles: strict and lenient agree wherever
// strict succeeds; whatever strict converted goes back to exactly the bytes or units it
// came from; and converting through a small target, resuming after each "target full",
// gives the same text and the same stop as converting in one go.
//
// Byte 0: bit 0 picks the direction (0: bytes are UTF-8; 1: bytes are little-endian UTF-16
// units), the rest sizes the small target. The remaining bytes are the source.

#include <algorithm>
#include <cstdint>
#include <vector>

#include "string/bsd_vsnprintf.h"

namespace {

[[noreturn]] void Fail()
{
   __builtin_trap();
}

template <typename From, typename To>
using Converter = int (*)(const From **, const From *, To **, To *, bool);

template <typename From, typename To>
struct Outcome {
   int result;
   size_t consumed;  // source units behind the stop
   std::vector<To> text;
};

// One go, into a target sized so that it cannot fill up.
template <typename From, typename To>
Outcome<From, To> ConvertAll(Converter<From, To> convert, const std::vector<From> &source,
                             size_t targetSize, bool lenient)
{
   std::vector<To> target(targetSize);
   const From *s = source.data();
   To *t = target.data();
   int result = convert(&s, source.data() + source.size(), &t, target.data() + target.size(),
                        lenient);
   if (result == UTF_CONVERSION_TARGET_FULL) {
      Fail();
   }
   target.resize(size_t(t - target.data()));
   return {result, size_t(s - source.data()), target};
}

// In windows of `window` units, each an exactly sized heap block, resuming where the last
// one stopped.
template <typename From, typename To>
Outcome<From, To> ConvertInWindows(Converter<From, To> convert, const std::vector<From> &source,
                                   size_t window, bool lenient)
{
   Outcome<From, To> out{UTF_CONVERSION_TARGET_FULL, 0, {}};
   const From *s = source.data();
   const From *end = source.data() + source.size();
   while (out.result == UTF_CONVERSION_TARGET_FULL) {
      std::vector<To> target(window);
      To *t = target.data();
      const From *before = s;
      out.result = convert(&s, end, &t, target.data() + window, lenient);
      if (out.result == UTF_CONVERSION_TARGET_FULL && s == before && t == target.data()) {
         Fail();  // a window this size holds any one character
      }
      out.text.insert(out.text.end(), target.data(), t);
   }
   out.consumed = size_t(s - source.data());
   return out;
}

template <typename T>
bool StartsWith(const std::vector<T> &text, const std::vector<T> &prefix)
{
   return text.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), text.begin());
}

void CheckUtf8Source(const std::vector<char> &source, size_t window)
{
   // Every byte yields at most one unit.
   auto strict = ConvertAll<char, utf16_t>(ConvertUtf8ToUtf16, source, source.size(), false);
   auto lenient = ConvertAll<char, utf16_t>(ConvertUtf8ToUtf16, source, source.size(), true);

   if (strict.result == UTF_CONVERSION_DONE && strict.consumed != source.size()) {
      Fail();
   }
   if (strict.result == UTF_CONVERSION_DONE || strict.result == UTF_CONVERSION_SOURCE_CUT) {
      if (lenient.result != strict.result || lenient.text != strict.text ||
          lenient.consumed != strict.consumed) {
         Fail();
      }
   }
   if (!StartsWith(lenient.text, strict.text) || lenient.consumed < strict.consumed) {
      Fail();
   }

   // What strict accepted is well-formed UTF-16 and encodes back to the same bytes.
   std::vector<char> back(strict.text.size() * 3);
   const utf16_t *s = strict.text.data();
   char *t = back.data();
   if (ConvertUtf16ToUtf8(&s, strict.text.data() + strict.text.size(), &t,
                          back.data() + back.size(), false) != UTF_CONVERSION_DONE) {
      Fail();
   }
   back.resize(size_t(t - back.data()));
   if (back != std::vector<char>(source.begin(), source.begin() + strict.consumed)) {
      Fail();
   }

   auto windowed = ConvertInWindows<char, utf16_t>(ConvertUtf8ToUtf16, source, window, false);
   if (windowed.result != strict.result || windowed.consumed != strict.consumed ||
       windowed.text != strict.text) {
      Fail();
   }
}

void CheckUtf16Source(const std::vector<utf16_t> &source, size_t window)
{
   // Three bytes per unit at most; a pair gives four for two.
   auto strict = ConvertAll<utf16_t, char>(ConvertUtf16ToUtf8, source, source.size() * 3, false);
   auto lenient = ConvertAll<utf16_t, char>(ConvertUtf16ToUtf8, source, source.size() * 3, true);

   if (lenient.result == UTF_CONVERSION_ILLEGAL) {
      Fail();  // lone surrogates pass in lenient mode
   }
   if (lenient.result == UTF_CONVERSION_DONE && lenient.consumed != source.size()) {
      Fail();
   }
   if (strict.result == UTF_CONVERSION_DONE || strict.result == UTF_CONVERSION_SOURCE_CUT) {
      if (lenient.result != strict.result || lenient.text != strict.text ||
          lenient.consumed != strict.consumed) {
         Fail();
      }
   }
   if (!StartsWith(lenient.text, strict.text) || lenient.consumed < strict.consumed) {
      Fail();
   }
   // What strict accepted encodes back to the same units.
   std::vector<utf16_t> back(strict.text.size());
   const char *s = strict.text.data();
   utf16_t *t = back.data();
   if (ConvertUtf8ToUtf16(&s, strict.text.data() + strict.text.size(), &t,
                          back.data() + back.size(), false) != UTF_CONVERSION_DONE) {
      Fail();
   }
   back.resize(size_t(t - back.data()));
   if (back != std::vector<utf16_t>(source.begin(), source.begin() + strict.consumed)) {
      Fail();
   }

   for (bool mode : {false, true}) {
      const auto &whole = mode ? lenient : strict;
      auto windowed = ConvertInWindows<utf16_t, char>(ConvertUtf16ToUtf8, source, window, mode);
      if (windowed.result != whole.result || windowed.consumed != whole.consumed ||
          windowed.text != whole.text) {
         Fail();
      }
   }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   if (size < 1) {
      return 0;
   }
   const bool utf16Source = data[0] & 1;
   // Room for one whole character at least: two units, or four bytes.
   const size_t window = (utf16Source ? 4 : 2) + (data[0] >> 1) % 8;
   if (utf16Source) {
      std::vector<utf16_t> source;
      for (size_t i = 1; i + 1 < size; i += 2) {
         source.push_back(utf16_t(data[i] | data[i + 1] << 8));
      }
      CheckUtf16Source(source, window);
   } else {
      CheckUtf8Source(std::vector<char>(data + 1, data + size), window);
   }
   return 0;
}
