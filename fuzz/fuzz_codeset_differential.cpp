// The built-in conversions against ICU on arbitrary bytes: the same success and the same
// output for every pair both support. Substitution and skipping are compared on the paths
// that take a policy, except for text holding an encoded surrogate or a value past U+10FFFF,
// which the built-in path passes over as one character and ICU as several pieces.
//
// ICU's callbacks, the stopping one too, pass over default-ignorable code points (U+00AD,
// U+200B and the like) that a target cannot hold; the built-in path treats them as any other
// character, so such text is not compared on the way into US-ASCII.
//
// Byte 0: the pair (low three bits) and the policy (next two bits). The rest is the text.

#include <cstdint>
#include <cstring>
#include <string>

#include <unicode/uchar.h>

#include "misc/codeset.h"
#include "misc/codesetUtf8.h"

namespace {

struct Pair {
   const char *from;
   const char *to;
   bool takesPolicy;
};

const Pair kPairs[] = {
   {"UTF-8", "UTF-16LE", false}, {"UTF-16LE", "UTF-8", false}, {"UTF-16BE", "UTF-8", false},
   {"UTF-8", "US-ASCII", true},  {"US-ASCII", "UTF-8", true},  {"ISO-8859-1", "UTF-8", false},
   {"UTF-8", "UTF-8", false},    {"UTF-16LE", "UTF-16LE", false},
};

// Text in which a character decodes that the two paths treat differently by design.
bool Holds(const uint8_t *p, const uint8_t *end, bool ignorable)
{
   while (p < end) {
      uint32_t v;
      int n = CodeSetDecodeUtf8(p, end, &v);
      if (n != 0 && !ignorable && ((v >= 0xD800 && v <= 0xDFFF) || v >= 0x110000)) {
         return true;
      }
      if (n != 0 && ignorable && u_hasBinaryProperty(v, UCHAR_DEFAULT_IGNORABLE_CODE_POINT)) {
         return true;
      }
      p += n != 0 ? n : 1;
   }
   return false;
}

std::string Convert(const Pair &pair, const uint8_t *text, size_t size, unsigned policy,
                    bool icu, bool *ok)
{
   DynBuf out;
   DynBuf_Init(&out);
   dontUseIcu = !icu;
   *ok = CodeSet_GenericToGeneric(pair.from, reinterpret_cast<const char *>(text), size,
                                  pair.to, policy, &out);
   dontUseIcu = true;
   std::string bytes(out.data != nullptr ? out.data : "", out.size);
   DynBuf_Destroy(&out);
   return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   if (size < 1) {
      return 0;
   }
   const Pair &pair = kPairs[data[0] & 7];
   unsigned policy = (data[0] >> 3) % 3;
   bool fromUtf8 = strcmp(pair.from, "UTF-8") == 0;
   if (policy != 0 && (!pair.takesPolicy || (fromUtf8 && Holds(data + 1, data + size, false)))) {
      policy = 0;
   }
   if (pair.takesPolicy && fromUtf8 && Holds(data + 1, data + size, true)) {
      return 0;
   }
   bool builtInOk;
   bool icuOk;
   std::string builtIn = Convert(pair, data + 1, size - 1, policy, false, &builtInOk);
   std::string icu = Convert(pair, data + 1, size - 1, policy, true, &icuOk);
   if (builtInOk != icuOk || (builtInOk && builtIn != icu)) {
      __builtin_trap();
   }
   return 0;
}
