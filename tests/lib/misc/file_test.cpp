// The file layer: errno numbers, retries while a file is held (through the seam, which
// Wine cannot hold a file for), both rotations, listings, modes and the temporary folders.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "fileTestSupport.h"
#include "misc/errText.h"

namespace {

TEST(File, ErrnoOfPlatformErrors)
{
   const struct { DWORD error; int want; } rows[] = {
      {0, 0}, {1, 22}, {12, 22}, {87, 22}, {123, 22}, {160, 22}, {2, 2}, {3, 2}, {303, 2},
      {4, 24}, {5, 13}, {32, 13}, {82, 13}, {6, 9}, {8, 12}, {14, 12}, {16, 16}, {148, 16},
      {19, 30}, {27, 5}, {29, 5}, {30, 5}, {31, 5}, {50, 40}, {80, 17}, {183, 17}, {112, 28},
      {145, 41}, {206, 38}, {267, 20}, {487, 14}, {18, 5}, {9999, 5},
   };
   for (const auto &r : rows) {
      EXPECT_EQ(FileMapErrorToErrno("test", r.error), r.want) << r.error;
      EXPECT_EQ(GetLastError(), r.error);
   }
   EXPECT_NE(LogRing().find("FILE: test unmapped error code 9999\n"), std::string::npos);
}

DWORD heldError;
int heldFor;  // attempts that fail; -1 for all
int attempts;
std::vector<uint32_t> sleeps;

TEST(File, RetriesWhileHeld)
{
   const FilePlatform real = filePlatform;
   filePlatform.deleteFile = [](const wchar_t *) {
      if (heldFor < 0 || attempts++ < heldFor) {
         SetLastError(heldError);
         return FALSE;
      }
      return TRUE;
   };
   filePlatform.sleep = [](uint32_t ms) { sleeps.push_back(ms); };
   const struct {
      DWORD error;
      int failures;
      uint32_t msecs;
      int wantErrno;
      int wantAttempts;  // -1: more than one
   } rows[] = {
      {ERROR_SHARING_VIOLATION, 5, 100000, 0, 6},
      {ERROR_ACCESS_DENIED, 1, 100000, 0, 2},
      {ERROR_SHARING_VIOLATION, 1, 0, 13, 1},
      {ERROR_FILE_NOT_FOUND, 3, 100000, 2, 1},
      {ERROR_SHARING_VIOLATION, -1, 250, 13, -1},
   };
   for (const auto &r : rows) {
      heldError = r.error;
      heldFor = r.failures;
      attempts = 0;
      sleeps.clear();
      const size_t logged = LogRing().size();
      EXPECT_EQ(FileDeletionRetry("C:\\held", false, r.msecs), r.wantErrno) << r.failures;
      EXPECT_EQ(LogRing().substr(logged),
                r.failures >= 0 ? "" : "FILE: FileDeletionRetry: Retry time expired (250, C:\\held); last error " +
                                          std::string(ErrText_Of(r.error)) + " (32)\n");
      if (r.wantAttempts > 0) {
         EXPECT_EQ(attempts, r.wantAttempts) << r.failures;
      }
      uint32_t waited = 0;
      for (uint32_t ms : sleeps) {
         EXPECT_TRUE(ms >= 10 && ms <= 100) << ms;
         waited += ms;
      }
      if (r.failures < 0) {
         EXPECT_GE(waited, r.msecs);
         EXPECT_LT(waited, r.msecs + 100);
      }
   }
   filePlatform = real;

   filePlatform.createDirectory = [](const wchar_t *, SECURITY_ATTRIBUTES *) {
      attempts++;
      return TRUE;
   };
   const std::string longName = "C:\\" + std::string(257, 'd');  // 260 characters
   for (const auto &[path, wantErrno, wantAttempts] :
        {std::tuple{longName.substr(0, 259), 0, 1}, {longName, 38, 0},
         {"\\\\?\\" + longName + longName, 0, 1}}) {
      attempts = 0;
      EXPECT_EQ(FileCreateDirectoryRetry(path.c_str(), 0700, 0), wantErrno) << path.size();
      EXPECT_EQ(attempts, wantAttempts);
      if (wantErrno != 0) {
         EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILENAME_EXCED_RANGE));
      }
   }
   filePlatform = real;
}

TEST(File, Rotations)
{
   const struct {
      Files before;
      const char *path;
      uint32_t count;
      bool renumber;
      Files after;
      const char *newName;  // null: none
   } rows[] = {
      {{"a.log=n", "a-0.log=0", "a-1.log=1"}, "a.log", 4, false, {"a-0.log=n", "a-1.log=0", "a-2.log=1"}, "a-0.log"},
      {{"a.log=n", "a-0.log=0", "a-1.log=1", "a-2.log=2", "a-3.log=3"}, "a.log", 4, false, {"a-0.log=n", "a-1.log=0", "a-2.log=1", "a-3.log=2"}, "a-0.log"},
      {{"a.log=n", "b.log=b"}, "a.log", 0, false, {"b.log=b"}, nullptr},
      {{"plain=n"}, "plain", 1, false, {"plain-0=n"}, "plain-0"},
      {{"a-0.log=0"}, "a.log", 2, false, {"a-1.log=0"}, nullptr},
      {{"a.log=n", "a-1.log=1", "a-7.log=7"}, "a.log", 5, true, {"a-1.log=1", "a-7.log=7", "a-8.log=n"}, "a-8.log"},
      {{"a.log=n", "a-07.log=x", "a-.log=y"}, "a.log", 5, true, {"a-.log=y", "a-07.log=x", "a-1.log=n"}, "a-1.log"},
      {{"a.log=n", "a-1.log=1", "a-7.log=7"}, "a.log", 2, true, {"a-7.log=7", "a-8.log=n"}, "a-8.log"},
      {{"a.log=n", "a-4294967295.log=m", "a-3.log=3"}, "a.log", 5, true, {"a-1.log=3", "a-2.log=m", "a-3.log=n"}, "a-3.log"},
      {{"a.log=n", "a-4294967296.log=big"}, "a.log", 5, true, {"a-1.log=n", "a-4294967296.log=big"}, "a-1.log"},
   };
   for (const auto &r : rows) {
      std::string folder = FolderWith("filetest-rotation", r.before);
      char *newName = nullptr;
      FileRotateByRename((folder + "\\" + r.path).c_str(), r.count, r.renumber, &newName);
      EXPECT_EQ(Contents(folder), r.after) << r.path << " " << r.count;
      std::string got = newName != nullptr ? newName : "<none>";
      std::replace(got.begin(), got.end(), '/', '\\');
      EXPECT_EQ(got, r.newName != nullptr ? folder + "\\" + r.newName : "<none>");
      free(newName);
   }
}

TEST(File, FoldersAndPaths)
{
   std::string folder = FolderWith("filetest-paths", {"f=1234", "r=x"});
   CreateDirectoryA((folder + "\\sub").c_str(), nullptr);
   SetFileAttributesA((folder + "\\r").c_str(), FILE_ATTRIBUTE_READONLY);
   const struct {
      std::string path;
      int wantErrno;
      uint32_t mode, isDirectory;
      uint64_t size;
   } rows[] = {
      {folder + "\\f", 0, 0666, 0, 4},
      {folder + "\\r", 0, 0444, 0, 1},
      {folder + "\\sub", 0, 0777, 1, 0},
      {folder + "\\missing", 2, 0, 0, 0},
   };
   for (const auto &r : rows) {
      FileData data = {};
      EXPECT_EQ(FileAttributesRetry(r.path.c_str(), 0, &data), r.wantErrno) << r.path;
      EXPECT_EQ(data.mode, r.mode) << r.path;
      EXPECT_EQ(data.isDirectory, r.isDirectory);
      EXPECT_EQ(data.size, r.size);
   }
   EXPECT_EQ(FileAttributesRetry(nullptr, 0, nullptr), EFAULT);
   EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_ADDRESS));
   SetFileAttributesA((folder + "\\r").c_str(), FILE_ATTRIBUTE_NORMAL);

   EXPECT_EQ(FileListDirectoryRetry((folder + "\\f").c_str(), 0, nullptr), 0xFFFFFFFFu);
   EXPECT_EQ(FileListDirectoryRetry((folder + "\\sub").c_str(), 0, nullptr), 0u);
   WIN32_FIND_DATAW found;
   int error = -1;
   HANDLE search = FileBeginSearch("test", (folder + "\\sub\\\\/").c_str(), 0, &found, &error);
   ASSERT_NE(search, INVALID_HANDLE_VALUE);
   EXPECT_STREQ(found.cFileName, L"sub");
   EXPECT_EQ(error, 0);
   FindClose(search);

   for (const auto &[path, remote] : {std::pair{"\\\\server\\share\\x", true}, {"C:\\x", false},
                                      {"\\\\.\\PhysicalDrive0", false}}) {
      EXPECT_EQ(File_IsRemote(path), remote) << path;
   }
   EXPECT_FALSE(FileIsWritableDir((folder + "\\f").c_str()));
}

} // namespace
