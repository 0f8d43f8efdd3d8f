#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <string>
#include <vector>

#include "ProgIdIdentity.h"

namespace {

std::string Hex16(uint64_t v)
{
   char text[17];
   std::snprintf(text, sizeof text, "%016" PRIx64, v);
   return text;
}

std::string Repeat(const std::string &s, int times)
{
   std::string out;
   for (int i = 0; i < times; ++i) {
      out += s;
   }
   return out;
}

const std::string k16 = "0123456789abcdef";

struct HashCase {
   std::string input;
   const char *expected;
};

// One row per length class of the hash, and both ends of most of them.
const HashCase kHashCases[] = {
   {"", "9ae16a3b2f90404f"},
   {"a", "2420662cd003acfa"},
   {"abc", "3a912f483a4ece31"},
   {"abcd", "f75a3b8a1499428d"},
   {"abcdefgh", "4382a8d0fe8edb17"},
   {"abcdefghi", "66c7fa4eb3fab8d1"},
   {"abcdefghijklmnop", "b7c60922803552c1"},
   {"abcdefghijklmnopq", "034bb4fe133a33e6"},
   {Repeat(k16, 2), "186c0e3ffd9476f6"},
   {Repeat(k16, 2) + "0", "aac0e9e7a646dfb7"},
   {Repeat(k16, 4), "265291bf4fc91651"},
   {Repeat(k16, 8), "4dbb849a62bd092b"},
};

TEST(ProgIdHash64, ReferenceValues)
{
   for (const HashCase &c : kHashCases) {
      // An exactly sized heap block: a read past the end fails under AddressSanitizer.
      std::vector<uint8_t> data(c.input.begin(), c.input.end());
      uint8_t *bytes = data.empty() ? nullptr : new uint8_t[data.size()];
      std::copy(data.begin(), data.end(), bytes);
      EXPECT_EQ(Hex16(ProgIdHash64(bytes, data.size())), c.expected)
         << "length " << data.size();
      delete[] bytes;
   }
}

TEST(ProgIdHash64, HashesOnlyTheGivenLengthOfALongerBuffer)
{
   // The migration hashes a prefix of a longer UTF-8 buffer; the bytes behind it must not
   // leak into the result.
   for (const HashCase &c : kHashCases) {
      std::string longer = c.input + "\xC3\xA9 trailing bytes that must be ignored";
      EXPECT_EQ(Hex16(ProgIdHash64(reinterpret_cast<const uint8_t *>(longer.data()),
                                   c.input.size())),
                c.expected)
         << "length " << c.input.size();
   }
}

} // namespace
