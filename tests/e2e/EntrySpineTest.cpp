// The custom actions' frame inside a real install: CustomActionData, the result codes msi
// sees and the trace lines around each action.
#include "ScenarioFixture.h"

#include <algorithm>

namespace {

using Lines = std::vector<std::string>;

TEST_F(InstallScenario, CustomActionDataLongerThanTheBufferFailsTheServiceAction)
{
   // 259 characters fit the 260-character buffer: the read succeeds, the load fails, and the
   // action hands its code on.
   const struct {
      size_t length;
      unsigned code;
      const char *line;
   } rows[] = {
      {259, 1006, "ERRO Load migration configuration for services failed."},
      {260, 1603, "ERRO Failed to fetch migration config file."},
   };
   for (const auto &r : rows) {
      SCOPED_TRACE(r.length);
      const std::wstring path = L"C:\\missing\\" + std::wstring(r.length - 15, L'x') + L".xml";
      scenario::PackageChanges changes;
      changes.properties.push_back({L"MigrateConfigFilepath", path});
      changes.skippedActions.push_back(L"ExtractMigrConfig");
      const auto result = Install(changes);

      EXPECT_EQ(result.actions.at(L"MigrateVantoraSvc").code, r.code);
      const Lines errors = EntriesStartingWith(result.logEntries, {"ERRO"});
      ASSERT_FALSE(errors.empty());
      EXPECT_EQ(errors.back(), r.line);
      EXPECT_EQ(result.logEntries.back(), "INFO Leave function: MigrateVantoraSvc.");
      TearDown();
   }
}

TEST_F(InstallScenario, UserActionChecksBothFieldsOfCustomActionData)
{
   // CustomActionData is given directly, in place of the property-setting action. With the
   // marker set, the load stands down and only the field checks and the tail of the action
   // remain to be seen; an empty path is the first scenario's.
   const struct {
      const wchar_t *customActionData;
      unsigned code;
      Lines between;  // the lines between Enter and Leave of MigrateVantoraUser
   } rows[] = {
      {L"C:\\doc.xml;", 1603, {"ERRO Failed to extract logged in user sid path."}},
      {L"C:\\doc.xml;S-1-5-21-0-0-0-1000;extra", 0,
       {"INFO Enter function: LoadMigrationConfiguration.", "INFO The previous migration done, pass migration services.",
        "INFO Leave function: LoadMigrationConfiguration."}},
   };
   for (const auto &r : rows) {
      SCOPED_TRACE(scenario::Narrow(r.customActionData));
      SetMarker(1);
      scenario::PackageChanges changes;
      changes.skippedActions = {L"ExtractMigrConfig", L"SetMigrateVantoraUserData"};
      changes.properties = {{L"MigrateConfigFilepath", L"C:\\doc.xml"}, {L"MigrateVantoraUser", r.customActionData}};
      const auto result = Install(changes);

      EXPECT_EQ(result.actions.at(L"MigrateVantoraUser").code, r.code);
      Lines expected = {"INFO Enter function: MigrateVantoraUser."};
      expected.insert(expected.end(), r.between.begin(), r.between.end());
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
