#pragma once
#include <string>
#include <vector>

// Copies one file with its owner and group; true when the file was migrated.
bool CopyFileWithOwner(const std::wstring &sourcePath, const std::wstring &destPath);

// Profile directories whose prefs.txt is carried to the new client folder.
void EnumerateProfilePaths(std::vector<std::wstring> &profilePaths);
void MigratePreferenceFiles(const std::vector<std::wstring> &profilePaths);
