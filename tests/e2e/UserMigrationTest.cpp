// The per-user pass inside a real install: the installing user's hives with their own
// macros, the file rules, and prefs.txt in every profile of the machine's list. Wine lists
// no local accounts at the level asked for, so the installing user comes in explicitly.
#include "ScenarioFixture.h"

namespace {

using Lines = std::vector<std::string>;
using namespace scenario;

const std::wstring Profile = _wgetenv(L"USERPROFILE"), Roaming = Profile + L"\\AppData\\Roaming";
const std::wstring Classes = Profile + L"\\AppData\\Local\\Microsoft\\Windows\\UsrClass.dat";
const std::wstring With = L"C:\\users\\vtr-e2e\\with", Without = L"C:\\users\\vtr-e2e\\without";
const std::wstring OldPrefs = L"\\Eldrix\\Eldrix Vantora Glint Client\\prefs.txt";
const std::wstring NewPrefs = L"\\Corvane\\Corvane Vantora Client\\prefs.txt";

class UserScenario : public InstallScenario
{
protected:
   void TearDown() override
   {
      InstallScenario::TearDown();
      for (const std::wstring &path : {Profile + L"\\NTUSER.DAT", Classes, Roaming + L"\\Eldrix", Roaming + L"\\Corvane",
                                       std::wstring(L"C:\\users\\vtr-e2e")}) {
         RemoveTree(path);
      }
      for (const wchar_t *key : {L"Software\\Eldrix, Inc.", L"Software\\Corvane"}) {
         DeleteTree(HKEY_CURRENT_USER, key);
      }
      DeleteTree(HKEY_LOCAL_MACHINE, ProfileKey(L"S-1-5-21-5-5-5-3001"));
      DeleteTree(HKEY_LOCAL_MACHINE, ProfileKey(L"S-1-5-21-5-5-5-3002"));
   }
};

TEST_F(UserScenario, InstallingUserHivesFilesAndPreferenceFiles)
{
   // The main hive is the live one, only opened where its file is; the classes hive is loaded.
   ASSERT_TRUE(WriteFileAt(Profile + L"\\NTUSER.DAT", ""));
   ASSERT_TRUE(SetPrivilege(SE_BACKUP_NAME, true) &&
               SaveHiveFile(Classes, {{L"Software\\Classes", TextValue(L"x", L"")},
                                      {L"VantoraTest.Document", TextValue(L"Friendly", L"Vantora document")}}));
   WriteString(HKEY_CURRENT_USER, L"Software\\Eldrix, Inc.\\Vantora Client", L"Server", L"old");
   // Two more profiles, one listed with an environment reference.
   WriteValue(HKEY_LOCAL_MACHINE, ProfileKey(L"S-1-5-21-5-5-5-3001"),
              TextValue(L"ProfileImagePath", L"%SystemDrive%\\users\\vtr-e2e\\with", REG_EXPAND_SZ));
   WriteValue(HKEY_LOCAL_MACHINE, ProfileKey(L"S-1-5-21-5-5-5-3002"), TextValue(L"ProfileImagePath", Without));
   const struct {
      std::wstring path;
      const char *before, *after; // null: absent
   } files[] = {
      {Roaming + L"\\Eldrix\\client.cfg", "cfg", "cfg"},
      {Roaming + L"\\Corvane\\New\\client.cfg", nullptr, "cfg"},
      {Roaming + L"\\Corvane\\kept.cfg", "kept", "kept"},
      {Roaming + L"\\Corvane\\None", nullptr, nullptr},
      {Roaming + OldPrefs, "mine", "mine"},
      {Roaming + NewPrefs, "stale", "mine"},
      {With + L"\\AppData\\Roaming" + OldPrefs, "with", "with"},
      {With + L"\\AppData\\Roaming" + NewPrefs, nullptr, "with"},
      {Without + L"\\AppData\\Roaming\\Corvane", nullptr, nullptr},
      {Without + L"\\AppData\\Roaming\\x", "", ""},
   };
   for (const auto &f : files) {
      ASSERT_TRUE(!f.before || WriteFileAt(f.path, f.before));
   }

   const auto result = Install(DeferredWithDocument(
      "<VantoraMigration><MigrationVars><Macro Name=\"Old\" Value=\"Eldrix\"/></MigrationVars><UsersMigration>\n"
      "<RegistryKey Root=\"HKCU\" SourcePath=\"Software\\[$Old], Inc.\\Vantora Client\" DestPath=\"Software\\Corvane\""
      " Action=\"Overwrite\"><Value OldName=\"Server\" Action=\"Overwrite\" NewValue=\"[$AppData]\\x\"/></RegistryKey>\n"
      "<RegistryKey Root=\"HKUC\" SourcePath=\"VantoraTest.Document\" DestPath=\"CorvaneTest.Document\""
      " Action=\"Overwrite\"/>\n</UsersMigration><FileMigration>\n"
      "<ConfigFile SourcePath=\"[$AppData]\\[$Old]\\client.cfg\" DestPath=\"[$AppData]\\Corvane\\New\\client.cfg\"/>\n"
      "<ConfigFile SourcePath=\"[$AppData]\\[$Old]\\client.cfg\" DestPath=\"[$AppData]\\Corvane\\kept.cfg\"/>\n"
      "<ConfigFile SourcePath=\"[$AppData]\\[$Old]\\none.cfg\" DestPath=\"[$AppData]\\Corvane\\None\\none.cfg\"/>\n"
      "<ConfigFile SourcePath=\"[$AppData]\\[$Old]\\client.cfg\" DestPath=\"client.cfg\"/>\n"
      "</FileMigration></VantoraMigration>\n"));

   EXPECT_EQ(result.actions.at(L"MigrateVantoraUser").code, 0u);
   EXPECT_TRUE(FileIsFree(Classes)) << "the loaded classes hive is let go";
   EXPECT_EQ(DumpTree(HKEY_CURRENT_USER, L"Software\\Corvane"),
             (Lines{"Corvane", "Corvane: Server = REG_SZ \"" + Narrow(Roaming) + "\\x\""}));
   for (const auto &f : files) {
      EXPECT_EQ(PathExists(f.path) ? ReadFileBytes(f.path) : "(absent)", f.after ? f.after : "(absent)")
         << Narrow(f.path);
   }
   const std::wstring account = CurrentAccountName();
   const std::vector<std::pair<std::string, std::wstring>> names = {
      {"%U", account.substr(account.find(L'\\') + 1)}, {"%S", CurrentUserSid()}, {"%R", Roaming}, {"%W", With}};
   Lines expected;
   for (const char *line : {
           "INFO Profile c:\\users\\%U\\AppData\\Local\\Microsoft\\Windows\\UsrClass.dat opened from %S_Classes.",
           "INFO   [Found] Src Path: %R\\Eldrix\\Eldrix Vantora Glint Client",
           "INFO   [Found] Src Path: %W\\AppData\\Roaming\\Eldrix\\Eldrix Vantora Glint Client",
           "INFO   [Missing] Src Path: C:\\users\\vtr-e2e\\without\\AppData\\Roaming\\Eldrix\\Eldrix Vantora Glint Client",
           "INFO Migrated Server to Server.",
           "INFO Migrated Friendly to Friendly.", // Wine doesn't write a loaded hive back to its file
           "WARN Failed to migrate FA config for user %U",
           "ERRO Failed to migrate file %R\\Eldrix\\client.cfg to %R\\Corvane\\kept.cfg.Last Error: (code: 80)",
           "ERRO Failed to migrate file %R\\Eldrix\\client.cfg to %R\\Corvane\\kept.cfg.Last Error: (code: 80)",
           "ERRO Failed to get %R\\Eldrix\\none.cfg file SD, error = 0x00000002.",
           "ERRO Failed to migrate file %R\\Eldrix\\none.cfg to %R\\Corvane\\None\\none.cfg.Last Error: (code: 2)",
           "ERRO Failed to read parent folder of client.cfg",
           "ERRO Failed to migrate file %R\\Eldrix\\client.cfg to client.cfg.Last Error: (code: 161)",
           "INFO Unload keyPath %S_Classes succeed.",
        }) {
      expected.push_back(Fill(line, names));
   }
   // What the user action reports of the hives, the profiles' report, the rules and files, in order.
   EXPECT_EQ(EntriesStartingWith(WithoutSystemText(result.logEntries),
                                 {"INFO Profile", "INFO  ", "INFO Migrated", "WARN Failed to migrate",
                                  "ERRO Failed to migrate", "ERRO Failed to get", "ERRO Failed to read", "INFO Unload"}),
             expected);
}

} // namespace
