#include "ProgIdIdentity.h"

#include <cstring>
#include <utility>

// ProgIds already written to users' registries were made with the early 64-bit CityHash
// (the one with k3) as the client compiled it, including its seed quirk in WeakHash32.
// A current CityHash gives different names, so this copy must never be "updated".

namespace {

constexpr uint64_t k0 = 0xc3a5c85c97cb3127ULL;
constexpr uint64_t k1 = 0xb492b66fbe98f273ULL;
constexpr uint64_t k2 = 0x9ae16a3b2f90404fULL;
constexpr uint64_t k3 = 0xc949d7c7509e6557ULL;
constexpr uint64_t kMul = 0x9ddfea08eb382d69ULL;

// Byte-wise little-endian reads: the result must not depend on the host's byte order, and
// memcpy keeps unaligned offsets legal.
uint64_t Load64(const uint8_t *p)
{
   uint8_t b[8];
   std::memcpy(b, p, 8);
   uint64_t v = 0;
   for (int i = 7; i >= 0; --i) {
      v = (v << 8) | b[i];
   }
   return v;
}

uint32_t Load32(const uint8_t *p)
{
   uint8_t b[4];
   std::memcpy(b, p, 4);
   return uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24;
}

uint64_t Rotr(uint64_t v, unsigned n)
{
   n &= 63;
   return n == 0 ? v : (v >> n) | (v << (64 - n));
}

uint64_t ShiftMix(uint64_t v)
{
   return v ^ (v >> 47);
}

uint64_t Hash16(uint64_t u, uint64_t v)
{
   uint64_t a = ShiftMix((u ^ v) * kMul);
   uint64_t b = ShiftMix((v ^ a) * kMul);
   return b * kMul;
}

using Pair = std::pair<uint64_t, uint64_t>;

Pair WeakHash32(const uint8_t *p, uint64_t a, uint64_t b)
{
   uint64_t w = Load64(p);
   uint64_t x = Load64(p + 8);
   uint64_t y = Load64(p + 16);
   uint64_t z = Load64(p + 24);
   // The seed itself, not the seed plus w: that is what the deployed names were made with.
   uint64_t c = a;
   a += w;
   b = Rotr(b + a + z, 21);
   a += x + y;
   b += Rotr(a, 44);
   return Pair(a + z, b + c);
}

uint64_t HashLen0To16(const uint8_t *s, size_t len)
{
   if (len > 8) {
      uint64_t a = Load64(s);
      uint64_t b = Load64(s + len - 8);
      return Hash16(a, Rotr(b + len, unsigned(len))) ^ b;
   }
   if (len >= 4) {
      uint64_t a = Load32(s);
      return Hash16(len + (a << 3), Load32(s + len - 4));
   }
   if (len > 0) {
      uint8_t a = s[0];
      uint8_t b = s[len >> 1];
      uint8_t c = s[len - 1];
      uint32_t y = uint32_t(a) + (uint32_t(b) << 8);
      uint32_t z = uint32_t(len) + (uint32_t(c) << 2);
      return ShiftMix(y * k2 ^ z * k3) * k2;
   }
   return k2;
}

uint64_t HashLen17To32(const uint8_t *s, size_t len)
{
   uint64_t a = Load64(s) * k1;
   uint64_t b = Load64(s + 8);
   uint64_t c = Load64(s + len - 8) * k2;
   uint64_t d = Load64(s + len - 16) * k0;
   return Hash16(Rotr(a - b, 43) + Rotr(c, 30) + d, a + Rotr(b ^ k3, 20) - c + len);
}

uint64_t HashLen33To64(const uint8_t *s, size_t len)
{
   uint64_t z = Load64(s + 24);
   uint64_t a = Load64(s) + (len + Load64(s + len - 16)) * k0;
   uint64_t b = Rotr(a + z, 52);
   uint64_t c = Rotr(a, 37);
   a += Load64(s + 8);
   c += Rotr(a, 7);
   a += Load64(s + 16);
   uint64_t vf = a + z;
   uint64_t vs = b + Rotr(a, 31) + c;

   a = Load64(s + 16) + Load64(s + len - 32);
   z = Load64(s + len - 8);
   b = Rotr(a + z, 52);
   c = Rotr(a, 37);
   a += Load64(s + len - 24);
   c += Rotr(a, 7);
   a += Load64(s + len - 16);
   uint64_t wf = a + z;
   uint64_t ws = b + Rotr(a, 31) + c;

   uint64_t r = ShiftMix((vf + ws) * k2 + (wf + vs) * k0);
   return ShiftMix(r * k0 + vs) * k2;
}

} // namespace

uint64_t ProgIdHash64(const uint8_t *data, size_t length)
{
   const uint8_t *s = data;
   const size_t len = length;
   if (len <= 16) {
      return HashLen0To16(s, len);
   }
   if (len <= 32) {
      return HashLen17To32(s, len);
   }
   if (len <= 64) {
      return HashLen33To64(s, len);
   }

   // The last 64 bytes seed the state first, so the loop below may stop short of the end
   // without the tail going unhashed and without reading past it.
   uint64_t x = Load64(s + len - 40);
   uint64_t y = Load64(s + len - 16) + Load64(s + len - 56);
   uint64_t z = Hash16(Load64(s + len - 48) + len, Load64(s + len - 24));
   Pair v = WeakHash32(s + len - 64, len, z);
   Pair w = WeakHash32(s + len - 32, y + k1, x);
   x = x * k1 + Load64(s);

   size_t n = (len - 1) & ~size_t(63);
   const uint8_t *p = s;
   do {
      x = Rotr(x + y + v.first + Load64(p + 8), 37) * k1;
      y = Rotr(y + v.second + Load64(p + 48), 42) * k1;
      x ^= w.second;
      y += v.first + Load64(p + 40);
      z = Rotr(z + w.first, 33) * k1;
      v = WeakHash32(p, v.second * k1, x + w.first);
      w = WeakHash32(p + 32, z + w.second, y + Load64(p + 16));
      std::swap(z, x);
      p += 64;
      n -= 64;
   } while (n != 0);

   return Hash16(Hash16(v.first, w.first) + ShiftMix(y) * k1 + z,
                 Hash16(v.second, w.second) + x);
}
