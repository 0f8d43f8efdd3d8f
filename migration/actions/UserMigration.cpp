#include <windows.h>
#include <msiquery.h>

#include <vector>

#include "HandleGuards.h"
#include "actions/CustomActions.h"
#include "associations/AssociationRewrite.h"
#include "files/FileMigration.h"
#include "log/MigrationLog.h"
#include "macros/MacroExpansion.h"
#include "registry/KeyMigration.h"
#include "users/UserContext.h"

namespace {

// Root words compare exactly: "hklm" belongs to no pass.
bool IsRoot(const RegistryKeyRule &rule, const wchar_t *root)
{
   return rule.Root == root;
}

void RunMachinePass(const std::vector<RegistryKeyRule> &rules)
{
   for (const RegistryKeyRule &rule : rules) {
      if (IsRoot(rule, L"HKLM")) {
         MigrateRegistryKeyRule(HKEY_LOCAL_MACHINE, OldVendorKeyPath, rule);
      } else if (IsRoot(rule, L"HKCR")) {
         MigrateRegistryKeyRule(HKEY_CLASSES_ROOT, std::wstring(), rule);
      }
   }
}

void RunUserRegistryPass(const std::vector<RegistryKeyRule> &rules, const UserContext &user)
{
   for (const RegistryKeyRule &rule : rules) {
      if (IsRoot(rule, L"HKCU")) {
         MigrateRegistryKeyRule(user.UserHiveKey, OldVendorKeyPath, rule);
      } else if (IsRoot(rule, L"HKUC")) {
         MigrateRegistryKeyRule(user.UserClassesKey, std::wstring(), rule);
      }
   }
}

void MigrateUserFiles(const std::vector<ConfigFileRule> &rules, const UserContext &user)
{
   // Each user starts from the globally expanded text: the per-user copy is thrown away.
   std::vector<ConfigFileRule> userRules;
   ExpandConfigFileRulesForUser(rules, user.Macros, userRules);

   for (const ConfigFileRule &rule : userRules) {
      if (!CopyFileWithOwner(rule.SourcePath, rule.DestPath)) {
         LogMessage(LogLevelErrorWithCode, "Failed to migrate file %S to %S.", rule.SourcePath.c_str(),
                    rule.DestPath.c_str());
         continue;
      }
      if (MigrateFileAssociations(user, user.UserHiveKey, user.UserClassesKey, rule.SourcePath, rule.DestPath)) {
         LogMessage(LogLevelInfo, "Migrated FA config for user %S based on file %S", user.UserName.c_str(),
                    rule.SourcePath.c_str());
      } else {
         LogMessage(LogLevelWarning, "Failed to migrate FA config for user %S", user.UserName.c_str());
      }
   }
}

void WriteMigrationMarker()
{
   UniqueHkey key;
   const LSTATUS status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, NewVendorKeyPath.c_str(), 0, nullptr, 0, KEY_WRITE,
                                          nullptr, key.put(), nullptr);
   if (status != ERROR_SUCCESS) {
      LogMessage(LogLevelError, "Installer can't open key HKLM:%S for write, error = 0x%08X.",
                 NewVendorKeyPath.c_str(), status);
      return;
   }
   const DWORD done = 1;
   const LSTATUS setStatus = RegSetValueExW(key.get(), MigrationDoneValueName.c_str(), 0, REG_DWORD,
                                            reinterpret_cast<const BYTE *>(&done), sizeof(done));
   key.reset();
   if (setStatus != ERROR_SUCCESS) {
      LogMessage(LogLevelError, "Installer can't set migration flag, error = 0x%08X.", setStatus);
   }
}

} // namespace

extern "C" UINT __stdcall MigrateVantoraUser(MSIHANDLE hInstall)
{
   FunctionTrace trace("MigrateVantoraUser");

   std::wstring customActionData;
   if (!ReadCustomActionData(hInstall, customActionData)) {
      LogMessage(LogLevelError, "Failed to fetch CustomActionData property.");
      return ERROR_INSTALL_FAILURE;
   }

   size_t position = 0;
   const std::wstring configPath = NextDelimitedToken(customActionData, L";", position);
   if (configPath.empty()) {
      LogMessage(LogLevelError, "Failed to extract xml file path from CustomActionData.");
      return ERROR_INSTALL_FAILURE;
   }
   const std::wstring currentUserSid = NextDelimitedToken(customActionData, L";", position);
   if (currentUserSid.empty()) {
      LogMessage(LogLevelError, "Failed to extract logged in user sid path.");
      return ERROR_INSTALL_FAILURE;
   }

   MigrationConfig config;
   const UINT result = LoadMigrationConfiguration(hInstall, config, configPath);
   if (result != ERROR_SUCCESS) {
      LogMessage(LogLevelError, "Load migration configuration for users failed.");
      return result;
   }

   ExpandRegistryKeyRules(config.UserKeys, config.Macros);
   ExpandConfigFileRules(config.ConfigFiles, config.Macros);

   RunMachinePass(config.UserKeys);

   std::vector<UserContext> users;
   EnumerateUsers(users, currentUserSid);

   std::vector<std::wstring> profilePaths;
   EnumerateProfilePaths(profilePaths);
   MigratePreferenceFiles(profilePaths);

   for (const UserContext &user : users) {
      LogMessage(LogLevelInfo, "User %S macro table:", user.UserName.c_str());
      LogMacroTable(user.Macros);
      // Expanded in place on the shared list: the first user's values stay in the rules
      // for everyone after, which installed packages have always relied on.
      ExpandRegistryKeyRules(config.UserKeys, user.Macros);
      RunUserRegistryPass(config.UserKeys, user);
      MigrateUserFiles(config.ConfigFiles, user);
   }

   UnmountUserHives(users);
   DeleteFileW(configPath.c_str());
   WriteMigrationMarker();
   return ERROR_SUCCESS;
}
