// Str_Snprintf against glibc snprintf, stb_sprintf and {fmt} on the same mix of conversions.
// One row per case; bench/run.sh prints its counters: each formatter's time per call and the
// ratios of ours to the others.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

#include <fmt/format.h>

#define STB_SPRINTF_IMPLEMENTATION
#define STB_SPRINTF_STATIC
#include <stb/stb_sprintf.h>

#include "string/str.h"

namespace {

// Compilers rewrite snprintf calls with constant formats (a literal becomes a memcpy) and
// could fold constant arguments into the inlined stb code; every input goes through here so
// that each formatter does its whole job on every iteration.
template <typename T>
T Launder(T value)
{
   benchmark::DoNotOptimize(value);
   return value;
}

// The machine's speed wanders by as much as two to one within a second, so times taken at
// different moments can't be compared. Each case is therefore one benchmark whose iteration
// runs a block of calls of every formatter in turn, the first one rotating, and times each
// block; a repetition reports every formatter's time per call and ours over each of the
// others, all from the same stretch of time.
constexpr int kFormatters = 4;
constexpr int kBlockCalls = 256;
constexpr const char *kFormatterNames[kFormatters] = {"Str_Snprintf", "glibc", "stb", "fmt"};

template <typename... Args>
void RegisterCase(const char *name, const char *printfFormat,
                  fmt::format_string<Args...> fmtFormat, Args... args)
{
   benchmark::RegisterBenchmark(name, [=](benchmark::State &state) {
      char buffer[256];
      auto block = [&](int formatter) {
         for (int i = 0; i < kBlockCalls; i++) {
            int n = 0;
            switch (formatter) {
            case 0:
               n = Str_Snprintf(buffer, sizeof buffer, Launder(printfFormat), Launder(args)...);
               break;
            case 1:
               n = std::snprintf(buffer, sizeof buffer, Launder(printfFormat), Launder(args)...);
               break;
            case 2:
               n = stbsp_snprintf(buffer, sizeof buffer, Launder(printfFormat), Launder(args)...);
               break;
            default: {
               auto result =
                  fmt::format_to_n(buffer, sizeof buffer - 1, fmtFormat, Launder(args)...);
               *result.out = '\0';
               n = static_cast<int>(result.size);
               break;
            }
            }
            benchmark::DoNotOptimize(n);
            benchmark::ClobberMemory();
         }
      };
      double seconds[kFormatters] = {};
      int64_t rounds = 0;
      for (auto _ : state) {
         for (int k = 0; k < kFormatters; k++) {
            int formatter = static_cast<int>((rounds + k) % kFormatters);
            auto start = std::chrono::steady_clock::now();
            block(formatter);
            seconds[formatter] +=
               std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
         }
         rounds++;
      }
      double calls = static_cast<double>(rounds) * kBlockCalls;
      for (int f = 0; f < kFormatters; f++) {
         state.counters[kFormatterNames[f]] = seconds[f] / calls * 1e9;
         if (f != 0) {
            state.counters[std::string("ours/") + kFormatterNames[f]] = seconds[0] / seconds[f];
         }
      }
   });
}

constexpr char kLiteral[] =
   "This run of exactly one hundred bytes has no conversion in it at all, so it is copied as i"
   "t stands!!";
static_assert(sizeof kLiteral == 101, "the literal case is 100 bytes");

void RegisterAll()
{
   RegisterCase("int_2digits", "%d", "{}", 42);
   RegisterCase("int_10digits", "%d", "{}", -1234567890);
   RegisterCase("uint_10digits", "%u", "{}", 4000000000u);
   RegisterCase("int64_19digits", "%lld", "{}", 9223372036854775807LL);
   RegisterCase("short", "%hd", "{}", short(-1234));
   RegisterCase("string_precision", "%.12s", "{:.12}", "formatting engines compared");
   RegisterCase("hex_08X", "%08X", "{:08X}", 0xBEEFu);
   RegisterCase("double_3f", "%.3f", "{:.3f}", 3.14159265358979);
   RegisterCase("double_g", "%g", "{:g}", 12345.678);
   RegisterCase("literal_100", kLiteral, kLiteral);
   RegisterCase("mixed", "id=%d name=%.8s flags=%08X ratio=%.3f", "id={} name={:.8} flags={:08X} ratio={:.3f}",
                1234, "migration", 0xC0FFEEu, 0.4375);
}

} // namespace

int main(int argc, char **argv)
{
   RegisterAll();
   benchmark::Initialize(&argc, argv);
   if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
      return 1;
   }
   benchmark::RunSpecifiedBenchmarks();
   benchmark::Shutdown();
   return 0;
}
