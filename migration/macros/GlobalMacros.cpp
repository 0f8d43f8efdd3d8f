#include "macros/GlobalMacros.h"

#include <msiquery.h>

#include <cwchar>
#include <memory>
#include <new>

#include "HandleGuards.h"
#include "log/MigrationLog.h"

namespace {

constexpr wchar_t ShellFoldersPath[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";
constexpr DWORD RegistryStringChars = 260;

} // namespace

void ResolveGlobalMacros(MSIHANDLE hInstall, MacroTable &table)
{
   for (MacroEntry &macro : table) {
      if (macro.Variable.empty()) {
         continue;
      }
      LogMessage(LogLevelInfo, "Get installer property %S.", macro.Variable.c_str());
      macro.Value = GetInstallerProperty(hInstall, macro.Variable);
   }
   // Also when the document has a row of that name: the document's comes first and so wins.
   AppendProgramDataMacro(table);
}

std::wstring GetInstallerProperty(MSIHANDLE hInstall, const std::wstring &name)
{
   // Asked once for the length, then for the text: a property has no length limit.
   wchar_t probe[1] = {};
   DWORD length = 0;
   UINT status = MsiGetPropertyW(hInstall, name.c_str(), probe, &length);
   std::wstring value;
   // An empty and an unset property both come back as no length, and both stay a failure
   // (ERROR_MORE_DATA), as does a buffer that can't be had.
   if (status == ERROR_MORE_DATA && length != 0) {
      ++length;
      std::unique_ptr<wchar_t[]> buffer(new (std::nothrow) wchar_t[length]);
      if (buffer) {
         status = MsiGetPropertyW(hInstall, name.c_str(), buffer.get(), &length);
         if (status == ERROR_SUCCESS) {
            value = buffer.get();
         }
      }
   }
   if (status != ERROR_SUCCESS) {
      LogMessage(LogLevelError, "Failed to get installer property %S, error = 0x%08X.", name.c_str(), status);
      return std::wstring();
   }
   return value;
}

void AppendProgramDataMacro(MacroTable &table)
{
   UniqueHkey key;
   const LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, ShellFoldersPath, 0, KEY_READ, key.put());
   if (status != ERROR_SUCCESS) {
      LogMessage(LogLevelWarning, "Can't open local machine key %S, error = 0x%08X.", ShellFoldersPath,
                 static_cast<unsigned>(status));
      return;
   }
   // The row goes in also when the value can't be read, then with an empty Value.
   table.push_back(MacroEntry{L"ProgramData", L"", ReadRegistryString(key.get(), L"Common AppData")});
}

std::wstring ReadRegistryString(HKEY key, const std::wstring &valueName)
{
   wchar_t buffer[RegistryStringChars] = {};
   DWORD size = sizeof(buffer);
   DWORD type = REG_NONE;
   const LSTATUS status =
      RegQueryValueExW(key, valueName.c_str(), nullptr, &type, reinterpret_cast<BYTE *>(buffer), &size);
   if (status == ERROR_SUCCESS && (type == REG_SZ || type == REG_EXPAND_SZ)) {
      // A value that fills the buffer need not carry its terminator.
      return std::wstring(buffer, wcsnlen(buffer, RegistryStringChars));
   }
   LogMessage(LogLevelError, "Can't read value of %S, result = 0x%08X.", valueName.c_str(),
              static_cast<unsigned>(status));
   return std::wstring();
}
