#include "registry/ValueMigration.h"

#include <stdexcept>

#include "HandleGuards.h"
#include "log/MigrationLog.h"

namespace {

constexpr DWORD ValueNameBufferChars = 256;
// Deliberately small: a value that doesn't fit ends the walk of its key (see below).
constexpr DWORD ValueDataBufferBytes = 1024;

// Action words are ASCII; comparing them through the C runtime would drag the locale in.
bool EqualsIgnoringAsciiCase(const std::wstring &text, const wchar_t *word)
{
   size_t i = 0;
   for (; i < text.size() && word[i] != L'\0'; ++i) {
      wchar_t a = text[i];
      wchar_t b = word[i];
      if (a >= L'A' && a <= L'Z') {
         a = static_cast<wchar_t>(a - L'A' + L'a');
      }
      if (b >= L'A' && b <= L'Z') {
         b = static_cast<wchar_t>(b - L'A' + L'a');
      }
      if (a != b) {
         return false;
      }
   }
   return i == text.size() && word[i] == L'\0';
}

// std::stoul and std::stoull with the texts that installer logs and crash reports have
// always shown for a bad number in NewValue. On 64-bit Windows unsigned long is 32 bits,
// so stoul already rejects what doesn't fit a REG_DWORD.
unsigned long ToUnsignedLong(const std::wstring &text, int base)
{
   try {
      return std::stoul(text, nullptr, base);
   } catch (const std::invalid_argument &) {
      throw std::invalid_argument("invalid stoul argument");
   } catch (const std::out_of_range &) {
      throw std::out_of_range("stoul argument out of range");
   }
}

unsigned long long ToUnsignedLongLong(const std::wstring &text)
{
   try {
      return std::stoull(text, nullptr, 10);
   } catch (const std::invalid_argument &) {
      throw std::invalid_argument("invalid stoull argument");
   } catch (const std::out_of_range &) {
      throw std::out_of_range("stoull argument out of range");
   }
}

const RegistryValueRule *FindValueRule(const std::vector<RegistryValueRule> &rules, const wchar_t *name,
                                       DWORD nameLength)
{
   for (const RegistryValueRule &rule : rules) {
      if (rule.OldName.size() == nameLength && rule.OldName.compare(0, nameLength, name, nameLength) == 0) {
         return &rule;
      }
   }
   return nullptr;
}

} // namespace

BYTE *ParseRegistryValueData(const std::wstring &text, DWORD type, DWORD &size)
{
   size = 0;
   DWORD needed = 0;
   switch (type) {
   case REG_SZ:
   case REG_EXPAND_SZ:
      needed = static_cast<DWORD>(text.size() * sizeof(wchar_t) + sizeof(wchar_t));
      break;
   case REG_BINARY:
   case REG_MULTI_SZ:
      needed = static_cast<DWORD>(text.size() / 2);
      break;
   case REG_DWORD:
      needed = sizeof(DWORD);
      break;
   case REG_QWORD:
      needed = sizeof(ULONGLONG);
      break;
   default:
      LogMessage(LogLevelError, "Unsupport data type %d in configuration file.", static_cast<int>(type));
      return nullptr;
   }

   // Decimal numbers are read before the allocation; a bad hex pair below throws with the
   // block still held by its guard.
   ULONGLONG number = 0;
   if (type == REG_DWORD) {
      number = ToUnsignedLong(text, 10);
   } else if (type == REG_QWORD) {
      number = ToUnsignedLongLong(text);
   }

   // A one-character binary text asks for zero bytes; one spare byte keeps the block
   // non-null on heaps that refuse empty allocations, and the size stays 0.
   UniqueLocalMemory block(LocalAlloc(LPTR, needed != 0 ? needed : 1));
   if (!block) {
      return nullptr;
   }
   BYTE *bytes = static_cast<BYTE *>(block.get());
   switch (type) {
   case REG_SZ:
   case REG_EXPAND_SZ:
      memcpy(bytes, text.c_str(), needed);
      break;
   case REG_BINARY:
   case REG_MULTI_SZ:
      for (DWORD i = 0; i < needed; ++i) {
         bytes[i] = static_cast<BYTE>(ToUnsignedLong(text.substr(2 * i, 2), 16) & 0xFF);
      }
      break;
   case REG_DWORD: {
      const DWORD dword = static_cast<DWORD>(number);
      memcpy(bytes, &dword, sizeof(dword));
      break;
   }
   case REG_QWORD:
      memcpy(bytes, &number, sizeof(number));
      break;
   }
   size = needed;
   return static_cast<BYTE *>(block.release());
}

void ApplyValueAction(HKEY destination, const std::wstring &oldName, const std::wstring &newName, DWORD type,
                      const BYTE *data, DWORD size, const std::wstring &action)
{
   const std::wstring &targetName = newName.empty() ? oldName : newName;

   if (EqualsIgnoringAsciiCase(action, L"Skip")) {
      LogMessage(LogLevelInfo, "Value %S skipped.", oldName.c_str());
      return;
   }
   const bool skipIfExists = EqualsIgnoringAsciiCase(action, L"SkipIfExists");
   if (skipIfExists) {
      DWORD existingType = 0;
      DWORD existingSize = 0;
      if (RegQueryValueExW(destination, targetName.c_str(), nullptr, &existingType, nullptr, &existingSize) ==
          ERROR_SUCCESS) {
         LogMessage(LogLevelInfo, "Value %S exists and skipped.", targetName.c_str());
         return;
      }
   }
   if (!skipIfExists && !EqualsIgnoringAsciiCase(action, L"Overwrite")) {
      // An action word we don't know moves nothing; the configuration says what it meant.
      return;
   }

   // The outcome of the write isn't looked at: the line records what was attempted.
   RegSetValueExW(destination, targetName.c_str(), 0, type, data, size);
   LogMessage(LogLevelInfo, "Migrated %S to %S.", oldName.c_str(), targetName.c_str());
}

void MigrateKeyValues(HKEY source, HKEY destination, const std::vector<RegistryValueRule> &valueRules,
                      const std::wstring &keyAction, DWORD valueCount)
{
   wchar_t name[ValueNameBufferChars];
   BYTE data[ValueDataBufferBytes];

   // A value whose name or data doesn't fit these buffers makes the enumeration report
   // ERROR_MORE_DATA, and that ends the walk of this key: the values after it stay behind.
   // Installers have always seen that limit; a retry with a bigger buffer would change
   // what a run migrates.
   for (DWORD index = 0; index < valueCount; ++index) {
      DWORD nameLength = ValueNameBufferChars;
      DWORD dataLength = ValueDataBufferBytes;
      DWORD type = 0;
      if (RegEnumValueW(source, index, name, &nameLength, nullptr, &type, data, &dataLength) != ERROR_SUCCESS) {
         return;
      }
      const std::wstring valueName(name, nameLength);

      const RegistryValueRule *rule = FindValueRule(valueRules, name, nameLength);
      if (rule == nullptr) {
         ApplyValueAction(destination, valueName, valueName, type, data, dataLength, keyAction);
         continue;
      }
      if (rule->NewValue.empty()) {
         ApplyValueAction(destination, rule->OldName, rule->NewName, type, data, dataLength, rule->Action);
         continue;
      }
      // The source's type decides both how NewValue is read and what type is written;
      // the rule's Type is informational.
      DWORD convertedSize = 0;
      UniqueLocalMemory converted(ParseRegistryValueData(rule->NewValue, type, convertedSize));
      if (!converted) {
         LogMessage(LogLevelWarning, "Wrong format in configuration, the registry value data of Name: %S",
                    rule->OldName.c_str());
         continue;
      }
      ApplyValueAction(destination, rule->OldName, rule->NewName, type, static_cast<const BYTE *>(converted.get()),
                       convertedSize, rule->Action);
   }
}
