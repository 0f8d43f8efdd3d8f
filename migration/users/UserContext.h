#pragma once
#include <windows.h>

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

// Appends every user to migrate, with hives mounted and macro tables built.
void EnumerateUsers(std::vector<UserContext> &userContexts, const std::wstring &currentUserSid);

// Closes and unloads what EnumerateUsers mounted.
void UnmountUserHives(std::vector<UserContext> &userContexts);
