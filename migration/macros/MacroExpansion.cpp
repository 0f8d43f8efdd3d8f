#include "macros/MacroExpansion.h"

// Placeholder until macro expansion lands: rule text stays as read.
std::wstring ExpandMacros(const std::wstring &text, const MacroTable &)
{
   return text;
}

void ExpandRegistryKeyRules(std::vector<RegistryKeyRule> &, const MacroTable &)
{
}

void ExpandRegistrySubKeyRule(RegistrySubKeyRule &, const MacroTable &)
{
}

void ExpandConfigFileRules(std::vector<ConfigFileRule> &, const MacroTable &)
{
}

void ExpandConfigFileRulesForUser(const std::vector<ConfigFileRule> &rules, const MacroTable &,
                                  std::vector<ConfigFileRule> &result)
{
   result.insert(result.end(), rules.begin(), rules.end());
}
