// The custom actions' frame inside a real install: the marker, CustomActionData, result
// codes and the trace lines around each action.
#include "ScenarioFixture.h"

#include <algorithm>

namespace {

using scenario::ActionOutcome;
using Lines = std::vector<std::string>;

TEST_F(InstallScenario, MarkerSetMakesEveryActionStandDown)
{
   const DWORD one = 1;
   SetMarker(REG_DWORD, &one, 4);
   const std::wstring extracted = scenario::TempDirectory() + L"vtrMigrateConf.xml";
   DeleteFileW(extracted.c_str());
   const auto result = Install();

   EXPECT_TRUE(result.actions.at(L"ExtractMigrConfig").ran);
   EXPECT_EQ(result.actions.at(L"ExtractMigrConfig").code, 0u);
   EXPECT_EQ(result.propertiesSet.count(L"MigrateConfigFilepath"), 0u) << "the path must stay unset";
   EXPECT_EQ(GetFileAttributesW(extracted.c_str()), INVALID_FILE_ATTRIBUTES) << "nothing extracted";
   // Without a path the package's conditions keep the deferred actions out, and the install
   // (a repair or a later upgrade, typically) succeeds.
   EXPECT_EQ(result.actions.count(L"MigrateVantoraSvc"), 0u);
   EXPECT_EQ(result.actions.count(L"MigrateVantoraUser"), 0u);
   EXPECT_EQ(result.msiexecExitCode, 0u);

   EXPECT_EQ(result.logEntries, (Lines{
                                   "INFO Enter function: ExtractMigrConfig.",
                                   "INFO Migration has already been performed; exiting.",
                                   "INFO Leave function: ExtractMigrConfig.",
                                }));
}

TEST_F(InstallScenario, CustomActionDataLongerThanTheBufferFailsTheServiceAction)
{
   struct Case {
      size_t length;
      unsigned code;
      const char *line;
   } cases[] = {
      // 259 characters fit the 260-character buffer: the read succeeds and the load fails.
      {259, 1006, "ERRO Load migration configuration for services failed."},
      {260, 1603, "ERRO Failed to fetch migration config file."},
      {400, 1603, "ERRO Failed to fetch migration config file."},
   };
   for (const Case &c : cases) {
      SCOPED_TRACE(c.length);
      std::wstring path = L"C:\\missing\\";
      path += std::wstring(c.length - path.size() - 4, L'x') + L".xml";
      ASSERT_EQ(path.size(), c.length);
      scenario::PackageChanges changes;
      changes.properties.push_back({L"MigrateConfigFilepath", path});
      changes.skippedActions.push_back(L"ExtractMigrConfig");
      const auto result = Install(changes);

      EXPECT_EQ(result.actions.at(L"MigrateVantoraSvc").code, c.code);
      const Lines errors = EntriesStartingWith(result.logEntries, {"ERRO"});
      ASSERT_FALSE(errors.empty());
      EXPECT_EQ(errors.back(), c.line);
      EXPECT_EQ(result.logEntries.back(), "INFO Leave function: MigrateVantoraSvc.");
      TearDown();
   }
}

TEST_F(InstallScenario, UserActionChecksBothFieldsOfCustomActionData)
{
   // CustomActionData is given directly, in place of the property-setting action. With the
   // marker set, the load stands down and only the field checks and the tail of the action
   // remain to be seen.
   const DWORD one = 1;
   const Lines loadStandsDown = {"INFO Enter function: LoadMigrationConfiguration.",
                                 "INFO The previous migration done, pass migration services.",
                                 "INFO Leave function: LoadMigrationConfiguration."};
   struct Case {
      const wchar_t *customActionData;
      unsigned code;
      Lines between; // the lines between Enter and Leave of MigrateVantoraUser
   } cases[] = {
      {L";S-1-5-21-0-0-0-1000", 1603, {"ERRO Failed to extract xml file path from CustomActionData."}},
      {L"C:\\doc.xml", 1603, {"ERRO Failed to extract logged in user sid path."}},
      {L"C:\\doc.xml;", 1603, {"ERRO Failed to extract logged in user sid path."}},
      {L"C:\\doc.xml;S-1-5-21-0-0-0-1000;extra", 0, loadStandsDown},
   };
   for (const Case &c : cases) {
      SCOPED_TRACE(scenario::Narrow(c.customActionData));
      SetMarker(REG_DWORD, &one, 4);
      scenario::PackageChanges changes;
      changes.skippedActions = {L"ExtractMigrConfig", L"SetMigrateVantoraUserData"};
      changes.properties = {{L"MigrateConfigFilepath", L"C:\\doc.xml"}, {L"MigrateVantoraUser", c.customActionData}};
      const auto result = Install(changes);

      EXPECT_EQ(result.actions.at(L"MigrateVantoraUser").code, c.code);
      Lines expected = {"INFO Enter function: MigrateVantoraUser."};
      expected.insert(expected.end(), c.between.begin(), c.between.end());
      expected.push_back("INFO Leave function: MigrateVantoraUser.");
      const auto userStart = std::find(result.logEntries.begin(), result.logEntries.end(), expected.front());
      // The users that the action still visits (see tests/e2e/UserMigrationTest.cpp) are left out.
      EXPECT_EQ(EntriesStartingWith(Lines(userStart, result.logEntries.end()),
                                    {"INFO Enter", "INFO Leave", "INFO The previous", "ERRO Failed to extract"}),
                expected);
      TearDown();
   }
}

} // namespace
