#pragma once
#include <windows.h>
#include <msi.h>

#include <string>

// Writes the named stream of `table` to the temporary directory; the file's path, or empty.
std::wstring ExtractFileFromTable(MSIHANDLE hInstall, const std::wstring &table, const std::wstring &fileName);
