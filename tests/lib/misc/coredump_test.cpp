// Backtrace lines and symbol texts in this process; dumps, their rotation and what stops
// them in child processes, since the module sets itself up once per process.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "misc/coreDump.h"
#include "misc/win32u.h"
#include "string/str.h"

namespace {

void Collect(void *context, const char *format, va_list args)
{
   char line[2048];
   Str_Vsnprintf(line, sizeof line, format, args);
   static_cast<std::vector<std::string> *>(context)->push_back(line);
}

std::vector<std::string> Backtrace(const BacktraceOptions *options)
{
   std::vector<std::string> lines;
   CoreDump_Backtrace(options, Collect, &lines);
   return lines;
}

__attribute__((noinline)) size_t Deep(int depth)
{
   if (depth == 0) {
      return Backtrace(nullptr).size();
   }
   size_t frames = Deep(depth - 1);
   asm volatile("" ::: "memory");  // no tail call: every level keeps its frame
   return frames;
}

std::string ExePath()
{
   char *path = Win32U_GetModuleFileName(nullptr);
   std::string text = path;
   free(path);
   return text;
}

TEST(CoreDump, BacktraceLines)
{
   const std::string frame = "backtrace\\[\\d\\d\\] frame 0x\\w+ IP 0x\\w+ params \\w+ \\w+ \\w+ \\w+ .+";
   const struct {
      BacktraceOptions options;
      const char *heading;
      std::string line;  // the pattern of every frame's line
      size_t frames;     // 0: at least two
   } rows[] = {
      {{}, "Backtrace:\n", frame + "\n", 0},
      {{2, 0, 0, 7, ">", "|", nullptr}, ">Backtrace for bugNr=7|", ">" + frame + "\\|", 2},
      {{1, 0, 0, 0, nullptr, nullptr, CoreDump_ShortSymbols()}, "Backtrace:\n", frame + "\n", 1},
      {{0, 0, 1, 0, nullptr, nullptr, nullptr}, "Backtrace:\n", frame + "\n", 0},
   };
   for (const auto &r : rows) {
      std::vector<std::string> lines = Backtrace(&r.options);
      ASSERT_FALSE(lines.empty());
      EXPECT_EQ(lines[0], r.heading);
      for (size_t i = 1; i < lines.size(); i++) {
         char number[8];
         snprintf(number, sizeof number, "[%02d]", static_cast<int>(i - 1));
         EXPECT_NE(lines[i].find(number), std::string::npos) << lines[i];
         EXPECT_TRUE(testing::internal::RE::FullMatch(lines[i], testing::internal::RE(r.line)))
            << lines[i];
      }
      if (r.frames != 0) {
         EXPECT_EQ(lines.size(), r.frames + 1);
      } else {
         EXPECT_GE(lines.size(), 3u);
      }
   }
   // The caller's frame is the first one reported, and a deep stack is cut at 100 frames,
   // less the one the walker skips.
   std::vector<std::string> lines = Backtrace(nullptr);
   ASSERT_GE(lines.size(), 2u);
   EXPECT_NE(lines[1].find(ExePath()), std::string::npos) << lines[1];
   EXPECT_EQ(Deep(150), 100u);
}

TEST(CoreDump, SymbolTexts)
{
   void *block = VirtualAlloc(nullptr, 4096, MEM_COMMIT, PAGE_READWRITE);
   const uint64_t outside = reinterpret_cast<uint64_t>(block) + 16;
   EXPECT_STREQ(CoreDump_SymbolText(CoreDump_LongSymbols(), outside), "[no module data] ???");
   EXPECT_STREQ(CoreDump_SymbolText(CoreDump_ShortSymbols(), outside), "???");
   VirtualFree(block, 0, MEM_RELEASE);
   const uint64_t code = reinterpret_cast<uint64_t>(&ExePath);
   const std::string inModule = CoreDump_SymbolText(CoreDump_LongSymbols(), code);
   char base[64];
   snprintf(base, sizeof base, " base 0x%016llx 0x0001:0x", static_cast<unsigned long long>(
                                 reinterpret_cast<uintptr_t>(GetModuleHandleW(nullptr))));
   EXPECT_EQ(inModule.rfind("[" + ExePath() + base, 0), 0u) << inModule;
}

} // namespace
