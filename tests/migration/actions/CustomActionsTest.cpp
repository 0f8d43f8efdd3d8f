#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "actions/CustomActions.h"

namespace {

struct TokenCase {
   const wchar_t *source;
   const wchar_t *delimiter;
   std::vector<std::wstring> fields; // successive calls from position 0
   std::vector<size_t> positions;    // position after each call
};

TEST(NextDelimitedToken, SuccessiveFields)
{
   const TokenCase cases[] = {
      {L"a;b", L";", {L"a", L"b", L""}, {2, 3, 3}},
      {L"a;", L";", {L"a", L""}, {2, 2}},
      {L";b", L";", {L"", L"b"}, {1, 2}},
      {L"path;sid;extra", L";", {L"path", L"sid", L"extra", L""}, {5, 9, 14, 14}},
      {L"", L";", {L"", L""}, {0, 0}},
      {L";;", L";", {L"", L"", L""}, {1, 2, 2}},
      {L"C:\\Temp\\doc.xml", L";", {L"C:\\Temp\\doc.xml"}, {15}},
      {L"CORP\\alice", L"\\", {L"CORP", L"alice"}, {5, 10}},
      // A longer delimiter still advances by one character past where it starts.
      {L"a::b", L"::", {L"a", L":b"}, {2, 4}},
   };
   for (const TokenCase &c : cases) {
      const std::wstring source = c.source;
      size_t position = 0;
      for (size_t i = 0; i < c.fields.size(); ++i) {
         EXPECT_EQ(NextDelimitedToken(source, c.delimiter, position), c.fields[i]) << "source " << i;
         EXPECT_EQ(position, c.positions[i]);
      }
   }
}

TEST(NextDelimitedToken, PositionBeyondTheEndIsAnAccessFailure)
{
   size_t position = 4;
   EXPECT_THROW(NextDelimitedToken(L"abc", L";", position), std::out_of_range);
}

class MarkerTest : public ::testing::Test
{
protected:
   void SetUp() override { RegDeleteTreeW(HKEY_LOCAL_MACHINE, NewVendorKeyPath.c_str()); }
   void TearDown() override { RegDeleteTreeW(HKEY_LOCAL_MACHINE, NewVendorKeyPath.c_str()); }

   static void SetMarker(DWORD type, const void *data, DWORD size)
   {
      HKEY key;
      ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, NewVendorKeyPath.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr,
                                &key, nullptr),
                ERROR_SUCCESS);
      ASSERT_EQ(RegSetValueExW(key, MigrationDoneValueName.c_str(), 0, type, static_cast<const BYTE *>(data), size),
                ERROR_SUCCESS);
      RegCloseKey(key);
   }
};

TEST_F(MarkerTest, NoKeyMeansNotDone)
{
   EXPECT_FALSE(IsMigrationDone());
}

TEST_F(MarkerTest, OnlyTheNumberOneCounts)
{
   const DWORD one = 1, two = 2, zero = 0;
   const ULONGLONG wideOne = 1;
   const BYTE oneByte = 1;
   const wchar_t text[] = L"1";
   struct Case {
      const char *what;
      DWORD type;
      const void *data;
      DWORD size;
      bool done;
   } cases[] = {
      {"dword 1", REG_DWORD, &one, 4, true},
      {"dword 2", REG_DWORD, &two, 4, false},
      {"dword 0", REG_DWORD, &zero, 4, false},
      {"binary 01 00 00 00: the type is not looked at", REG_BINARY, &one, 4, true},
      {"one byte 01 over a zeroed variable", REG_BINARY, &oneByte, 1, true},
      {"qword 1 is too long for the variable", REG_QWORD, &wideOne, 8, false},
      {"text \"1\" reads as 0x31", REG_SZ, text, sizeof(text), false},
   };
   for (const Case &c : cases) {
      SetMarker(c.type, c.data, c.size);
      EXPECT_EQ(IsMigrationDone(), c.done) << c.what;
   }
}

TEST_F(MarkerTest, KeyWithoutTheValueMeansNotDone)
{
   const DWORD one = 1;
   SetMarker(REG_DWORD, &one, 4);
   HKEY key;
   ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, NewVendorKeyPath.c_str(), 0, KEY_WRITE, &key), ERROR_SUCCESS);
   RegDeleteValueW(key, MigrationDoneValueName.c_str());
   RegCloseKey(key);
   EXPECT_FALSE(IsMigrationDone());
}

TEST_F(MarkerTest, LoadWithMarkerSetLeavesTheConfigurationEmpty)
{
   const DWORD one = 1;
   SetMarker(REG_DWORD, &one, 4);
   LogCapture capture;
   MigrationConfig config;
   EXPECT_EQ(LoadMigrationConfiguration(0, config, L""), ERROR_SUCCESS);
   EXPECT_TRUE(config.Macros.empty() && config.ServiceKeys.empty() && config.UserKeys.empty() &&
               config.ConfigFiles.empty());
   EXPECT_EQ(capture.Entries(), (std::vector<std::string>{
                                   "INFO Enter function: LoadMigrationConfiguration.",
                                   "INFO The previous migration done, pass migration services.",
                                   "INFO Leave function: LoadMigrationConfiguration.",
                                }));
}

TEST(SetProcessPrivilege, UnknownPrivilegeFailsTheLookup)
{
   LogCapture capture;
   HANDLE token;
   ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token));
   EXPECT_FALSE(SetProcessPrivilege(token, L"SeNoSuchPrivilege", 1));
   CloseHandle(token);
   const auto entries = capture.Entries();
   ASSERT_EQ(entries.size(), 1u);
   EXPECT_EQ(entries[0].rfind("ERRO LookupPrivilegeValue error.Last Error: ", 0), 0u) << entries[0];
}

TEST(SetProcessPrivilege, EnablesAndDisablesSilently)
{
   LogCapture capture;
   HANDLE token;
   ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token));
   for (const wchar_t *name : {L"SeBackupPrivilege", L"SeRestorePrivilege", L"SeTakeOwnershipPrivilege"}) {
      EXPECT_TRUE(SetProcessPrivilege(token, name, 1));
      EXPECT_TRUE(SetProcessPrivilege(token, name, 0));
   }
   CloseHandle(token);
   EXPECT_TRUE(capture.Entries().empty());
}

TEST(SetProcessPrivilege, InvalidTokenFailsTheAdjustment)
{
   LogCapture capture;
   EXPECT_FALSE(SetProcessPrivilege(nullptr, L"SeBackupPrivilege", 1));
   const auto entries = capture.Entries();
   ASSERT_EQ(entries.size(), 1u);
   EXPECT_EQ(entries[0].rfind("ERRO AdjustTokenPrivileges failed.Last Error: ", 0), 0u) << entries[0];
}

} // namespace
