// Backtrace lines and symbol texts in this process; dumps, their rotation and what stops
// them in child processes, since the module sets itself up once per process.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "fileTestSupport.h"
#include "misc/coreDump.h"
#include "misc/panic.h"
#include "misc/platform.h"
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
   BacktraceOptions two = {2, 0, 0, 7, ">", "|", CoreDump_ShortSymbols()};
   for (const auto &[options, heading, line] :
        {std::tuple{(const BacktraceOptions *)nullptr, "Backtrace:\n", frame + "\n"},
         {&two, ">Backtrace for bugNr=7|", ">" + frame + "\\|"}}) {
      std::vector<std::string> lines = Backtrace(options);
      ASSERT_GE(lines.size(), 3u);
      EXPECT_EQ(lines[0], heading);
      for (size_t i = 1; i < lines.size(); i++) {
         const std::string number = "[" + std::to_string(100 + i - 1).substr(1) + "]";
         EXPECT_NE(lines[i].find(number), std::string::npos) << lines[i];
         EXPECT_TRUE(testing::internal::RE::FullMatch(lines[i], testing::internal::RE(line))) << lines[i];
      }
      EXPECT_NE(lines[1].find(options == nullptr ? "[" + ExePath() : "<" + ExePath()), std::string::npos);
   }
   EXPECT_EQ(Backtrace(&two).size(), 3u);
   // A deep stack is cut at 100 frames, less the one the walker skips.
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

// The settings ask for `kilobytes` set aside; what is asked of VirtualAlloc goes to stderr.
template <int32_t kilobytes, bool commit>
void Reserve()
{
   coreDumpPlatform.reservedKBSetting = [] { return kilobytes; };
   coreDumpPlatform.commitSetting = [] { return commit; };
   coreDumpPlatform.virtualAlloc = [](void *at, SIZE_T size, DWORD type, DWORD protect) {
      fprintf(stderr, "%llu 0x%lx\n", static_cast<unsigned long long>(size), type);
      return VirtualAlloc(at, size, type, protect);
   };
}

TEST(CoreDumpDeathTest, DumpsRotationAndReservation)
{
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   const auto noMiniDump = [] {
      coreDumpPlatform.getProcAddress = [](HMODULE module, const char *name) {
         return strcmp(name, "MiniDumpWriteDump") == 0 ? nullptr : GetProcAddress(module, name);
      };
   };
   const struct {
      std::function<void()> setUp;
      uint32_t maxCount;
      Files before;
      bool written;
      Files after;
      const char *reserved;  // the size and the allocation type asked for
   } rows[] = {
      {Reserve<30000, false>, 5, {}, true, {"lib_misc_coredump_test.dmp=MDMP"}, "^20971520 0x2000\n$"},
      {Reserve<5, true>, 5, {"lib_misc_coredump_test.dmp=a", "lib_misc_coredump_test-0.dmp=b", "lib_misc_coredump_test-1.dmp=c", "lib_misc_coredump_test-2.dmp=d", "lib_misc_coredump_test-3.dmp=e"}, true, {"lib_misc_coredump_test-0.dmp=a", "lib_misc_coredump_test-1.dmp=b", "lib_misc_coredump_test-2.dmp=c", "lib_misc_coredump_test-3.dmp=d", "lib_misc_coredump_test.dmp=MDMP"}, "^8192 0x3000\n$"},
      {Reserve<4, false>, 1, {"lib_misc_coredump_test.dmp=a"}, true, {"lib_misc_coredump_test.dmp=MDMP"}, "^4096 0x2000\n$"},
      {[] {}, 0, {"lib_misc_coredump_test.dmp=a"}, false, {"lib_misc_coredump_test.dmp=a"}, "^$"},
      {noMiniDump, 5, {}, false, {}, "^$"},
   };
   for (const auto &r : rows) {
      const std::string folder = FolderWith("coredump-test", r.before);
      EXPECT_EXIT((r.setUp(), CoreDump_SetMaxDumpCount(r.maxCount), CoreDump_Init(folder.c_str()),
                   exit(CoreDump_WriteMiniDump(nullptr, nullptr) ? 0 : 1)),
                  testing::ExitedWithCode(r.written ? 0 : 1), r.reserved);
      EXPECT_EQ(Contents(folder, 4), r.after) << r.maxCount;
   }
}

std::string RingFile()
{
   char temp[MAX_PATH];
   Win32U_GetTempPath(sizeof temp, temp);
   return std::string(temp) + "coredump-ring.txt";
}

// The child's log ring goes to a file as the process ends, for the parent to read.
void KeepRingAtTheEnd()
{
   ShowFoldersAsPrivate();
   panicPlatform.terminate = [](int code) {
      std::ofstream(RingFile(), std::ios::binary) << LogRing();
      Platform_TerminateProcess(code);
   };
}

// The whole report of a failed check in a child: the text on the standard error stream, the
// exit code of a first panic, the log's lines in their order, and a dump beside the
// process's other temporary data, rotated by the second panic.
TEST(CoreDumpDeathTest, WholePanic)
{
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   ShowFoldersAsPrivate();
   char *safe = FileGetSafeTmpDir(true, false);
   ASSERT_NE(safe, nullptr);
   const std::string folder = safe;
   free(safe);
   EXPECT_NE(folder.find("\\corvane-"), std::string::npos) << "the plain one";
   // Only once: each child runs this body again up to its own panic.
   if (!testing::internal::InDeathTestChild()) {
      FolderWith(folder.substr(folder.rfind('\\') + 1), {});
   }
   const std::string dump = folder + "\\lib_misc_coredump_test.dmp";
   const struct {
      void (*setUp)();
      Files dumps;
      Files lines;  // in this order, each a line or the start of one
      const char *absent;
   } rounds[] = {
      {KeepRingAtTheEnd, {"lib_misc_coredump_test.dmp=MDMP"},
       {"PANIC: VERIFY lib/misc/windowsu:938\n", "Backtrace:\n", "backtrace[00] frame 0x",
        "Win32 object usage: GDI ", "CoreDump_CoreDump: faking exception to get context\n",
        "CoreDump: Writing minidump to " + dump + "\n", "CoreDump: Including thread ",
        "CoreDump: including module base 0x0x", "Exiting\n"},
       "Minidump failed"},
      {[] { KeepRingAtTheEnd(); panicPlatform.guiResources = [](uint32_t *, uint32_t *) { return false; }; },
       {"lib_misc_coredump_test-0.dmp=MDMP", "lib_misc_coredump_test.dmp=MDMP"},
       {"PANIC: VERIFY lib/misc/windowsu:938\n", "CoreDump: Minidump file " + dump + " exists. Rotating ...\n",
        "CoreDump: Current max dump count is 5.\n", "CoreDump: Writing minidump to " + dump + "\n"},
       "Win32 object usage"},
      {[] { KeepRingAtTheEnd(); coreDumpPlatform.loadLibrary = [](const wchar_t *) { return HMODULE{}; }; },
       {"lib_misc_coredump_test-0.dmp=MDMP", "lib_misc_coredump_test.dmp=MDMP"},
       {"PANIC: VERIFY lib/misc/windowsu:938\n", "Backtrace:\n", "CoreDump: Can't find DbgHelp.dll!\n",
        "CoreDump: Failed to resolve dbghelp.dll symbols. No backtrace.----\n",
        "CoreDump_CoreDump: faking exception to get context\n", "Exiting\n"},
       "CoreDump: Writing minidump"},
   };
   for (const auto &r : rounds) {
      EXPECT_EXIT((r.setUp(), Win32U_FormatMessage(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 1031, nullptr)),
                  testing::ExitedWithCode(-1), "^VERIFY lib/misc/windowsu:938\n$");
      if (testing::internal::InDeathTestChild()) {
         continue;  // the files are those of later rounds
      }
      EXPECT_EQ(Contents(folder, 4), r.dumps);
      std::ifstream in(RingFile(), std::ios::binary);
      const std::string ring = "\n" + std::string(std::istreambuf_iterator<char>(in), {});
      size_t at = 0;
      for (const std::string &line : r.lines) {
         at = ring.find("\n" + line, at);
         ASSERT_NE(at, std::string::npos) << line << " after the lines before it";
         at++;
      }
      EXPECT_EQ(ring.find(r.absent), std::string::npos) << r.absent;
      EXPECT_EQ(ring.find("Can't find DbgHelp.dll!"), ring.rfind("Can't find DbgHelp.dll!")) << "once";
   }
}

} // namespace
