// The demo: an old vendor's installation in a fresh prefix, the package installed by
// msiexec, and what the migration did.
#include <windows.h>

#include <cstdio>
#include <string>

#include "MsiScenario.h"

namespace {

const wchar_t OldClientKey[] = L"Software\\Eldrix, Inc.\\Vantora Client";
const wchar_t OldPolicyKey[] = L"Software\\Policies\\Eldrix, Inc.\\Vantora Client";
const wchar_t OldPreferences[] = L"\\AppData\\Roaming\\Eldrix\\Eldrix Vantora Glint Client\\prefs.txt";
const wchar_t NewPreferences[] = L"\\AppData\\Roaming\\Corvane\\Corvane Vantora Client\\prefs.txt";

void SeedOldInstallation()
{
   using namespace scenario;
   WriteString(HKEY_LOCAL_MACHINE, OldClientKey, L"ServerUrl", L"https://connect.example.net");
   WriteString(HKEY_LOCAL_MACHINE, OldClientKey, L"InstallPath", L"C:\\Program Files\\Eldrix\\Vantora Client");
   WriteDword(HKEY_LOCAL_MACHINE, OldClientKey, L"LogLevel", 5);
   WriteDword(HKEY_LOCAL_MACHINE, OldClientKey, L"LegacyTray", 1);
   WriteDword(HKEY_LOCAL_MACHINE, std::wstring(OldClientKey) + L"\\Usb", L"AutoConnect", 1);
   WriteString(HKEY_LOCAL_MACHINE, std::wstring(OldClientKey) + L"\\Usb\\Filters", L"Exclude", L"vid-0781");
   WriteString(HKEY_LOCAL_MACHINE, std::wstring(OldClientKey) + L"\\Printing", L"DefaultPrinter", L"Office 3F");
   WriteDword(HKEY_LOCAL_MACHINE, OldPolicyKey, L"AllowSavePassword", 0);
}

// What the installing user left behind: settings in their own hive and the preference file.
void SeedOldUserSettings(const std::wstring &profile)
{
   using namespace scenario;
   // A Windows profile holds its NTUSER.DAT; Wine keeps the user's hive elsewhere. An empty
   // file in its place lets the action find the hive, which is loaded already, and open it.
   WriteFileAt(profile + L"\\NTUSER.DAT", "");
   WriteString(HKEY_CURRENT_USER, OldClientKey, L"RecentServer", L"https://connect.example.net");
   WriteDword(HKEY_CURRENT_USER, OldClientKey, L"ShowTrayIcon", 1);
   WriteFileAt(profile + OldPreferences, "RecentServer=connect.example.net\r\n");
}

void PrintTree(const wchar_t *title, const std::wstring &path, HKEY root = HKEY_LOCAL_MACHINE)
{
   printf("\n-- %s: %s\\%s\n", scenario::Narrow(title).c_str(), root == HKEY_CURRENT_USER ? "HKCU" : "HKLM",
          scenario::Narrow(path).c_str());
   const auto lines = scenario::DumpTree(root, path);
   if (lines.empty()) {
      printf("   (no such key)\n");
   }
   for (const std::string &line : lines) {
      printf("   %s\n", line.c_str());
   }
}

} // namespace

int wmain(int argc, wchar_t **argv)
{
   if (argc != 3) {
      fprintf(stderr, "usage: demo BASE_PACKAGE WORK_DIRECTORY\n");
      return 2;
   }
   const std::wstring basePackage = argv[1];
   const std::wstring work = argv[2];
   CreateDirectoryW(work.c_str(), nullptr);

   printf("== Seeding the old vendor's installation\n");
   const std::wstring profile = _wgetenv(L"USERPROFILE");
   SeedOldInstallation();
   SeedOldUserSettings(profile);
   PrintTree(L"old client settings", OldClientKey);
   PrintTree(L"old client policies", OldPolicyKey);
   PrintTree(L"old settings of the installing user", OldClientKey, HKEY_CURRENT_USER);

   // Taking the document out of the package and resolving its installer macros are not
   // built yet, so the deferred actions are handed the sample document directly.
   const std::wstring document = work + L"\\vtrMigrateConf.xml";
   const std::wstring package = work + L"\\demo.msi";
   const std::string xml = scenario::ReadFileBytes(work + L"\\sample.xml");
   FILE *file = _wfopen(document.c_str(), L"wb");
   if (file == nullptr) {
      fprintf(stderr, "can't write the document\n");
      return 1;
   }
   fwrite(xml.data(), 1, xml.size(), file);
   fclose(file);

   scenario::PackageChanges changes;
   changes.configXml = xml;
   changes.properties.push_back({L"MigrateConfigFilepath", document});
   changes.skippedActions.push_back(L"ExtractMigrConfig");
   std::string error;
   if (!scenario::BuildPackage(basePackage, package, changes, error)) {
      fprintf(stderr, "%s\n", error.c_str());
      return 1;
   }

   printf("\n== Installing %s with msiexec /qn\n", scenario::Narrow(package).c_str());
   const scenario::InstallResult result = scenario::InstallPackage(package);
   printf("msiexec exit code: %lu\n", result.msiexecExitCode);
   for (const auto &[action, outcome] : result.actions) {
      if (action.rfind(L"Set", 0) == 0 || action == L"InstallFinalize") {
         continue;
      }
      printf("custom action %-20s %s\n", scenario::Narrow(action).c_str(),
             outcome.ran ? ("returned " + std::to_string(outcome.code)).c_str() : "did not run");
   }

   printf("\n== %s\n%s", scenario::Narrow(scenario::MigrationLogPath()).c_str(), result.migrationLog.c_str());

   PrintTree(L"new client settings", L"Software\\Corvane\\Client");
   PrintTree(L"new client policies", L"Software\\Policies\\Corvane\\Client");
   PrintTree(L"new settings of the installing user", L"Software\\Corvane\\Client", HKEY_CURRENT_USER);
   printf("\n-- preference file %s%s:\n   %s\n", scenario::Narrow(profile).c_str(),
          scenario::Narrow(NewPreferences).c_str(),
          scenario::PathExists(profile + NewPreferences) ? scenario::ReadFileBytes(profile + NewPreferences).c_str()
                                                         : "(not there)");
   const auto marker = scenario::ReadValue(HKEY_LOCAL_MACHINE, L"Software\\Corvane", L"MigrationDone");
   printf("\nmarker HKLM\\Software\\Corvane\\MigrationDone: %s\n",
          marker && marker->data.size() == 4 && marker->data[0] == 1 ? "1 (set)" : "not set");
   printf("document %s after the install: %s\n", scenario::Narrow(document).c_str(),
          GetFileAttributesW(document.c_str()) == INVALID_FILE_ATTRIBUTES ? "deleted" : "still there");
   return 0;
}
