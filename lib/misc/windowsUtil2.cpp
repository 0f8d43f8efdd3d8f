#include "misc/windowsUtil2.h"

#include <cstdlib>
#include <cstring>

#include "misc/log.h"
#include "misc/panic.h"
#include "misc/uniqueResource.h"
#include "misc/win32u.h"

namespace {

DWORD W32UtilGetNamedSecurityInfo(const wchar_t *path, SECURITY_INFORMATION what, PSID *owner,
                                  PACL *dacl, PSECURITY_DESCRIPTOR *descriptor)
{
   return GetNamedSecurityInfoW(path, SE_FILE_OBJECT, what, owner, nullptr, dacl, nullptr,
                                descriptor);
}

// The rights that both entries of a safe directory must grant at least.
constexpr ACCESS_MASK kSafeRights = 0x12019f;

// A copy of `sid` in a block of the library's own, which the caller frees.
bool W32UtilCopySid(const char *function, PSID sid, PSID *copy)
{
   DWORD length = GetLengthSid(sid);
   *copy = SafeMalloc(length);
   if (!CopySid(length, *copy, sid)) {
      Log("%s: CopySid: %d\n", function, GetLastError());
      free(*copy);
      *copy = nullptr;
      return false;
   }
   return true;
}

bool W32UtilWellKnownSid(const char *function, BYTE count, DWORD rid0, DWORD rid1, PSID *sid)
{
   *sid = nullptr;
   SID_IDENTIFIER_AUTHORITY ntAuthority = SECURITY_NT_AUTHORITY;
   PSID platformSid = nullptr;
   if (!AllocateAndInitializeSid(&ntAuthority, count, rid0, rid1, 0, 0, 0, 0, 0, 0,
                                 &platformSid)) {
      Log("%s: AllocateAndInitializeSid: %d\n", function, GetLastError());
      return false;
   }
   bool copied = W32UtilCopySid(function, platformSid, sid);
   FreeSid(platformSid);
   return copied;
}

// The administrators' SID and the chosen account's, both or neither.
bool W32UtilGetBothSids(bool useSystem, UniqueMallocBlock *admins, UniqueMallocBlock *account)
{
   PSID sid = nullptr;
   if (W32Util_GetLocalAdminGroupSid(&sid)) {
      admins->reset(sid);
   }
   sid = nullptr;
   if (useSystem ? W32Util_GetSystemSid(&sid) : W32Util_GetCurrentUserSid(&sid)) {
      account->reset(sid);
   }
   return *admins && *account;
}

bool W32UtilEntryCounts(const EXPLICIT_ACCESSW &entry)
{
   return entry.grfAccessMode == GRANT_ACCESS &&
          (entry.grfAccessPermissions & kSafeRights) == kSafeRights;
}

} // namespace

W32UtilPlatform w32UtilPlatform = {GetFileAttributesW, CreateDirectoryW,
                                   W32UtilGetNamedSecurityInfo};

bool W32Util_GetCurrentUserSid(PSID *sid)
{
   static const char kFunction[] = "W32Util_GetCurrentUserSid";
   *sid = nullptr;
   UniqueHandle token;
   if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.put())) {
      if (GetLastError() != ERROR_NO_TOKEN) {
         Log("%s: OpenThreadToken: %d\n", kFunction, GetLastError());
         return false;
      }
      if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put())) {
         Log("%s: OpenProcessToken: %d\n", kFunction, GetLastError());
         return false;
      }
   }
   DWORD size = 0;
   GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
   UniqueMallocBlock user(SafeMalloc(size != 0 ? size : 1));
   if (!GetTokenInformation(token.get(), TokenUser, user.get(), size, &size)) {
      Log("%s: GetTokenInformation: %d\n", kFunction, GetLastError());
      return false;
   }
   return W32UtilCopySid(kFunction, static_cast<TOKEN_USER *>(user.get())->User.Sid, sid);
}

bool W32Util_GetLocalAdminGroupSid(PSID *sid)
{
   return W32UtilWellKnownSid("W32Util_GetLocalAdminGroupSid", 2, SECURITY_BUILTIN_DOMAIN_RID,
                              DOMAIN_ALIAS_RID_ADMINS, sid);
}

bool W32Util_GetSystemSid(PSID *sid)
{
   return W32UtilWellKnownSid("W32Util_GetSystemSid", 1, SECURITY_LOCAL_SYSTEM_RID, 0, sid);
}

bool W32UtilIsDirectorySafe(const char *path, bool useSystem)
{
   static const char kFunction[] = "W32UtilIsDirectorySafe";
   Win32UWideArg widePath(path);
   DWORD attributes = w32UtilPlatform.getFileAttributes(widePath.text);
   if (attributes == INVALID_FILE_ATTRIBUTES ||
       (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) !=
          FILE_ATTRIBUTE_DIRECTORY) {
      Log("%s: Failed directory attributes check, \"%s\"\n", kFunction, path);
      return false;
   }
   UniqueMallocBlock admins;
   UniqueMallocBlock account;
   if (!W32UtilGetBothSids(useSystem, &admins, &account)) {
      Log("%s: Couldn't get local admin or user/system SID\n", kFunction);
      return false;
   }
   PSID owner = nullptr;
   PACL dacl = nullptr;
   UniqueLocalMemory descriptor;
   DWORD status = w32UtilPlatform.getNamedSecurityInfo(
      widePath.text, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &owner, &dacl,
      reinterpret_cast<PSECURITY_DESCRIPTOR *>(descriptor.put()));
   if (status != ERROR_SUCCESS) {
      Log("%s: GetNamedSecurityInfoW failed: %d\n", kFunction, status);
      return false;
   }
   if (dacl == nullptr) {
      Log("%s: Failed DACL presence check, \"%s\"\n", kFunction, path);
      return false;
   }
   if (owner != nullptr && !EqualSid(owner, account.get()) && !EqualSid(owner, admins.get())) {
      Log("%s: Failed owner SID match, \"%s\"\n", kFunction, path);
      return false;
   }
   SECURITY_DESCRIPTOR_CONTROL control = 0;
   DWORD revision = 0;
   if (!GetSecurityDescriptorControl(descriptor.get(), &control, &revision)) {
      Log("%s: GetSecurityDescriptorControl failed: %d\n", kFunction, GetLastError());
      return false;
   }
   if ((control & SE_DACL_PROTECTED) == 0) {
      Log("%s: Failed DACL inherit check, \"%s\"\n", kFunction, path);
      return false;
   }
   ULONG count = 0;
   EXPLICIT_ACCESSW *entries = nullptr;
   status = GetExplicitEntriesFromAclW(dacl, &count, &entries);
   if (status != ERROR_SUCCESS) {
      Log("%s: GetExplicitEntriesFromAclW failed: %d\n", kFunction, status);
      return false;
   }
   UniqueLocalMemory entriesBlock(entries);
   if (count != 2) {
      Log("%s: Failed DACL num entries check, \"%s\"\n", kFunction, path);
      return false;
   }
   bool adminsGranted = false;
   bool accountGranted = false;
   for (ULONG i = 0; i < count; i++) {
      if (entries[i].Trustee.TrusteeForm != TRUSTEE_IS_SID) {
         Log("%s: Failed trustee SID identity check, \"%s\"\n", kFunction, path);
         return false;
      }
      PSID trustee = entries[i].Trustee.ptstrName;
      if (EqualSid(trustee, admins.get())) {
         adminsGranted = adminsGranted || W32UtilEntryCounts(entries[i]);
      } else if (EqualSid(trustee, account.get())) {
         accountGranted = accountGranted || W32UtilEntryCounts(entries[i]);
      }
   }
   if (!adminsGranted || !accountGranted) {
      Log("%s: Failed correct user and admin ACE presence check, \"%s\"\n", kFunction, path);
      return false;
   }
   return true;
}

bool W32UtilMakeSafeDirectory(const char *path, bool useSystem)
{
   static const char kFunction[] = "W32UtilMakeSafeDirectory";
   UniqueMallocBlock admins;
   UniqueMallocBlock account;
   if (!W32UtilGetBothSids(useSystem, &admins, &account)) {
      Log("%s: Couldn't get local admin or user/system SID\n", kFunction);
      return false;
   }
   DWORD aclLength = GetLengthSid(admins.get()) + GetLengthSid(account.get()) + 24;
   UniqueMallocBlock acl(SafeMalloc(aclLength));
   PACL dacl = static_cast<PACL>(acl.get());
   if (!InitializeAcl(dacl, aclLength, ACL_REVISION)) {
      Log("%s: Couldn't init ACL\n", kFunction);
      return false;
   }
   const DWORD inherit = OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE;
   const DWORD rights = GENERIC_ALL | STANDARD_RIGHTS_ALL;
   if (!AddAccessAllowedAceEx(dacl, ACL_REVISION, inherit, rights, admins.get()) ||
       !AddAccessAllowedAceEx(dacl, ACL_REVISION, inherit, rights, account.get())) {
      Log("%s: Couldn't add SID to DACL\n", kFunction);
      return false;
   }
   SECURITY_DESCRIPTOR descriptor;
   if (!InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION)) {
      Log("%s: InitializeSecurityDescriptor failed: %d\n", kFunction, GetLastError());
      return false;
   }
   if (!SetSecurityDescriptorDacl(&descriptor, TRUE, dacl, FALSE)) {
      Log("%s: SetSecurityDescriptorDacl failed: %d\n", kFunction, GetLastError());
      return false;
   }
   // Only an administrator may hand a new directory to another account, so the one kept for
   // the system account belongs to the administrators.
   if (!SetSecurityDescriptorOwner(&descriptor, useSystem ? admins.get() : account.get(),
                                   FALSE)) {
      Log("%s: SetSecurityDescriptorOwner failed: %d\n", kFunction, GetLastError());
      return false;
   }
   if (!SetSecurityDescriptorControl(&descriptor, SE_DACL_PROTECTED, SE_DACL_PROTECTED)) {
      Log("%s: SetSecurityDescriptorControl failed: %d\n", kFunction, GetLastError());
      return false;
   }
   SECURITY_ATTRIBUTES attributes = {sizeof attributes, &descriptor, FALSE};
   Win32UWideArg widePath(path);
   if (!w32UtilPlatform.createDirectory(widePath.text, &attributes)) {
      Log("%s: CreateDirectoryW failed: %d\n", kFunction, GetLastError());
      return false;
   }
   return true;
}

CRITICAL_SECTION *W32Util_GetSingletonCriticalSection(CRITICAL_SECTION *volatile *variable)
{
   CRITICAL_SECTION *existing = *variable;
   if (existing != nullptr) {
      return existing;
   }
   auto *fresh = static_cast<CRITICAL_SECTION *>(SafeMalloc(sizeof(CRITICAL_SECTION)));
   if (!InitializeCriticalSectionAndSpinCount(fresh, 0x80000400)) {
      Panic("%s: InitializeCriticalSectionAndSpinCount failure: %u\n",
            "W32Util_GetSingletonCriticalSection", GetLastError());
   }
   existing = static_cast<CRITICAL_SECTION *>(InterlockedCompareExchangePointer(
      reinterpret_cast<void *volatile *>(variable), fresh, nullptr));
   if (existing != nullptr) {
      DeleteCriticalSection(fresh);
      free(fresh);
      return existing;
   }
   return fresh;
}

HMODULE W32Util_GetModuleByAddress(const void *address)
{
   HMODULE module = nullptr;
   if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                              GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           static_cast<LPCWSTR>(address), &module)) {
      return nullptr;
   }
   return module;
}
