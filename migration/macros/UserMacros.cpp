#include "macros/UserMacros.h"

void AppendUserMacroRows(const std::wstring &profilePath, MacroTable &table)
{
   // CommonAppData is the user's local folder here; the machine-wide one is the global
   // ProgramData macro.
   table.push_back({L"AppData", L"", profilePath + L"\\AppData\\Roaming"});
   table.push_back({L"Desktop", L"", profilePath + L"\\Desktop"});
   table.push_back({L"CommonAppData", L"", profilePath + L"\\AppData\\Local"});
   table.push_back({L"TEMP", L"", profilePath + L"\\AppData\\Local\\Temp"});
}

std::wstring ReplaceFirst(const std::wstring &text, const std::wstring &pattern, const std::wstring &replacement)
{
   std::wstring result = text;
   const size_t found = text.find(pattern);
   if (found != std::wstring::npos) {
      result.replace(found, pattern.size(), replacement);
   }
   return result;
}

void BuildUserMacros(UserContext &user)
{
   AppendUserMacroRows(user.ProfilePath, user.Macros);
   for (MacroEntry &macro : user.Macros) {
      macro.Value = ReplaceFirst(macro.Value, L"%USERPROFILE%", user.ProfilePath);
   }
}
