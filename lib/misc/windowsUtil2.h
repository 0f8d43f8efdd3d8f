#pragma once
// Well-known SIDs, directories that only one account and the local administrators can
// touch, and a critical section that any thread can have before anything is set up.
// SID results are blocks that the caller frees with free(); null on failure.

#include <windows.h>
#include <aclapi.h>

bool W32Util_GetCurrentUserSid(PSID *sid);
bool W32Util_GetLocalAdminGroupSid(PSID *sid);
bool W32Util_GetSystemSid(PSID *sid);

// Safe: a real directory (no reparse point), owned by the chosen account or the
// administrators, with a protected DACL of exactly two explicit entries that grant both of
// them at least 0x12019f. The chosen account is the system's with `useSystem`, otherwise
// the current user's.
bool W32UtilIsDirectorySafe(const char *path, bool useSystem);
// Makes the directory with such a DACL; an existing directory is a failure.
bool W32UtilMakeSafeDirectory(const char *path, bool useSystem);
inline bool W32Util_IsDirectorySafe(const char *path) { return W32UtilIsDirectorySafe(path, false); }
inline bool W32Util_IsDirectorySafeForSystem(const char *path)
{
   return W32UtilIsDirectorySafe(path, true);
}
inline bool W32Util_MakeSafeDirectory(const char *path) { return W32UtilMakeSafeDirectory(path, false); }
inline bool W32Util_MakeSafeDirectoryForSystem(const char *path)
{
   return W32UtilMakeSafeDirectory(path, true);
}

// The critical section in *variable, made and published by compare-and-swap on first use.
CRITICAL_SECTION *W32Util_GetSingletonCriticalSection(CRITICAL_SECTION *volatile *variable);
// The module that holds `address`, without a reference taken; null when none does.
HMODULE W32Util_GetModuleByAddress(const void *address);

// The platform calls of the directory test and creation. Tests replace entries to show
// attributes and descriptors that Wine cannot keep; nothing else changes them.
struct W32UtilPlatform {
   DWORD (*getFileAttributes)(const wchar_t *path);
   BOOL (*createDirectory)(const wchar_t *path, SECURITY_ATTRIBUTES *security);
   DWORD (*getNamedSecurityInfo)(const wchar_t *path, SECURITY_INFORMATION what, PSID *owner,
                                 PACL *dacl, PSECURITY_DESCRIPTOR *descriptor);
};
extern W32UtilPlatform w32UtilPlatform;
