#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "HandleGuards.h"
#include "LogCapture.h"
#include "MsiScenario.h"
#include "actions/CustomActions.h"

namespace {

using Lines = std::vector<std::string>;

TEST(NextDelimitedToken, SuccessiveFields)
{
   const struct {
      const wchar_t *source;
      const wchar_t *delimiter;
      std::vector<std::wstring> fields;  // successive calls from position 0
      std::vector<size_t> positions;     // position after each call
   } rows[] = {
      {L"a;b", L";", {L"a", L"b", L""}, {2, 3, 3}},
      {L"a;", L";", {L"a", L""}, {2, 2}},
      {L";b", L";", {L"", L"b"}, {1, 2}},
      {L"path;sid;extra", L";", {L"path", L"sid", L"extra", L""}, {5, 9, 14, 14}},
      {L"", L";", {L"", L""}, {0, 0}},
      {L";;", L";", {L"", L"", L""}, {1, 2, 2}},
      {L"CORP\\alice", L"\\", {L"CORP", L"alice"}, {5, 10}},
      // A longer delimiter still advances by one character past where it starts.
      {L"a::b", L"::", {L"a", L":b"}, {2, 4}},
   };
   for (const auto &r : rows) {
      size_t position = 0;
      for (size_t i = 0; i < r.fields.size(); ++i) {
         EXPECT_EQ(NextDelimitedToken(r.source, r.delimiter, position), r.fields[i]) << scenario::Narrow(r.source);
         EXPECT_EQ(position, r.positions[i]) << scenario::Narrow(r.source);
      }
   }
   size_t beyond = 4;
   EXPECT_THROW(NextDelimitedToken(L"abc", L";", beyond), std::out_of_range);
}

class MarkerTest : public ::testing::Test
{
protected:
   void SetUp() override { scenario::DeleteTree(HKEY_LOCAL_MACHINE, NewVendorKeyPath); }
   void TearDown() override { scenario::DeleteTree(HKEY_LOCAL_MACHINE, NewVendorKeyPath); }
};

TEST_F(MarkerTest, OnlyTheNumberOneCounts)
{
   EXPECT_FALSE(IsMigrationDone()) << "no key";
   ASSERT_TRUE(scenario::CreateKey(HKEY_LOCAL_MACHINE, NewVendorKeyPath));
   EXPECT_FALSE(IsMigrationDone()) << "no value";
   const struct {
      const char *what;
      scenario::RegValue marker;
      bool done;
   } rows[] = {
      {"dword 1", scenario::DwordValue(MigrationDoneValueName, 1), true},
      {"dword 2", scenario::DwordValue(MigrationDoneValueName, 2), false},
      {"dword 0", scenario::DwordValue(MigrationDoneValueName, 0), false},
      {"the type is not looked at", {MigrationDoneValueName, REG_BINARY, {1, 0, 0, 0}}, true},
      {"one byte over a zeroed variable", {MigrationDoneValueName, REG_BINARY, {1}}, true},
      {"a qword is too long for the variable", {MigrationDoneValueName, REG_QWORD, {1, 0, 0, 0, 0, 0, 0, 0}}, false},
      {"text \"1\" reads as 0x31", scenario::TextValue(MigrationDoneValueName, L"1"), false},
   };
   for (const auto &r : rows) {
      ASSERT_TRUE(scenario::WriteValue(HKEY_LOCAL_MACHINE, NewVendorKeyPath, r.marker));
      EXPECT_EQ(IsMigrationDone(), r.done) << r.what;
   }
}

TEST(SetProcessPrivilege, EnablesAndDisablesSilentlyOrLogsWhatFailed)
{
   UniqueHandle token;
   ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, token.put()));
   const struct {
      HANDLE token;
      const wchar_t *name;
      int enable;
      const char *failure;  // the one line logged, the system's text cut off, or null
   } rows[] = {
      {token.get(), L"SeBackupPrivilege", 1, nullptr},
      {token.get(), L"SeRestorePrivilege", 0, nullptr},
      {token.get(), L"SeTakeOwnershipPrivilege", 1, nullptr},
      {token.get(), L"SeNoSuchPrivilege", 1, "ERRO LookupPrivilegeValue error.Last Error: "},
      {nullptr, L"SeBackupPrivilege", 1, "ERRO AdjustTokenPrivileges failed.Last Error: "},
   };
   for (const auto &r : rows) {
      LogCapture capture;
      EXPECT_EQ(SetProcessPrivilege(r.token, r.name, r.enable), r.failure == nullptr) << scenario::Narrow(r.name);
      EXPECT_EQ(capture.Lines(L""), r.failure ? Lines{r.failure} : Lines{}) << scenario::Narrow(r.name);
   }
}

} // namespace
