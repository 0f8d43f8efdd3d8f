// Registry rules applied by the deferred actions inside a real install: what the keys and
// values look like afterwards, and what the log says about each.
#include <windows.h>
#include <sddl.h>

#include <algorithm>

#include "ScenarioFixture.h"

namespace {

using Lines = std::vector<std::string>;
using scenario::DumpTree;
using scenario::WriteDword;
using scenario::WriteString;

const wchar_t OldClient[] = L"Software\\Eldrix, Inc.\\Vantora Client";

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

// The log between the service action's Enter and Leave lines, load lines left out.
Lines ServiceLines(const Lines &log)
{
   auto begin = std::find(log.begin(), log.end(), "INFO Enter function: MigrateVantoraSvc.");
   auto end = std::find(log.begin(), log.end(), "INFO Leave function: MigrateVantoraSvc.");
   Lines lines;
   bool loading = false;
   for (auto it = begin; it != end && it != log.end(); ++it) {
      if (*it == "INFO Enter function: LoadMigrationConfiguration.") {
         loading = true;
      }
      if (!loading && it != begin) {
         lines.push_back(*it);
      }
      if (*it == "INFO Leave function: LoadMigrationConfiguration.") {
         loading = false;
      }
   }
   return lines;
}

void SetDacl(HKEY root, const std::wstring &path, const wchar_t *sddl)
{
   PSECURITY_DESCRIPTOR descriptor = nullptr;
   ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, &descriptor, nullptr));
   HKEY key;
   ASSERT_EQ(RegOpenKeyExW(root, path.c_str(), 0, WRITE_DAC, &key), ERROR_SUCCESS);
   EXPECT_EQ(RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, descriptor), ERROR_SUCCESS);
   RegCloseKey(key);
   LocalFree(descriptor);
}

class RegistryScenario : public InstallScenario
{
protected:
   void TearDown() override
   {
      InstallScenario::TearDown();
      scenario::DeleteTree(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Corvane");
      scenario::DeleteTree(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Eldrix, Inc.");
      scenario::DeleteTree(HKEY_CLASSES_ROOT, L"VantoraTest.Document");
      scenario::DeleteTree(HKEY_CLASSES_ROOT, L"CorvaneTest.Document");
   }
};

TEST_F(RegistryScenario, ServiceActionCopiesTheOldClientTree)
{
   WriteString(HKEY_LOCAL_MACHINE, OldClient, L"ServerUrl", L"https://old.example");
   WriteDword(HKEY_LOCAL_MACHINE, OldClient, L"LogLevel", 5);
   WriteDword(HKEY_LOCAL_MACHINE, std::wstring(OldClient) + L"\\Usb", L"AutoConnect", 1);
   WriteString(HKEY_LOCAL_MACHINE, std::wstring(OldClient) + L"\\Usb\\Filters", L"Exclude", L"vid-0781");
   WriteString(HKEY_LOCAL_MACHINE, std::wstring(OldClient) + L"\\Printing", L"Default", L"3F");

   const auto result = Install(DeferredWithDocument(Document(
      "<RegistryKey Root=\"HKLM\" SourcePath=\"Software\\[$OldVendor]\\Vantora Client\""
      " DestPath=\"Software\\[$NewVendor]\\Client\" Action=\"Overwrite\">\n"
      "  <Value OldName=\"ServerUrl\" NewName=\"ConnectionServer\" Action=\"Overwrite\"/>\n"
      "  <RegistrySubKey SourcePath=\"Usb\" DestPath=\"Devices\\Usb\" Action=\"Overwrite\"/>\n"
      "</RegistryKey>\n"
      "<RegistryKey Root=\"HKLM\" SourcePath=\"Software\\[$OldVendor]\\Missing\" DestPath=\"Software\\[$NewVendor]\\M\""
      " Action=\"Overwrite\"/>\n")));

   EXPECT_EQ(result.actions.at(L"MigrateVantoraSvc").code, 0u);
   EXPECT_EQ(DumpTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Client"),
             (Lines{"Client", "Client: ConnectionServer = REG_SZ \"https://old.example\"", "Client: LogLevel = REG_DWORD 5",
                    "Client\\Devices", "Client\\Devices\\Usb", "Client\\Devices\\Usb: AutoConnect = REG_DWORD 1",
                    "Client\\Devices\\Usb\\Filters", "Client\\Devices\\Usb\\Filters: Exclude = REG_SZ \"vid-0781\"",
                    "Client\\Printing", "Client\\Printing: Default = REG_SZ \"3F\""}));
   // The sources stay as they were.
   EXPECT_EQ(DumpTree(HKEY_LOCAL_MACHINE, OldClient).size(), 9u);
   EXPECT_FALSE(scenario::KeyExists(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\M"));

   // Values come before the sub-keys, each key before its children, each in the order the
   // registry lists them (by name); the missing source is one warning and no error.
   EXPECT_EQ(ServiceLines(result.logEntries),
             (Lines{"INFO Migrated LogLevel to LogLevel.", "INFO Migrated ServerUrl to ConnectionServer.",
                    "INFO Migrated Default to Default.", "INFO Migrated AutoConnect to AutoConnect.",
                    "INFO Migrated Exclude to Exclude.",
                    "WARN Failed to open source registry key Software\\Eldrix, Inc.\\Missing, ignore..."}));
}

TEST_F(RegistryScenario, MultiSegmentDestinationIsCreatedSegmentBySegment)
{
   // Which descriptor each segment receives is checked where the platform applies the
   // descriptors given at creation; Wine ignores them, so here only the shape is checked.
   WriteDword(HKEY_LOCAL_MACHINE, OldClient, L"LogLevel", 5);
   WriteDword(HKEY_LOCAL_MACHINE, std::wstring(OldClient) + L"\\Usb", L"AutoConnect", 1);
   scenario::CreateKey(HKEY_LOCAL_MACHINE, L"Software\\Corvane");

   const auto result = Install(DeferredWithDocument(Document(
      "<RegistryKey Root=\"HKLM\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\""
      " DestPath=\"Software\\Corvane\\Mid\\Client\\\" Action=\"Overwrite\">\n"
      "  <RegistrySubKey SourcePath=\"Usb\" DestPath=\"Devices\\Usb\\\" Action=\"Overwrite\"/>\n"
      "</RegistryKey>\n")));

   EXPECT_EQ(result.actions.at(L"MigrateVantoraSvc").code, 0u);
   EXPECT_EQ(DumpTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Mid"),
             (Lines{"Mid", "Mid\\Client", "Mid\\Client: LogLevel = REG_DWORD 5", "Mid\\Client\\Devices",
                    "Mid\\Client\\Devices\\Usb", "Mid\\Client\\Devices\\Usb: AutoConnect = REG_DWORD 1"}));
   EXPECT_EQ(ServiceLines(result.logEntries),
             (Lines{"INFO Migrated LogLevel to LogLevel.", "INFO Migrated AutoConnect to AutoConnect."}));
}

TEST_F(RegistryScenario, VendorKeyWithItsOwnDaclKeepsItsAuditSettingsReadable)
{
   // Reading the default descriptor asks for the audit settings too, which an explicit DACL
   // can't grant; the actions enable SeSecurityPrivilege, so the rule still runs. (Without it
   // the rule is skipped whole: the key migration's own tests show that.)
   WriteDword(HKEY_LOCAL_MACHINE, OldClient, L"LogLevel", 5);
   SetDacl(HKEY_LOCAL_MACHINE, L"Software\\Eldrix, Inc.", L"D:P(A;;KA;;;BA)(A;;KR;;;BU)");

   const auto result = Install(DeferredWithDocument(Document(
      "<RegistryKey Root=\"HKLM\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\""
      " DestPath=\"Software\\Corvane\\Client\" Action=\"Overwrite\"/>\n")));

   EXPECT_EQ(result.actions.at(L"MigrateVantoraSvc").code, 0u);
   EXPECT_EQ(ServiceLines(result.logEntries), (Lines{"INFO Migrated LogLevel to LogLevel."}));
   EXPECT_TRUE(scenario::KeyExists(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Client"));
}

TEST_F(RegistryScenario, ExistingDestinationIsLoggedAndStillReceivesValues)
{
   WriteDword(HKEY_LOCAL_MACHINE, OldClient, L"LogLevel", 5);
   WriteDword(HKEY_LOCAL_MACHINE, OldClient, L"Kept", 7);
   WriteDword(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Client", L"Kept", 1);

   const auto result = Install(DeferredWithDocument(Document(
      "<RegistryKey Root=\"HKCU\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\""
      " DestPath=\"Software\\Corvane\\Client\" Action=\"skipifexists\"/>\n")));

   // A service rule runs against the machine whatever its Root says.
   EXPECT_EQ(ServiceLines(result.logEntries),
             (Lines{"INFO The destination key Software\\Corvane\\Client exists, ignore and continue.",
                    "INFO Value Kept exists and skipped.", "INFO Migrated LogLevel to LogLevel."}));
   EXPECT_EQ(DumpTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Client"),
             (Lines{"Client", "Client: Kept = REG_DWORD 1", "Client: LogLevel = REG_DWORD 5"}));
}

TEST_F(RegistryScenario, ActionWordsAndNewValues)
{
   const std::wstring src = OldClient;
   WriteDword(HKEY_LOCAL_MACHINE, src + L"\\Words", L"A", 1);
   WriteDword(HKEY_LOCAL_MACHINE, src + L"\\Words", L"B", 2);
   WriteDword(HKEY_LOCAL_MACHINE, src + L"\\Words", L"C", 3);
   WriteDword(HKEY_LOCAL_MACHINE, src + L"\\Words", L"D", 4);
   WriteDword(HKEY_LOCAL_MACHINE, src + L"\\Words", L"E", 5);
   WriteDword(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Words", L"NewC", 30);
   WriteString(HKEY_LOCAL_MACHINE, src + L"\\Data", L"Sz", L"old");
   scenario::WriteValue(HKEY_LOCAL_MACHINE, src + L"\\Data", {L"Bin", REG_BINARY, {1, 2, 3}});
   scenario::WriteValue(HKEY_LOCAL_MACHINE, src + L"\\Data", {L"Bin5", REG_BINARY, {1}});
   WriteDword(HKEY_LOCAL_MACHINE, src + L"\\Data", L"Dw", 1);
   scenario::WriteValue(HKEY_LOCAL_MACHINE, src + L"\\Data", {L"Qw", REG_QWORD, std::vector<BYTE>(8)});
   scenario::WriteValue(HKEY_LOCAL_MACHINE, src + L"\\Data", {L"Link", REG_LINK, {0x41, 0}});
   scenario::WriteValue(HKEY_LOCAL_MACHINE, src + L"\\Data", {L"Typed", REG_SZ, {0x41, 0, 0, 0}});

   const auto result = Install(DeferredWithDocument(Document(
      "<RegistryKey Root=\"HKLM\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\\Words\""
      " DestPath=\"Software\\Corvane\\Words\" Action=\"\">\n"
      "  <Value OldName=\"A\" Action=\"oVeRwRiTe\"/>\n"
      "  <Value OldName=\"B\" Action=\"SKIP\"/>\n"
      "  <Value OldName=\"C\" NewName=\"NewC\" Action=\"SkipIfexists\"/>\n"
      "  <Value OldName=\"D\" Action=\"Skipped\"/>\n"
      "</RegistryKey>\n"
      "<RegistryKey Root=\"HKLM\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\\Data\""
      " DestPath=\"Software\\Corvane\\Data\" Action=\"Overwrite\">\n"
      "  <Value OldName=\"Sz\" Action=\"Overwrite\" NewValue=\"AB\"/>\n"
      "  <Value OldName=\"Bin\" Action=\"Overwrite\" NewValue=\"AB\"/>\n"
      "  <Value OldName=\"Bin5\" Action=\"Overwrite\" NewValue=\"0A0B0\"/>\n"
      "  <Value OldName=\"Dw\" Action=\"Overwrite\" NewValue=\" 4294967295\"/>\n"
      "  <Value OldName=\"Qw\" Action=\"Overwrite\" NewValue=\"18446744073709551615xyz\"/>\n"
      "  <Value OldName=\"Link\" Action=\"Overwrite\" NewValue=\"41\"/>\n"
      "  <Value OldName=\"Typed\" Type=\"REG_DWORD\" Action=\"Overwrite\"/>\n"
      "</RegistryKey>\n")));

   EXPECT_EQ(result.actions.at(L"MigrateVantoraSvc").code, 0u);
   // E has no rule and the key's Action is empty: it stays behind silently, as does D.
   EXPECT_EQ(DumpTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Words"),
             (Lines{"Words", "Words: A = REG_DWORD 1", "Words: NewC = REG_DWORD 30"}));
   EXPECT_EQ(DumpTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Data"),
             (Lines{"Data", "Data: Bin = type 3 hex:ab", "Data: Bin5 = type 3 hex:0a0b", "Data: Dw = REG_DWORD 4294967295",
                    "Data: Qw = REG_QWORD 18446744073709551615", "Data: Sz = REG_SZ \"AB\"",
                    "Data: Typed = REG_SZ \"A\""}));
   EXPECT_EQ(ServiceLines(result.logEntries),
             (Lines{"INFO The destination key Software\\Corvane\\Words exists, ignore and continue.",
                    "INFO Migrated A to A.", "INFO Value B skipped.", "INFO Value NewC exists and skipped.",
                    "INFO Migrated Bin to Bin.", "INFO Migrated Bin5 to Bin5.", "INFO Migrated Dw to Dw.",
                    "ERRO Unsupport data type 6 in configuration file.",
                    "WARN Wrong format in configuration, the registry value data of Name: Link",
                    "INFO Migrated Qw to Qw.", "INFO Migrated Sz to Sz.", "INFO Migrated Typed to Typed."}));
}

TEST_F(RegistryScenario, ValueOverTheBufferEndsTheWalkOfItsKey)
{
   const std::wstring src = OldClient;
   // Named so that the registry lists them in this order.
   WriteDword(HKEY_LOCAL_MACHINE, src, L"A_First", 1);
   scenario::WriteValue(HKEY_LOCAL_MACHINE, src, {L"B_Big", REG_BINARY, std::vector<BYTE>(1025, 0x5A)});
   WriteDword(HKEY_LOCAL_MACHINE, src, L"C_After", 2);
   scenario::WriteValue(HKEY_LOCAL_MACHINE, src + L"\\Child", {L"Exactly1024", REG_BINARY, std::vector<BYTE>(1024, 1)});

   const auto result = Install(DeferredWithDocument(Document(
      "<RegistryKey Root=\"HKLM\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\""
      " DestPath=\"Software\\Corvane\\Client\" Action=\"Overwrite\"/>\n")));

   // Sub-keys are still walked; only the rest of that key's values stay behind.
   EXPECT_EQ(ServiceLines(result.logEntries),
             (Lines{"INFO Migrated A_First to A_First.", "INFO Migrated Exactly1024 to Exactly1024."}));
   const Lines tree = DumpTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Client");
   ASSERT_EQ(tree.size(), 4u);
   EXPECT_EQ(tree[1], "Client: A_First = REG_DWORD 1");
   EXPECT_EQ(tree[2], "Client\\Child");
}

TEST_F(RegistryScenario, MalformedNumberEndsTheServiceActionAbnormally)
{
   const std::wstring src = OldClient;
   WriteDword(HKEY_LOCAL_MACHINE, src, L"A_Before", 1);
   WriteDword(HKEY_LOCAL_MACHINE, src, L"B_Port", 1);
   WriteDword(HKEY_LOCAL_MACHINE, src, L"C_After", 2);

   const auto result = Install(DeferredWithDocument(Document(
      "<RegistryKey Root=\"HKLM\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\""
      " DestPath=\"Software\\Corvane\\Client\" Action=\"Overwrite\">\n"
      "  <Value OldName=\"B_Port\" Action=\"Overwrite\" NewValue=\"AB\"/>\n"
      "</RegistryKey>\n"
      "<RegistryKey Root=\"HKLM\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\""
      " DestPath=\"Software\\Corvane\\Second\" Action=\"Overwrite\"/>\n")));

   // The conversion error leaves the action: no leave line, nothing after the bad value.
   EXPECT_EQ(std::count(result.logEntries.begin(), result.logEntries.end(), "INFO Enter function: MigrateVantoraSvc."),
             1);
   EXPECT_EQ(std::count(result.logEntries.begin(), result.logEntries.end(), "INFO Leave function: MigrateVantoraSvc."),
             0);
   EXPECT_EQ(DumpTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Client"),
             (Lines{"Client", "Client: A_Before = REG_DWORD 1"}));
   EXPECT_FALSE(scenario::KeyExists(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Second"));
}

TEST_F(RegistryScenario, UserActionRunsTheMachinePassDeletesTheDocumentAndWritesTheMarker)
{
   WriteDword(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Eldrix, Inc.\\Vantora Client", L"AllowSave", 0);
   WriteString(HKEY_CLASSES_ROOT, L"VantoraTest.Document", L"", L"Vantora document");
   WriteDword(HKEY_LOCAL_MACHINE, OldClient, L"LogLevel", 5);

   const auto result = Install(DeferredWithDocument(Document(
      "",
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
   EXPECT_EQ(DumpTree(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Corvane\\Client"),
             (Lines{"Client", "Client: AllowSave = REG_DWORD 0"}));
   EXPECT_EQ(DumpTree(HKEY_CLASSES_ROOT, L"CorvaneTest.Document"),
             (Lines{"CorvaneTest.Document", "CorvaneTest.Document: (default) = REG_SZ \"Vantora document\""}));
   for (const wchar_t *untouched : {L"Software\\Corvane\\Lower", L"Software\\Corvane\\User", L"Software\\Corvane\\Classes"}) {
      EXPECT_FALSE(scenario::KeyExists(HKEY_LOCAL_MACHINE, untouched)) << scenario::Narrow(untouched);
   }
   EXPECT_EQ(GetFileAttributesW(DocumentPath().c_str()), INVALID_FILE_ATTRIBUTES) << "the document is deleted";
   const auto marker = scenario::ReadValue(HKEY_LOCAL_MACHINE, L"Software\\Corvane", L"MigrationDone");
   ASSERT_TRUE(marker.has_value());
   EXPECT_EQ(marker->type, static_cast<DWORD>(REG_DWORD));
   EXPECT_EQ(marker->data, (std::vector<BYTE>{1, 0, 0, 0}));
   const Lines user = EntriesStartingWith(result.logEntries, {"INFO Migrated", "INFO Enter function: MigrateVantoraUser",
                                                              "INFO Leave function: MigrateVantoraUser"});
   EXPECT_EQ(user, (Lines{"INFO Enter function: MigrateVantoraUser.", "INFO Migrated AllowSave to AllowSave.",
                          "INFO Migrated  to .", "INFO Leave function: MigrateVantoraUser."}));
}

TEST_F(RegistryScenario, UserActionSucceedsWhenTheMarkerCannotBeWritten)
{
   scenario::CreateKey(HKEY_LOCAL_MACHINE, L"Software\\Corvane");
   SetDacl(HKEY_LOCAL_MACHINE, L"Software\\Corvane", L"D:P(A;;KR;;;WD)");

   const auto result = Install(DeferredWithDocument(Document("")));

   // Reopen for whoever comes next: the owner may always rewrite the DACL.
   SetDacl(HKEY_LOCAL_MACHINE, L"Software\\Corvane", L"D:P(A;;KA;;;WD)");
   EXPECT_EQ(result.actions.at(L"MigrateVantoraUser").code, 0u);
   EXPECT_TRUE(result.actions.at(L"MigrateVantoraUser").ran);
   const Lines errors = EntriesStartingWith(scenario::WithoutSystemText(result.logEntries), {"ERRO"});
   EXPECT_EQ(errors, (Lines{"ERRO Failed to enumerate users.Last Error: (code: 124)",
                            "ERRO Installer can't open key HKLM:Software\\Corvane for write, error = 0x00000005."}));
   EXPECT_FALSE(scenario::ReadValue(HKEY_LOCAL_MACHINE, L"Software\\Corvane", L"MigrationDone").has_value());
   EXPECT_EQ(result.logEntries.back(), "INFO Leave function: MigrateVantoraUser.");
}

} // namespace
