#pragma once
#include <string>
#include <vector>

#include "config/MigrationConfig.h"

std::wstring ExpandMacros(const std::wstring &text, const MacroTable &table);
void ExpandRegistryKeyRules(std::vector<RegistryKeyRule> &rules, const MacroTable &table);
void ExpandRegistrySubKeyRule(RegistrySubKeyRule &rule, const MacroTable &table);
void ExpandConfigFileRules(std::vector<ConfigFileRule> &rules, const MacroTable &table);
void ExpandConfigFileRulesForUser(const std::vector<ConfigFileRule> &rules, const MacroTable &table,
                                  std::vector<ConfigFileRule> &result);
