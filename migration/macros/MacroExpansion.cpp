#include "macros/MacroExpansion.h"

#include <regex>

namespace {

bool IsDigit(wchar_t c)
{
   return c >= L'0' && c <= L'9';
}

// Appends the replacement for one match of `text` to `out`, reading `format` as a
// replacement pattern.
//
// This is written out rather than left to match_results::format because libstdc++ reads
// the pattern differently in two places, and macro values are written by people who
// expect JavaScript-like replacement text:
//  - `$0` and `$00` are not references: they stay as written. libstdc++ puts the whole
//    match there.
//  - `` $` `` is everything of the string in front of the match. Inside regex_iterator
//    libstdc++ gives only the text since the previous match.
// A `$` with two digits behind it always names the group of that two-digit number, and
// gives nothing when the name has no such group: with one group `$10` is empty, not group 1
// and a "0", and `$01` is group 1. Falling back to one digit would make what a value means
// depend on the name it is used with.
// Everything else: `$$` is a dollar, `$&` the match, `$'` the rest of the string, a `$`
// before any other character or at the very end stays, and a backslash is just a
// backslash so that Windows paths need no escaping.
void AppendReplacement(std::wstring &out, const std::wstring &text, const std::wsmatch &match,
                       const std::wstring &format)
{
   const size_t groups = match.size(); // group 0 included
   auto appendGroup = [&](size_t number) {
      if (number < groups && match[number].matched) {
         out.append(match[number].first, match[number].second);
      }
   };

   size_t i = 0;
   while (i < format.size()) {
      const wchar_t c = format[i];
      if (c != L'$' || i + 1 == format.size()) {
         out.push_back(c);
         ++i;
         continue;
      }
      const wchar_t next = format[i + 1];
      if (next == L'$') {
         out.push_back(L'$');
         i += 2;
      } else if (next == L'&') {
         appendGroup(0);
         i += 2;
      } else if (next == L'`') {
         out.append(text.cbegin(), match[0].first);
         i += 2;
      } else if (next == L'\'') {
         out.append(match[0].second, text.cend());
         i += 2;
      } else if (IsDigit(next)) {
         size_t length = 2; // the `$` and one digit
         size_t number = static_cast<size_t>(next - L'0');
         if (i + 2 < format.size() && IsDigit(format[i + 2])) {
            number = number * 10 + static_cast<size_t>(format[i + 2] - L'0');
            ++length;
         }
         if (number == 0) {
            out.append(format, i, length); // `$0` and `$00` are not references
         } else {
            appendGroup(number);
         }
         i += length;
      } else {
         out.push_back(L'$');
         ++i;
      }
   }
}

std::wstring ReplaceAll(const std::wstring &text, const std::wregex &pattern, const std::wstring &format)
{
   std::wstring out;
   auto tail = text.cbegin();
   for (std::wsregex_iterator it(text.cbegin(), text.cend(), pattern), end; it != end; ++it) {
      const std::wsmatch &match = *it;
      out.append(tail, match[0].first);
      AppendReplacement(out, text, match, format);
      tail = match[0].second;
   }
   out.append(tail, text.cend());
   return out;
}

} // namespace

std::wstring ExpandMacros(const std::wstring &text, const MacroTable &table)
{
   std::wstring result = text;
   for (const MacroEntry &entry : table) {
      // The name goes in unescaped: a name with regex syntax in it matches accordingly,
      // and an invalid one throws std::regex_error to the caller on purpose.
      const std::wregex pattern(L"\\[\\$" + entry.Name + L"\\]", std::regex_constants::ECMAScript);
      result = ReplaceAll(result, pattern, entry.Value);
   }
   return result;
}

void ExpandRegistryKeyRules(std::vector<RegistryKeyRule> &rules, const MacroTable &table)
{
   for (RegistryKeyRule &rule : rules) {
      ExpandRegistrySubKeyRule(rule.Key, table);
   }
}

void ExpandRegistrySubKeyRule(RegistrySubKeyRule &rule, const MacroTable &table)
{
   rule.SourcePath = ExpandMacros(rule.SourcePath, table);
   rule.DestPath = ExpandMacros(rule.DestPath, table);
   // OldName stays literal: it names the value as the source key has it.
   for (RegistryValueRule &value : rule.Values) {
      value.NewName = ExpandMacros(value.NewName, table);
      value.NewValue = ExpandMacros(value.NewValue, table);
   }
   for (RegistrySubKeyRule &subKey : rule.SubKeys) {
      ExpandRegistrySubKeyRule(subKey, table);
   }
}

void ExpandConfigFileRules(std::vector<ConfigFileRule> &rules, const MacroTable &table)
{
   for (ConfigFileRule &rule : rules) {
      rule.SourcePath = ExpandMacros(rule.SourcePath, table);
      rule.DestPath = ExpandMacros(rule.DestPath, table);
   }
}

void ExpandConfigFileRulesForUser(const std::vector<ConfigFileRule> &rules, const MacroTable &table,
                                  std::vector<ConfigFileRule> &result)
{
   for (const ConfigFileRule &rule : rules) {
      ConfigFileRule expanded;
      expanded.FileType = rule.FileType;
      expanded.SourcePath = ExpandMacros(rule.SourcePath, table);
      expanded.DestPath = ExpandMacros(rule.DestPath, table);
      expanded.Action = rule.Action;
      result.push_back(std::move(expanded));
   }
}
