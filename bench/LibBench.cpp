// The support library's hot routines against the usual alternatives, on the same data:
//   <text>/<direction>/builtin|icu   built-in UTF-8 <-> UTF-16 against ucnv_convertEx
//   hash/<op>/<entries>/HashTable|unordered_map
// bench/lib_run.sh turns them into ratios (ours over theirs).

#include <benchmark/benchmark.h>

#include <unicode/ucnv.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "misc/codeset.h"
#include "misc/hashTable.h"

namespace {

// About 64 KB of UTF-8 per text, made by repeating a sample.
std::string Repeat(const std::string &sample)
{
   std::string text;
   while (text.size() < 64 * 1024) {
      text += sample;
   }
   return text;
}

const struct {
   const char *name;
   std::string utf8;
} kTexts[] = {
   {"ascii", Repeat("The quick brown fox jumps over the lazy dog; 0123456789. ")},
   {"latin", Repeat("Fa\xC3\xA7" "ade na\xC3\xAFve r\xC3\xA9sum\xC3\xA9 \xC3\xBC" "ber Stra\xC3\x9F" "e, ")},
   {"cjk", Repeat("\xE4\xB8\xAD\xE6\x96\x87\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xED\x95\x9C\xEA\xB5\xAD\xEC\x96\xB4")},
   {"mixed", Repeat("abc \xC3\xA9t\xC3\xA9 \xE4\xB8\xAD\xE6\x96\x87 \xF0\x9F\x98\x80 xyz ")},
};

std::string Utf16Of(const std::string &utf8)
{
   DynBuf out;
   DynBuf_Init(&out);
   CodeSet_GenericToGeneric("UTF-8", utf8.data(), utf8.size(), "UTF-16LE", 0, &out);
   std::string bytes(out.data, out.size);
   DynBuf_Destroy(&out);
   return bytes;
}

void BuiltIn(benchmark::State &state, const char *from, const std::string &source,
             const char *to)
{
   DynBuf out;
   DynBuf_Init(&out);
   for (auto _ : state) {
      out.size = 0;
      if (!CodeSet_GenericToGeneric(from, source.data(), source.size(), to, 0, &out)) {
         state.SkipWithError("conversion failed");
      }
      benchmark::DoNotOptimize(out.data);
   }
   state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(source.size()));
   DynBuf_Destroy(&out);
}

void Icu(benchmark::State &state, const char *from, const std::string &source, const char *to)
{
   UErrorCode error = U_ZERO_ERROR;
   UConverter *in = ucnv_open(from, &error);
   UConverter *out = ucnv_open(to, &error);
   std::vector<char> target(source.size() * 2 + 16);
   UChar pivot[1024];
   for (auto _ : state) {
      char *t = target.data();
      const char *s = source.data();
      UChar *pivotSource = pivot;
      UChar *pivotTarget = pivot;
      error = U_ZERO_ERROR;
      ucnv_convertEx(out, in, &t, target.data() + target.size(), &s, s + source.size(), pivot,
                     &pivotSource, &pivotTarget, pivot + 1024, true, true, &error);
      if (U_FAILURE(error)) {
         state.SkipWithError("conversion failed");
      }
      benchmark::DoNotOptimize(t);
   }
   state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(source.size()));
   ucnv_close(in);
   ucnv_close(out);
}

void RegisterConversions()
{
   for (const auto &text : kTexts) {
      std::string base = text.name;
      const std::string *utf8 = &text.utf8;
      const std::string *utf16 = new std::string(Utf16Of(text.utf8));  // lives for the run
      benchmark::RegisterBenchmark((base + "/utf8-to-utf16/builtin").c_str(),
                                   [=](benchmark::State &s) { BuiltIn(s, "UTF-8", *utf8, "UTF-16LE"); });
      benchmark::RegisterBenchmark((base + "/utf8-to-utf16/icu").c_str(),
                                   [=](benchmark::State &s) { Icu(s, "UTF-8", *utf8, "UTF-16LE"); });
      benchmark::RegisterBenchmark((base + "/utf16-to-utf8/builtin").c_str(),
                                   [=](benchmark::State &s) { BuiltIn(s, "UTF-16LE", *utf16, "UTF-8"); });
      benchmark::RegisterBenchmark((base + "/utf16-to-utf8/icu").c_str(),
                                   [=](benchmark::State &s) { Icu(s, "UTF-16LE", *utf16, "UTF-8"); });
   }
}

// Keys as the library's tables see them: pointer-sized values, scattered.
std::vector<uintptr_t> Keys(size_t n)
{
   std::vector<uintptr_t> keys(n);
   uint64_t x = 0x9E3779B97F4A7C15ull;
   for (auto &k : keys) {
      x ^= x << 13;
      x ^= x >> 7;
      x ^= x << 17;
      k = static_cast<uintptr_t>(x | 1);
   }
   return keys;
}

uint32_t BucketsFor(size_t n)
{
   uint32_t b = 1;
   while (b < n) {
      b <<= 1;
   }
   return b;
}

void HashInsert(benchmark::State &state, size_t n)
{
   std::vector<uintptr_t> keys = Keys(n);
   for (auto _ : state) {
      std::atomic<HashTable *> slot{nullptr};
      HashTable *t = HashTable_AllocOnce(&slot, BucketsFor(n), HASH_INT_KEY | HASH_FLAG_ATOMIC,
                                         nullptr);
      for (uintptr_t k : keys) {
         HashTable_Insert(t, reinterpret_cast<void *>(k), reinterpret_cast<void *>(k));
      }
      HashTable_Free(t);
   }
   state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(n));
}

void MapInsert(benchmark::State &state, size_t n)
{
   std::vector<uintptr_t> keys = Keys(n);
   for (auto _ : state) {
      std::unordered_map<uintptr_t, void *> m;
      m.reserve(n);  // the same fixed capacity the hash table is given
      for (uintptr_t k : keys) {
         m.emplace(k, reinterpret_cast<void *>(k));
      }
      benchmark::DoNotOptimize(m.size());
   }
   state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(n));
}

void HashLookup(benchmark::State &state, size_t n)
{
   std::vector<uintptr_t> keys = Keys(n);
   std::atomic<HashTable *> slot{nullptr};
   HashTable *t = HashTable_AllocOnce(&slot, BucketsFor(n), HASH_INT_KEY | HASH_FLAG_ATOMIC,
                                      nullptr);
   for (uintptr_t k : keys) {
      HashTable_Insert(t, reinterpret_cast<void *>(k), reinterpret_cast<void *>(k));
   }
   for (auto _ : state) {
      for (uintptr_t k : keys) {
         void *v;
         benchmark::DoNotOptimize(HashTable_Lookup(t, reinterpret_cast<void *>(k), &v));
         benchmark::DoNotOptimize(v);
      }
   }
   state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(n));
   HashTable_Free(t);
}

void MapLookup(benchmark::State &state, size_t n)
{
   std::vector<uintptr_t> keys = Keys(n);
   std::unordered_map<uintptr_t, void *> m;
   m.reserve(n);
   for (uintptr_t k : keys) {
      m.emplace(k, reinterpret_cast<void *>(k));
   }
   for (auto _ : state) {
      for (uintptr_t k : keys) {
         auto it = m.find(k);
         benchmark::DoNotOptimize(it);
      }
   }
   state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(n));
}

void RegisterHashes()
{
   for (size_t n : {size_t(1000), size_t(100000), size_t(1000000)}) {
      std::string size = std::to_string(n);
      benchmark::RegisterBenchmark(("hash/insert/" + size + "/HashTable").c_str(),
                                   [n](benchmark::State &s) { HashInsert(s, n); });
      benchmark::RegisterBenchmark(("hash/insert/" + size + "/unordered_map").c_str(),
                                   [n](benchmark::State &s) { MapInsert(s, n); });
      benchmark::RegisterBenchmark(("hash/lookup/" + size + "/HashTable").c_str(),
                                   [n](benchmark::State &s) { HashLookup(s, n); });
      benchmark::RegisterBenchmark(("hash/lookup/" + size + "/unordered_map").c_str(),
                                   [n](benchmark::State &s) { MapLookup(s, n); });
   }
}

} // namespace

int main(int argc, char **argv)
{
   RegisterConversions();
   RegisterHashes();
   benchmark::Initialize(&argc, argv);
   benchmark::RunSpecifiedBenchmarks();
   benchmark::Shutdown();
   return 0;
}
