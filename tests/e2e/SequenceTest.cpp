// The whole installer sequence, nothing handed over by hand: the document comes out of the
// package, gets its macros resolved in the immediate action and reaches both deferred
// actions through CustomActionData; with the marker set, nothing of that happens. One
// install per row.
#include <algorithm>

#include "ScenarioFixture.h"

namespace {

using Lines = std::vector<std::string>;

// The service rule copies the old client's Url, the user action's machine pass copies it
// again below the new key; both through the same macros.
const std::string Rules =
   "<ServiceMigration><RegistryKey Root='HKLM' SourcePath='Software\\Eldrix, Inc.\\Vantora Client' DestPath='Software\\"
   "Corvane\\Client' Action='Overwrite'><Value OldName='Url' Action='Overwrite' NewValue='[$ProgramData];[$Server];[$Gone]'/>"
   "</RegistryKey></ServiceMigration><UsersMigration><RegistryKey Root='HKLM' SourcePath='Software\\Eldrix, Inc.\\Vantora "
   "Client' DestPath='Software\\Corvane\\Client\\User' Action='Overwrite'><Value OldName='Url' Action='Overwrite' NewValue="
   "'[$ProgramData];[$Server];[$Gone]'/></RegistryKey></UsersMigration>";
const std::string Macros = "<MigrationVars>\n <!-- resolved at install time -->\n <Macro Value='from the document' "
                           "Variable='VTR_SERVER' Name='Server'/><Macro Name='Gone' Variable='VTR_UNSET' Value='no "
                           "fallback'/><Macro Name='Plain' Variable='' Value=''/></MigrationVars>";
const std::string Unset = "ERRO Failed to get installer property VTR_UNSET, error = 0x000000EA.";
const std::string NoSection = "ERRO Can't locate the MigrationVars section.";

Lines Migrated(const std::string &url) // the new client's key after both deferred actions
{
   return {"Client", "Client: Url = REG_SZ \"" + url + "\"", "Client\\User", "Client\\User: Url = REG_SZ \"" + url + "\""};
}

TEST_F(InstallScenario, WholeSequence)
{
   const std::wstring extracted = scenario::TempDirectory() + L"vtrMigrateConf.xml";
   const std::string path = scenario::Narrow(extracted);
   const struct {
      const char *label;
      std::optional<std::string> xml; // none: no Binary row for the document
      bool marker;                    // MigrationDone set before the install
      unsigned code;                  // of ExtractMigrConfig
      Lines problems;                 // its lines that aren't progress
      std::string section;            // in the written-back document
      Lines migrated;
   } cases[] = {
      {"resolved", "<?xml version='1.0'?><VantoraMigration>" + Macros + Rules + "</VantoraMigration>", false, 0, {Unset},
       "<MigrationVars><Macro Name=\"Server\" Variable=\"VTR_SERVER\" Value=\"https://new.example\"/><Macro Name=\"Gone\" "
       "Variable=\"VTR_UNSET\"/><Macro Name=\"Plain\"/><Macro Name=\"ProgramData\" Value=\"C:\\ProgramData\"/></MigrationVars>",
       Migrated("C:\\ProgramData;https://new.example;")},
      {"no section", "<VantoraMigration>" + Rules + "</VantoraMigration>", false, 0, {NoSection}, "<ServiceMigration>",
       Migrated("[$ProgramData];[$Server];[$Gone]")},
      // The lenient root check lets it through, the exact-case path finds no section to write.
      {"root in other case", "<VANTORAMIGRATION>" + Macros + Rules + "</VANTORAMIGRATION>", false, 0, {Unset, NoSection},
       "<!-- resolved at install time -->", Migrated("[$ProgramData];from the document;no fallback")},
      // Without a path the package's conditions keep the deferred actions out, and the
      // install (a repair or a later upgrade, typically) succeeds.
      {"marker set", "<VantoraMigration>" + Macros + Rules + "</VantoraMigration>", true, 0, {}, "", {}},
      {"no document in the package", std::nullopt, false, 2,
       {"ERRO Failed to fetch record, result = 259Last Error: ", "ERRO Installer can't extract configuration file from database."},
       "", {}},
      {"not well-formed", "<VantoraMigration>" + Macros, false, 15609,
       {"ERRO Failed to load XML file.Last Error: ", "ERRO Failed to load xml file from " + path + ".Last Error: ",
        "ERRO Failed to update XML macros section."}, "", {}},
   };
   for (const auto &c : cases) {
      SCOPED_TRACE(c.label);
      scenario::WriteString(HKEY_LOCAL_MACHINE, L"Software\\Eldrix, Inc.\\Vantora Client", L"Url", L"old");
      DeleteFileW(extracted.c_str());
      if (c.marker) {
         SetMarker(1);
      }
      auto result = Install({.configXml = c.xml, .withoutConfigRow = !c.xml,
                             .properties = {{L"VTR_SERVER", L"https://new.example"}},
                             .keptDocument = workDirectory_ + L"kept.xml"});

      EXPECT_EQ(result.actions.at(L"ExtractMigrConfig").code, c.code);
      const bool handedOn = c.code == 0 && !c.marker;
      EXPECT_EQ(result.actions[L"MigrateVantoraSvc"].ran || result.actions[L"MigrateVantoraUser"].ran, handedOn);
      EXPECT_EQ(result.propertiesSet.count(L"MigrateConfigFilepath"), handedOn ? 1u : 0u);
      EXPECT_EQ(result.msiexecExitCode, c.code == 0 ? 0u : 1603u);
      const Lines &log = result.logEntries;
      const auto leave = std::find(log.begin(), log.end(), "INFO Leave function: ExtractMigrConfig.");
      EXPECT_EQ(EntriesStartingWith(scenario::CutErrorTexts({log.begin(), leave}), {"ERRO", "WARN"}), c.problems);
      if (handedOn) {
         // Written to the immediate action's temporary folder, handed on, deleted at the end.
         EXPECT_EQ(result.actions[L"MigrateVantoraSvc"].code + result.actions[L"MigrateVantoraUser"].code, 0u);
         EXPECT_EQ(result.propertiesSet[L"MigrateConfigFilepath"], extracted);
         EXPECT_NE(scenario::ReadFileBytes(workDirectory_ + L"kept.xml").find(c.section), std::string::npos);
         EXPECT_EQ(GetFileAttributesW(extracted.c_str()), INVALID_FILE_ATTRIBUTES);
      }
      EXPECT_EQ(scenario::DumpTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane\\Client"), c.migrated);
      TearDown();
      SetUp();
   }
}

} // namespace
