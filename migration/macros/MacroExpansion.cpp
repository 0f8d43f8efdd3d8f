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
// the pattern differently in three places, and macro values are written by people who
// expect JavaScript-like replacement text:
//  - `$0` and `$00` are not references: they stay as written. libstdc++ puts the whole
//    match there.
//  - `` $` `` is everything of the string in front of the match. Inside regex_iterator
//    libstdc++ gives only the text since the previous match.
//  - Choosing between one and two digits: two digits are taken only when a group of that
//    two-digit number exists; otherwise the first digit alone is the reference and the
//    second is plain text, as in ECMAScript. So with one group `$10` is that group
//    followed by "0", and `$01` is group 1. A reference to a group that the name doesn't
//    have gives nothing. libstdc++ always eats two digits and may drop both.
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
         const size_t first = static_cast<size_t>(next - L'0');
         if (i + 2 < format.size() && IsDigit(format[i + 2])) {
            const size_t two = first * 10 + static_cast<size_t>(format[i + 2] - L'0');
            if (two >= 1 && two < groups) {
               appendGroup(two);
               i += 3;
               continue;
            }
         }
         if (first == 0) {
            // `$0` is not a reference; `$00` (and `$0` before any other digit whose
            // group doesn't exist) stays as written.
            out.append(L"$0");
            i += 2;
            if (i < format.size() && format[i] == L'0') {
               out.push_back(L'0');
               ++i;
            }
         } else {
            appendGroup(first);
            i += 2;
         }
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
