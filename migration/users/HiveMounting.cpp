#include "HandleGuards.h"
#include "log/MigrationLog.h"
#include "users/UserContext.h"

const std::wstring ProfileListKeyPath = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\";

namespace {
constexpr DWORD ProfileImagePathBytes = 520;

bool OpenMountPoint(const std::wstring &keyPath, HKEY &key)
{
   HKEY opened = nullptr;
   if (RegOpenKeyExW(HKEY_USERS, keyPath.c_str(), 0, KEY_ALL_ACCESS, &opened) != ERROR_SUCCESS) {
      return false;
   }
   key = opened;
   return true;
}

void UnmountHive(HKEY &key, bool loaded, const std::wstring &keyPath)
{
   if (key == nullptr) {
      return;
   }
   RegCloseKey(std::exchange(key, nullptr));
   if (loaded) {
      UnloadHiveKey(keyPath);
   }
}

} // namespace

std::wstring GetProfilePathForSid(const std::wstring &sid)
{
   UniqueHkey key;
   if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, (ProfileListKeyPath + sid).c_str(), 0, KEY_READ, key.put()) !=
       ERROR_SUCCESS) {
      LogMessage(LogLevelWarning, "The profile for user %S isn't registered, ignore", sid.c_str());
      return std::wstring();
   }
   // One character more than the size given, so that a value that fills the buffer
   // without its terminator still ends.
   wchar_t path[ProfileImagePathBytes / sizeof(wchar_t) + 1] = {};
   DWORD size = ProfileImagePathBytes;
   if (RegQueryValueExW(key.get(), L"ProfileImagePath", nullptr, nullptr, reinterpret_cast<BYTE *>(path), &size) !=
       ERROR_SUCCESS) {
      LogMessage(LogLevelWarning, "Can't find profile path for sid %S", sid.c_str());
      return std::wstring();
   }
   return path;
}

// Under the fixed c:\users\ and not below ProfilePath: a profile that lives elsewhere, or
// under another name than the account's, has no classes hive here. Packages in the field
// were migrated this way, so it stays.
std::wstring BuildClassesHivePath(const std::wstring &userName)
{
   return L"c:\\users\\" + userName + L"\\AppData\\Local\\Microsoft\\Windows\\UsrClass.dat";
}

bool FileExists(const std::wstring &path)
{
   const DWORD attributes = GetFileAttributesW(path.c_str());
   return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool MountUserHive(const std::wstring &keyPath, const std::wstring &filePath, HKEY &key, bool &loaded)
{
   // The file is tested first, so a hive that is mounted already is only used when its
   // file is where the profile says.
   if (!FileExists(filePath)) {
      LogMessage(LogLevelWarning, "Profile %S doesn't exist.", filePath.c_str());
      return false;
   }
   if (OpenMountPoint(keyPath, key)) {
      loaded = false;
      LogMessage(LogLevelInfo, "Subkey %S opened.", keyPath.c_str());
      return true;
   }
   const LSTATUS status = RegLoadKeyW(HKEY_USERS, keyPath.c_str(), filePath.c_str());
   if (status != ERROR_SUCCESS) {
      LogMessage(LogLevelErrorWithCode, "RegLoadKey file %S to %S failed, return %d.", filePath.c_str(),
                 keyPath.c_str(), status);
      return false;
   }
   loaded = true;
   if (!OpenMountPoint(keyPath, key)) {
      LogMessage(LogLevelError, "Hive loaded, but RegOpenKeyEx failed to open subkey %S", keyPath.c_str());
      return false;
   }
   LogMessage(LogLevelInfo, "Profile %S opened from %S.", filePath.c_str(), keyPath.c_str());
   return true;
}

bool UnloadHiveKey(const std::wstring &keyPath)
{
   const LSTATUS status = userPlatform.RegUnLoadKeyW(HKEY_USERS, keyPath.c_str());
   if (status != ERROR_SUCCESS) {
      // The call reports by its result only; the line's error part should name that.
      SetLastError(status);
      LogMessage(LogLevelErrorWithCode, "Unload keyPath %S failed.", keyPath.c_str());
      return false;
   }
   LogMessage(LogLevelInfo, "Unload keyPath %S succeed.", keyPath.c_str());
   return true;
}

void OpenUserHives(UserContext &user)
{
   user.ProfilePath = GetProfilePathForSid(user.UserSid);
   user.UserHivePath = user.ProfilePath + L"\\NTUSER.DAT";
   user.UserHiveKeyPath = user.UserSid;
   user.UserClassesPath = BuildClassesHivePath(user.UserName);
   user.UserClassesKeyPath = user.UserSid + L"_Classes";

   if (!MountUserHive(user.UserHiveKeyPath, user.UserHivePath, user.UserHiveKey, user.UserHiveLoaded)) {
      LogMessage(LogLevelWarning, "Can't open HKCU key for user %S, key path: %S, ignored...", user.UserName.c_str(),
                 user.UserHiveKeyPath.c_str());
      return;
   }
   if (!MountUserHive(user.UserClassesKeyPath, user.UserClassesPath, user.UserClassesKey, user.UserClassesLoaded)) {
      LogMessage(LogLevelWarning, "Can't open HKCR key for user %S, key path %S, ignored...", user.UserName.c_str(),
                 user.UserClassesKeyPath.c_str());
      // Tried with the main hive's key still open, so it fails and logs, and the hive stays
      // mounted until the end of the run: that is the order installed packages have always
      // had, and it never takes away a hive that someone else loaded.
      if (user.UserHiveKey != nullptr) {
         UnloadHiveKey(user.UserHiveKeyPath);
      }
   }
}

void UnmountUserHives(std::vector<UserContext> &userContexts)
{
   for (UserContext &user : userContexts) {
      UnmountHive(user.UserClassesKey, user.UserClassesLoaded, user.UserClassesKeyPath);
      UnmountHive(user.UserHiveKey, user.UserHiveLoaded, user.UserHiveKeyPath);
   }
}
