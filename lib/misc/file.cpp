#include "misc/file.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "misc/errText.h"
#include "misc/hostinfo.h"
#include "misc/log.h"
#include "misc/mxuser.h"
#include "misc/panic.h"
#include "misc/platform.h"
#include "misc/uniqueResource.h"
#include "misc/util.h"
#include "misc/win32u.h"
#include "misc/windowsUtil2.h"
#include "string/str.h"
#include "user/preference.h"

#include <shlobj.h>

namespace {

std::atomic<MXUserExclLock *> safeTmpDirLock{nullptr};
char *safeTmpDirCache = nullptr;

// The number in "<name>-<number><extension>", or false when the entry isn't such a copy.
bool FileParseNumbered(const char *entry, const char *name, const char *extension,
                       uint32_t *number)
{
   size_t nameLength = strlen(name);
   size_t extensionLength = strlen(extension);
   size_t entryLength = strlen(entry);
   if (entryLength <= nameLength + 1 + extensionLength ||
       strncmp(entry, name, nameLength) != 0 || entry[nameLength] != '-' ||
       strcmp(entry + entryLength - extensionLength, extension) != 0) {
      return false;
   }
   const char *digits = entry + nameLength + 1;
   size_t count = entryLength - nameLength - 1 - extensionLength;
   if (digits[0] < '1' || digits[0] > '9') {
      return false;
   }
   uint64_t value = 0;
   for (size_t i = 0; i < count; i++) {
      if (digits[i] < '0' || digits[i] > '9') {
         return false;
      }
      value = value * 10 + static_cast<uint64_t>(digits[i] - '0');
      if (value > 0xFFFFFFFFu) {
         return false;
      }
   }
   *number = static_cast<uint32_t>(value);
   return true;
}

// Long form without a trailing backslash when the folder exists and may be written.
char *FileUsableDir(const char *path)
{
   if (path == nullptr) {
      return nullptr;
   }
   Win32UWideArg widePath(path);
   wchar_t longPath[MAX_PATH * 4];
   DWORD length = GetLongPathNameW(widePath.text, longPath, MAX_PATH * 4);
   if (length == 0 || length >= MAX_PATH * 4) {
      return nullptr;
   }
   char *result = Win32U_Utf8Of(longPath);
   if (!FileIsWritableDir(result)) {
      free(result);
      return nullptr;
   }
   size_t resultLength = strlen(result);
   if (resultLength > 0 && result[resultLength - 1] == '\\') {
      result[resultLength - 1] = '\0';
   }
   return result;
}

char *FileTmpDirFromSetting()
{
   char *setting = Preference_GetString(nullptr, "tmpDirectory");
   if (setting == nullptr) {
      return nullptr;
   }
   char *expanded = Util_ExpandString(setting);
   free(setting);
   char *usable = FileUsableDir(expanded);
   free(expanded);
   return usable;
}

char *FileTmpDirOfSystem()
{
   DWORD needed = Win32U_GetTempPath(0, nullptr);
   if (needed == 0) {
      return nullptr;
   }
   char *path = static_cast<char *>(SafeMalloc(needed));
   if (Win32U_GetTempPath(needed, path) == 0) {
      free(path);
      return nullptr;
   }
   char *usable = FileUsableDir(path);
   free(path);
   return usable;
}

char *FileTmpDirOfProfile()
{
   char *appData = nullptr;
   if (Win32U_SHGetFolderPath(nullptr, CSIDL_LOCAL_APPDATA | CSIDL_FLAG_CREATE, nullptr, 0,
                              &appData) < 0 ||
       appData == nullptr) {
      return nullptr;
   }
   char *path = Str_SafeAsprintf(nullptr, "%s\\Temp", appData);
   free(appData);
   FileCreateDirectoryRetry(path, 0700, 0);
   char *usable = FileUsableDir(path);
   free(path);
   return usable;
}

// Whether `path` can be the safe folder: an existing one must pass the test, a new one is
// made private. A volume without ACLs has nothing to test.
bool FileAcceptSafeDir(const char *path, bool volumeHasAcls, bool useSystem)
{
   Win32UWideArg widePath(path);
   if (!volumeHasAcls) {
      return CreateDirectoryW(widePath.text, nullptr) ||
             GetLastError() == ERROR_ALREADY_EXISTS;
   }
   if (GetFileAttributesW(widePath.text) != INVALID_FILE_ATTRIBUTES) {
      return W32UtilIsDirectorySafe(path, useSystem);
   }
   return W32UtilMakeSafeDirectory(path, useSystem);
}

// One of the numbered folders that an earlier run made, if any still passes.
char *FileFindNumberedSafeDir(const char *tmpDir, const char *userName, bool volumeHasAcls,
                              bool useSystem)
{
   char *pattern = Str_SafeAsprintf(nullptr, "%s\\%s-%s-*", tmpDir, "corvane", userName);
   UniqueMallocBlock keptPattern(pattern);
   WIN32_FIND_DATAW found;
   HANDLE search = Win32U_FindFirstFileEx(pattern, &found);
   if (search == INVALID_HANDLE_VALUE) {
      return nullptr;
   }
   char *result = nullptr;
   do {
      if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
         continue;
      }
      char *path = Str_SafeAsprintf(nullptr, "%s\\%S", tmpDir, found.cFileName);
      if (FileAcceptSafeDir(path, volumeHasAcls, useSystem)) {
         result = path;
         break;
      }
      free(path);
   } while (FindNextFileW(search, &found));
   FindClose(search);
   return result;
}

char *FileCreateSafeTmpDir(const char *tmpDir, const char *userName, bool volumeHasAcls,
                           bool useSystem)
{
   char *path = nullptr;
   for (int attempt = 0; attempt < 251; attempt++) {
      free(path);
      path = Str_SafeAsprintf(nullptr, "%s\\%s-%s-%u", tmpDir, "corvane", userName,
                              FileRandomNumber());
      if (FileAcceptSafeDir(path, volumeHasAcls, useSystem)) {
         return path;
      }
   }
   Warning("%s: Failed to create a safe temporary directory, path \"%s\". The maximum number "
           "of attempts was exceeded.\n",
           "FileCreateSafeTmpDir", path);
   free(path);
   return nullptr;
}

char *FileFindSafeTmpDir(bool useSetting, bool useSystem)
{
   if (safeTmpDirCache != nullptr &&
       FileAcceptSafeDir(safeTmpDirCache, File_DoesVolumeSupportAcls(safeTmpDirCache),
                         useSystem)) {
      return SafeStrdup(safeTmpDirCache);
   }
   char *tmpDir = FileGetTmpDir(useSetting);
   if (tmpDir == nullptr) {
      Warning("%s: FileGetTmpDir failed.\n", "FileGetSafeTmpDir");
      return nullptr;
   }
   UniqueMallocBlock keptTmpDir(tmpDir);
   bool volumeHasAcls = File_DoesVolumeSupportAcls(tmpDir);
   char userName[257 * 3];
   DWORD size = sizeof userName;
   if (!Win32U_GetUserName(userName, &size)) {
      Warning("%s: GetUserName failed.\n", "FileGetSafeTmpDir");
      return nullptr;
   }
   char *path = Str_SafeAsprintf(nullptr, "%s\\%s-%s", tmpDir, "corvane", userName);
   if (!FileAcceptSafeDir(path, volumeHasAcls, useSystem)) {
      free(path);
      path = FileFindNumberedSafeDir(tmpDir, userName, volumeHasAcls, useSystem);
      if (path == nullptr) {
         path = FileCreateSafeTmpDir(tmpDir, userName, volumeHasAcls, useSystem);
      }
   }
   if (path != nullptr) {
      free(safeTmpDirCache);
      safeTmpDirCache = SafeStrdup(path);
   }
   return path;
}

} // namespace

void FileRotateByRename(const char *path, uint32_t count, bool renumber, char **newName)
{
   static const char kFunction[] = "FileRotateByRename";
   const char *dot = strrchr(path, '.');
   const char *extension = dot != nullptr ? dot : "";
   char *base = SafeStrndup(path, dot != nullptr ? static_cast<size_t>(dot - path) : strlen(path));
   UniqueMallocBlock keptBase(base);
   if (renumber) {
      FileRotateByRenumber(path, base, extension, count, newName);
      return;
   }
   char *later = nullptr;  // the name of the step before, one number up
   for (uint32_t n = count + 1; n-- > 0;) {
      char *name = n == 0 ? SafeStrdup(path)
                          : Str_SafeAsprintf(nullptr, "%s-%d%s", base, n - 1, extension);
      if (later == nullptr) {
         if (FileDeletionRetry(name, false, 0) != 0 && GetLastError() != ERROR_FILE_NOT_FOUND &&
             GetLastError() != ERROR_PATH_NOT_FOUND) {
            Log("FILE: %s: failed to remove %s: %s\n", kFunction, name, ErrText_Last());
         }
      } else if (File_RenameRetry(name, later) != 0) {
         if (GetLastError() != ERROR_FILE_NOT_FOUND && GetLastError() != ERROR_PATH_NOT_FOUND) {
            Log("FILE: %s: rename of %s -> %s failed: %s\n", kFunction, name, later,
                ErrText_Last());
         }
      } else if (n == 0 && newName != nullptr) {
         *newName = SafeStrdup(later);
      }
      free(later);
      later = name;
   }
   free(later);
}

void FileRotateByRenumber(const char *path, const char *base, const char *extension,
                          uint32_t count, char **newName)
{
   static const char kFunction[] = "FileRotateByRenumber";
   char *full = File_FullPath(base);
   if (full == nullptr) {
      Log("FILE: %s: failed to get full path for '%s'.\n", kFunction, base);
      return;
   }
   UniqueMallocBlock keptFull(full);
   char *separator = strrchr(full, '\\');
   const char *name = separator != nullptr ? separator + 1 : full;
   const char *folder = "\\";
   if (separator != nullptr && separator != full) {
      *separator = '\0';
      folder = full;
   }
   if (*name == '\0') {
      Log("FILE: %s: failed to get base name for path '%s'.\n", kFunction, base);
      return;
   }
   char **entries = nullptr;
   uint32_t entryCount = FileListDirectoryRetry(folder, 0, &entries);
   if (entryCount == 0xFFFFFFFF) {
      Log("FILE: %s: failed to read the directory '%s'.\n", kFunction, folder);
      return;
   }
   std::vector<uint32_t> numbers;
   for (uint32_t i = 0; i < entryCount; i++) {
      uint32_t number = 0;
      if (FileParseNumbered(entries[i], name, extension, &number)) {
         numbers.push_back(number);
      }
      free(entries[i]);
   }
   free(entries);
   std::sort(numbers.begin(), numbers.end());
   if (!numbers.empty() && numbers.back() > 0xFFFFFFFE) {
      // The numbers have run out: close the gaps from 1 up, keeping the order.
      for (size_t i = 0; i < numbers.size(); i++) {
         char *from = Str_SafeAsprintf(nullptr, "%s/%s-%u%s", folder, name, numbers[i], extension);
         char *to = Str_SafeAsprintf(nullptr, "%s/%s-%u%s", folder, name,
                                     static_cast<uint32_t>(i + 1), extension);
         if (File_RenameRetry(from, to) != 0) {
            Log("FILE: %s: rename of %s -> %s failed: %s\n", kFunction, from, to,
                ErrText_Last());
         }
         numbers[i] = static_cast<uint32_t>(i + 1);
         free(from);
         free(to);
      }
   }
   uint32_t next = numbers.empty() ? 1 : numbers.back() + 1;
   char *target = Str_SafeAsprintf(nullptr, "%s/%s-%u%s", folder, name, next, extension);
   if (File_RenameRetry(path, target) != 0) {
      if (GetLastError() != ERROR_FILE_NOT_FOUND && GetLastError() != ERROR_PATH_NOT_FOUND) {
         Log("FILE: %s: rename of %s -> %s failed: %s\n", kFunction, path, target,
             ErrText_Last());
      }
   } else if (newName != nullptr) {
      *newName = SafeStrdup(target);
   }
   free(target);
   if (numbers.size() >= count) {
      size_t drop = numbers.size() - count + 1;
      for (size_t i = 0; i < drop && i < numbers.size(); i++) {
         char *old = Str_SafeAsprintf(nullptr, "%s/%s-%u%s", folder, name, numbers[i], extension);
         if (FileDeletionRetry(old, false, 0) != 0) {
            Log("FILE: %s: failed to remove %s: %s\n", kFunction, old, ErrText_Last());
         }
         free(old);
      }
   }
}

char *FileGetTmpDir(bool useSetting)
{
   char *dir = useSetting ? FileTmpDirFromSetting() : nullptr;
   if (dir == nullptr) {
      dir = FileTmpDirOfSystem();
   }
   if (dir == nullptr) {
      dir = FileTmpDirOfProfile();
   }
   if (dir == nullptr) {
      Warning("%s: Couldn't get a temporary directory\n", "FileGetTmpDir");
   }
   return dir;
}

char *FileGetSafeTmpDir(bool useSetting, bool useSystem)
{
   MXUserExclLock *lock =
      MXUser_CreateSingletonExclLock(&safeTmpDirLock, "getSafeTmpDirLock", 0xF0007087);
   MXUser_AcquireExclLock(lock);
   char *result = FileFindSafeTmpDir(useSetting, useSystem);
   MXUser_ReleaseExclLock(lock);
   return result;
}
