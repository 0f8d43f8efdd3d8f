#include "HandleGuards.h"
#include "actions/CustomActions.h"
#include "log/MigrationLog.h"
#include "macros/UserMacros.h"
#include "users/UserContext.h"

#include <sddl.h>

UserPlatformCalls userPlatform = {
   &::NetUserEnum, &::LookupAccountNameW, &::LookupAccountSidW, &::DsGetDcNameW, &::RegUnLoadKeyW,
};

namespace {

constexpr DWORD AccountNameChars = 260;

// Sets UserSid and UserDomain from UserName. Each failure is logged and leaves both empty:
// the account still goes on, and without a SID it finds no profile.
void LookupLocalAccount(UserContext &user)
{
   DWORD sidSize = 0;
   DWORD domainLength = 0;
   SID_NAME_USE use;
   userPlatform.LookupAccountNameW(nullptr, user.UserName.c_str(), nullptr, &sidSize, nullptr, &domainLength, &use);
   if (sidSize == 0 || domainLength == 0) {
      LogMessage(LogLevelErrorWithCode, "LookupAccountName return size zero.");
      return;
   }
   UniqueMallocBlock sid(std::malloc(sidSize));
   if (!sid) {
      LogMessage(LogLevelErrorWithCode, "malloc pSid with size=%d failed.", sidSize);
      return;
   }
   UniqueMallocBlock domain(std::malloc(domainLength * sizeof(wchar_t)));
   if (!domain) {
      LogMessage(LogLevelErrorWithCode, "malloc domainName with size=%d failed.", domainLength);
      return;
   }
   wchar_t *domainName = static_cast<wchar_t *>(domain.get());
   if (!userPlatform.LookupAccountNameW(nullptr, user.UserName.c_str(), sid.get(), &sidSize, domainName,
                                        &domainLength, &use)) {
      LogMessage(LogLevelErrorWithCode, "LookupAccountName return error.");
      return;
   }
   wchar_t *sidText = nullptr;
   if (!ConvertSidToStringSidW(sid.get(), &sidText)) {
      LogMessage(LogLevelErrorWithCode, "ConvertSidToStringSid return error.");
      return;
   }
   UniqueLocalMemory ownedSidText(sidText);
   user.UserSid = sidText;
   user.UserDomain = domainName;
}

} // namespace

std::wstring GetAccountNameForSid(const std::wstring &sidText, bool useDnsDomain)
{
   PSID sid = nullptr;
   if (!ConvertStringSidToSidW(sidText.c_str(), &sid)) {
      LogMessage(LogLevelInfo, "Failed to convert SID: %ld", GetLastError());
      return std::wstring();
   }
   UniqueLocalMemory ownedSid(sid);
   wchar_t name[AccountNameChars] = {};
   wchar_t domain[AccountNameChars] = {};
   DWORD nameLength = AccountNameChars;
   DWORD domainLength = AccountNameChars;
   SID_NAME_USE use;
   if (!userPlatform.LookupAccountSidW(nullptr, sid, name, &nameLength, domain, &domainLength, &use)) {
      LogMessage(LogLevelInfo, "Failed to lookup account: %ld", GetLastError());
      return std::wstring();
   }
   LogMessage(LogLevelInfo, "Domain - %ws, Name - %ws", domain, name);

   std::wstring account = domain;
   if (useDnsDomain) {
      // A machine outside a domain has no controller to ask and keeps its own flat name.
      PDOMAIN_CONTROLLER_INFOW controller = nullptr;
      if (userPlatform.DsGetDcNameW(nullptr, domain, nullptr, nullptr, DS_RETURN_DNS_NAME, &controller) ==
          ERROR_SUCCESS) {
         UniqueNetApiBuffer ownedController(controller);
         account = controller->DomainName;
      }
   }
   return account + L"\\" + name;
}

void EnumerateUsers(std::vector<UserContext> &userContexts, const std::wstring &currentUserSid)
{
   const std::wstring accountName = GetAccountNameForSid(currentUserSid, true);
   bool foundCurrentUser = false;

   DWORD resumeHandle = 0;
   NET_API_STATUS status;
   do {
      BYTE *buffer = nullptr;
      DWORD entriesRead = 0;
      DWORD totalEntries = 0;
      status = userPlatform.NetUserEnum(nullptr, 1, FILTER_NORMAL_ACCOUNT, &buffer, MAX_PREFERRED_LENGTH,
                                        &entriesRead, &totalEntries, &resumeHandle);
      UniqueNetApiBuffer ownedBuffer(buffer);
      if (status != NERR_Success && status != ERROR_MORE_DATA) {
         // The call reports by its result only; the line's error part should name that.
         SetLastError(status);
         LogMessage(LogLevelErrorWithCode, "Failed to enumerate users.");
         break;
      }
      const USER_INFO_1 *accounts = reinterpret_cast<const USER_INFO_1 *>(buffer);
      for (DWORD i = 0; i < entriesRead; ++i) {
         if (accounts[i].usri1_flags & UF_ACCOUNTDISABLE) {
            continue;
         }
         UserContext user;
         user.UserName = accounts[i].usri1_name;
         LookupLocalAccount(user);
         // Exact, so two empty SIDs match: a local account whose lookup failed stands for
         // an installing user given without a SID.
         if (user.UserSid == currentUserSid) {
            foundCurrentUser = true;
         }
         OpenUserHives(user);
         if (user.ProfilePath.empty()) {
            // Accounts that never logged on have no profile and fall away here.
            LogMessage(LogLevelWarning, "Profile path for user %S is empty, ignored...", user.UserName.c_str());
            continue;
         }
         BuildUserMacros(user);
         userContexts.push_back(user);
      }
   } while (status == ERROR_MORE_DATA);

   if (!foundCurrentUser) {
      // A domain account isn't among the local ones. Always appended, profile or not.
      LogMessage(LogLevelInfo, "Include logged in user account explicitly - %S", accountName.c_str());
      UserContext user;
      size_t position = 0;
      user.UserDomain = NextDelimitedToken(accountName, L"\\", position);
      user.UserName = NextDelimitedToken(accountName, L"\\", position);
      user.UserSid = currentUserSid;
      OpenUserHives(user);
      BuildUserMacros(user);
      userContexts.push_back(user);
   }
}
