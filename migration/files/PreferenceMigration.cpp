#include <userenv.h>
#include <shlwapi.h>

#include "HandleGuards.h"
#include "files/FileMigration.h"
#include "log/MigrationLog.h"
#include "users/UserContext.h"

namespace {

constexpr DWORD PathChars = 260;
constexpr DWORD ProfileImagePathBytes = 520;

// The expanded ProfileImagePath of one entry of the profile list, or false.
bool ReadProfileImagePath(const std::wstring &keyPath, std::wstring &profilePath)
{
   UniqueHkey key;
   LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, KEY_READ, key.put());
   if (status != ERROR_SUCCESS) {
      LogMessage(LogLevelError, "Failed to open subkey: %S. Error code: %d", keyPath.c_str(), status);
      return false;
   }
   wchar_t raw[ProfileImagePathBytes / sizeof(wchar_t) + 1] = {};
   DWORD size = ProfileImagePathBytes;
   DWORD type = REG_NONE;
   status = RegQueryValueExW(key.get(), L"ProfileImagePath", nullptr, &type, reinterpret_cast<BYTE *>(raw), &size);
   if (status != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ)) {
      // A value of the wrong type is reported with the successful query's 0.
      LogMessage(LogLevelError, "Failed to read ProfileImagePath for: %S. Error code: %d", keyPath.c_str(), status);
      return false;
   }
   wchar_t expanded[PathChars] = {};
   profilePath = ExpandEnvironmentStringsW(raw, expanded, PathChars) != 0 ? expanded : raw;
   return true;
}

void AppendCurrentUserProfile(std::vector<std::wstring> &profilePaths)
{
   UniqueHandle token;
   if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put())) {
      LogMessage(LogLevelError, "Failed to open process token. Error code: %d", GetLastError());
      return;
   }
   wchar_t profile[PathChars] = {};
   DWORD length = PathChars;
   if (!GetUserProfileDirectoryW(token.get(), profile, &length)) {
      LogMessage(LogLevelError, "Failed to get current user profile directory. Error code: %d", GetLastError());
      return;
   }
   LogMessage(LogLevelInfo, "Current logged-in user profile path: %S", profile);
   // Exact text: a profile listed in other letter case is a second entry, and handled twice.
   for (const std::wstring &known : profilePaths) {
      if (known == profile) {
         return;
      }
   }
   profilePaths.push_back(profile);
   LogMessage(LogLevelInfo, "Added current user to profile list: %S", profile);
}

} // namespace

void EnumerateProfilePaths(std::vector<std::wstring> &profilePaths)
{
   UniqueHkey list;
   const LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, ProfileListKeyPath.c_str(), 0, KEY_READ, list.put());
   if (status != ERROR_SUCCESS) {
      LogMessage(LogLevelError, "Failed to open ProfileList registry key. Error code: %d", status);
      return;
   }
   for (DWORD index = 0;; ++index) {
      wchar_t name[PathChars];
      DWORD nameLength = PathChars;
      FILETIME lastWrite;
      const LSTATUS result = RegEnumKeyExW(list.get(), index, name, &nameLength, nullptr, nullptr, nullptr, &lastWrite);
      if (result == ERROR_NO_MORE_ITEMS) {
         break;
      }
      if (result != ERROR_SUCCESS) {
         LogMessage(LogLevelError, "Failed to enumerate subkey at index %d. Error code: %d", index, result);
         continue;
      }
      std::wstring profilePath;
      if (ReadProfileImagePath(ProfileListKeyPath + name, profilePath)) {
         LogMessage(LogLevelInfo, "Found user profile path: %S", profilePath.c_str());
         profilePaths.push_back(profilePath);
      }
   }
   list.reset();
   AppendCurrentUserProfile(profilePaths);
}

bool CopyPreferenceFile(const std::wstring &sourceFolder, const std::wstring &destFolder)
{
   const std::wstring sourceFile = sourceFolder + L"\\prefs.txt";
   const std::wstring destFile = destFolder + L"\\prefs.txt";
   if (!PathFileExistsW(sourceFile.c_str())) {
      LogMessage(LogLevelWarning, "prefs.txt not found at: %S", sourceFile.c_str());
      return false;
   }
   if (!DirectoryExists(destFolder)) {
      LogMessage(LogLevelWarning, "Destination path %S not found, attempting to create.", destFolder.c_str());
      if (!CreateDirectoryPath(destFolder + L"\\")) {
         LogMessage(LogLevelError, "Failed to create destination path: %S", destFolder.c_str());
         return false;
      }
      LogMessage(LogLevelInfo, "Created destination path: %S", destFolder.c_str());
   }
   // Overwrites: the old folder's file always wins while it exists, on every run.
   if (!CopyFileW(sourceFile.c_str(), destFile.c_str(), FALSE)) {
      LogMessage(LogLevelError, "Failed to copy prefs.txt from %S to %S. Error code: %d", sourceFile.c_str(),
                 destFile.c_str(), GetLastError());
      return false;
   }
   LogMessage(LogLevelInfo, "[Success] Copied prefs.txt from %S to %S", sourceFile.c_str(), destFile.c_str());
   return true;
}

void MigratePreferenceFiles(const std::vector<std::wstring> &profilePaths)
{
   for (const std::wstring &profile : profilePaths) {
      const std::wstring roaming = profile + L"\\AppData\\Roaming";
      if (!DirectoryExists(roaming)) {
         LogMessage(LogLevelWarning, "Roaming path not found for user: %S", profile.c_str());
         continue;
      }
      const std::wstring source = roaming + L"\\Eldrix\\Eldrix Vantora Glint Client";
      const std::wstring dest = roaming + L"\\Corvane\\Corvane Vantora Client";
      // The report is read by eye: a blank line before each profile, indented entries.
      LogMessage(LogLevelInfo, "\nUser Profile: %S", profile.c_str());
      if (DirectoryExists(source)) {
         LogMessage(LogLevelInfo, "  [Found] Src Path: %S", source.c_str());
         CopyPreferenceFile(source, dest);
      } else {
         LogMessage(LogLevelInfo, "  [Missing] Src Path: %S", source.c_str());
      }
   }
}
