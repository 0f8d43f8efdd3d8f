// How the document's shape and its macros reach the registry through a real install.
#include <algorithm>

#include "ScenarioFixture.h"

namespace {

using Lines = std::vector<std::string>;
using scenario::DumpTree;

const wchar_t OldClient[] = L"Software\\Eldrix, Inc.\\Vantora Client";

class DocumentScenario : public InstallScenario
{
};

TEST_F(DocumentScenario, TolerantLoaderShapesTheMigratedTree)
{
   // Root in other case, a DTD naming a file that isn't there, no MigrationVars or
   // FileMigration, an attribute in the wrong case, and three levels of sub-key rules.
   const std::wstring src = OldClient;
   scenario::WriteDword(HKEY_LOCAL_MACHINE, src + L"\\A\\B\\C", L"Deep", 3);
   scenario::WriteDword(HKEY_LOCAL_MACHINE, src + L"\\Usb", L"AutoConnect", 1);
   const auto result = Install(DeferredWithDocument(
      "<?xml version=\"1.0\"?>\n"
      "<!DOCTYPE vantoraMIGRATION SYSTEM \"C:\\no\\such\\file.dtd\">\n"
      "<vantoraMIGRATION>\n"
      "  <ServiceMigration>\n"
      "    <RegistryKey Root=\"HKLM\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\""
      "                 DestPath=\"Software\\Corvane\\Client\" Action=\"Overwrite\">\n"
      "      <RegistrySubKey sourcepath=\"Usb\" DestPath=\"Renamed\" Action=\"Overwrite\"/>\n"
      "      <RegistrySubKey SourcePath=\"A\" DestPath=\"A1\" Action=\"Overwrite\">\n"
      "        <RegistrySubKey SourcePath=\"B\" DestPath=\"B1\" Action=\"Overwrite\">\n"
      "          <RegistrySubKey SourcePath=\"C\" DestPath=\"C1\" Action=\"Overwrite\"/>\n"
      "        </RegistrySubKey>\n"
      "      </RegistrySubKey>\n"
      "    </RegistryKey>\n"
      "  </ServiceMigration>\n"
      "</vantoraMIGRATION>\n"));

   EXPECT_EQ(result.actions.at(L"MigrateVantoraSvc").code, 0u);
   // "sourcepath" is not "SourcePath": that rule names nothing, so Usb keeps its own name.
   EXPECT_EQ(DumpTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Client"),
             (Lines{"Client", "Client\\A1", "Client\\A1\\B1", "Client\\A1\\B1\\C1", "Client\\A1\\B1\\C1: Deep = REG_DWORD 3",
                    "Client\\Usb", "Client\\Usb: AutoConnect = REG_DWORD 1"}));
   const auto loads = std::find(result.logEntries.rbegin(), result.logEntries.rend(),
                                "INFO Leave function: LoadMigrationConfiguration.").base();
   EXPECT_EQ(EntriesStartingWith(Lines(result.logEntries.begin(), loads), {"INFO Load ", "WARN", "ERRO"}),
             (Lines{"INFO Load ServiceMigration section.", "INFO Load ServiceMigration section."}))
      << "each deferred action loads the document once; the missing sections are no warning";
}

TEST_F(DocumentScenario, DocumentThatIsNotWellFormedFailsTheLoad)
{
   scenario::WriteDword(HKEY_LOCAL_MACHINE, OldClient, L"LogLevel", 5);
   auto result = Install(DeferredWithDocument("<VantoraMigration><ServiceMigration></VantoraMigration>\n"));

   EXPECT_EQ(result.actions.at(L"MigrateVantoraSvc").code, 1006u);
   EXPECT_FALSE(result.actions[L"MigrateVantoraUser"].ran) << "the install halts at the failed action";
   const Lines lines = EntriesStartingWith(result.logEntries, {"ERRO", "INFO Parsing"});
   ASSERT_EQ(lines.size(), 5u);
   EXPECT_EQ(lines[0], "INFO Parsing migration config file " + WideLog(DocumentPath()) + ".");
   EXPECT_EQ(lines[1].rfind("ERRO Failed to load XML file.Last Error: ", 0), 0u) << lines[1];
   EXPECT_EQ(lines[2], "ERRO Failed to load document " + WideLog(DocumentPath()) + ".");
   EXPECT_EQ(lines[3], "ERRO Installer can't load configuration file.");
   EXPECT_EQ(lines[4], "ERRO Load migration configuration for services failed.");
   EXPECT_FALSE(scenario::KeyExists(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Client"));
}

TEST_F(DocumentScenario, MacrosExpandInTableOrderWithReplacementRules)
{
   const std::wstring src = OldClient;
   for (const wchar_t *name : {L"V1", L"V2", L"V3", L"V4", L"V5", L"V6"}) {
      scenario::WriteString(HKEY_LOCAL_MACHINE, src, name, L"old");
   }
   const auto result = Install(DeferredWithDocument(
      "<VantoraMigration>\n"
      "  <MigrationVars>\n"
      "    <Macro Name=\"A.B\" Variable=\"\" Value=\"dot\"/>\n"
      "    <Macro Name=\"Price\" Variable=\"\" Value=\"cost$$\"/>\n"
      "    <Macro Name=\"Zero\" Variable=\"\" Value=\"x$0$00y\"/>\n"
      "    <Macro Name=\"A\" Variable=\"\" Value=\"[$B]\"/>\n"
      "    <Macro Name=\"B\" Variable=\"\" Value=\"b\"/>\n"
      "    <Macro Name=\"D\" Variable=\"\" Value=\"d\"/>\n"
      "    <Macro Name=\"C\" Variable=\"\" Value=\"[$D]\"/>\n"
      "    <Macro Name=\"Path\" Variable=\"\" Value=\"C:\\Users\\Me\"/>\n"
      "  </MigrationVars>\n"
      "  <ServiceMigration>\n"
      "    <RegistryKey Root=\"HKLM\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\""
      "                 DestPath=\"Software\\Corvane\\[$AxB]\" Action=\"Overwrite\">\n"
      "      <Value OldName=\"V1\" Action=\"Overwrite\" NewValue=\"[$Price]\"/>\n"
      "      <Value OldName=\"V2\" Action=\"Overwrite\" NewValue=\"[$Zero]\"/>\n"
      "      <Value OldName=\"V3\" Action=\"Overwrite\" NewValue=\"[$A]\"/>\n"
      "      <Value OldName=\"V4\" Action=\"Overwrite\" NewValue=\"[$C]\"/>\n"
      "      <Value OldName=\"V5\" NewName=\"[$appdata]\" Action=\"Overwrite\" NewValue=\"[$Path]\\x[$Path]\"/>\n"
      "      <Value OldName=\"V6\" Action=\"Overwrite\" NewValue=\"[$Missing]\"/>\n"
      "    </RegistryKey>\n"
      "  </ServiceMigration>\n"
      "</VantoraMigration>\n"));

   EXPECT_EQ(result.actions.at(L"MigrateVantoraSvc").code, 0u);
   // "A.B" is a pattern: its dot matches the x of [$AxB].
   EXPECT_EQ(DumpTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\dot"),
             (Lines{"dot", "dot: [$appdata] = REG_SZ \"C:\\Users\\Me\\xC:\\Users\\Me\"",
                    "dot: V1 = REG_SZ \"cost$\"", "dot: V2 = REG_SZ \"x$0$00y\"", "dot: V3 = REG_SZ \"b\"",
                    "dot: V4 = REG_SZ \"[$D]\"", "dot: V6 = REG_SZ \"[$Missing]\""}));
}

} // namespace
