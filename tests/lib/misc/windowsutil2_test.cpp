// The private-directory test against descriptors that Wine cannot make (through the seam),
// a directory really made private, the well-known SIDs and the critical section singleton.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "misc/windowsUtil2.h"
#include "misc/win32u.h"

#include <sddl.h>

namespace {

std::string SidText(PSID sid)
{
   wchar_t *text = nullptr;
   if (sid == nullptr || !ConvertSidToStringSidW(sid, &text)) {
      return "<none>";
   }
   char *utf8 = Win32U_Utf8Of(text);
   std::string result = utf8;
   free(utf8);
   LocalFree(text);
   return result;
}

std::string CurrentUser()
{
   PSID sid = nullptr;
   W32Util_GetCurrentUserSid(&sid);
   std::string text = SidText(sid);
   free(sid);
   return text;
}

DWORD attributes;
std::wstring sddl;
int securityReads;

// The descriptor of `sddl`, as GetNamedSecurityInfoW would hand it out.
DWORD FakeSecurity(const wchar_t *, SECURITY_INFORMATION, PSID *owner, PACL *dacl,
                   PSECURITY_DESCRIPTOR *descriptor)
{
   securityReads++;
   if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1,
                                                             descriptor, nullptr)) {
      return GetLastError();
   }
   BOOL present = FALSE, defaulted = FALSE;
   GetSecurityDescriptorOwner(*descriptor, owner, &defaulted);
   GetSecurityDescriptorDacl(*descriptor, &present, dacl, &defaulted);
   if (!present) {
      *dacl = nullptr;
   }
   return ERROR_SUCCESS;
}

TEST(W32Util, DirectorySafety)
{
   const W32UtilPlatform real = w32UtilPlatform;
   w32UtilPlatform.getFileAttributes = [](const wchar_t *) { return attributes; };
   w32UtilPlatform.getNamedSecurityInfo = FakeSecurity;
   const std::string user = CurrentUser();
   const struct {
      DWORD attributes;
      bool useSystem;
      std::string sddl;  // U stands for the current user
      bool safe;
   } rows[] = {
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:P(A;;FA;;;BA)(A;;FA;;;U)", true},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:BAD:P(A;;0x12019f;;;U)(A;;0x12019f;;;BA)", true},
      {FILE_ATTRIBUTE_DIRECTORY, false, "D:P(A;;FA;;;BA)(A;;FA;;;U)", true},  // no owner
      {FILE_ATTRIBUTE_DIRECTORY, true, "O:BAD:P(A;;FA;;;BA)(A;;FA;;;SY)", true},
      {FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT, false, "", false},
      {FILE_ATTRIBUTE_NORMAL, false, "", false},
      {INVALID_FILE_ATTRIBUTES, false, "", false},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:NO_ACCESS_CONTROL", false},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:SYD:P(A;;FA;;;BA)(A;;FA;;;U)", false},
      {FILE_ATTRIBUTE_DIRECTORY, true, "O:UD:P(A;;FA;;;BA)(A;;FA;;;SY)", false},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:(A;;FA;;;BA)(A;;FA;;;U)", false},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:P(A;;FA;;;BA)(A;;FA;;;U)(A;;FR;;;WD)", false},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:P(A;;FA;;;BA)", false},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:P(A;;FA;;;WD)(A;;FA;;;U)", false},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:P(D;;FA;;;BA)(A;;FA;;;U)", false},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:P(A;;0x12019e;;;BA)(A;;FA;;;U)", false},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:P(A;;FA;;;U)(A;;FA;;;U)", false},
   };
   for (const auto &r : rows) {
      attributes = r.attributes;
      std::string text;
      for (char c : r.sddl) {
         text += c == 'U' ? user : std::string(1, c);
      }
      sddl.assign(text.begin(), text.end());
      securityReads = 0;
      EXPECT_EQ(W32UtilIsDirectorySafe("C:\\any", r.useSystem), r.safe) << r.sddl;
      if ((r.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
         EXPECT_EQ(securityReads, 0) << "a junction's security is never read";
      }
   }

   // What the maker hands to CreateDirectoryW passes the test. Wine keeps no DACL on a
   // directory, so the descriptor is carried over by hand, its generic rights mapped to the
   // file rights as the file system stores them.
   w32UtilPlatform.createDirectory = [](const wchar_t *, SECURITY_ATTRIBUTES *security) {
      BOOL present = FALSE, defaulted = FALSE;
      PACL dacl = nullptr;
      GetSecurityDescriptorDacl(security->lpSecurityDescriptor, &present, &dacl, &defaulted);
      GENERIC_MAPPING files = {FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE,
                               FILE_ALL_ACCESS};
      void *ace = nullptr;
      for (DWORD i = 0; GetAce(dacl, i, &ace); i++) {
         MapGenericMask(&static_cast<ACCESS_ALLOWED_ACE *>(ace)->Mask, &files);
      }
      wchar_t *text = nullptr;
      ConvertSecurityDescriptorToStringSecurityDescriptorW(
         security->lpSecurityDescriptor, SDDL_REVISION_1,
         OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &text, nullptr);
      sddl = text;
      LocalFree(text);
      return TRUE;
   };
   attributes = FILE_ATTRIBUTE_DIRECTORY;
   for (bool useSystem : {false, true}) {
      ASSERT_TRUE(W32UtilMakeSafeDirectory("C:\made", useSystem));
      EXPECT_TRUE(W32UtilIsDirectorySafe("C:\made", useSystem)) << useSystem;
      EXPECT_FALSE(W32UtilIsDirectorySafe("C:\made", !useSystem)) << useSystem;
   }
   w32UtilPlatform = real;

   char temp[MAX_PATH];
   Win32U_GetTempPath(sizeof temp, temp);
   std::string made = std::string(temp) + "w32util-safe-" + std::to_string(GetCurrentProcessId());
   EXPECT_TRUE(W32Util_MakeSafeDirectory(made.c_str()));
   EXPECT_FALSE(W32Util_MakeSafeDirectory(made.c_str())) << "an existing directory";
   RemoveDirectoryA(made.c_str());
}

TEST(W32Util, WellKnownSidsAndSingletons)
{
   PSID sid = nullptr;
   ASSERT_TRUE(W32Util_GetSystemSid(&sid));
   EXPECT_EQ(SidText(sid), "S-1-5-18");
   free(sid);
   ASSERT_TRUE(W32Util_GetLocalAdminGroupSid(&sid));
   EXPECT_EQ(SidText(sid), "S-1-5-32-544");
   free(sid);
   EXPECT_EQ(CurrentUser().rfind("S-1-5-21-", 0), 0u);

   static CRITICAL_SECTION *volatile shared = nullptr;
   CRITICAL_SECTION *seen[8] = {};
   std::thread threads[8];
   for (int i = 0; i < 8; i++) {
      threads[i] = std::thread([&seen, i] { seen[i] = W32Util_GetSingletonCriticalSection(&shared); });
   }
   for (auto &t : threads) {
      t.join();
   }
   for (CRITICAL_SECTION *s : seen) {
      EXPECT_EQ(s, shared);
   }
   EXPECT_EQ(W32Util_GetModuleByAddress(reinterpret_cast<const void *>(&CurrentUser)),
             GetModuleHandleW(nullptr));
   void *block = VirtualAlloc(nullptr, 4096, MEM_COMMIT, PAGE_READWRITE);
   EXPECT_EQ(W32Util_GetModuleByAddress(block), nullptr);
   VirtualFree(block, 0, MEM_RELEASE);
}

} // namespace
