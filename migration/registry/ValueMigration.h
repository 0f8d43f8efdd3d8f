#pragma once
// Value migration for one pair of open keys.
#include <windows.h>

#include <string>
#include <vector>

#include "config/MigrationConfig.h"

// Copies the values of `source` to `destination`. A value named by a rule follows that
// rule's Action; every other value follows `keyAction`. `source` needs query access,
// `destination` set and query access. `valueCount`, when the caller knows that nothing
// adds values to `source` meanwhile, spares asking for the value after the last.
void MigrateKeyValues(HKEY source, HKEY destination, const std::vector<RegistryValueRule> &valueRules,
                      const std::wstring &keyAction, DWORD valueCount = MAXDWORD);

// Writes one value unless `action` says otherwise; the target name is `newName`, or
// `oldName` when that is empty.
void ApplyValueAction(HKEY destination, const std::wstring &oldName, const std::wstring &newName, DWORD type,
                      const BYTE *data, DWORD size, const std::wstring &action);

// Converts a configured NewValue to registry data of `type`. The block is the caller's, to
// be freed with LocalFree; null for a type that has no textual form here. A malformed
// number throws std::invalid_argument or std::out_of_range.
BYTE *ParseRegistryValueData(const std::wstring &text, DWORD type, DWORD &size);
