#pragma once
// The in-memory form of vtrMigrateConf.xml. Every field is the document's text as written;
// records own their strings and nested lists by value, so a copy is a deep copy.
#include <string>
#include <vector>

struct MacroEntry {
   std::wstring Name;
   std::wstring Variable;
   std::wstring Value;
};

using MacroTable = std::vector<MacroEntry>;

struct RegistryValueRule {
   std::wstring OldName;
   std::wstring NewName;
   std::wstring Type;
   std::wstring Action;
   std::wstring NewValue;
};

struct RegistrySubKeyRule {
   std::wstring SourcePath;
   std::wstring DestPath;
   std::wstring Action;
   std::vector<RegistryValueRule> Values;
   std::vector<RegistrySubKeyRule> SubKeys;
};

struct RegistryKeyRule {
   std::wstring Root;
   RegistrySubKeyRule Key;
};

struct ConfigFileRule {
   std::wstring FileType;
   std::wstring SourcePath;
   std::wstring DestPath;
   std::wstring Action;
};

struct MigrationConfig {
   MacroTable Macros;
   std::vector<RegistryKeyRule> ServiceKeys;
   std::vector<RegistryKeyRule> UserKeys;
   std::vector<ConfigFileRule> ConfigFiles;
};
