#pragma once
// Folders of test files, and the private-folder look that Wine cannot give a real folder.

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "misc/file.h"
#include "misc/log.h"
#include "misc/win32u.h"
#include "misc/windowsUtil2.h"

#include <sddl.h>  // after windows.h, which it needs

using Files = std::vector<std::string>;

// A folder under the temporary directory that holds `files` ("name=content") and nothing
// else.
inline std::string FolderWith(const std::string &name, const Files &files)
{
   char temp[MAX_PATH];
   Win32U_GetTempPath(sizeof temp, temp);
   std::string folder = temp + name;
   CreateDirectoryA(folder.c_str(), nullptr);
   char **names = nullptr;
   uint32_t count = FileListDirectoryRetry(folder.c_str(), 0, &names);
   for (uint32_t i = 0; i < count; i++) {
      DeleteFileA((folder + "\\" + names[i]).c_str());
      free(names[i]);
   }
   free(names);
   for (const std::string &file : files) {
      size_t equals = file.find('=');
      std::ofstream(folder + "\\" + file.substr(0, equals)) << file.substr(equals + 1);
   }
   return folder;
}

// The files of the folder as "name=content", the content cut to `bytes`, sorted.
inline Files Contents(const std::string &folder, size_t bytes = std::string::npos)
{
   char **names = nullptr;
   uint32_t count = FileListDirectoryRetry(folder.c_str(), 0, &names);
   Files result;
   for (uint32_t i = 0; i < count && count != 0xFFFFFFFF; i++) {
      std::ifstream in(folder + "\\" + names[i], std::ios::binary);
      std::string content(std::istreambuf_iterator<char>(in), {});
      result.push_back(std::string(names[i]) + "=" + content.substr(0, bytes));
      free(names[i]);
   }
   free(names);
   std::sort(result.begin(), result.end());
   return result;
}

// Everything the log's memory ring holds, oldest first.
inline std::string LogRing()
{
   std::string text;
   Log_ForEachRingRecord([](const LogHeader *, const char *record, size_t length, void *to) {
      static_cast<std::string *>(to)->append(record, length);
   }, &text);
   return text;
}

// What the seam shows as the descriptor of every folder, in SDDL, and how often it was read.
inline std::string shownSecurity;
inline int securityReads = 0;

// Wine keeps no DACL on a folder, so a test shows the descriptor it needs through the seam.
// "U" in `sddl` stands for the current user's SID.
inline void ShowFolderSecurity(const std::string &sddl)
{
   PSID sid = nullptr;
   char *user = nullptr;
   W32Util_GetCurrentUserSid(&sid);
   ConvertSidToStringSidA(sid, &user);
   shownSecurity.clear();
   for (char c : sddl) {
      shownSecurity += c == 'U' ? std::string(user) : std::string(1, c);
   }
   LocalFree(user);
   free(sid);
   w32UtilPlatform.getNamedSecurityInfo = [](const wchar_t *, SECURITY_INFORMATION, PSID *owner,
                                             PACL *dacl, PSECURITY_DESCRIPTOR *descriptor) {
      securityReads++;
      if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(
             shownSecurity.c_str(), SDDL_REVISION_1, descriptor, nullptr)) {
         return GetLastError();
      }
      BOOL present = FALSE, defaulted = FALSE;
      GetSecurityDescriptorOwner(*descriptor, owner, &defaulted);
      GetSecurityDescriptorDacl(*descriptor, &present, dacl, &defaulted);
      return static_cast<DWORD>(ERROR_SUCCESS);
   };
}

// The protected two-entry DACL that Windows keeps on a folder made private, so that the
// safe temporary folder stays the plain one.
inline void ShowFoldersAsPrivate() { ShowFolderSecurity("D:P(A;;FA;;;BA)(A;;FA;;;U)"); }
