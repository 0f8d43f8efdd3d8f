#include "associations/AssociationRewrite.h"

#include <vector>

#include "HandleGuards.h"
#include "config/XmlAccess.h"
#include "log/MigrationLog.h"
#include "registry/KeyMigration.h"

namespace {

constexpr REGSAM ReadWriteAccess = KEY_READ | KEY_WRITE; // 0x2001f
// A longer value name ends the enumeration of its key: the values after it aren't seen.
constexpr DWORD ValueNameChars = 256;
constexpr DWORD FriendlyNameQueryBytes = 512;
// The working text takes the returned size in bytes, less one, as its count of characters:
// up to 511 of them from a query of 512 bytes. The area holds them all, zeroed, so the part
// behind the stored text is always the same.
constexpr size_t FriendlyNameAreaChars = FriendlyNameQueryBytes - 1;

const std::wstring FriendlyAppNameValue = L"FriendlyAppName";
const std::wstring OldWord = L"Eldrix";
// The ProgId takes the product's word, the name a person sees the new vendor's.
const std::wstring NewProgIdWord = L"Vantora";
const std::wstring NewVendorWord = L"Corvane";

} // namespace

bool MigrateFileAssociations(const UserContext &, HKEY, HKEY userClassesKey, const std::wstring &,
                             const std::wstring &destPath)
{
   FileAssociationContext context;
   context.classesRoot = userClassesKey;
   {
      // COM only for the load: the registry work below runs outside it.
      const ComApartment apartment(associationPlatform.CoInitialize, associationPlatform.CoUninitialize);
      if (!ApartmentReady(apartment)) {
         return false;
      }
      // A damaged file changes nothing: whatever part of the table was read goes unused. The
      // reader has said why, and the caller says for whom.
      if (!LoadUserPreferences(context.map, destPath)) {
         return false;
      }
   }

   for (const auto &[extension, progIds] : context.map) {
      LogMessage(LogLevelInfo, "config extension %S", extension.c_str());
      for (const std::wstring &progId : progIds) {
         LogMessage(LogLevelInfo, " config progid %S", progId.c_str());
      }
   }
   MigrateAssociationRegistry(context);
   return true;
}

void MigrateAssociationRegistry(FileAssociationContext &context)
{
   for (const auto &[key, progIds] : context.map) {
      const std::wstring extension = key;
      LogMessage(LogLevelInfo, "Migrate registry for %S", extension.c_str());
      MigrateExtensionProgIds(context, extension, progIds);
   }
}

void MigrateExtensionProgIds(FileAssociationContext &context, const std::wstring &extension, const ProgIdSet &progIds)
{
   const std::wstring keyPath = L"." + extension + L"\\OpenWithProgIds";
   UniqueHkey key;
   if (RegOpenKeyExW(context.classesRoot, keyPath.c_str(), 0, ReadWriteAccess, key.put()) != ERROR_SUCCESS) {
      LogMessage(LogLevelError, "Failed to open registry key for OpenWithProgIds.");
      return;
   }

   // The key isn't changed while it is enumerated: the renames wait for the end.
   std::vector<std::wstring> oldNames;
   std::vector<std::wstring> newNames;
   for (DWORD index = 0;; ++index) {
      wchar_t buffer[ValueNameChars];
      DWORD length = ValueNameChars;
      if (RegEnumValueW(key.get(), index, buffer, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
         break;
      }
      const std::wstring name(buffer, length);
      if (progIds.count(name) == 0) {
         LogMessage(LogLevelInfo, "value %S is not in config", name.c_str());
         continue;
      }
      std::wstring newName = name;
      ReplaceFirstInPlace(newName, OldWord, NewProgIdWord);
      // Recorded first: the value is renamed even when its key can't be carried over.
      oldNames.push_back(name);
      newNames.push_back(newName);
      LogMessage(LogLevelInfo, "Registry %S value %S will be changed to %S", keyPath.c_str(), name.c_str(),
                 newName.c_str());

      // The friendly name is rewritten before the copy, so that the copy carries it.
      if (!MigrateFriendlyAppName(context, name)) {
         LogMessage(LogLevelError, "Failed to migrate registry value FriendlyAppName.");
         continue;
      }
      // The old ProgId locates the descriptor for keys the copy has to create in between.
      const RegistryKeyRule rule{std::wstring(), RegistrySubKeyRule{name, newName, L"SkipIfExists", {}, {}}};
      MigrateRegistryKeyRule(context.classesRoot, name, rule);
   }

   for (size_t i = 0; i < oldNames.size(); ++i) {
      // The old data isn't carried over. The line stands at the error level so that it shows
      // in logs filtered to errors, and it is written whatever the two calls did.
      RegDeleteValueW(key.get(), oldNames[i].c_str());
      RegSetValueExW(key.get(), newNames[i].c_str(), 0, REG_SZ, nullptr, 0);
      LogMessage(LogLevelError, "Value %S is changed to %S.", oldNames[i].c_str(), newNames[i].c_str());
   }
}

bool MigrateFriendlyAppName(FileAssociationContext &context, const std::wstring &progId)
{
   UniqueHkey key;
   if (RegOpenKeyExW(context.classesRoot, (progId + L"\\shell\\open").c_str(), 0, ReadWriteAccess, key.put()) !=
       ERROR_SUCCESS) {
      return false;
   }

   wchar_t area[FriendlyNameAreaChars] = {};
   DWORD size = FriendlyNameQueryBytes;
   if (RegQueryValueExW(key.get(), FriendlyAppNameValue.c_str(), nullptr, nullptr, reinterpret_cast<BYTE *>(area),
                        &size) != ERROR_SUCCESS ||
       size == 0) {
      LogMessage(LogLevelError, "Failed to read FriendlyAppName value.");
      return false;
   }

   // The size in bytes, less one, counts characters: a name of n characters becomes 2n + 1
   // of them, its terminator and zeros included, and goes back at that length. Installed
   // clients read the name up to its first NUL; what follows stays as it always has.
   const std::wstring oldName(area, size - 1);
   std::wstring newName = oldName;
   ReplaceFirstInPlace(newName, OldWord, NewVendorWord);
   LogMessage(LogLevelInfo, "FriendlyAppName: %S is changed to %S", oldName.c_str(), newName.c_str());

   const DWORD bytes = static_cast<DWORD>((newName.size() + 1) * sizeof(wchar_t));
   return RegSetValueExW(key.get(), FriendlyAppNameValue.c_str(), 0, REG_SZ,
                         reinterpret_cast<const BYTE *>(newName.c_str()), bytes) == ERROR_SUCCESS;
}

void ReplaceFirstInPlace(std::wstring &text, const std::wstring &from, const std::wstring &to)
{
   if (from.size() > text.size()) {
      return;
   }
   const size_t at = text.find(from);
   if (at != std::wstring::npos) {
      text.replace(at, from.size(), to);
   }
}
