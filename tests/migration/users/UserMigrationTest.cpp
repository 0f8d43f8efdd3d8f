// Users and their files against the prefix's registry, real hives made with RegSaveKeyW and
// its file system. Accounts, a refused unload and a refused owner change come from fakes of
// the calls that Wine can't answer (see UserPlatformCalls and FileCopyPlatformCalls). The other
// ways a file rule ends, and the preference files, are checked through msiexec (tests/e2e).
#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "HandleGuards.h"
#include "LogCapture.h"
#include "MsiScenario.h"
#include "files/FileMigration.h"
#include "users/UserContext.h"

namespace {

using Lines = std::vector<std::string>;
using Names = std::vector<std::wstring>;

// NetUserEnum gives the first five, in two buffers. eve is a logged-on domain user: her
// hives are loaded already. An expanded path would find dan's hive, and only the skip
// keeps bob out. Profiles without a UsrClass.dat: cid, who never logged on, and fay.
const struct Account {
   std::wstring name, sid;
   const wchar_t *profile;
   DWORD flags;
} Accounts[] = {
   {L"vtr-ann", L"S-1-5-21-7-7-7-1001", L"C:\\users\\vtr-ann", 0},
   {L"vtr-bob", L"S-1-5-21-7-7-7-1002", L"C:\\users\\vtr-bob", UF_ACCOUNTDISABLE},
   {L"vtr-cid", L"S-1-5-21-7-7-7-1003", nullptr, 0},
   {L"vtr-dan", L"S-1-5-21-7-7-7-1004", L"%SystemDrive%\\users\\vtr-dan", 0},
   {L"vtr-fay", L"S-1-5-21-7-7-7-1005", L"C:\\users\\vtr-fay", 0},
   {L"vtr-eve", L"S-1-5-21-8-8-8-2001", L"C:\\users\\vtr-eve", 0},
};
const Account &Eve = Accounts[5];

Names lookedUp;                   // names whose SID size was asked for
std::vector<DWORD> resumeHandles; // as NetUserEnum received them: the second buffer needs 7

NET_API_STATUS WINAPI FakeNetUserEnum(LPCWSTR server, DWORD level, DWORD filter, LPBYTE *buffer, DWORD preferred, LPDWORD read, LPDWORD total,
                                      LPDWORD resume)
{
   resumeHandles.push_back(*resume);
   if (server || level != 1 || filter != FILTER_NORMAL_ACCOUNT || preferred != MAX_PREFERRED_LENGTH || resumeHandles.size() > 2) {
      return ERROR_INVALID_PARAMETER;
   }
   const bool first = *resume == 0;
   *read = first ? 3 : 2;
   *total = 5;
   *resume = first ? 7 : 0;
   NetApiBufferAllocate(*read * sizeof(USER_INFO_1), reinterpret_cast<void **>(buffer));
   for (DWORD i = 0; i < *read; ++i) {
      const Account &a = Accounts[(first ? 0 : 3) + i];
      reinterpret_cast<USER_INFO_1 *>(*buffer)[i] = {const_cast<wchar_t *>(a.name.c_str()), nullptr, 0, 0, nullptr, nullptr, a.flags | UF_SCRIPT, nullptr};
   }
   return first ? ERROR_MORE_DATA : NERR_Success;
}

BOOL WINAPI FakeLookupAccountNameW(LPCWSTR, LPCWSTR name, PSID sid, LPDWORD sidSize, LPWSTR domain, LPDWORD domainLength, PSID_NAME_USE)
{
   if (sid == nullptr) {
      lookedUp.push_back(name);
   }
   const Account *account = std::find_if(Accounts, &Eve, [&](const Account &a) { return a.name == name; });
   PSID binary = nullptr;
   if (account == &Eve || !ConvertStringSidToSidW(account->sid.c_str(), &binary)) {
      return FALSE;
   }
   UniqueLocalMemory owned(binary);
   *sidSize = GetLengthSid(binary);
   *domainLength = 7;
   return sid != nullptr && CopySid(*sidSize, sid, binary) && wcscpy_s(domain, 7, L"VTRBOX") == 0;
}

// Only the installing user's SID is looked up.
BOOL WINAPI FakeLookupAccountSidW(LPCWSTR, PSID sid, LPWSTR name, LPDWORD nameLength, LPWSTR domain, LPDWORD domainLength, PSID_NAME_USE)
{
   wchar_t *text = nullptr;
   ConvertSidToStringSidW(sid, &text);
   UniqueLocalMemory owned(text);
   return Eve.sid == text && wcscpy_s(name, *nameLength, Eve.name.c_str()) == 0 && wcscpy_s(domain, *domainLength, L"CORP") == 0;
}

DWORD WINAPI FakeDsGetDcNameW(LPCWSTR, LPCWSTR domain, GUID *, LPCWSTR, ULONG flags, PDOMAIN_CONTROLLER_INFOW *info)
{
   if (wcscmp(domain, L"CORP") != 0 || flags != DS_RETURN_DNS_NAME) {
      return ERROR_NO_SUCH_DOMAIN;
   }
   NetApiBufferAllocate(sizeof(**info), reinterpret_cast<void **>(info));
   **info = {};
   (*info)->DomainName = const_cast<wchar_t *>(L"corp.example.com");
   return ERROR_SUCCESS;
}

TEST(EnumerateUsers, LocalAccountsInOrderThenTheLoggedOnDomainUser)
{
   ASSERT_TRUE(scenario::SetPrivilege(SE_BACKUP_NAME, true) && scenario::SetPrivilege(SE_RESTORE_NAME, true));
   for (const Account &a : Accounts) {
      ASSERT_TRUE(!a.profile || scenario::WriteValue(HKEY_LOCAL_MACHINE, scenario::ProfileKey(a.sid), scenario::TextValue(L"ProfileImagePath", a.profile)));
      ASSERT_TRUE(scenario::SaveHiveFile(L"C:\\users\\" + a.name + L"\\NTUSER.DAT", {}));
      ASSERT_TRUE(!a.profile || a.name == L"vtr-fay" || scenario::SaveHiveFile(BuildClassesHivePath(a.name), {}));
   }
   const Names mountsBefore = scenario::SubKeyNames(HKEY_USERS);
   const std::wstring eveMounts[] = {Eve.sid, Eve.sid + L"_Classes"};
   ASSERT_EQ(RegLoadKeyW(HKEY_USERS, eveMounts[0].c_str(), L"C:\\users\\vtr-eve\\NTUSER.DAT"), ERROR_SUCCESS);
   ASSERT_EQ(RegLoadKeyW(HKEY_USERS, eveMounts[1].c_str(), BuildClassesHivePath(Eve.name).c_str()), ERROR_SUCCESS);
   const UserPlatformCalls saved = userPlatform;
   userPlatform = {FakeNetUserEnum, FakeLookupAccountNameW, FakeLookupAccountSidW, FakeDsGetDcNameW, RegUnLoadKeyW};

   LogCapture capture;
   std::vector<UserContext> users;
   EnumerateUsers(users, Eve.sid);
   // Which keys are open and which hives were loaded shows in the log.
   Names described;
   for (const UserContext &u : users) {
      described.push_back(u.UserName + L"@" + u.UserDomain + L" " + std::to_wstring(u.Macros.size()));
   }
   EXPECT_EQ(described, (Names{L"vtr-ann@VTRBOX 4", L"vtr-dan@VTRBOX 4", L"vtr-fay@VTRBOX 4", L"vtr-eve@corp.example.com 4"}));
   EXPECT_EQ(lookedUp, (Names{L"vtr-ann", L"vtr-cid", L"vtr-dan", L"vtr-fay"})) << "bob is skipped unseen";
   EXPECT_EQ(resumeHandles, (std::vector<DWORD>{0, 7}));
   EXPECT_EQ(scenario::WithoutSystemText(capture.Entries()),
             (Lines{"INFO Domain - CORP, Name - vtr-eve", "INFO Profile C:\\users\\vtr-ann\\NTUSER.DAT opened from S-1-5-21-7-7-7-1001.",
                    "INFO Profile c:\\users\\vtr-ann\\AppData\\Local\\Microsoft\\Windows\\UsrClass.dat opened from S-1-5-21-7-7-7-1001_Classes.",
                    "WARN The profile for user S-1-5-21-7-7-7-1003 isn't registered, ignore", "WARN Profile \\NTUSER.DAT doesn't exist.",
                    "WARN Can't open HKCU key for user vtr-cid, key path: S-1-5-21-7-7-7-1003, ignored...",
                    "WARN Profile path for user vtr-cid is empty, ignored...", "WARN Profile %SystemDrive%\\users\\vtr-dan\\NTUSER.DAT doesn't exist.",
                    "WARN Can't open HKCU key for user vtr-dan, key path: S-1-5-21-7-7-7-1004, ignored...",
                    "INFO Profile C:\\users\\vtr-fay\\NTUSER.DAT opened from S-1-5-21-7-7-7-1005.",
                    "WARN Profile c:\\users\\vtr-fay\\AppData\\Local\\Microsoft\\Windows\\UsrClass.dat doesn't exist.",
                    "WARN Can't open HKCR key for user vtr-fay, key path S-1-5-21-7-7-7-1005_Classes, ignored...",
                    "ERRO Unload keyPath S-1-5-21-7-7-7-1005 failed.Last Error: (code: 5)",
                    "INFO Include logged in user account explicitly - corp.example.com\\vtr-eve", "INFO Subkey S-1-5-21-8-8-8-2001 opened.",
                    "INFO Subkey S-1-5-21-8-8-8-2001_Classes opened."}));

   // The first unload is refused, as Wine never does for a closed hive: that one stays.
   userPlatform.RegUnLoadKeyW = [](HKEY root, LPCWSTR key) -> LSTATUS {
      static int refusals = 1;
      return refusals-- > 0 ? ERROR_ACCESS_DENIED : RegUnLoadKeyW(root, key);
   };
   LogCapture unmounting;
   UnmountUserHives(users);
   userPlatform = saved;
   EXPECT_EQ(scenario::WithoutSystemText(unmounting.Entries()),
             (Lines{"ERRO Unload keyPath S-1-5-21-7-7-7-1001_Classes failed.Last Error: (code: 5)", "INFO Unload keyPath S-1-5-21-7-7-7-1001 succeed.",
                    "INFO Unload keyPath S-1-5-21-7-7-7-1005 succeed."}));
   // Still mounted: the refused hive, and eve's, which were only opened.
   for (const std::wstring &mount : {Accounts[0].sid + L"_Classes", eveMounts[0], eveMounts[1]}) {
      EXPECT_EQ(RegUnLoadKeyW(HKEY_USERS, mount.c_str()), ERROR_SUCCESS) << scenario::Narrow(mount);
   }
   EXPECT_EQ(scenario::SubKeyNames(HKEY_USERS), mountsBefore);
   for (const Account &a : Accounts) {
      scenario::DeleteTree(HKEY_LOCAL_MACHINE, scenario::ProfileKey(a.sid));
      scenario::RemoveTree(L"C:\\users\\" + a.name);
   }
}

PSID sourceOwner, sourceGroup;
bool givenSourceOwner; // whether the owner change asked for the source's owner and group

DWORD WINAPI RefusingSetNamedSecurityInfoW(LPWSTR, SE_OBJECT_TYPE type, SECURITY_INFORMATION what, PSID owner, PSID group, PACL dacl, PACL sacl)
{
   givenSourceOwner = type == SE_FILE_OBJECT && what == 3 && EqualSid(owner, sourceOwner) && EqualSid(group, sourceGroup) && !dacl && !sacl;
   return ERROR_ACCESS_DENIED;
}

TEST(CopyFileWithOwner, ACopyThatCantTakeTheSourcesOwnerGoes)
{
   const std::wstring source = L"C:\\vtr-files\\src.cfg", dest = L"C:\\vtr-files\\new\\dst.cfg";
   ASSERT_TRUE(scenario::WriteFileAt(source, "old"));
   PSECURITY_DESCRIPTOR descriptor = nullptr;
   ASSERT_EQ(GetNamedSecurityInfoW(source.c_str(), SE_FILE_OBJECT, 3, &sourceOwner, &sourceGroup, nullptr, nullptr, &descriptor), 0u);
   UniqueLocalMemory owned(descriptor);
   const FileCopyPlatformCalls saved = fileCopyPlatform;
   fileCopyPlatform.SetNamedSecurityInfoW = RefusingSetNamedSecurityInfoW;
   LogCapture capture;
   EXPECT_FALSE(CopyFileWithOwner(source, dest));
   EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED)) << "left for the caller's own line";
   fileCopyPlatform = saved;
   EXPECT_EQ(capture.Entries(), Lines{"ERRO Failed to set file owner, error = 0x00000005"});
   // Wine keeps a file's owner whatever it is told: what shows is what the copy was given.
   EXPECT_TRUE(givenSourceOwner);
   EXPECT_FALSE(scenario::PathExists(dest));
   scenario::RemoveTree(L"C:\\vtr-files");
}

} // namespace
