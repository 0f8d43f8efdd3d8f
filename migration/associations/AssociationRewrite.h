#pragma once
// Carries one user's file associations from the old vendor's ProgIds to the new ones, in the
// user's classes hive: the friendly name under each ProgId's shell\open, the ProgId key
// copied to its new name, and the value under .<ext>\OpenWithProgIds renamed.
#include <windows.h>

#include <string>

#include "associations/UserPreferences.h"
#include "users/UserContext.h"

// One call of MigrateFileAssociations: the table read from the preference file, and the
// mounted classes hive that every path here is relative to (not ours to close).
struct FileAssociationContext {
   FileAssociationMap map;
   HKEY classesRoot = nullptr;
};

// Reads the copied preference document at `destPath` and rewrites the associations it names
// below `userClassesKey`. False, with the registry untouched, when COM can't be entered or
// the document can't be read; true otherwise, whatever the registry then allowed.
bool MigrateFileAssociations(const UserContext &user, HKEY userHiveKey, HKEY userClassesKey,
                             const std::wstring &sourcePath, const std::wstring &destPath);
void MigrateAssociationRegistry(FileAssociationContext &context);
void MigrateExtensionProgIds(FileAssociationContext &context, const std::wstring &extension, const ProgIdSet &progIds);
// True when the rewritten FriendlyAppName of the ProgId's shell\open key was stored.
bool MigrateFriendlyAppName(FileAssociationContext &context, const std::wstring &progId);
// Replaces the first occurrence of `from`, code unit for code unit, NULs in `text` included.
void ReplaceFirstInPlace(std::wstring &text, const std::wstring &from, const std::wstring &to);
