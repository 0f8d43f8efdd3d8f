// Str_Snprintf against glibc snprintf, stb_sprintf and {fmt} on the same mix of conversions.
// Rows are named "<case>/<formatter>"; bench/run.sh turns them into Str_Snprintf/glibc ratios.

#include <benchmark/benchmark.h>

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

template <typename... Args>
void RegisterCase(const char *name, const char *printfFormat,
                  fmt::format_string<Args...> fmtFormat, Args... args)
{
   std::string base(name);
   benchmark::RegisterBenchmark((base + "/Str_Snprintf").c_str(),
                                [=](benchmark::State &state) {
                                   char buffer[256];
                                   for (auto _ : state) {
                                      int n = Str_Snprintf(buffer, sizeof buffer,
                                                           Launder(printfFormat),
                                                           Launder(args)...);
                                      benchmark::DoNotOptimize(n);
                                      benchmark::ClobberMemory();
                                   }
                                });
   benchmark::RegisterBenchmark((base + "/glibc").c_str(), [=](benchmark::State &state) {
      char buffer[256];
      for (auto _ : state) {
         int n = std::snprintf(buffer, sizeof buffer, Launder(printfFormat), Launder(args)...);
         benchmark::DoNotOptimize(n);
         benchmark::ClobberMemory();
      }
   });
   benchmark::RegisterBenchmark((base + "/stb").c_str(), [=](benchmark::State &state) {
      char buffer[256];
      for (auto _ : state) {
         int n = stbsp_snprintf(buffer, sizeof buffer, Launder(printfFormat), Launder(args)...);
         benchmark::DoNotOptimize(n);
         benchmark::ClobberMemory();
      }
   });
   benchmark::RegisterBenchmark((base + "/fmt").c_str(), [=](benchmark::State &state) {
      char buffer[256];
      for (auto _ : state) {
         auto result = fmt::format_to_n(buffer, sizeof buffer - 1, fmtFormat, Launder(args)...);
         *result.out = '\0';
         benchmark::DoNotOptimize(result.size);
         benchmark::ClobberMemory();
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
