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

template <typename From, typename To>
using Converter = int (*)(const From **, const From *, To **, To *, bool);

template <typename From, typename To>
struct Outcome {
   int result;
   size_t consumed;  // source units behind the stop
   std::vector<To> text;
};

// In windows of `window` units, each an exactly sized heap block, resuming where the last
// one stopped. A window that holds the whole output must never fill up.
template <typename From, typename To>
Outcome<From, To> Convert(Converter<From, To> convert, const std::vector<From> &source, size_t window, bool lenient,
                          bool holdsAll = false)
{
   Outcome<From, To> out{UTF_CONVERSION_TARGET_FULL, 0, {}};
   const From *s = source.data();
   const From *end = source.data() + source.size();
   while (out.result == UTF_CONVERSION_TARGET_FULL) {
      std::vector<To> target(window);
      To *t = target.data();
      const From *before = s;
      out.result = convert(&s, end, &t, target.data() + window, lenient);
      if (out.result == UTF_CONVERSION_TARGET_FULL && (holdsAll || (s == before && t == target.data()))) {
         __builtin_trap();  // a window this size holds any one character
      }
      out.text.insert(out.text.end(), target.data(), t);
   }
   out.consumed = size_t(s - source.data());
   return out;
}

// `room` units of target per source unit cannot fill up. Lone surrogates pass on the UTF-16
// side in lenient mode, so there it always gets to the end.
template <typename From, typename To>
void Check(Converter<From, To> forth, Converter<To, From> back, const std::vector<From> &source, size_t room,
           size_t window, bool lenientReachesTheEnd)
{
   const size_t whole = std::max<size_t>(1, source.size() * room);
   const auto strict = Convert(forth, source, whole, false, true);
   const auto lenient = Convert(forth, source, whole, true, true);
   if (strict.result == UTF_CONVERSION_DONE && strict.consumed != source.size()) {
      __builtin_trap();
   }
   if (lenientReachesTheEnd && (lenient.result == UTF_CONVERSION_ILLEGAL ||
                                (lenient.result == UTF_CONVERSION_DONE && lenient.consumed != source.size()))) {
      __builtin_trap();
   }
   if ((strict.result == UTF_CONVERSION_DONE || strict.result == UTF_CONVERSION_SOURCE_CUT) &&
       (lenient.result != strict.result || lenient.text != strict.text || lenient.consumed != strict.consumed)) {
      __builtin_trap();
   }
   if (lenient.consumed < strict.consumed || lenient.text.size() < strict.text.size() ||
       !std::equal(strict.text.begin(), strict.text.end(), lenient.text.begin())) {
      __builtin_trap();
   }
   // What strict accepted converts back to exactly what it came from.
   const auto returned = Convert(back, strict.text, std::max<size_t>(1, strict.text.size() * 3), false, true);
   if (returned.result != UTF_CONVERSION_DONE ||
       returned.text != std::vector<From>(source.begin(), source.begin() + strict.consumed)) {
      __builtin_trap();
   }
   for (bool mode : {false, true}) {
      const auto &once = mode ? lenient : strict;
      const auto windowed = Convert(forth, source, window, mode);
      if (windowed.result != once.result || windowed.consumed != once.consumed || windowed.text != once.text) {
         __builtin_trap();
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
      // Three bytes per unit at most; a pair gives four for two.
      Check<utf16_t, char>(ConvertUtf16ToUtf8, ConvertUtf8ToUtf16, source, 3, window, true);
   } else {
      // Every byte yields at most one unit.
      Check<char, utf16_t>(ConvertUtf8ToUtf16, ConvertUtf16ToUtf8, std::vector<char>(data + 1, data + size), 1, window,
                           false);
   }
   return 0;
}
