#include "RegistryTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iomanip>

void PrintTo(const StoredValue &value, std::ostream *out)
{
   *out << "type " << value.type << " data {";
   for (BYTE byte : value.data) {
      *out << ' ' << std::hex << std::setw(2) << std::setfill('0') << static_cast<int>(byte) << std::dec;
   }
   *out << " }";
}

Bytes WideBytes(const std::wstring &text)
{
   const BYTE *begin = reinterpret_cast<const BYTE *>(text.c_str());
   return Bytes(begin, begin + (text.size() + 1) * sizeof(wchar_t));
}

Bytes DwordBytes(DWORD value)
{
   Bytes bytes(sizeof(value));
   memcpy(bytes.data(), &value, sizeof(value));
   return bytes;
}

Bytes QwordBytes(ULONGLONG value)
{
   Bytes bytes(sizeof(value));
   memcpy(bytes.data(), &value, sizeof(value));
   return bytes;
}

StoredValue DwordValue(DWORD value)
{
   return {REG_DWORD, DwordBytes(value)};
}

StoredValue SzValue(const std::wstring &text)
{
   return {REG_SZ, WideBytes(text)};
}

HKEY CreateTestKey(const std::wstring &path)
{
   HKEY key = nullptr;
   const LONG result = RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                                       nullptr);
   EXPECT_EQ(result, ERROR_SUCCESS) << "creating HKLM\\" << testing::PrintToString(path);
   return key;
}

void DeleteTestTree(const std::wstring &path)
{
   RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str());
   RegDeleteKeyW(HKEY_LOCAL_MACHINE, path.c_str());
}

bool TestKeyExists(const std::wstring &path)
{
   HKEY key = nullptr;
   if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
      return false;
   }
   RegCloseKey(key);
   return true;
}

void SetTestValue(HKEY key, const std::wstring &name, DWORD type, const Bytes &data)
{
   ASSERT_EQ(RegSetValueExW(key, name.c_str(), 0, type, data.data(), static_cast<DWORD>(data.size())), ERROR_SUCCESS);
}

void PutTestValue(const std::wstring &path, const std::wstring &name, const StoredValue &value)
{
   HKEY key = CreateTestKey(path);
   SetTestValue(key, name, value.type, value.data);
   RegCloseKey(key);
}

std::optional<StoredValue> ReadTestValue(HKEY key, const std::wstring &name)
{
   DWORD type = 0;
   DWORD size = 0;
   if (RegQueryValueExW(key, name.c_str(), nullptr, &type, nullptr, &size) != ERROR_SUCCESS) {
      return std::nullopt;
   }
   StoredValue value{type, Bytes(size)};
   if (RegQueryValueExW(key, name.c_str(), nullptr, &type, value.data.data(), &size) != ERROR_SUCCESS) {
      return std::nullopt;
   }
   value.data.resize(size);
   return value;
}

std::optional<StoredValue> ReadTestValue(const std::wstring &keyPath, const std::wstring &name)
{
   HKEY key = nullptr;
   if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
      return std::nullopt;
   }
   std::optional<StoredValue> value = ReadTestValue(key, name);
   RegCloseKey(key);
   return value;
}

std::vector<std::wstring> ValueNames(HKEY key)
{
   std::vector<std::wstring> names;
   for (DWORD index = 0;; ++index) {
      wchar_t name[16384];
      DWORD length = 16384;
      if (RegEnumValueW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
         break;
      }
      names.emplace_back(name, length);
   }
   return names;
}

ValueMap ValuesOf(HKEY key)
{
   ValueMap values;
   for (const std::wstring &name : ValueNames(key)) {
      values.emplace(name, ReadTestValue(key, name).value_or(StoredValue{}));
   }
   return values;
}
