// The whole installer sequence, nothing handed over by hand: the document comes out of the
// package's Binary table, gets its macros resolved in the immediate action and reaches the
// deferred actions through CustomActionData.
#include <algorithm>

#include "ScenarioFixture.h"

namespace {

using Lines = std::vector<std::string>;
using scenario::DumpTree;

const wchar_t OldClient[] = L"Software\\Eldrix, Inc.\\Vantora Client";

class SequenceScenario : public InstallScenario
{
protected:
   void SetUp() override
   {
      InstallScenario::SetUp();
      DeleteFileW(Extracted().c_str());
      scenario::DeleteTree(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Corvane");
      scenario::WriteString(HKEY_LOCAL_MACHINE, OldClient, L"ServerUrl", L"https://old.example");
      scenario::WriteString(HKEY_LOCAL_MACHINE, OldClient, L"DataFolder", L"C:\\ProgramData\\Eldrix");
      scenario::WriteString(HKEY_LOCAL_MACHINE, OldClient, L"Mirror", L"old");
   }
   void TearDown() override
   {
      InstallScenario::TearDown();
      scenario::DeleteTree(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Corvane");
   }

   // Where the immediate action writes the document: the temporary folder of its context.
   static std::wstring Extracted() { return scenario::TempDirectory() + L"vtrMigrateConf.xml"; }
   std::wstring Kept() const { return workDirectory_ + L"kept.xml"; }

   scenario::PackageChanges WithDocument(const std::string &xml)
   {
      scenario::PackageChanges changes;
      changes.configXml = xml;
      changes.properties = {{L"VTR_SERVER", L"https://new.example"}};
      changes.keptDocument = Kept();
      return changes;
   }

   // The entries of ExtractMigrConfig, its trace lines included.
   static Lines ExtractLines(const Lines &log)
   {
      const auto begin = std::find(log.begin(), log.end(), "INFO Enter function: ExtractMigrConfig.");
      auto end = std::find(begin, log.end(), "INFO Leave function: ExtractMigrConfig.");
      return scenario::CutErrorTexts(Lines(begin, end == log.end() ? end : end + 1));
   }
};

// Service rule and user-action machine rule, each with the macros that the immediate action resolves.
const std::string Rules =
   "  <ServiceMigration>\n"
   "    <RegistryKey Root=\"HKLM\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\""
   " DestPath=\"Software\\Corvane\\Client\" Action=\"Overwrite\">\n"
   "      <Value OldName=\"ServerUrl\" Action=\"Overwrite\" NewValue=\"[$Server]\"/>\n"
   "      <Value OldName=\"DataFolder\" Action=\"Overwrite\" NewValue=\"[$ProgramData]\\Corvane\"/>\n"
   "      <Value OldName=\"Mirror\" Action=\"Overwrite\" NewValue=\"&lt;[$Gone]&gt;\"/>\n"
   "    </RegistryKey>\n"
   "  </ServiceMigration>\n"
   "  <UsersMigration>\n"
   "    <RegistryKey Root=\"HKLM\" SourcePath=\"Software\\Eldrix, Inc.\\Vantora Client\""
   " DestPath=\"Software\\Policies\\Corvane\\Client\" Action=\"Overwrite\">\n"
   "      <Value OldName=\"ServerUrl\" Action=\"Overwrite\" NewValue=\"[$Server]\"/>\n"
   "    </RegistryKey>\n"
   "  </UsersMigration>\n";

const std::string Macros =
   "  <MigrationVars>\n"
   "    <!-- resolved at install time -->\n"
   "    <Macro Value=\"from the document\" Variable=\"VTR_SERVER\" Name=\"Server\"/>\n"
   "    <Macro Name=\"Gone\" Variable=\"VTR_UNSET\" Value=\"no fallback\"/>\n"
   "    <Macro Name=\"Plain\" Variable=\"\" Value=\"\"/>\n"
   "  </MigrationVars>\n";

TEST_F(SequenceScenario, ExtractedResolvedAndMigratedByBothDeferredActions)
{
   const auto result = Install(WithDocument("<?xml version=\"1.0\"?>\n<VantoraMigration>\n" + Macros + Rules +
                                            "</VantoraMigration>\n"));

   EXPECT_EQ(result.msiexecExitCode, 0u);
   for (const wchar_t *action : {L"ExtractMigrConfig", L"MigrateVantoraSvc", L"MigrateVantoraUser"}) {
      EXPECT_TRUE(result.actions.at(action).ran) << scenario::Narrow(action);
      EXPECT_EQ(result.actions.at(action).code, 0u) << scenario::Narrow(action);
   }
   EXPECT_EQ(result.propertiesSet.at(L"MigrateConfigFilepath"), Extracted());
   const std::string path = WideLog(Extracted());
   EXPECT_EQ(ExtractLines(result.logEntries),
             (Lines{"INFO Enter function: ExtractMigrConfig.", "INFO Enter function: ExtractFileFromTable.",
                    "INFO Extract file to " + path, "INFO vtrMigrateConf.xml extracted to " + path,
                    "INFO Leave function: ExtractFileFromTable.", "INFO Load MigrationVars section.",
                    "INFO Get installer property VTR_SERVER.", "INFO Get installer property VTR_UNSET.",
                    "ERRO Failed to get installer property VTR_UNSET, error = 0x000000EA.", "INFO Global macro table:",
                    "INFO Macro: Server Variable: VTR_SERVER Value: https://new.example.",
                    "INFO Macro: Gone Variable: VTR_UNSET Value: .", "INFO Macro: Plain Variable:  Value: .",
                    "INFO Macro: ProgramData Variable:  Value: C:\\ProgramData.",
                    "INFO Leave function: ExtractMigrConfig."}));

   // The section as the deferred actions got it: attributes in order, empty ones left out,
   // the comment gone, ProgramData last.
   const std::string kept = scenario::ReadFileBytes(Kept());
   EXPECT_NE(kept.find("<MigrationVars><Macro Name=\"Server\" Variable=\"VTR_SERVER\" Value=\"https://new.example\"/>"
                       "<Macro Name=\"Gone\" Variable=\"VTR_UNSET\"/><Macro Name=\"Plain\"/>"
                       "<Macro Name=\"ProgramData\" Value=\"C:\\ProgramData\"/></MigrationVars>"),
             std::string::npos)
      << kept;

   EXPECT_EQ(DumpTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Client"),
             (Lines{"Client", "Client: DataFolder = REG_SZ \"C:\\ProgramData\\Corvane\"",
                    "Client: Mirror = REG_SZ \"<>\"", "Client: ServerUrl = REG_SZ \"https://new.example\""}));
   EXPECT_EQ(DumpTree(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Corvane\\Client"),
             (Lines{"Client", "Client: DataFolder = REG_SZ \"C:\\ProgramData\\Eldrix\"", "Client: Mirror = REG_SZ \"old\"",
                    "Client: ServerUrl = REG_SZ \"https://new.example\""}));
   EXPECT_EQ(GetFileAttributesW(Extracted().c_str()), INVALID_FILE_ATTRIBUTES) << "the user action deletes it";
   EXPECT_TRUE(scenario::ReadValue(HKEY_LOCAL_MACHINE, MarkerKey, L"MigrationDone").has_value());
}

TEST_F(SequenceScenario, PackageWithoutTheDocumentEndsTheInstall)
{
   scenario::PackageChanges changes;
   changes.withoutConfigRow = true;
   const auto result = Install(changes);

   EXPECT_EQ(result.actions.at(L"ExtractMigrConfig").code, 2u);
   EXPECT_EQ(result.actions.count(L"MigrateVantoraSvc"), 0u);
   EXPECT_EQ(result.msiexecExitCode, 1603u);
   EXPECT_EQ(ExtractLines(result.logEntries),
             (Lines{"INFO Enter function: ExtractMigrConfig.", "INFO Enter function: ExtractFileFromTable.",
                    "ERRO Failed to fetch record, result = 259Last Error: ", "INFO Leave function: ExtractFileFromTable.",
                    "ERRO Installer can't extract configuration file from database.",
                    "INFO Leave function: ExtractMigrConfig."}));
}

TEST_F(SequenceScenario, BadlyFormedDocumentEndsTheInstall)
{
   const auto result = Install(WithDocument("<VantoraMigration>" + Macros));

   EXPECT_EQ(result.actions.at(L"ExtractMigrConfig").code, 15609u);
   EXPECT_EQ(result.propertiesSet.count(L"MigrateConfigFilepath"), 0u);
   EXPECT_EQ(result.actions.count(L"MigrateVantoraSvc"), 0u);
   const std::string path = WideLog(Extracted());
   EXPECT_EQ(EntriesStartingWith(ExtractLines(result.logEntries), {"ERRO"}),
             (Lines{"ERRO Failed to load XML file.Last Error: ", "ERRO Failed to load xml file from " + path + ".Last Error: ",
                    "ERRO Failed to update XML macros section."}));
   EXPECT_EQ(scenario::ReadFileBytes(Extracted()), "<VantoraMigration>" + Macros) << "left as extracted";
}

TEST_F(SequenceScenario, DocumentsWhoseSectionIsNotWrittenStillMigrate)
{
   const struct {
      const char *what;
      std::string xml;
      Lines service; // the new client's values
   } cases[] = {
      // Nothing to resolve: [$Server] and [$Gone] stay as written, ProgramData comes too late.
      {"no MigrationVars", "<VantoraMigration>" + Rules + "</VantoraMigration>",
       {"Client", "Client: DataFolder = REG_SZ \"[$ProgramData]\\Corvane\"", "Client: Mirror = REG_SZ \"<[$Gone]>\"",
        "Client: ServerUrl = REG_SZ \"[$Server]\""}},
      // The lenient root check lets the document through, the exact-case path finds no
      // section to write: the deferred actions read the document's own values.
      {"root in other case", "<VANTORAMIGRATION>" + Macros + Rules + "</VANTORAMIGRATION>",
       {"Client", "Client: DataFolder = REG_SZ \"[$ProgramData]\\Corvane\"", "Client: Mirror = REG_SZ \"<no fallback>\"",
        "Client: ServerUrl = REG_SZ \"from the document\""}},
   };
   for (const auto &c : cases) {
      SCOPED_TRACE(c.what);
      const auto result = Install(WithDocument(c.xml));

      EXPECT_EQ(result.actions.at(L"ExtractMigrConfig").code, 0u);
      EXPECT_EQ(result.actions.at(L"MigrateVantoraUser").code, 0u);
      EXPECT_EQ(EntriesStartingWith(ExtractLines(result.logEntries), {"ERRO Can't", "INFO Macro: ProgramData"}),
                (Lines{"INFO Macro: ProgramData Variable:  Value: C:\\ProgramData.",
                       "ERRO Can't locate the MigrationVars section."}));
      EXPECT_NE(scenario::ReadFileBytes(Kept()).find("<ServiceMigration>"), std::string::npos) << "saved all the same";
      EXPECT_EQ(DumpTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Client"), c.service);
      TearDown();
      SetUp();
   }
}

} // namespace
