// The demo: an old vendor's installation in a fresh prefix, the package installed by
// msiexec with its own document, and what the migration did: the macro section as the
// immediate action wrote it back, the log, the migrated keys and the user's file
// associations.
#include <windows.h>

#include <cstdio>
#include <string>

#include "MsiScenario.h"
#include "ProgIdIdentity.h"

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
   WriteString(HKEY_LOCAL_MACHINE, OldClientKey, L"DataFolder", L"C:\\ProgramData\\Eldrix\\Vantora Client");
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

// The old client registered .pdf for one application of one server under a ProgId computed
// from them; the user's preference document remembers both. The classes hive is mounted
// here, as for a logged-on user, so that what the action writes stays visible: Wine doesn't
// write a mounted hive back to its file.
std::wstring SeedOldAssociations(const std::wstring &profile)
{
   using namespace scenario;
   const wchar_t server[] = L"{6F1C2A3B-4D5E-4F60-8172-93A4B5C6D7E8}";
   const std::wstring progId = ComputeProgId(server, L"acrord", L"PDF");
   const std::wstring hive = profile + L"\\AppData\\Local\\Microsoft\\Windows\\UsrClass.dat";
   const std::wstring mount = CurrentUserSid() + L"_Classes";
   const std::wstring pdf = L".pdf\\OpenWithProgIds";
   SetPrivilege(SE_BACKUP_NAME, true);
   SetPrivilege(SE_RESTORE_NAME, true);
   SaveHiveFile(hive, {{pdf, TextValue(progId, L"")},
                       {pdf, TextValue(L"Other.App", L"")},
                       {progId + L"\\shell\\open", TextValue(L"FriendlyAppName", L"Eldrix Vantora Client")},
                       {progId + L"\\DefaultIcon", TextValue(L"", L"C:\\Program Files\\Eldrix\\reader.ico")}});
   RegLoadKeyW(HKEY_USERS, mount.c_str(), hive.c_str());
   WriteFileAt(profile + L"\\AppData\\Roaming\\Eldrix\\prefs.xml",
               "<Root><RecentServer serverGuid='" + Narrow(server) +
                  "'><FileRedirection><AppExtensionInfo AppId='acrord'><Extension Name='pdf' Display-name='PDF'/>"
                  "</AppExtensionInfo></FileRedirection></RecentServer></Root>");
   return mount;
}

void PrintTree(const wchar_t *title, const std::wstring &path, HKEY root = HKEY_LOCAL_MACHINE)
{
   const char *rootName = root == HKEY_CURRENT_USER ? "HKCU" : root == HKEY_USERS ? "HKU" : "HKLM";
   printf("\n-- %s: %s\\%s\n", scenario::Narrow(title).c_str(), rootName,
          scenario::Narrow(path).c_str());
   const auto lines = scenario::DumpTree(root, path);
   if (lines.empty()) {
      printf("   (no such key)\n");
   }
   for (const std::string &line : lines) {
      printf("   %s\n", line.c_str());
   }
}

// The MigrationVars element of the document at `path`, one macro a line.
std::string MacroSection(const std::wstring &path)
{
   const std::string text = scenario::ReadFileBytes(path);
   const size_t begin = text.find("<MigrationVars");
   const size_t end = text.find("</MigrationVars>");
   if (begin == std::string::npos || end == std::string::npos) {
      return "   (no macro section in " + scenario::Narrow(path) + ")";
   }
   std::string section = "   " + text.substr(begin, end + 16 - begin);
   for (size_t at = 0; (at = section.find("><", at)) != std::string::npos; at += 5) {
      section.replace(at, 2, ">\n   <");
   }
   return section;
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
   const std::wstring classes = SeedOldAssociations(profile);
   PrintTree(L"old client settings", OldClientKey);
   PrintTree(L"old client policies", OldPolicyKey);
   PrintTree(L"old settings of the installing user", OldClientKey, HKEY_CURRENT_USER);
   PrintTree(L"file associations of the installing user", classes, HKEY_USERS);

   printf("\n== The macro section of the package's vtrMigrateConf.xml\n%s\n",
          MacroSection(work + L"\\sample.xml").c_str());

   // A copy of the document is taken right after ExtractMigrConfig wrote it back: the user
   // action deletes the original at its end.
   const std::wstring package = work + L"\\demo.msi";
   const std::wstring kept = work + L"\\written-back.xml";
   scenario::PackageChanges changes;
   changes.keptDocument = kept;
   std::string error;
   if (!scenario::BuildPackage(basePackage, package, changes, error)) {
      fprintf(stderr, "%s\n", error.c_str());
      return 1;
   }

   const std::wstring properties = L"SERVERURL=https://connect.corvane.example";
   printf("\n== Installing %s with msiexec /qn %s\n", scenario::Narrow(package).c_str(),
          scenario::Narrow(properties).c_str());
   const scenario::InstallResult result = scenario::InstallPackage(package, properties);
   printf("msiexec exit code: %lu\n", result.msiexecExitCode);
   for (const auto &[action, outcome] : result.actions) {
      if (action.rfind(L"Set", 0) == 0 || action == L"InstallFinalize" || action == L"KeepMigrationDocument") {
         continue;
      }
      printf("custom action %-20s %s\n", scenario::Narrow(action).c_str(),
             outcome.ran ? ("returned " + std::to_string(outcome.code)).c_str() : "did not run");
   }
   const auto published = result.propertiesSet.find(L"MigrateConfigFilepath");
   printf("MigrateConfigFilepath: %s\n",
          published == result.propertiesSet.end() ? "(not set)" : scenario::Narrow(published->second).c_str());

   printf("\n== The macro section as ExtractMigrConfig wrote it back\n%s\n", MacroSection(kept).c_str());

   printf("\n== %s\n%s", scenario::Narrow(scenario::MigrationLogPath()).c_str(), result.migrationLog.c_str());

   PrintTree(L"new client settings", L"Software\\Corvane\\Client");
   PrintTree(L"new client policies", L"Software\\Policies\\Corvane\\Client");
   PrintTree(L"new settings of the installing user", L"Software\\Corvane\\Client", HKEY_CURRENT_USER);
   PrintTree(L"file associations of the installing user", classes, HKEY_USERS);
   printf("\n-- preference file %s%s:\n   %s\n", scenario::Narrow(profile).c_str(),
          scenario::Narrow(NewPreferences).c_str(),
          scenario::PathExists(profile + NewPreferences) ? scenario::ReadFileBytes(profile + NewPreferences).c_str()
                                                         : "(not there)");
   const auto marker = scenario::ReadValue(HKEY_LOCAL_MACHINE, L"Software\\Corvane", L"MigrationDone");
   printf("\nmarker HKLM\\Software\\Corvane\\MigrationDone: %s\n",
          marker && marker->data.size() == 4 && marker->data[0] == 1 ? "1 (set)" : "not set");
   if (published != result.propertiesSet.end()) {
      printf("document %s after the install: %s\n", scenario::Narrow(published->second).c_str(),
             GetFileAttributesW(published->second.c_str()) == INVALID_FILE_ATTRIBUTES ? "deleted" : "still there");
   }
   RegUnLoadKeyW(HKEY_USERS, classes.c_str());
   return 0;
}
