// Backtrace lines and symbol texts in this process; dumps, their rotation and what stops
// them in child processes, since the module sets itself up once per process.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "misc/coreDump.h"
#include "misc/file.h"
#include "misc/win32u.h"
#include "safeFolderSeam.h"
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

using Files = std::vector<std::string>;

// `files` ("name=content") and nothing else in `folder`.
void Fill(const std::string &folder, const Files &files)
{
   CreateDirectoryA(folder.c_str(), nullptr);
   char **names = nullptr;
   uint32_t count = FileListDirectoryRetry(folder.c_str(), 0, &names);
   for (uint32_t i = 0; i < count; i++) {
      DeleteFileA((folder + "\\" + names[i]).c_str());
      free(names[i]);
   }
   free(names);
   for (const std::string &file : files) {
      size_t equals = file.find('=');
      std::ofstream(folder + "\\" + file.substr(0, equals)) << file.substr(equals + 1);
   }
}

// The files of `names` that exist, as "name=" and their first four bytes.
Files Present(const std::string &folder, const Files &names)
{
   Files present;
   for (const std::string &name : names) {
      std::ifstream in(folder + "\\" + name, std::ios::binary);
      char head[5] = {};
      if (in && in.read(head, 4).gcount() > 0) {
         present.push_back(name + "=" + head);
      }
   }
   return present;
}

const Files kDumps = {"lib_misc_coredump_test.dmp", "lib_misc_coredump_test-0.dmp",
                      "lib_misc_coredump_test-1.dmp", "lib_misc_coredump_test-2.dmp",
                      "lib_misc_coredump_test-3.dmp", "lib_misc_coredump_test-4.dmp"};

std::string TestFolder()
{
   char temp[MAX_PATH];
   Win32U_GetTempPath(sizeof temp, temp);
   return std::string(temp) + "coredump-test";
}

TEST(CoreDumpDeathTest, DumpsAndTheirRotation)
{
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   const std::string folder = TestFolder();
   const auto noDbgHelp = [] { coreDumpPlatform.loadLibrary = [](const wchar_t *) { return HMODULE{}; }; };
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
   } rows[] = {
      {[] {}, 5, {}, true, {"lib_misc_coredump_test.dmp=MDMP"}},
      {[] {}, 5, {"lib_misc_coredump_test.dmp=a", "lib_misc_coredump_test-0.dmp=b", "lib_misc_coredump_test-1.dmp=c", "lib_misc_coredump_test-2.dmp=d", "lib_misc_coredump_test-3.dmp=e"}, true,
       {"lib_misc_coredump_test.dmp=MDMP", "lib_misc_coredump_test-0.dmp=a", "lib_misc_coredump_test-1.dmp=b", "lib_misc_coredump_test-2.dmp=c", "lib_misc_coredump_test-3.dmp=d"}},
      {[] {}, 1, {"lib_misc_coredump_test.dmp=a"}, true, {"lib_misc_coredump_test.dmp=MDMP"}},
      {[] {}, 0, {"lib_misc_coredump_test.dmp=a"}, false, {"lib_misc_coredump_test.dmp=a"}},
      {noDbgHelp, 5, {}, false, {}},
      {noMiniDump, 5, {}, false, {}},
   };
   for (const auto &r : rows) {
      Fill(folder, r.before);
      EXPECT_EXIT((r.setUp(), CoreDump_SetMaxDumpCount(r.maxCount), CoreDump_Init(folder.c_str()),
                   exit(CoreDump_WriteMiniDump(nullptr, nullptr) ? 0 : 1)),
                  testing::ExitedWithCode(r.written ? 0 : 1), "^$");
      EXPECT_EQ(Present(folder, kDumps), r.after) << r.maxCount;
   }
}

TEST(CoreDumpDeathTest, AddressSpaceSetAside)
{
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   static int32_t kilobytes;
   static bool commit;
   const struct {
      int32_t kilobytes;
      bool commit;
      const char *want;  // the size and the allocation type asked for
   } rows[] = {
      {30000, false, "^20971520 0x2000\n$"},
      {5, true, "^8192 0x3000\n$"},
      {4, false, "^4096 0x2000\n$"},
      {0, true, "^$"},
      {-1, false, "^$"},
   };
   for (const auto &r : rows) {
      kilobytes = r.kilobytes;
      commit = r.commit;
      EXPECT_EXIT(
         (coreDumpPlatform.reservedKBSetting = [] { return kilobytes; },
          coreDumpPlatform.commitSetting = [] { return commit; },
          coreDumpPlatform.virtualAlloc = [](void *at, SIZE_T size, DWORD type, DWORD protect) {
             fprintf(stderr, "%llu 0x%lx\n", static_cast<unsigned long long>(size), type);
             return VirtualAlloc(at, size, type, protect);
          },
          CoreDump_Init(TestFolder().c_str()), exit(0)),
         testing::ExitedWithCode(0), r.want);
   }
}

// The whole report of a failed check in a child: the text on the standard error stream, the
// exit code of a first panic, and a dump beside the process's other temporary data, rotated
// by the second panic.
TEST(CoreDumpDeathTest, WholePanic)
{
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   ShowFoldersAsPrivate();
   char *safe = FileGetSafeTmpDir(true, false);
   ASSERT_NE(safe, nullptr);
   const std::string folder = safe;
   free(safe);
   // Only once: each child runs this body again up to its own panic.
   for (const std::string &name : kDumps) {
      if (!testing::internal::InDeathTestChild()) {
         DeleteFileA((folder + "\\" + name).c_str());
      }
   }
   const Files afterEach[] = {
      {"lib_misc_coredump_test.dmp=MDMP"},
      {"lib_misc_coredump_test.dmp=MDMP", "lib_misc_coredump_test-0.dmp=MDMP"},
   };
   for (const Files &want : afterEach) {
      EXPECT_EXIT((ShowFoldersAsPrivate(),
                   Win32U_FormatMessage(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 1031, nullptr)),
                  testing::ExitedWithCode(-1), "^VERIFY lib/misc/windowsu:938\n$");
      EXPECT_EQ(Present(folder, kDumps), want);
   }
}

} // namespace
