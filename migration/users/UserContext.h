#pragma once
#include <windows.h>
#include <dsgetdc.h>
#include <lm.h>

#include <string>
#include <vector>

#include "config/MigrationConfig.h"

// One user being migrated. The key handles are plain copies: they stay open while the
// record is copied around and are closed only when the hives are unmounted.
struct UserContext {
   std::wstring UserName;
   std::wstring ProfilePath;
   std::wstring UserHivePath;
   std::wstring UserHiveKeyPath;
   std::wstring UserClassesPath;
   std::wstring UserClassesKeyPath;
   std::wstring UserSid;
   std::wstring UserDomain;
   bool UserHiveLoaded = false;
   HKEY UserHiveKey = nullptr;
   bool UserClassesLoaded = false;
   HKEY UserClassesKey = nullptr;
   MacroTable Macros;
};

// The account and hive calls of this module that Wine cannot answer the way a Windows
// machine does: its NetUserEnum knows levels 0 and 20 only (we ask for level 1), its account
// lookups know the current user alone, it has no domain controller, and it never refuses to
// unload a hive whose keys are closed. Tests replace entries to reach those answers; the
// product never changes the table.
struct UserPlatformCalls {
   decltype(&::NetUserEnum) NetUserEnum;
   decltype(&::LookupAccountNameW) LookupAccountNameW;
   decltype(&::LookupAccountSidW) LookupAccountSidW;
   decltype(&::DsGetDcNameW) DsGetDcNameW;
   decltype(&::RegUnLoadKeyW) RegUnLoadKeyW;
};
extern UserPlatformCalls userPlatform;

// Appends every enabled local account that has a profile, in the platform's order, then
// the installing user if the accounts didn't include them; hives mounted, macros built.
void EnumerateUsers(std::vector<UserContext> &userContexts, const std::wstring &currentUserSid);
// "domain\name" of a string SID, the domain in its DNS form when asked and known; empty
// when the SID can't be resolved.
std::wstring GetAccountNameForSid(const std::wstring &sid, bool useDnsDomain);

// Below HKEY_LOCAL_MACHINE, with its trailing backslash: one sub-key per profile, named by SID.
extern const std::wstring ProfileListKeyPath;

// Fills the hive paths of a record that has UserName and UserSid, and mounts both hives.
void OpenUserHives(UserContext &userContext);
std::wstring GetProfilePathForSid(const std::wstring &sid);
std::wstring BuildClassesHivePath(const std::wstring &userName);
// Opens the hive at HKEY_USERS\keyPath, loading it from filePath first if nobody has;
// `loaded` says whether it must be unloaded again. Leaves both outputs alone when the file
// is missing.
bool MountUserHive(const std::wstring &keyPath, const std::wstring &filePath, HKEY &key, bool &loaded);
bool FileExists(const std::wstring &path);
bool UnloadHiveKey(const std::wstring &keyPath);
// Closes every hive key of the list and unloads what this run loaded.
void UnmountUserHives(std::vector<UserContext> &userContexts);
