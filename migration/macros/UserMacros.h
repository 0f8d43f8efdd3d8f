#pragma once
#include <string>

#include "config/MigrationConfig.h"
#include "users/UserContext.h"

// Fills user.Macros from user.ProfilePath alone: the user being migrated is rarely the one
// running the installer, so neither the environment nor the installer knows their folders.
void BuildUserMacros(UserContext &user);
// Appends AppData, Desktop, CommonAppData and TEMP below `profilePath`, in this order.
void AppendUserMacroRows(const std::wstring &profilePath, MacroTable &table);
// `text` with its first exact occurrence of `pattern` replaced; unchanged without one.
std::wstring ReplaceFirst(const std::wstring &text, const std::wstring &pattern, const std::wstring &replacement);
