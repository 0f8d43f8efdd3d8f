#pragma once
// Wine keeps no DACL on a folder, so no real folder passes the private-folder test there.
// This shows every folder with the protected two-entry DACL that Windows would keep for a
// folder made private, so that the safe temporary folder stays the plain one.

#include <sddl.h>

#include <cstdlib>
#include <string>

#include "misc/windowsUtil2.h"

inline void ShowFoldersAsPrivate()
{
   w32UtilPlatform.getNamedSecurityInfo = [](const wchar_t *, SECURITY_INFORMATION, PSID *owner,
                                             PACL *dacl, PSECURITY_DESCRIPTOR *descriptor) {
      PSID user = nullptr;
      W32Util_GetCurrentUserSid(&user);
      wchar_t *sid = nullptr;
      ConvertSidToStringSidW(user, &sid);
      std::wstring text = L"D:P(A;;FA;;;BA)(A;;FA;;;" + std::wstring(sid) + L")";
      LocalFree(sid);
      free(user);
      ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1,
                                                           descriptor, nullptr);
      BOOL present = FALSE, defaulted = FALSE;
      *owner = nullptr;
      GetSecurityDescriptorDacl(*descriptor, &present, dacl, &defaulted);
      return static_cast<DWORD>(ERROR_SUCCESS);
   };
}
