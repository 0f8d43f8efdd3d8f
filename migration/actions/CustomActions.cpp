#include "actions/CustomActions.h"

#include <msiquery.h>

#include <stdexcept>

#include "HandleGuards.h"
#include "actions/DatabaseExtraction.h"
#include "config/ConfigLoader.h"
#include "config/MacroWriteBack.h"
#include "log/MigrationLog.h"
#include "macros/MacroExpansion.h"
#include "registry/KeyMigration.h"

const std::wstring MigrationDoneValueName = L"MigrationDone";
const std::wstring NewVendorKeyPath = L"Software\\Corvane";
const std::wstring OldVendorKeyPath = L"Software\\Eldrix, Inc.";

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID)
{
   if (reason == DLL_PROCESS_ATTACH) {
      DisableThreadLibraryCalls(module);
   }
   return TRUE;
}

bool IsMigrationDone()
{
   UniqueHkey key;
   if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, NewVendorKeyPath.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS) {
      return false;
   }
   // Only the number counts: neither the query's status nor the value's type is looked at,
   // so a missing or oversized value leaves 0 behind.
   DWORD done = 0;
   DWORD size = sizeof(done);
   RegQueryValueExW(key.get(), MigrationDoneValueName.c_str(), nullptr, nullptr,
                    reinterpret_cast<BYTE *>(&done), &size);
   return done == 1;
}

void LogMacroTable(const MacroTable &macros)
{
   for (const MacroEntry &macro : macros) {
      LogMessage(LogLevelInfo, "Macro: %S Variable: %S Value: %S.", macro.Name.c_str(), macro.Variable.c_str(),
                 macro.Value.c_str());
   }
}

bool ReadCustomActionData(MSIHANDLE hInstall, std::wstring &data)
{
   wchar_t buffer[CustomActionDataBufferSize] = {};
   DWORD size = CustomActionDataBufferSize;
   if (MsiGetPropertyW(hInstall, L"CustomActionData", buffer, &size) != ERROR_SUCCESS) {
      return false;
   }
   data = buffer;
   return true;
}

std::wstring NextDelimitedToken(const std::wstring &source, const std::wstring &delimiter, size_t &position)
{
   if (position > source.size()) {
      throw std::out_of_range("NextDelimitedToken: position beyond the end of the source");
   }
   const size_t found = source.find(delimiter, position);
   if (found == std::wstring::npos) {
      std::wstring field = source.substr(position);
      position = source.size();
      return field;
   }
   std::wstring field = source.substr(position, found - position);
   // One character past the match, whatever the delimiter's length.
   position = found + 1;
   return field;
}

namespace {

enum class PrivilegeFailure { None, Lookup, Adjust };

PrivilegeFailure AdjustPrivilege(HANDLE token, const wchar_t *privilegeName, int enable)
{
   LUID luid;
   if (!LookupPrivilegeValueW(nullptr, privilegeName, &luid)) {
      return PrivilegeFailure::Lookup;
   }

   TOKEN_PRIVILEGES privileges = {};
   privileges.PrivilegeCount = 1;
   privileges.Privileges[0].Luid = luid;
   privileges.Privileges[0].Attributes = enable ? SE_PRIVILEGE_ENABLED : 0;

   // A token that lacks the privilege still succeeds here (ERROR_NOT_ALL_ASSIGNED is not
   // looked for); the operations that need it fail later, each with its own line.
   if (!AdjustTokenPrivileges(token, FALSE, &privileges, sizeof(TOKEN_PRIVILEGES), nullptr, nullptr)) {
      return PrivilegeFailure::Adjust;
   }
   return PrivilegeFailure::None;
}

} // namespace

bool SetProcessPrivilege(HANDLE token, const wchar_t *privilegeName, int enable)
{
   switch (AdjustPrivilege(token, privilegeName, enable)) {
   case PrivilegeFailure::Lookup:
      LogMessage(LogLevelErrorWithCode, "LookupPrivilegeValue error.");
      return false;
   case PrivilegeFailure::Adjust:
      LogMessage(LogLevelErrorWithCode, "AdjustTokenPrivileges failed.");
      return false;
   case PrivilegeFailure::None:
      break;
   }
   return true;
}

namespace {

struct PrivilegeStep {
   const wchar_t *name;
   const char *failure;
};

constexpr PrivilegeStep RequiredPrivileges[] = {
   {L"SeBackupPrivilege", "Error when enabling backup privilege."},
   {L"SeRestorePrivilege", "Error when enabling restore privilege."},
   {L"SeTakeOwnershipPrivilege", "Error when enabling take_ownership privilege."},
};

bool EnableMigrationPrivileges()
{
   UniqueHandle token;
   if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, token.put())) {
      LogMessage(LogLevelErrorWithCode, "Error when opening current process token.");
      return false;
   }
   for (const PrivilegeStep &step : RequiredPrivileges) {
      if (!SetProcessPrivilege(token.get(), step.name, 1)) {
         LogMessage(LogLevelErrorWithCode, step.failure);
         return false;
      }
   }
   // The installer's service account holds this one disabled. Enabled, it lets the key
   // migration open keys for their audit settings, which no DACL can grant; a token without
   // it migrates exactly as it would otherwise, so whatever happens here goes unsaid.
   AdjustPrivilege(token.get(), L"SeSecurityPrivilege", 1);
   return true;
}

} // namespace

UINT LoadMigrationConfiguration(MSIHANDLE, MigrationConfig &config, const std::wstring &path)
{
   FunctionTrace trace("LoadMigrationConfiguration");

   if (IsMigrationDone()) {
      LogMessage(LogLevelInfo, "The previous migration done, pass migration services.");
      return ERROR_SUCCESS;
   }

   if (!EnableMigrationPrivileges()) {
      LogMessage(LogLevelError, "Failed to enable process privileges.");
      return ERROR_INSTALL_FAILURE;
   }

   LogMessage(LogLevelInfo, "Parsing migration config file %S.", path.c_str());
   if (!LoadMigrationDocument(path, config)) {
      LogMessage(LogLevelError, "Installer can't load configuration file.");
      return ERROR_FILE_INVALID;
   }

   LogMessage(LogLevelInfo, "Global macro table write to XML:");
   LogMacroTable(config.Macros);
   return ERROR_SUCCESS;
}

extern "C" UINT __stdcall ExtractMigrConfig(MSIHANDLE hInstall)
{
   FunctionTrace trace("ExtractMigrConfig");

   if (IsMigrationDone()) {
      LogMessage(LogLevelInfo, "Migration has already been performed; exiting.");
      return ERROR_SUCCESS;
   }

   const std::wstring path = ExtractFileFromTable(hInstall, L"Binary", L"vtrMigrateConf.xml");
   if (path.empty()) {
      LogMessage(LogLevelError, "Installer can't extract configuration file from database.");
      return ERROR_FILE_NOT_FOUND;
   }

   if (!UpdateXmlMacros(hInstall, path)) {
      LogMessage(LogLevelError, "Failed to update XML macros section.");
      return ERROR_INSTALL_FAILED;
   }

   const UINT status = MsiSetPropertyW(hInstall, L"MigrateConfigFilepath", path.c_str());
   if (status != ERROR_SUCCESS) {
      LogMessage(LogLevelError, "Failed to Set installer Property, result = 0x%08X", status);
      return ERROR_INSTALL_FAILURE;
   }
   return ERROR_SUCCESS;
}

extern "C" UINT __stdcall MigrateVantoraSvc(MSIHANDLE hInstall)
{
   FunctionTrace trace("MigrateVantoraSvc");

   // The whole value is the path; a ';' in it has no meaning for this action.
   std::wstring path;
   if (!ReadCustomActionData(hInstall, path)) {
      LogMessage(LogLevelError, "Failed to fetch migration config file.");
      return ERROR_INSTALL_FAILURE;
   }

   MigrationConfig config;
   const UINT result = LoadMigrationConfiguration(hInstall, config, path);
   if (result != ERROR_SUCCESS) {
      LogMessage(LogLevelError, "Load migration configuration for services failed.");
      return result;
   }

   ExpandRegistryKeyRules(config.ServiceKeys, config.Macros);
   // Service rules run against the machine root whatever their Root says.
   for (const RegistryKeyRule &rule : config.ServiceKeys) {
      MigrateRegistryKeyRule(HKEY_LOCAL_MACHINE, OldVendorKeyPath, rule);
   }
   return ERROR_SUCCESS;
}
