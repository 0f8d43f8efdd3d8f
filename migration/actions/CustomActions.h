#pragma once
#include <windows.h>
#include <msi.h>

#include <string>

#include "config/MigrationConfig.h"

extern const std::wstring MigrationDoneValueName;
extern const std::wstring NewVendorKeyPath;
extern const std::wstring OldVendorKeyPath;

// CustomActionData is read into a buffer of this many wide characters, terminator included.
constexpr DWORD CustomActionDataBufferSize = 260;

extern "C" {
UINT __stdcall ExtractMigrConfig(MSIHANDLE hInstall);
UINT __stdcall MigrateVantoraSvc(MSIHANDLE hInstall);
UINT __stdcall MigrateVantoraUser(MSIHANDLE hInstall);
}

bool IsMigrationDone();
// One line per macro, in table order.
void LogMacroTable(const MacroTable &macros);
// Reads CustomActionData into `data`; false when the read fails, which includes a value too
// long for the fixed buffer.
bool ReadCustomActionData(MSIHANDLE hInstall, std::wstring &data);
UINT LoadMigrationConfiguration(MSIHANDLE hInstall, MigrationConfig &config, const std::wstring &path);
bool SetProcessPrivilege(HANDLE token, const wchar_t *privilegeName, int enable);
std::wstring NextDelimitedToken(const std::wstring &source, const std::wstring &delimiter, size_t &position);
