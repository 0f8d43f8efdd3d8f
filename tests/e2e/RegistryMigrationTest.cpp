// Registry rules applied by the deferred actions inside a real install: the document's rules
// reaching the engine with their macros expanded, what each action's pass leaves behind,
// and how an action ends when a rule or the marker fails. What the engine does with each
// kind of rule is the registry tests'.
#include <algorithm>

#include "ScenarioFixture.h"

namespace {

using Lines = std::vector<std::string>;
using scenario::DumpTree;
using scenario::WriteDword;
using scenario::WriteString;

const HKEY Machine = HKEY_LOCAL_MACHINE;
const std::wstring OldClient = L"Software\\Eldrix, Inc.\\Vantora Client";

std::string Document(const std::string &serviceRules, const std::string &userRules = "")
{
   return "<?xml version=\"1.0\"?>\n<VantoraMigration>\n"
          "  <MigrationVars>\n"
          "    <Macro Name=\"OldVendor\" Variable=\"\" Value=\"Eldrix, Inc.\"/>\n"
          "    <Macro Name=\"NewVendor\" Variable=\"\" Value=\"Corvane\"/>\n"
          "  </MigrationVars>\n"
          "  <ServiceMigration>\n" +
          serviceRules + "  </ServiceMigration>\n  <UsersMigration>\n" + userRules +
          "  </UsersMigration>\n</VantoraMigration>\n";
}

class RegistryScenario : public InstallScenario
{
protected:
   void TearDown() override
   {
      InstallScenario::TearDown();
      scenario::DeleteTree(Machine, L"Software\\Policies\\Corvane");
      scenario::DeleteTree(Machine, L"Software\\Policies\\Eldrix, Inc.");
      scenario::DeleteTree(HKEY_CLASSES_ROOT, L"VantoraTest.Document");
      scenario::DeleteTree(HKEY_CLASSES_ROOT, L"CorvaneTest.Document");
   }
};

TEST_F(RegistryScenario, BothDeferredActionsApplyTheirRulesThenTheUserActionEndsTheMigration)
{
   WriteString(Machine, OldClient, L"ServerUrl", L"https://old.example");
   WriteDword(Machine, OldClient, L"Kept", 7);
   WriteDword(Machine, OldClient, L"LogLevel", 5);
   WriteDword(Machine, OldClient, L"Port", 1);
   WriteDword(Machine, OldClient + L"\\Usb", L"AutoConnect", 1);
   WriteString(Machine, OldClient + L"\\Usb\\Filters", L"Exclude", L"vid-0781");
   WriteDword(Machine, L"Software\\Corvane\\Client", L"Kept", 1);
   WriteDword(Machine, L"Software\\Policies\\Eldrix, Inc.\\Vantora Client", L"AllowSave", 0);
   WriteString(HKEY_CLASSES_ROOT, L"VantoraTest.Document", L"", L"Vantora document");

   // A service rule runs against the machine whatever its Root says; the user action's
   // machine pass takes HKLM and HKCR only, spelt exactly so.
   const auto result = Install(DeferredWithDocument(Document(
      "<RegistryKey Root=\"HKCU\" SourcePath=\"Software\\[$OldVendor]\\Vantora Client\""
      " DestPath=\"Software\\[$NewVendor]\\Client\" Action=\"skipifexists\">\n"
      "  <Value OldName=\"ServerUrl\" NewName=\"ConnectionServer\" Action=\"Overwrite\"/>\n"
      "  <Value OldName=\"Port\" Action=\"Overwrite\" NewValue=\"8443\"/>\n"
      "  <RegistrySubKey SourcePath=\"Usb\" DestPath=\"Devices\\Usb\" Action=\"Overwrite\"/>\n"
      "</RegistryKey>\n"
      "<RegistryKey Root=\"HKLM\" SourcePath=\"Software\\[$OldVendor]\\Missing\" DestPath=\"Software\\[$NewVendor]\\M\""
      " Action=\"Overwrite\"/>\n",
      "<RegistryKey Root=\"HKLM\" SourcePath=\"Software\\Policies\\[$OldVendor]\\Vantora Client\""
      " DestPath=\"Software\\Policies\\[$NewVendor]\\Client\" Action=\"Overwrite\"/>\n"
      "<RegistryKey Root=\"HKCR\" SourcePath=\"VantoraTest.Document\" DestPath=\"CorvaneTest.Document\""
      " Action=\"Overwrite\"/>\n"
      "<RegistryKey Root=\"hklm\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\""
      " DestPath=\"Software\\Corvane\\Lower\" Action=\"Overwrite\"/>\n"
      "<RegistryKey Root=\"HKCU\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\""
      " DestPath=\"Software\\Corvane\\User\" Action=\"Overwrite\"/>\n"
      "<RegistryKey Root=\"HKUC\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\""
      " DestPath=\"Software\\Corvane\\Classes\" Action=\"Overwrite\"/>\n")));

   EXPECT_EQ(result.actions.at(L"MigrateVantoraSvc").code, 0u);
   EXPECT_TRUE(result.actions.at(L"MigrateVantoraUser").ran);
   EXPECT_EQ(result.actions.at(L"MigrateVantoraUser").code, 0u);
   EXPECT_EQ(DumpTree(Machine, L"Software\\Corvane"),
             (Lines{"Corvane", "Corvane: MigrationDone = REG_DWORD 1", "Corvane\\Client",
                    "Corvane\\Client: ConnectionServer = REG_SZ \"https://old.example\"", "Corvane\\Client: Kept = REG_DWORD 1",
                    "Corvane\\Client: LogLevel = REG_DWORD 5", "Corvane\\Client: Port = REG_DWORD 8443",
                    "Corvane\\Client\\Devices", "Corvane\\Client\\Devices\\Usb",
                    "Corvane\\Client\\Devices\\Usb: AutoConnect = REG_DWORD 1", "Corvane\\Client\\Devices\\Usb\\Filters",
                    "Corvane\\Client\\Devices\\Usb\\Filters: Exclude = REG_SZ \"vid-0781\""}));
   EXPECT_EQ(DumpTree(Machine, OldClient).size(), 9u) << "the sources stay";
   EXPECT_EQ(DumpTree(Machine, L"Software\\Policies\\Corvane\\Client"), (Lines{"Client", "Client: AllowSave = REG_DWORD 0"}));
   EXPECT_EQ(DumpTree(HKEY_CLASSES_ROOT, L"CorvaneTest.Document"),
             (Lines{"CorvaneTest.Document", "CorvaneTest.Document: (default) = REG_SZ \"Vantora document\""}));
   EXPECT_EQ(GetFileAttributesW(DocumentPath().c_str()), INVALID_FILE_ATTRIBUTES) << "the document is deleted";

   // Values before sub-keys, each in the registry's order (by name); a missing source is a
   // warning, not an error. The users' pass, from their enumeration on, is the user tests'.
   const auto users = std::find_if(result.logEntries.begin(), result.logEntries.end(),
                                   [](const std::string &e) { return e.starts_with("ERRO Failed to enumerate users"); });
   EXPECT_EQ(EntriesStartingWith({result.logEntries.begin(), users}, {"INFO Migrated", "INFO Value", "INFO The destination",
                                                                      "WARN", "ERRO", "INFO Enter function: MigrateVantoraUser"}),
             (Lines{"INFO The destination key Software\\Corvane\\Client exists, ignore and continue.",
                    "INFO Value Kept exists and skipped.", "INFO Migrated LogLevel to LogLevel.", "INFO Migrated Port to Port.",
                    "INFO Migrated ServerUrl to ConnectionServer.", "INFO Migrated AutoConnect to AutoConnect.",
                    "INFO Migrated Exclude to Exclude.",
                    "WARN Failed to open source registry key Software\\Eldrix, Inc.\\Missing, ignore...",
                    "INFO Enter function: MigrateVantoraUser.", "INFO Migrated AllowSave to AllowSave.",
                    "INFO Migrated  to ."}));
}

TEST_F(RegistryScenario, MalformedNumberEndsTheServiceActionAbnormally)
{
   WriteDword(Machine, OldClient, L"A_Before", 1);
   WriteDword(Machine, OldClient, L"B_Port", 1);
   WriteDword(Machine, OldClient, L"C_After", 2);

   const auto result = Install(DeferredWithDocument(Document(
      "<RegistryKey Root=\"HKLM\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\""
      " DestPath=\"Software\\Corvane\\Client\" Action=\"Overwrite\">\n"
      "  <Value OldName=\"B_Port\" Action=\"Overwrite\" NewValue=\"AB\"/>\n"
      "</RegistryKey>\n"
      "<RegistryKey Root=\"HKLM\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\""
      " DestPath=\"Software\\Corvane\\Second\" Action=\"Overwrite\"/>\n")));

   // The conversion error leaves the action: no leave line, nothing after the bad value.
   EXPECT_EQ(std::count(result.logEntries.begin(), result.logEntries.end(), "INFO Enter function: MigrateVantoraSvc."), 1);
   EXPECT_EQ(std::count(result.logEntries.begin(), result.logEntries.end(), "INFO Leave function: MigrateVantoraSvc."), 0);
   EXPECT_EQ(DumpTree(Machine, L"Software\\Corvane\\Client"), (Lines{"Client", "Client: A_Before = REG_DWORD 1"}));
   EXPECT_FALSE(scenario::KeyExists(Machine, L"Software\\Corvane\\Second"));
}

TEST_F(RegistryScenario, UserActionSucceedsWhenTheMarkerCannotBeWritten)
{
   scenario::CreateKey(Machine, L"Software\\Corvane");
   ASSERT_TRUE(scenario::SetKeySecurity(Machine, L"Software\\Corvane", L"D:P(A;;KR;;;WD)"));

   const auto result = Install(DeferredWithDocument(Document("")));

   // Reopen for whoever comes next: the owner may always rewrite the DACL.
   ASSERT_TRUE(scenario::SetKeySecurity(Machine, L"Software\\Corvane", L"D:P(A;;KA;;;WD)"));
   EXPECT_EQ(result.actions.at(L"MigrateVantoraUser").code, 0u);
   EXPECT_TRUE(result.actions.at(L"MigrateVantoraUser").ran);
   EXPECT_EQ(EntriesStartingWith(scenario::WithoutSystemText(result.logEntries), {"ERRO"}),
             (Lines{"ERRO Failed to enumerate users.Last Error: (code: 124)",
                    "ERRO Installer can't open key HKLM:Software\\Corvane for write, error = 0x00000005."}));
   EXPECT_FALSE(scenario::ReadValue(Machine, L"Software\\Corvane", L"MigrationDone").has_value());
   EXPECT_EQ(result.logEntries.back(), "INFO Leave function: MigrateVantoraUser.");
}

} // namespace
