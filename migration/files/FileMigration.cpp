#include "files/FileMigration.h"

// File migration is not built yet: no file rule succeeds and no profile is visited.
bool CopyFileWithOwner(const std::wstring &, const std::wstring &)
{
   return false;
}

void EnumerateProfilePaths(std::vector<std::wstring> &)
{
}

void MigratePreferenceFiles(const std::vector<std::wstring> &)
{
}
