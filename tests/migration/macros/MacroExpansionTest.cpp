#include <gtest/gtest.h>

#include <regex>

#include "ConfigDump.h"
#include "MsiScenario.h"
#include "macros/MacroExpansion.h"

namespace {

MacroTable Table(std::initializer_list<std::pair<const wchar_t *, const wchar_t *>> rows)
{
   MacroTable table;
   for (const auto &[name, value] : rows) {
      table.push_back(MacroEntry{name, L"SomeProperty", value});
   }
   return table;
}

TEST(ExpandMacros, NamesAreCaseSensitivePatternsAndValuesReplacementTexts)
{
   const struct {
      std::wstring text;
      MacroTable table;
      std::wstring expected;
   } rows[] = {
      {L"[$AppData]\\x[$AppData]", Table({{L"AppData", L"R"}}), L"R\\xR"},
      {L"[$appdata]", Table({{L"AppData", L"R"}}), L"[$appdata]"},
      {L"a[$]b", Table({{L"", L"X"}}), L"aXb"},
      {L"[$AxB] [$A.B]", Table({{L"A.B", L"v"}}), L"v v"},
      // Backslashes are plain text, so Windows paths need no escaping.
      {L"[$Home]\\f", Table({{L"Home", L"C:\\Users\\Me"}}), L"C:\\Users\\Me\\f"},
      {L"[$M]", Table({{L"M", L"\\1\\n"}}), L"\\1\\n"},
      // $$ is a dollar; $0 and $00 are no references; a $ before anything else or at the end stays.
      {L"[$P]", Table({{L"P", L"cost$$"}}), L"cost$"},
      {L"[$P]", Table({{L"P", L"a$0b"}}), L"a$0b"},
      {L"[$P]", Table({{L"P", L"a$00b"}}), L"a$00b"},
      {L"[$P]", Table({{L"P", L"$x$"}}), L"$x$"},
      {L"[$P]", Table({{L"P", L"end$"}}), L"end$"},
      // $& the match, $` all in front of it from the string's start, $' all behind it.
      {L"x[$P]y", Table({{L"P", L"<$&>"}}), L"x<[$P]>y"},
      {L"a[$P]b[$P]c", Table({{L"P", L"($`)"}}), L"a(a)b(a[$P]b)c"},
      {L"a[$P]b[$P]c", Table({{L"P", L"($')"}}), L"a(b[$P]c)b(c)c"},
      // Groups: one that isn't there gives nothing; two digits after $ always name one group.
      {L"[$P]", Table({{L"P", L"<$1>"}}), L"<>"},
      {L"[$P]", Table({{L"P", L"<$01>"}}), L"<>"},
      {L"[$P]", Table({{L"P", L"<$99>"}}), L"<>"},
      {L"[$ab]", Table({{L"(a)(b)", L"$2$1"}}), L"ba"},
      {L"[$ab]", Table({{L"(a)b", L"$01"}}), L"a"},
      {L"[$ab]", Table({{L"(a)b", L"<$10|$1x|$01|$05|$000>"}}), L"<|ax|a||$000>"},
      {L"[$abcdefghij]", Table({{L"(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)", L"$10$1|$100"}}), L"ja|j0"},
      {L"[$b]", Table({{L"(a)?b", L"<$1>"}}), L"<>"},
      // Table order: a value is expanded by the entries after it only; the first duplicate wins.
      {L"[$A]", Table({{L"A", L"[$B]"}, {L"B", L"x"}}), L"x"},
      {L"[$A]", Table({{L"B", L"x"}, {L"A", L"[$B]"}}), L"[$B]"},
      {L"[$D]", Table({{L"D", L"first"}, {L"D", L"second"}}), L"first"},
      {L"[$D]", Table({{L"D", L"1[$D]"}, {L"D", L"2"}}), L"12"},
      {L"[$A]", Table({{L"A", L"[$A][$A]"}}), L"[$A][$A]"},
      {L"", Table({{L"A", L"x"}}), L""},
      {L"C:\\plain [text] $1", Table({{L"A", L"x"}}), L"C:\\plain [text] $1"},
      {L"[$A]", MacroTable{}, L"[$A]"},
      {L"a[$E]b", Table({{L"E", L""}}), L"ab"},
   };
   for (const auto &r : rows) {
      EXPECT_EQ(ExpandMacros(r.text, r.table), r.expected) << scenario::Narrow(r.text);
   }
   // An invalid name throws, also when nothing in the text could match.
   EXPECT_THROW(ExpandMacros(L"[$A(]", Table({{L"A(", L"x"}})), std::regex_error);
   EXPECT_THROW(ExpandMacros(L"", Table({{L"A(", L"x"}})), std::regex_error);
}

// Paths, new names and new values take the macros at every depth; roots, old names, types,
// actions and file types stay literal. The per-user copy appends behind what is there.
TEST(ExpandRules, OnlyPathsNewNamesAndNewValues)
{
   const RegistryValueRule value{L"O[$M]", L"N[$M]", L"T[$M]", L"A[$M]", L"V[$M]"};
   const RegistrySubKeyRule inner{L"S[$M]", L"D[$M]", L"A[$M]", {value}, {}};
   MigrationConfig config;
   config.UserKeys = {{L"HK[$M]", {L"S[$M]", L"D[$M]", L"A[$M]", {value}, {inner}}}};
   config.ConfigFiles = {{L"F[$M]", L"S[$M]\\a", L"D[$M]\\a", L"A[$M]"}};
   ExpandRegistryKeyRules(config.UserKeys, Table({{L"M", L"m"}}));
   ExpandConfigFileRules(config.ConfigFiles, Table({{L"M", L"m"}}));
   EXPECT_EQ(DumpConfig(config), L"UK HK[$M]|Sm|Dm|A[$M]\n  V O[$M]|Nm|T[$M]|A[$M]|Vm\n  S Sm|Dm|A[$M]\n"
                                 L"    V O[$M]|Nm|T[$M]|A[$M]|Vm\nF F[$M]|Sm\\a|Dm\\a|A[$M]\n");

   MigrationConfig user;
   user.ConfigFiles = {{L"keep", L"keep", L"keep", L"keep"}};
   ExpandConfigFileRulesForUser({{L"F[$U]", L"[$U]\\s", L"[$U]", L"A[$U]"}}, Table({{L"U", L"C:\\Users\\Ann"}}),
                                user.ConfigFiles);
   EXPECT_EQ(DumpConfig(user), L"F keep|keep|keep|keep\nF F[$U]|C:\\Users\\Ann\\s|C:\\Users\\Ann|A[$U]\n");
}

} // namespace
