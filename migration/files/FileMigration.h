#pragma once
#include <windows.h>
#include <aclapi.h>

#include <string>
#include <vector>

// Wine accepts any new owner of a file and keeps the old one, so a refused owner change,
// after which the copy must go, can't happen there. Tests replace the call to get one;
// the product never changes the table.
struct FileCopyPlatformCalls {
   decltype(&::SetNamedSecurityInfoW) SetNamedSecurityInfoW;
};
extern FileCopyPlatformCalls fileCopyPlatform;

// Copies one file with its owner and group, never over an existing file; true when the
// file was migrated. A copy whose owner can't be set is deleted again.
bool CopyFileWithOwner(const std::wstring &sourcePath, const std::wstring &destPath);
// Creates every directory of `path` up to its last backslash.
bool CreateDirectoryPath(const std::wstring &path);
bool DirectoryExists(const std::wstring &path);

// Every profile directory of the machine's profile list, then the current user's if the
// list lacks it; whatever was found before a failure.
void EnumerateProfilePaths(std::vector<std::wstring> &profilePaths);
// Copies prefs.txt from the old client folder to the new one in each profile.
void MigratePreferenceFiles(const std::vector<std::wstring> &profilePaths);
bool CopyPreferenceFile(const std::wstring &sourceFolder, const std::wstring &destFolder);
