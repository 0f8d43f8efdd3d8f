// File associations inside real installs: the installing user's copied preference document
// read, and the user's classes hive rewritten. The test mounts that hive itself, as for a
// logged-on user, so that what the action did stays visible (Wine doesn't write a hive back).
#include "ProgIdIdentity.h"
#include "ScenarioFixture.h"

namespace {

using Lines = std::vector<std::string>;
using namespace scenario;

const std::wstring Profile = _wgetenv(L"USERPROFILE"), Roaming = Profile + L"\\AppData\\Roaming", Mount = CurrentUserSid() + L"_Classes";
const std::wstring S1 = L"{11111111-2222-3333-4444-555555555555}", S2 = L"{AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE}";
// Hash parts of the ProgIds: %1 and %3 are pdf under two applications of S1, %5 is txt under S2.
const std::vector<std::pair<std::string, std::wstring>> Ids = {{"%1", ComputeProgId(S1, L"winword", L"PDF").substr(6)},
   {"%3", ComputeProgId(S1, L"acrord", L"PDF").substr(6)}, {"%5", ComputeProgId(S2, L"notepad", L"Text").substr(6)},
   {"%W", std::wstring(256, L'W')}, {"%R", Roaming}, {"%U", CurrentAccountName().substr(CurrentAccountName().find(L'\\') + 1)}};

// The values of the mounted classes hive, each below its key.
Lines Values()
{
   Lines values;
   for (const std::string &line : DumpTree(HKEY_USERS, Mount)) {
      if (line.find(": ") != std::string::npos) {
         values.push_back(line.substr(Narrow(Mount).size() + 1));
      }
   }
   return values;
}

class AssociationScenario : public InstallScenario
{
protected:
   void TearDown() override
   {
      RegUnLoadKeyW(HKEY_USERS, Mount.c_str());
      InstallScenario::TearDown();
      for (const std::wstring &path : {Profile + L"\\NTUSER.DAT", Roaming + L"\\Eldrix", Roaming + L"\\Corvane"}) {
         RemoveTree(path);
      }
   }
};

TEST_F(AssociationScenario, ClientProgIdsRenamedTheirKeysCopiedAndASecondInstallChangesNothing)
{
   const auto id = [](const char *text) { return Widen(Fill(text, Ids)); };
   const std::wstring hive = Profile + L"\\AppData\\Local\\Microsoft\\Windows\\UsrClass.dat", pdf = L".pdf\\OpenWithProgIds",
                      txt = L".txt\\OpenWithProgIds", open = L"\\shell\\open";
   ASSERT_TRUE(WriteFileAt(Profile + L"\\NTUSER.DAT", "") && SetPrivilege(SE_BACKUP_NAME, true) && SetPrivilege(SE_RESTORE_NAME, true));
   ASSERT_TRUE(SaveHiveFile(hive, {{pdf, TextValue(L"", L"")}, {pdf, TextValue(id("Eldrix%1"), L"")}, {pdf, TextValue(id("Eldrix%3"), L"old")},
      {pdf, TextValue(L"Other.App", L"")}, {txt, TextValue(id("Eldrix%5"), L"")}, {txt, TextValue(id("%W"), L"")}, {txt, TextValue(L"Zed.App", L"")},
      {id("Eldrix%1") + open, TextValue(L"FriendlyAppName", L"Eldrix Vantora Client")}, {id("Eldrix%1\\DefaultIcon"), TextValue(L"", L"icon,1")},
      {id("Eldrix%3") + open, TextValue(L"FriendlyAppName", L"Eldrix A")}, {id("Eldrix%5") + open, TextValue(L"FriendlyAppName", L"Eldrix Notes")}}));
   ASSERT_EQ(RegLoadKeyW(HKEY_USERS, Mount.c_str(), hive.c_str()), ERROR_SUCCESS);
   // pdf under two applications of S1, txt under both servers, one Extension without Display-name, one without Name.
   ASSERT_TRUE(WriteFileAt(Roaming + L"\\Eldrix\\prefs.xml", "<Root><RecentServer serverGuid='" + Narrow(S1) + "'><FileRedirection>"
      "<AppExtensionInfo AppId='winword'><Extension Name='pdf' Display-name='PDF'/><Extension Name='doc' Display-name='Word'/></AppExtensionInfo>"
      "<AppExtensionInfo AppId='acrord'><Extension Name='pdf' Display-name='PDF'/><Extension Name='txt'/></AppExtensionInfo></FileRedirection>"
      "</RecentServer><RecentServer serverGuid='" + Narrow(S2) + "'><FileRedirection><AppExtensionInfo AppId='notepad'>"
      "<Extension Name='txt' Display-name='Text'/><Extension Display-name='Nameless'/></AppExtensionInfo></FileRedirection></RecentServer></Root>"));
   // A document of another kind comes first: it changes nothing, and the action says so for the user.
   ASSERT_TRUE(WriteFileAt(Roaming + L"\\Eldrix\\other.xml", "<Roots/>"));
   const std::string config = "<VantoraMigration><FileMigration><ConfigFile SourcePath='[$AppData]\\Eldrix\\other.xml'"
      " DestPath='[$AppData]\\Corvane\\other.xml'/><ConfigFile SourcePath='[$AppData]\\Eldrix\\prefs.xml'"
      " DestPath='[$AppData]\\Corvane\\prefs.xml'/></FileMigration></VantoraMigration>";

   auto result = Install(DeferredWithDocument(config));
   const Lines after = Values();
   // The old keys keep the rewritten names and the copies carry them; W... ends the walk of .txt before Zed.App.
   EXPECT_EQ(after, FillLines({".pdf\\OpenWithProgIds: (default) = REG_SZ \"\"", ".pdf\\OpenWithProgIds: Other.App = REG_SZ \"\"",
      ".pdf\\OpenWithProgIds: Vantora%3 = type 1 hex:", ".pdf\\OpenWithProgIds: Vantora%1 = type 1 hex:",
      ".txt\\OpenWithProgIds: Vantora%5 = type 1 hex:", ".txt\\OpenWithProgIds: %W = REG_SZ \"\"", ".txt\\OpenWithProgIds: Zed.App = REG_SZ \"\"",
      "Eldrix%3\\shell\\open: FriendlyAppName = REG_SZ \"Corvane A\" in 38 bytes", "Eldrix%5\\shell\\open: FriendlyAppName = REG_SZ \"Corvane Notes\" in 54 bytes",
      "Eldrix%1\\DefaultIcon: (default) = REG_SZ \"icon,1\"", "Eldrix%1\\shell\\open: FriendlyAppName = REG_SZ \"Corvane Vantora Client\" in 90 bytes",
      "Vantora%3\\shell\\open: FriendlyAppName = REG_SZ \"Corvane A\" in 38 bytes", "Vantora%5\\shell\\open: FriendlyAppName = REG_SZ \"Corvane Notes\" in 54 bytes",
      "Vantora%1\\DefaultIcon: (default) = REG_SZ \"icon,1\"", "Vantora%1\\shell\\open: FriendlyAppName = REG_SZ \"Corvane Vantora Client\" in 90 bytes"}, Ids));
   // In the table's order; the renames at the end of each extension. (The lines of each value are the unit tests'.)
   EXPECT_EQ(EntriesStartingWith(result.logEntries, {"INFO Migrate registry", "INFO value", "ERRO Value", "ERRO Failed to open registry", "WARN Failed", "INFO Migrated FA"}),
      FillLines({"WARN Failed to migrate FA config for user %U", "INFO Migrate registry for ", "ERRO Failed to open registry key for OpenWithProgIds.",
         "INFO Migrate registry for doc", "ERRO Failed to open registry key for OpenWithProgIds.", "INFO Migrate registry for pdf",
         "INFO value  is not in config", "INFO value Other.App is not in config", "ERRO Value Eldrix%3 is changed to Vantora%3.",
         "ERRO Value Eldrix%1 is changed to Vantora%1.", "INFO Migrate registry for txt", "ERRO Value Eldrix%5 is changed to Vantora%5.",
         "INFO Migrated FA config for user %U based on file %R\\Eldrix\\prefs.xml"}, Ids));

   // Again from the start: only new names are found now, and none is in the table.
   DeleteTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane");
   RemoveTree(Roaming + L"\\Corvane");
   result = Install(DeferredWithDocument(config));
   EXPECT_EQ(Values(), after);
   EXPECT_EQ(EntriesStartingWith(result.logEntries, {"INFO value", "INFO Registry", "ERRO Value", "WARN"}),
      FillLines({"WARN Failed to migrate FA config for user %U", "INFO value  is not in config", "INFO value Other.App is not in config",
         "INFO value Vantora%3 is not in config", "INFO value Vantora%1 is not in config", "INFO value Vantora%5 is not in config"}, Ids));
}

} // namespace
