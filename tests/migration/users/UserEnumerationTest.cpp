// User enumeration against real hives in the Wine prefix: hive files made with RegSaveKeyW,
// loaded by the code with RegLoadKeyW. The accounts come from fakes of the calls Wine can't
// answer for other users (see UserPlatformCalls).
#include <windows.h>
#include <sddl.h>

#include <gtest/gtest.h>

#include "HandleGuards.h"
#include "LogCapture.h"
#include "MsiScenario.h"
#include "actions/CustomActions.h"
#include "users/UserContext.h"

namespace {

using Lines = std::vector<std::string>;
using Names = std::vector<std::wstring>;

struct Account {
   const wchar_t *name;
   const wchar_t *sid;
   const wchar_t *domain;
   DWORD flags;
   const wchar_t *profile; // ProfileImagePath, or null for one who never logged on
   bool classesHive;       // UsrClass.dat beside NTUSER.DAT
};

// NetUserEnum gives the first five, in two buffers; eve is a domain user who is logged
// on, her hives loaded before each test. dan's NTUSER.DAT exists where an expanded path
// would find it; bob's profile would put him in the list if he weren't skipped.
const Account Accounts[] = {
   {L"vtr-ann", L"S-1-5-21-7-7-7-1001", L"VTRBOX", 0, L"C:\\users\\vtr-ann", true},
   {L"vtr-bob", L"S-1-5-21-7-7-7-1002", L"VTRBOX", UF_ACCOUNTDISABLE, L"C:\\users\\vtr-bob", true},
   {L"vtr-cid", L"S-1-5-21-7-7-7-1003", L"VTRBOX", 0, nullptr, false},
   {L"vtr-dan", L"S-1-5-21-7-7-7-1004", L"VTRBOX", 0, L"%SystemDrive%\\users\\vtr-dan", true},
   {L"vtr-fay", L"S-1-5-21-7-7-7-1005", L"VTRBOX", 0, L"C:\\users\\vtr-fay", false},
   {L"vtr-eve", L"S-1-5-21-8-8-8-2001", L"CORP", 0, L"C:\\users\\vtr-eve", true},
};
const Account &Eve = Accounts[5];

std::vector<std::wstring> lookedUp;   // names that LookupAccountNameW was asked to size
std::vector<DWORD> resumeHandles;     // as each NetUserEnum call received its handle
NET_API_STATUS enumerationFailure = 0;

const Account *FindAccount(const wchar_t *name, const wchar_t *sid, size_t count)
{
   for (size_t i = 0; i < count; ++i) {
      if ((name && wcscmp(name, Accounts[i].name) == 0) || (sid && wcscmp(sid, Accounts[i].sid) == 0)) {
         return &Accounts[i];
      }
   }
   return nullptr;
}

NET_API_STATUS WINAPI FakeNetUserEnum(LPCWSTR server, DWORD level, DWORD filter, LPBYTE *buffer, DWORD preferred,
                                      LPDWORD read, LPDWORD total, LPDWORD resume)
{
   resumeHandles.push_back(*resume);
   if (enumerationFailure != 0 || server || level != 1 || filter != FILTER_NORMAL_ACCOUNT ||
       preferred != MAX_PREFERRED_LENGTH || resumeHandles.size() > 2) {
      return enumerationFailure ? enumerationFailure : ERROR_INVALID_PARAMETER;
   }
   const bool first = *resume == 0;
   const DWORD begin = first ? 0 : 3, count = first ? 3 : 2;
   USER_INFO_1 *entries = nullptr;
   NetApiBufferAllocate(count * sizeof(USER_INFO_1), reinterpret_cast<void **>(&entries));
   for (DWORD i = 0; i < count; ++i) {
      entries[i] = USER_INFO_1{};
      entries[i].usri1_name = const_cast<wchar_t *>(Accounts[begin + i].name);
      entries[i].usri1_flags = Accounts[begin + i].flags | UF_SCRIPT;
   }
   *buffer = reinterpret_cast<BYTE *>(entries);
   *read = count;
   *total = 5;
   *resume = first ? 7 : 0;
   return first ? ERROR_MORE_DATA : NERR_Success;
}

BOOL WINAPI FakeLookupAccountNameW(LPCWSTR, LPCWSTR name, PSID sid, LPDWORD sidSize, LPWSTR domain,
                                   LPDWORD domainLength, PSID_NAME_USE use)
{
   if (sid == nullptr) {
      lookedUp.push_back(name);
   }
   const Account *account = FindAccount(name, nullptr, 5);
   PSID binary = nullptr;
   if (account == nullptr || !ConvertStringSidToSidW(account->sid, &binary)) {
      SetLastError(ERROR_NONE_MAPPED);
      return FALSE;
   }
   UniqueLocalMemory owned(binary);
   const DWORD needSid = GetLengthSid(binary), needDomain = DWORD(wcslen(account->domain) + 1);
   if (*sidSize < needSid || *domainLength < needDomain) {
      *sidSize = needSid;
      *domainLength = needDomain;
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return FALSE;
   }
   CopySid(*sidSize, sid, binary);
   wcscpy_s(domain, *domainLength, account->domain);
   *use = SidTypeUser;
   return TRUE;
}

BOOL WINAPI FakeLookupAccountSidW(LPCWSTR, PSID sid, LPWSTR name, LPDWORD nameLength, LPWSTR domain,
                                  LPDWORD domainLength, PSID_NAME_USE use)
{
   wchar_t *text = nullptr;
   ConvertSidToStringSidW(sid, &text);
   UniqueLocalMemory owned(text);
   const Account *account = FindAccount(nullptr, text, std::size(Accounts));
   if (account == nullptr) {
      SetLastError(ERROR_NONE_MAPPED);
      return FALSE;
   }
   wcscpy_s(name, *nameLength, account->name);
   wcscpy_s(domain, *domainLength, account->domain);
   *use = SidTypeUser;
   return TRUE;
}

DWORD WINAPI FakeDsGetDcNameW(LPCWSTR, LPCWSTR domain, GUID *, LPCWSTR, ULONG flags, PDOMAIN_CONTROLLER_INFOW *info)
{
   if (wcscmp(domain, L"CORP") != 0 || flags != DS_RETURN_DNS_NAME) {
      return ERROR_NO_SUCH_DOMAIN;
   }
   NetApiBufferAllocate(sizeof(DOMAIN_CONTROLLER_INFOW), reinterpret_cast<void **>(info));
   **info = DOMAIN_CONTROLLER_INFOW{};
   (*info)->DomainName = const_cast<wchar_t *>(L"corp.example.com");
   return ERROR_SUCCESS;
}

std::wstring HivePath(const Account &account, bool classes)
{
   return classes ? BuildClassesHivePath(account.name) : std::wstring(account.profile) + L"\\NTUSER.DAT";
}

// What a mounted key shows of its file: "<name> <file>", or empty without a key.
std::wstring HiveMark(HKEY key)
{
   const auto value = scenario::ReadValue(key, L"", L"Hive");
   return value ? std::wstring(reinterpret_cast<const wchar_t *>(value->data.data())) : L"";
}

class UserEnumerationTest : public testing::Test
{
protected:
   static void SetUpTestSuite()
   {
      UniqueHandle token;
      OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, token.put());
      SetProcessPrivilege(token.get(), L"SeBackupPrivilege", 1);
      SetProcessPrivilege(token.get(), L"SeRestorePrivilege", 1);
      for (const Account &account : Accounts) {
         if (account.profile == nullptr) {
            continue;
         }
         const std::wstring folder = std::wstring(L"C:\\users\\") + account.name;
         const std::wstring key = std::wstring(scenario::ProfileListPath) + L"\\" + account.sid;
         ASSERT_TRUE(scenario::WriteValue(HKEY_LOCAL_MACHINE, key, Text(L"ProfileImagePath", account.profile)));
         for (bool classes : {false, true}) {
            const std::wstring file = classes ? BuildClassesHivePath(account.name) : folder + L"\\NTUSER.DAT";
            const std::wstring mark = std::wstring(account.name) + (classes ? L" UsrClass.dat" : L" NTUSER.DAT");
            if (!classes || account.classesHive) {
               ASSERT_TRUE(scenario::SaveHiveFile(file, {{L"", Text(L"Hive", mark)}}));
            }
         }
      }
   }

   static void TearDownTestSuite()
   {
      for (const Account &account : Accounts) {
         scenario::DeleteTree(HKEY_LOCAL_MACHINE, std::wstring(scenario::ProfileListPath) + L"\\" + account.sid);
         scenario::RemoveTree(std::wstring(L"C:\\users\\") + account.name);
      }
   }

   static scenario::RegValue Text(const std::wstring &name, const std::wstring &text)
   {
      const BYTE *bytes = reinterpret_cast<const BYTE *>(text.c_str());
      return {name, REG_EXPAND_SZ, std::vector<BYTE>(bytes, bytes + (text.size() + 1) * sizeof(wchar_t))};
   }

   void SetUp() override
   {
      mountsBefore_ = scenario::SubKeyNames(HKEY_USERS);
      savedPlatform_ = userPlatform;
      userPlatform.NetUserEnum = FakeNetUserEnum;
      userPlatform.LookupAccountNameW = FakeLookupAccountNameW;
      userPlatform.LookupAccountSidW = FakeLookupAccountSidW;
      userPlatform.DsGetDcNameW = FakeDsGetDcNameW;
      lookedUp.clear();
      resumeHandles.clear();
      enumerationFailure = 0;
      for (bool classes : {false, true}) {
         ASSERT_EQ(RegLoadKeyW(HKEY_USERS, EveMount(classes).c_str(), HivePath(Eve, classes).c_str()), ERROR_SUCCESS);
      }
   }

   void TearDown() override
   {
      userPlatform = savedPlatform_;
      for (bool classes : {false, true}) {
         EXPECT_EQ(RegUnLoadKeyW(HKEY_USERS, EveMount(classes).c_str()), ERROR_SUCCESS) << "eve's hives stay loaded";
      }
      EXPECT_EQ(scenario::SubKeyNames(HKEY_USERS), mountsBefore_);
      for (const Account &account : Accounts) {
         for (bool classes : {false, true}) {
            const std::wstring file = account.profile ? HivePath(account, classes) : L"";
            EXPECT_TRUE(!scenario::PathExists(file) || scenario::FileIsFree(file)) << scenario::Narrow(file);
         }
      }
   }

   static std::wstring EveMount(bool classes) { return std::wstring(Eve.sid) + (classes ? L"_Classes" : L""); }

   Names mountsBefore_;
   UserPlatformCalls savedPlatform_{};
};

std::vector<std::string> ShortEntries(const LogCapture &capture)
{
   std::vector<std::string> entries = capture.Entries();
   for (std::string &entry : entries) {
      entry = scenario::WithoutSystemText(entry);
   }
   return entries;
}

TEST_F(UserEnumerationTest, LocalAccountsInOrderThenTheLoggedOnDomainUser)
{
   LogCapture capture;
   std::vector<UserContext> users;
   EnumerateUsers(users, Eve.sid);

   struct Row {
      const wchar_t *name, *domain, *profile;
      bool hiveLoaded, classesLoaded;
      const wchar_t *hive, *classes; // what the open keys show
   } const expected[] = {
      {L"vtr-ann", L"VTRBOX", L"C:\\users\\vtr-ann", true, true, L"vtr-ann NTUSER.DAT", L"vtr-ann UsrClass.dat"},
      {L"vtr-dan", L"VTRBOX", L"%SystemDrive%\\users\\vtr-dan", false, false, L"", L""},
      {L"vtr-fay", L"VTRBOX", L"C:\\users\\vtr-fay", true, false, L"vtr-fay NTUSER.DAT", L""},
      {L"vtr-eve", L"corp.example.com", L"C:\\users\\vtr-eve", false, false, L"vtr-eve NTUSER.DAT",
       L"vtr-eve UsrClass.dat"},
   };
   ASSERT_EQ(users.size(), std::size(expected));
   for (size_t i = 0; i < users.size(); ++i) {
      const UserContext &u = users[i];
      const Row &row = expected[i];
      EXPECT_EQ(u.UserName + L" " + u.UserDomain + L" " + u.ProfilePath,
                std::wstring(row.name) + L" " + row.domain + L" " + row.profile);
      EXPECT_EQ(std::make_pair(u.UserHiveLoaded, u.UserClassesLoaded), std::make_pair(row.hiveLoaded, row.classesLoaded))
         << i;
      EXPECT_EQ(HiveMark(u.UserHiveKey), row.hive);
      EXPECT_EQ(HiveMark(u.UserClassesKey), row.classes);
      ASSERT_EQ(u.Macros.size(), 4u);
      EXPECT_EQ(u.Macros[0].Value, std::wstring(row.profile) + L"\\AppData\\Roaming");
   }
   EXPECT_EQ(lookedUp, (Names{L"vtr-ann", L"vtr-cid", L"vtr-dan", L"vtr-fay"})) << "bob is skipped unseen";
   EXPECT_EQ(resumeHandles, (std::vector<DWORD>{0, 7}));
   EXPECT_EQ(ShortEntries(capture),
             (Lines{
                "INFO Domain - CORP, Name - vtr-eve",
                "INFO Profile C:\\users\\vtr-ann\\NTUSER.DAT opened from S-1-5-21-7-7-7-1001.",
                "INFO Profile c:\\users\\vtr-ann\\AppData\\Local\\Microsoft\\Windows\\UsrClass.dat opened from "
                "S-1-5-21-7-7-7-1001_Classes.",
                "WARN The profile for user S-1-5-21-7-7-7-1003 isn't registered, ignore",
                "WARN Profile \\NTUSER.DAT doesn't exist.",
                "WARN Can't open HKCU key for user vtr-cid, key path: S-1-5-21-7-7-7-1003, ignored...",
                "WARN Profile path for user vtr-cid is empty, ignored...",
                "WARN Profile %SystemDrive%\\users\\vtr-dan\\NTUSER.DAT doesn't exist.",
                "WARN Can't open HKCU key for user vtr-dan, key path: S-1-5-21-7-7-7-1004, ignored...",
                "INFO Profile C:\\users\\vtr-fay\\NTUSER.DAT opened from S-1-5-21-7-7-7-1005.",
                "WARN Profile c:\\users\\vtr-fay\\AppData\\Local\\Microsoft\\Windows\\UsrClass.dat doesn't exist.",
                "WARN Can't open HKCR key for user vtr-fay, key path S-1-5-21-7-7-7-1005_Classes, ignored...",
                "ERRO Unload keyPath S-1-5-21-7-7-7-1005 failed.Last Error: (code: 5)",
                "INFO Include logged in user account explicitly - corp.example.com\\vtr-eve",
                "INFO Subkey S-1-5-21-8-8-8-2001 opened.",
                "INFO Subkey S-1-5-21-8-8-8-2001_Classes opened.",
             }));

   LogCapture unmounting;
   UnmountUserHives(users);
   // eve's hives were only opened: they stay, and TearDown unloads them.
   EXPECT_EQ(unmounting.Entries(), (Lines{
                                      "INFO Unload keyPath S-1-5-21-7-7-7-1001_Classes succeed.",
                                      "INFO Unload keyPath S-1-5-21-7-7-7-1001 succeed.",
                                      "INFO Unload keyPath S-1-5-21-7-7-7-1005 succeed.",
                                   }));
}

TEST_F(UserEnumerationTest, TheInstallingUserIsInTheListExactlyOnce)
{
   struct Case {
      const char *what;
      const wchar_t *sid;
      NET_API_STATUS failure;
      const char *logged; // a line the run must have written
      Names names;
   } const cases[] = {
      {"a local account is not added again", L"S-1-5-21-7-7-7-1001", 0, "INFO Domain - VTRBOX, Name - vtr-ann",
       {L"vtr-ann", L"vtr-dan", L"vtr-fay"}},
      {"an unknown SID is still added, nameless", L"S-1-5-21-9-9-9-9", 0, "INFO Failed to lookup account: 1332",
       {L"vtr-ann", L"vtr-dan", L"vtr-fay", L""}},
      {"a failed enumeration still adds the installing user", Eve.sid, ERROR_ACCESS_DENIED,
       "ERRO Failed to enumerate users.Last Error: (code: 5)", {L"vtr-eve"}},
   };
   for (const Case &c : cases) {
      enumerationFailure = c.failure;
      resumeHandles.clear();
      LogCapture capture;
      std::vector<UserContext> users;
      EnumerateUsers(users, c.sid);
      UnmountUserHives(users);
      Names names;
      for (const UserContext &user : users) {
         names.push_back(user.UserName);
      }
      EXPECT_EQ(names, c.names) << c.what;
      const Lines entries = ShortEntries(capture);
      EXPECT_NE(std::find(entries.begin(), entries.end(), c.logged), entries.end()) << c.what;
   }
}

TEST_F(UserEnumerationTest, RefusedUnloadIsLoggedAndTheHiveStays)
{
   userPlatform.RegUnLoadKeyW = [](HKEY, LPCWSTR) -> LSTATUS { return ERROR_ACCESS_DENIED; };
   std::vector<UserContext> users(1);
   users[0].UserHiveKeyPath = Accounts[0].sid;
   ASSERT_TRUE(MountUserHive(Accounts[0].sid, HivePath(Accounts[0], false), users[0].UserHiveKey,
                             users[0].UserHiveLoaded));
   LogCapture capture;
   UnmountUserHives(users);
   EXPECT_EQ(ShortEntries(capture), (Lines{"ERRO Unload keyPath S-1-5-21-7-7-7-1001 failed.Last Error: (code: 5)"}));
   EXPECT_TRUE(scenario::KeyExists(HKEY_USERS, Accounts[0].sid));
   EXPECT_EQ(RegUnLoadKeyW(HKEY_USERS, Accounts[0].sid), ERROR_SUCCESS);
}

} // namespace
