#include "misc/file.h"

#include <aclapi.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "misc/errText.h"
#include "misc/hostinfo.h"
#include "misc/log.h"
#include "misc/panic.h"
#include "misc/platform.h"
#include "misc/uniqueResource.h"
#include "misc/win32u.h"
#include "string/str.h"

namespace {

BOOL FileGetAttributesEx(const wchar_t *path, WIN32_FILE_ATTRIBUTE_DATA *data)
{
   return GetFileAttributesExW(path, GetFileExInfoStandard, data);
}

HANDLE FileFindFirst(const wchar_t *path, WIN32_FIND_DATAW *findData)
{
   return FindFirstFileExW(path, FindExInfoStandard, findData, FindExSearchNameMatch, nullptr,
                           0);
}

void FileSleep(uint32_t milliseconds) { Sleep(milliseconds); }

struct FileErrnoRow {
   std::initializer_list<DWORD> errors;
   int errnoValue;
};

const FileErrnoRow kFileErrnoRows[] = {
   {{0}, 0},
   {{1, 12, 87, 123, 160}, EINVAL},
   {{2, 3, 303}, ENOENT},
   {{4}, EMFILE},
   {{5, 32, 82}, EACCES},
   {{6}, EBADF},
   {{8, 14}, ENOMEM},
   {{16, 148}, EBUSY},
   {{19}, EROFS},
   {{27, 29, 30, 31}, EIO},
   {{50}, 40},  // ENOSYS
   {{80, 183}, EEXIST},
   {{112}, ENOSPC},
   {{145}, 41},  // ENOTEMPTY
   {{206}, 38},  // ENAMETOOLONG
   {{267}, ENOTDIR},
   {{487}, EFAULT},
};

std::atomic<bool> randomBusy{false};
RandomState *randomState = nullptr;

} // namespace

uint32_t FileRandomNumber()
{
   while (randomBusy.exchange(true, std::memory_order_acquire)) {
   }
   if (randomState == nullptr) {
      randomState = Random_QuickSeed(Platform_ProcessId());
   }
   uint32_t value = Random_Quick(randomState);
   randomBusy.store(false, std::memory_order_release);
   return value;
}

namespace {

// Sleeps a random time from `low` to `high` milliseconds and says how long.
uint32_t FileSleeper(uint32_t low, uint32_t high)
{
   float fraction = static_cast<float>(FileRandomNumber()) * (1.0f / 4294967296.0f);
   uint32_t milliseconds = static_cast<uint32_t>(fraction * (high - low)) + low;
   for (uint32_t left = milliseconds; left > 0;) {
      uint32_t slice = std::min<uint32_t>(left, 900);
      filePlatform.sleep(slice);
      left -= slice;
   }
   return milliseconds;
}

// Tries again while the file is held by someone else, until `msecs` have been slept. The
// result is 0 or the last platform error; `expired` says whether the time ran out on it.
template <typename Attempt>
DWORD FileRetry(uint32_t msecs, bool *expired, Attempt attempt)
{
   uint32_t waited = 0;
   for (;;) {
      DWORD error = attempt() ? 0 : GetLastError();
      if (waited >= msecs) {
         *expired = msecs != 0 && error != 0;
         return error;
      }
      *expired = false;
      if (error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED) {
         return error;
      }
      waited += FileSleeper(10, 100);
   }
}

void FileLogExpired(const char *function, uint32_t msecs, const char *path, DWORD error)
{
   Log("FILE: %s: Retry time expired (%u, %s); last error %s (%d)\n", function, msecs, path,
       ErrText_Of(error), error);
}

uint64_t FileTime64(const FILETIME &time)
{
   return (static_cast<uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

// The rights the caller has on the file, where a check can be made.
bool FileGrantedAccess(const wchar_t *path, ACCESS_MASK *granted)
{
   UniqueHandle token;
   if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY | TOKEN_DUPLICATE, TRUE, token.put()) &&
       !OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY | TOKEN_DUPLICATE, token.put())) {
      return false;
   }
   UniqueHandle impersonation;
   if (!DuplicateToken(token.get(), SecurityImpersonation, impersonation.put())) {
      return false;
   }
   UniqueLocalMemory descriptor;
   if (GetNamedSecurityInfoW(path, SE_FILE_OBJECT,
                             OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION |
                                DACL_SECURITY_INFORMATION,
                             nullptr, nullptr, nullptr, nullptr,
                             reinterpret_cast<PSECURITY_DESCRIPTOR *>(descriptor.put())) !=
       ERROR_SUCCESS) {
      return false;
   }
   GENERIC_MAPPING mapping = {0x120089, 0x120116, 0x1200a0, 0x1f01ff};
   PRIVILEGE_SET privileges;
   DWORD privilegesSize = sizeof privileges;
   BOOL status = FALSE;
   return AccessCheck(descriptor.get(), impersonation.get(), MAXIMUM_ALLOWED, &mapping,
                      &privileges, &privilegesSize, granted, &status) != FALSE;
}

uint32_t FileMode(const char *path, const wchar_t *widePath, DWORD attributes)
{
   uint32_t mode = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? 0777 : 0666;
   if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) {
      mode &= ~0222u;
   }
   ACCESS_MASK granted = 0;
   if (!File_IsRemote(path) && File_DoesVolumeSupportAcls(path) &&
       FileGrantedAccess(widePath, &granted)) {
      if ((granted & 0x120089) != 0x120089) {
         mode &= ~0444u;
      }
      if ((granted & 0x120116) != 0x120116) {
         mode &= ~0222u;
      }
   }
   return mode;
}

bool FileIsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

} // namespace

FilePlatform filePlatform = {DeleteFileW, CreateDirectoryW, FileGetAttributesEx, FileFindFirst,
                             FileSleep};

int FileMapErrorToErrno(const char *function, DWORD error)
{
   int result = EIO;
   bool mapped = false;
   for (const FileErrnoRow &row : kFileErrnoRows) {
      if (std::find(row.errors.begin(), row.errors.end(), error) != row.errors.end()) {
         result = row.errnoValue;
         mapped = true;
         break;
      }
   }
   if (!mapped) {
      Log("FILE: %s unmapped error code %d\n", function, error);
   }
   SetLastError(error);
   return result;
}

int FileAttributesRetry(const char *path, uint32_t msecs, FileData *data)
{
   if (path == nullptr) {
      return FileMapErrorToErrno("FileAttributesRetry", ERROR_INVALID_ADDRESS);
   }
   Win32UWideArg widePath(path);
   WIN32_FILE_ATTRIBUTE_DATA attributes;
   bool expired = false;
   DWORD error = FileRetry(msecs, &expired, [&] {
      return filePlatform.getFileAttributesEx(widePath.text, &attributes);
   });
   if (error == 0 && data != nullptr) {
      data->lastAccessTime = FileTime64(attributes.ftLastAccessTime);
      data->creationTime = FileTime64(attributes.ftCreationTime);
      data->lastWriteTime = FileTime64(attributes.ftLastWriteTime);
      data->size = (static_cast<uint64_t>(attributes.nFileSizeHigh) << 32) |
                   attributes.nFileSizeLow;
      data->isDirectory = (attributes.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      data->mode = FileMode(path, widePath.text, attributes.dwFileAttributes);
      data->reserved = 0;
   }
   return FileMapErrorToErrno("FileAttributesRetry", error);
}

int FileCreateDirectoryRetry(const char *path, int, uint32_t msecs)
{
   static const char kFunction[] = "FileCreateDirectoryRetry";
   if (path == nullptr) {
      return FileMapErrorToErrno(kFunction, ERROR_INVALID_ADDRESS);
   }
   Win32UWideArg widePath(path);
   if (wcsncmp(widePath.text, L"\\\\?\\", 4) != 0 && wcslen(widePath.text) >= MAX_PATH) {
      SetLastError(ERROR_FILENAME_EXCED_RANGE);
      return 38;  // ENAMETOOLONG
   }
   bool expired = false;
   DWORD error = FileRetry(msecs, &expired, [&] {
      return filePlatform.createDirectory(widePath.text, nullptr);
   });
   if (expired) {
      FileLogExpired(kFunction, msecs, path, error);
   }
   return FileMapErrorToErrno(kFunction, error);
}

int FileDeletionRetry(const char *path, bool, uint32_t msecs)
{
   static const char kFunction[] = "FileDeletionRetry";
   if (path == nullptr) {
      return FileMapErrorToErrno(kFunction, ERROR_INVALID_ADDRESS);
   }
   Win32UWideArg widePath(path);
   bool expired = false;
   DWORD error = FileRetry(msecs, &expired, [&] { return filePlatform.deleteFile(widePath.text); });
   if (expired) {
      FileLogExpired(kFunction, msecs, path, error);
   }
   return FileMapErrorToErrno(kFunction, error);
}

int File_RenameRetry(const char *source, const char *destination)
{
   if (source == nullptr || destination == nullptr) {
      return FileMapErrorToErrno("File_RenameRetry", ERROR_INVALID_ADDRESS);
   }
   Win32UWideArg wideSource(source);
   Win32UWideArg wideDestination(destination);
   DWORD error = MoveFileExW(wideSource.text, wideDestination.text, MOVEFILE_REPLACE_EXISTING)
                    ? 0
                    : GetLastError();
   return FileMapErrorToErrno("File_RenameRetry", error);
}

HANDLE FileBeginSearch(const char *function, const char *path, uint32_t msecs,
                       WIN32_FIND_DATAW *findData, int *error)
{
   if (path == nullptr) {
      *error = FileMapErrorToErrno(function, ERROR_INVALID_ADDRESS);
      return INVALID_HANDLE_VALUE;
   }
   Win32UWideArg widePath(path);
   // A folder named with trailing separators finds nothing; the folder itself is meant.
   wchar_t *text = widePath.text;
   size_t length = wcslen(text);
   size_t volume = length >= 2 && text[1] == L':' ? 2 : 0;
   if (length > volume + 1 && FileIsSeparator(text[length - 1])) {
      while (length > volume + 1 && FileIsSeparator(text[length - 1])) {
         text[--length] = L'\0';
      }
   }
   HANDLE search = INVALID_HANDLE_VALUE;
   bool expired = false;
   DWORD platformError = FileRetry(msecs, &expired, [&] {
      search = filePlatform.findFirstFile(text, findData);
      return search != INVALID_HANDLE_VALUE;
   });
   if (expired) {
      FileLogExpired(function, msecs, path, platformError);
   }
   *error = FileMapErrorToErrno(function, platformError);
   return search;
}

struct FileWalk {
   char *pattern;
   HANDLE search;
   WIN32_FIND_DATAW findData;
   bool started;
   uint32_t msecs;  // how long the first step may retry
   DWORD error;  // what ended the walk, 0 for a clean end
};

FileWalk *File_WalkDirectoryStart(const char *path)
{
   Win32UWideArg widePath(path);
   DWORD attributes = widePath.text != nullptr ? GetFileAttributesW(widePath.text)
                                                : INVALID_FILE_ATTRIBUTES;
   if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
      return nullptr;
   }
   auto *walk = static_cast<FileWalk *>(SafeCalloc(1, sizeof(FileWalk)));
   walk->pattern = Str_SafeAsprintf(nullptr, "%s\\*", path);
   walk->search = INVALID_HANDLE_VALUE;
   return walk;
}

bool File_WalkDirectoryNext(FileWalk *walk, char **name)
{
   static const char kFunction[] = "File_WalkDirectoryNext";
   for (;;) {
      if (!walk->started) {
         walk->started = true;
         int errnoValue = 0;
         walk->search = FileBeginSearch(kFunction, walk->pattern, walk->msecs, &walk->findData,
                                        &errnoValue);
         if (walk->search == INVALID_HANDLE_VALUE) {
            DWORD error = GetLastError();
            // Gone since the walk began: as empty as it can be.
            if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND) {
               Log("FILE: %s: Failed to find file. Error: %d\n", kFunction, error);
               walk->error = error;
            }
            return false;
         }
      } else if (walk->search == INVALID_HANDLE_VALUE) {
         return false;
      } else if (!FindNextFileW(walk->search, &walk->findData)) {
         DWORD error = GetLastError();
         if (error != ERROR_NO_MORE_FILES) {
            Log("FILE: %s: FindNextFile failed. Error code: %d\n", kFunction, error);
            walk->error = error;
         }
         return false;
      }
      const wchar_t *found = walk->findData.cFileName;
      if (wcscmp(found, L".") != 0 && wcscmp(found, L"..") != 0) {
         *name = Win32U_Utf8Of(found);
         return true;
      }
   }
}

bool File_WalkDirectoryEnd(FileWalk *walk)
{
   DWORD error = walk->error;
   if (walk->search != INVALID_HANDLE_VALUE && !FindClose(walk->search) && error == 0) {
      error = GetLastError();
   }
   free(walk->pattern);
   free(walk);
   SetLastError(error);
   return error == 0;
}

uint32_t FileListDirectoryRetry(const char *path, uint32_t msecs, char ***names)
{
   static const char kFunction[] = "FileListDirectoryRetry";
   if (names != nullptr) {
      *names = nullptr;
   }
   FileWalk *walk = File_WalkDirectoryStart(path);
   if (walk == nullptr) {
      return 0xFFFFFFFF;
   }
   walk->msecs = msecs;
   uint32_t count = 0;
   char **list = nullptr;
   char *name = nullptr;
   while (File_WalkDirectoryNext(walk, &name)) {
      list = static_cast<char **>(SafeRealloc(list, (count + 1) * sizeof(char *)));
      list[count++] = name;
   }
   DWORD walkError = walk->error;
   HANDLE search = walk->search;
   walk->search = INVALID_HANDLE_VALUE;
   if (search != INVALID_HANDLE_VALUE && !FindClose(search)) {
      Log("FILE: %s: FindClose failure (%d) on (%s)\n", kFunction, GetLastError(), path);
   }
   File_WalkDirectoryEnd(walk);
   if (walkError != 0) {
      Log("FILE: %s: FindNextFile failure (%d) on (%s)\n", kFunction, walkError, path);
      for (uint32_t i = 0; i < count; i++) {
         free(list[i]);
      }
      free(list);
      SetLastError(walkError);
      return 0xFFFFFFFF;
   }
   if (names != nullptr) {
      *names = list;
   } else {
      for (uint32_t i = 0; i < count; i++) {
         free(list[i]);
      }
      free(list);
   }
   return count;
}

char *File_FullPath(const char *path)
{
   if (path == nullptr) {
      SetLastError(ERROR_INVALID_ADDRESS);
      return nullptr;
   }
   Win32UWideArg widePath(path);
   wchar_t *full = _wfullpath(nullptr, widePath.text, 0);
   if (full == nullptr) {
      Log("FILE: %s:  _wfullpath failed on (%s): %d\n", "File_FullPath", path, errno);
      return nullptr;
   }
   Win32UErrorKeeper kept;
   char *result = Win32U_Utf8Of(full);
   free(full);
   kept.Restore();
   return result;
}

bool FileIsWritableDir(const char *path)
{
   static const char kFunction[] = "FileIsWritableDir";
   Win32UWideArg widePath(path);
   DWORD attributes = widePath.text != nullptr ? GetFileAttributesW(widePath.text)
                                                : INVALID_FILE_ATTRIBUTES;
   if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
      return false;
   }
   UniqueHandle token;
   if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.put())) {
      DWORD error = GetLastError();
      if (error == ERROR_CANT_OPEN_ANONYMOUS) {
         return true;
      }
      if (error != ERROR_NO_TOKEN) {
         Log("FILE: %s: Cannot get the thread access token (error %d).\n", kFunction, error);
         return false;
      }
      // An access check wants an impersonation token: be one's own for a moment.
      if (!ImpersonateSelf(SecurityImpersonation)) {
         Log("FILE: %s: Unable to impersonate self (error %d).\n", kFunction, GetLastError());
         return false;
      }
      BOOL opened = OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.put());
      DWORD openError = GetLastError();
      RevertToSelf();
      if (!opened) {
         Log("FILE: %s: Cannot get the process access token (error %d).\n", kFunction,
             openError);
         return false;
      }
   }
   const SECURITY_INFORMATION what =
      OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
   DWORD size = 256;
   UniqueMallocBlock descriptor(malloc(size));
   for (;;) {
      if (!descriptor) {
         Log("FILE: %s: Couldn't realloc\n", kFunction);
         return false;
      }
      DWORD needed = 0;
      if (GetFileSecurityW(widePath.text, what, descriptor.get(), size, &needed)) {
         break;
      }
      DWORD error = GetLastError();
      if (error != ERROR_INSUFFICIENT_BUFFER) {
         Log("FILE: %s: Cannot get the directory's security descriptor.Directory is \"%S\", "
             "error is %d.\n",
             kFunction, widePath.text, error);
         return false;
      }
      size = needed;
      void *grown = realloc(descriptor.get(), size);
      if (grown != nullptr) {
         descriptor.release();
      }
      descriptor.reset(grown);
   }
   PSID owner = nullptr;
   PSID group = nullptr;
   BOOL defaulted = FALSE;
   GetSecurityDescriptorOwner(descriptor.get(), &owner, &defaulted);
   GetSecurityDescriptorGroup(descriptor.get(), &group, &defaulted);
   if (owner == nullptr && group == nullptr) {
      return true;  // a file system without security
   }
   GENERIC_MAPPING mapping = {FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE,
                              FILE_ALL_ACCESS};
   PRIVILEGE_SET privileges;
   DWORD privilegesSize = sizeof privileges;
   DWORD granted = 0;
   BOOL allowed = FALSE;
   if (!AccessCheck(descriptor.get(), token.get(), FILE_GENERIC_WRITE, &mapping, &privileges,
                    &privilegesSize, &granted, &allowed)) {
      Log("FILE: %s: Unable to check access rights (error %d).\n", kFunction, GetLastError());
      return false;
   }
   return allowed != FALSE;
}

bool File_IsRemote(const char *path)
{
   if (path == nullptr || _strnicmp(path, "\\\\.\\PhysicalDrive", 17) == 0) {
      return false;
   }
   char *full = File_FullPath(path);
   if (full == nullptr) {
      return false;
   }
   UniqueMallocBlock kept(full);
   if (full[0] == '\\' && full[1] == '\\') {
      return true;
   }
   char *backslash = strchr(full, '\\');
   if (backslash == nullptr) {
      Log("FILE: %s: No backslash in file %s\n", "File_IsRemote", full);
      return false;
   }
   backslash[1] = '\0';
   Win32UWideArg root(full);
   return GetDriveTypeW(root.text) == DRIVE_REMOTE;
}

bool File_DoesVolumeSupportAcls(const char *path)
{
   char *full = File_FullPath(path);
   if (full == nullptr) {
      return false;
   }
   UniqueMallocBlock kept(full);
   // The volume: "X:" or "\\server\share", with a backslash behind it.
   size_t end = 0;
   if (full[0] == '\\' && full[1] == '\\') {
      const char *server = strchr(full + 2, '\\');
      const char *share = server != nullptr ? strchr(server + 1, '\\') : nullptr;
      end = share != nullptr ? static_cast<size_t>(share - full) : strlen(full);
   } else {
      end = strlen(full) >= 2 && full[1] == ':' ? 2 : strlen(full);
   }
   char *root = Str_SafeAsprintf(nullptr, "%.*s\\", static_cast<int>(end), full);
   UniqueMallocBlock keptRoot(root);
   Win32UWideArg wideRoot(root);
   DWORD flags = 0;
   if (!GetVolumeInformationW(wideRoot.text, nullptr, 0, nullptr, nullptr, &flags, nullptr, 0)) {
      Log("FILE: %s: GetVolumeInformation failed: %d\n", "File_DoesVolumeSupportAcls",
          GetLastError());
      return false;
   }
   return (flags & FILE_PERSISTENT_ACLS) != 0;
}
