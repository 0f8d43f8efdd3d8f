#pragma once
// Values of the global macros, worked out in the immediate action while the installer
// session can still be asked; the deferred actions read them from the document.
#include <windows.h>
#include <msi.h>

#include <string>

#include "config/MigrationConfig.h"

// A row with a Variable takes that property's value (the document's Value is dropped, also
// when the property can't be read); then ProgramData is appended.
void ResolveGlobalMacros(MSIHANDLE hInstall, MacroTable &table);

// The property's value, or empty after an error line; an empty or unset property is such an error.
std::wstring GetInstallerProperty(MSIHANDLE hInstall, const std::wstring &name);

// Appends ProgramData from the machine's Shell Folders; no row when that key can't be opened.
void AppendProgramDataMacro(MacroTable &table);

// A REG_SZ or REG_EXPAND_SZ value (unexpanded) of up to 259 characters, or empty after an error line.
std::wstring ReadRegistryString(HKEY key, const std::wstring &valueName);
