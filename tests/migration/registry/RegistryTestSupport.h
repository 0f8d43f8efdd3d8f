#pragma once
// Small helpers over the real registry for the registry engine's tests.
#include <windows.h>

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

using Bytes = std::vector<BYTE>;

struct StoredValue {
   DWORD type = 0;
   Bytes data;
   bool operator==(const StoredValue &) const = default;
};

// So that a failing comparison shows type and bytes rather than the object's memory.
void PrintTo(const StoredValue &value, std::ostream *out);

// Registry data of a string as the API stores it: UTF-16 with its terminator.
Bytes WideBytes(const std::wstring &text);
Bytes DwordBytes(DWORD value);
Bytes QwordBytes(ULONGLONG value);
StoredValue DwordValue(DWORD value);
StoredValue SzValue(const std::wstring &text);

// Creates (or opens) `path` below HKLM with full access; fails the test if it can't.
HKEY CreateTestKey(const std::wstring &path);
void DeleteTestTree(const std::wstring &path);
bool TestKeyExists(const std::wstring &path);
void SetTestValue(HKEY key, const std::wstring &name, DWORD type, const Bytes &data);
// Creates `path` below HKLM as CreateTestKey does and sets the value in it.
void PutTestValue(const std::wstring &path, const std::wstring &name, const StoredValue &value);
std::optional<StoredValue> ReadTestValue(HKEY key, const std::wstring &name);
std::optional<StoredValue> ReadTestValue(const std::wstring &keyPath, const std::wstring &name);
// Value names as the platform enumerates them.
std::vector<std::wstring> ValueNames(HKEY key);
// Every value of the key by name.
using ValueMap = std::map<std::wstring, StoredValue>;
ValueMap ValuesOf(HKEY key);
