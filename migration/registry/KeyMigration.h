#pragma once
#include <windows.h>

#include <string>
#include <vector>

#include "config/MigrationConfig.h"

// Descriptor given to destination keys that have no source of their own (the segments in
// front of a rule's leaf). Owned by MigrateRegistryKeyRule and set only while it runs.
extern PSECURITY_DESCRIPTOR defaultKeySecurityDescriptor;

// Wine ignores the descriptor that RegCreateKeyExW is given, so there a created key never
// refuses the walk's next open of it, as it does on Windows when the copied descriptor denies
// the installing account. Tests replace the call to get that answer; the product never
// changes the table.
struct RegistryPlatformCalls {
   decltype(&::RegCreateKeyExW) RegCreateKeyExW;
};
extern RegistryPlatformCalls registryPlatform;

// Copies the rule's key tree below `rootKey`; `securityPrefix` locates the descriptor that
// intermediate keys receive. Reports through the log only.
void MigrateRegistryKeyRule(HKEY rootKey, const std::wstring &securityPrefix, const RegistryKeyRule &rule);

// Copies `sourcePath` below `sourceParent` to `destPath` below `destParent`: values first,
// then every child, depth first.
void MigrateKeyTree(HKEY sourceParent, HKEY destParent, const std::wstring &sourcePath, const std::wstring &destPath,
                    const std::wstring &action, const std::vector<RegistrySubKeyRule> &subKeyRules,
                    const std::vector<RegistryValueRule> &valueRules);

// Creates whatever segments of `destPath` are missing; the last one takes the descriptor of
// the source key. True when the destination key exists afterwards.
bool EnsureDestinationKey(HKEY sourceRoot, const std::wstring &sourcePath, HKEY destRoot, const std::wstring &destPath);

// The self-relative descriptor of `path` below `rootKey` (owner, group, DACL and SACL), to be
// freed with LocalFree; null on failure.
PSECURITY_DESCRIPTOR GetKeySecurityDescriptor(HKEY rootKey, const std::wstring &path);
