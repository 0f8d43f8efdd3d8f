#pragma once
#include <windows.h>

#include <string>

#include "users/UserContext.h"

// Rewrites the user's file associations from the preference document that was copied.
bool MigrateFileAssociations(const UserContext &user, HKEY userHiveKey, HKEY userClassesKey,
                             const std::wstring &sourcePath, const std::wstring &destPath);
