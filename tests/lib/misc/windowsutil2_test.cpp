// The private-directory test against descriptors that Wine cannot make (through the seam),
// a directory really made private, the well-known SIDs and the critical section singleton.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "fileTestSupport.h"

namespace {

// The SID's text ("S-1-5-18" and the like); the SID is freed.
std::string SidText(PSID sid)
{
   char *text = nullptr;
   std::string result = sid != nullptr && ConvertSidToStringSidA(sid, &text) ? text : "<none>";
   LocalFree(text);
   free(sid);
   return result;
}

DWORD attributes;

TEST(W32Util, DirectorySafety)
{
   const W32UtilPlatform real = w32UtilPlatform;
   w32UtilPlatform.getFileAttributes = [](const wchar_t *) { return attributes; };
   const struct {
      DWORD attributes;
      bool useSystem;
      std::string sddl;  // U stands for the current user
      const char *failure;  // the check that fails, or null for a safe folder
   } rows[] = {
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:P(A;;FA;;;BA)(A;;FA;;;U)", nullptr},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:BAD:P(A;;0x12019f;;;U)(A;;0x12019f;;;BA)", nullptr},
      {FILE_ATTRIBUTE_DIRECTORY, false, "D:P(A;;FA;;;BA)(A;;FA;;;U)", nullptr},  // no owner
      {FILE_ATTRIBUTE_DIRECTORY, true, "O:BAD:P(A;;FA;;;BA)(A;;FA;;;SY)", nullptr},
      {FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT, false, "", "Failed directory attributes check"},
      {INVALID_FILE_ATTRIBUTES, false, "", "Failed directory attributes check"},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:U", "Failed DACL presence check"},  // no DACL at all
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:SYD:P(A;;FA;;;BA)(A;;FA;;;U)", "Failed owner SID match"},
      {FILE_ATTRIBUTE_DIRECTORY, true, "O:UD:P(A;;FA;;;BA)(A;;FA;;;SY)", "Failed owner SID match"},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:(A;;FA;;;BA)(A;;FA;;;U)", "Failed DACL inherit check"},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:P(A;;FA;;;BA)(A;;FA;;;U)(A;;FR;;;WD)", "Failed DACL num entries check"},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:P(A;;FA;;;BA)", "Failed DACL num entries check"},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:P(A;;FA;;;WD)(A;;FA;;;U)", "Failed correct user and admin ACE presence check"},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:P(D;;FA;;;BA)(A;;FA;;;U)", "Failed correct user and admin ACE presence check"},
      {FILE_ATTRIBUTE_DIRECTORY, false, "O:UD:P(A;;0x12019e;;;BA)(A;;FA;;;U)", "Failed correct user and admin ACE presence check"},
   };
   for (const auto &r : rows) {
      attributes = r.attributes;
      ShowFolderSecurity(r.sddl);
      securityReads = 0;
      const size_t logged = LogRing().size();
      EXPECT_EQ(W32UtilIsDirectorySafe("C:\\any", r.useSystem), r.failure == nullptr) << r.sddl;
      EXPECT_EQ(LogRing().substr(logged), r.failure == nullptr ? "" : "W32UtilIsDirectorySafe: " +
                                          std::string(r.failure) + ", \"C:\\any\"\n");
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
      char *text = nullptr;
      ConvertSecurityDescriptorToStringSecurityDescriptorA(
         security->lpSecurityDescriptor, SDDL_REVISION_1,
         OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &text, nullptr);
      shownSecurity = text;
      LocalFree(text);
      return TRUE;
   };
   attributes = FILE_ATTRIBUTE_DIRECTORY;
   for (bool useSystem : {false, true}) {
      ASSERT_TRUE(W32UtilMakeSafeDirectory("C:\\made", useSystem));
      EXPECT_TRUE(W32UtilIsDirectorySafe("C:\\made", useSystem)) << useSystem;
      EXPECT_FALSE(W32UtilIsDirectorySafe("C:\\made", !useSystem)) << useSystem;
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
   for (auto [get, want] : {std::pair{&W32Util_GetSystemSid, "S-1-5-18"},
                            {&W32Util_GetLocalAdminGroupSid, "S-1-5-32-544"},
                            {&W32Util_GetCurrentUserSid, "S-1-5-21-"}}) {
      PSID sid = nullptr;
      EXPECT_TRUE(get(&sid));
      EXPECT_EQ(SidText(sid).rfind(want, 0), 0u) << want;
   }
   static CRITICAL_SECTION *volatile shared = nullptr;
   CRITICAL_SECTION *seen[8] = {};
   std::vector<std::thread> threads;
   for (CRITICAL_SECTION *&s : seen) {
      threads.emplace_back([&s] { s = W32Util_GetSingletonCriticalSection(&shared); });
   }
   for (auto &t : threads) {
      t.join();
   }
   EXPECT_EQ(std::count(seen, seen + 8, shared), 8);
   EXPECT_EQ(W32Util_GetModuleByAddress(reinterpret_cast<const void *>(&SidText)),
             GetModuleHandleW(nullptr));
}

} // namespace
