#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "LogCapture.h"
#include "macros/MacroExpansion.h"

using testing::ElementsAre;

namespace {

MacroTable Table(std::initializer_list<std::pair<const wchar_t *, const wchar_t *>> rows)
{
   MacroTable table;
   for (const auto &[name, value] : rows) {
      table.push_back(MacroEntry{name, L"SomeProperty", value});
   }
   return table;
}

struct ExpandCase {
   const char *label;
   std::wstring text;
   MacroTable table;
   std::wstring expected;
};

class ExpandMacrosTest : public testing::TestWithParam<ExpandCase> {};

TEST_P(ExpandMacrosTest, Expands)
{
   const ExpandCase &c = GetParam();
   EXPECT_EQ(ExpandMacros(c.text, c.table), c.expected);
}

const ExpandCase ExpandCases[] = {
   {"BothOccurrences", L"[$AppData]\\x[$AppData]", Table({{L"AppData", L"R"}}), L"R\\xR"},
   {"CaseSensitiveName", L"[$appdata]", Table({{L"AppData", L"R"}}), L"[$appdata]"},
   {"EmptyName", L"a[$]b", Table({{L"", L"X"}}), L"aXb"},
   {"NameIsRegex", L"[$AxB] [$A.B]", Table({{L"A.B", L"v"}}), L"v v"},
   {"BackslashesLiteral", L"[$Home]\\f", Table({{L"Home", L"C:\\Users\\Me"}}), L"C:\\Users\\Me\\f"},
   {"BackslashBeforeDigit", L"[$M]", Table({{L"M", L"\\1\\n"}}), L"\\1\\n"},
   {"DoubleDollar", L"[$P]", Table({{L"P", L"cost$$"}}), L"cost$"},
   {"DollarZero", L"[$P]", Table({{L"P", L"a$0b"}}), L"a$0b"},
   {"DollarZeroZero", L"[$P]", Table({{L"P", L"a$00b"}}), L"a$00b"},
   {"DollarZeroOneWithoutGroup", L"[$P]", Table({{L"P", L"<$01>"}}), L"<>"},
   {"WholeMatch", L"x[$P]y", Table({{L"P", L"<$&>"}}), L"x<[$P]>y"},
   {"PrefixFromStringStart", L"a[$P]b[$P]c", Table({{L"P", L"($`)"}}), L"a(a)b(a[$P]b)c"},
   {"SuffixToStringEnd", L"a[$P]b[$P]c", Table({{L"P", L"($')"}}), L"a(b[$P]c)b(c)c"},
   {"GroupWithoutGroup", L"[$P]", Table({{L"P", L"<$1>"}}), L"<>"},
   {"GroupNumberNinetyNineWithoutGroup", L"[$P]", Table({{L"P", L"<$99>"}}), L"<>"},
   {"GroupOne", L"[$ab]", Table({{L"(a)(b)", L"$2$1"}}), L"ba"},
   {"GroupOneTwoDigitForm", L"[$ab]", Table({{L"(a)b", L"$01"}}), L"a"},
   {"TwoDigitsWithOneGroup", L"[$ab]", Table({{L"(a)b", L"<$10|$1x|$01|$05|$000>"}}), L"<|ax|a||$000>"},
   {"TwoDigitsWithTenGroups", L"[$abcdefghij]", Table({{L"(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)", L"$10$1|$100"}}), L"ja|j0"},
   {"UnmatchedOptionalGroup", L"[$b]", Table({{L"(a)?b", L"<$1>"}}), L"<>"},
   {"DollarOther", L"[$P]", Table({{L"P", L"$x$"}}), L"$x$"},
   {"DollarAtEnd", L"[$P]", Table({{L"P", L"end$"}}), L"end$"},
   {"TableOrderForward", L"[$A]", Table({{L"A", L"[$B]"}, {L"B", L"x"}}), L"x"},
   {"TableOrderBackward", L"[$A]", Table({{L"B", L"x"}, {L"A", L"[$B]"}}), L"[$B]"},
   {"FirstOfDuplicatesWins", L"[$D]", Table({{L"D", L"first"}, {L"D", L"second"}}), L"first"},
   {"DuplicateReintroduced", L"[$D]", Table({{L"D", L"1[$D]"}, {L"D", L"2"}}), L"12"},
   {"EmptyText", L"", Table({{L"A", L"x"}}), L""},
   {"NoMacros", L"C:\\plain [text] $1", Table({{L"A", L"x"}}), L"C:\\plain [text] $1"},
   {"EmptyTable", L"[$A]", MacroTable{}, L"[$A]"},
   {"EmptyValue", L"a[$E]b", Table({{L"E", L""}}), L"ab"},
   {"NoRescanOfReplacement", L"[$A]", Table({{L"A", L"[$A][$A]"}}), L"[$A][$A]"},
};

INSTANTIATE_TEST_SUITE_P(Table, ExpandMacrosTest, testing::ValuesIn(ExpandCases),
                         [](const testing::TestParamInfo<ExpandCase> &info) { return info.param.label; });

TEST(ExpandMacros, InvalidNameThrowsRegexError)
{
   EXPECT_THROW(ExpandMacros(L"[$A(]", Table({{L"A(", L"x"}})), std::regex_error);
   // Also when nothing in the text could match: the pattern is compiled regardless.
   EXPECT_THROW(ExpandMacros(L"", Table({{L"A(", L"x"}})), std::regex_error);
}

TEST(ExpandMacros, LogsNothing)
{
   LogCapture log;
   ExpandMacros(L"[$A] [$B]", Table({{L"A", L"x"}}));
   EXPECT_TRUE(log.Entries().empty());
}

std::vector<std::wstring> Fields(const RegistryValueRule &r)
{
   return {r.OldName, r.NewName, r.Type, r.Action, r.NewValue};
}

std::vector<std::wstring> Fields(const ConfigFileRule &r)
{
   return {r.FileType, r.SourcePath, r.DestPath, r.Action};
}

RegistrySubKeyRule SubKeyWithMacros(int depth)
{
   RegistrySubKeyRule rule{L"S[$M]", L"D[$M]", L"A[$M]", {}, {}};
   rule.Values.push_back(RegistryValueRule{L"O[$M]", L"N[$M]", L"T[$M]", L"Act[$M]", L"V[$M]"});
   rule.Values.push_back(RegistryValueRule{L"O2[$M]", L"", L"", L"", L"[$M]"});
   if (depth > 0) {
      rule.SubKeys.push_back(SubKeyWithMacros(depth - 1));
   }
   return rule;
}

void ExpectExpanded(const RegistrySubKeyRule &rule, int depth)
{
   SCOPED_TRACE(depth);
   EXPECT_EQ(rule.SourcePath, L"Sm");
   EXPECT_EQ(rule.DestPath, L"Dm");
   EXPECT_EQ(rule.Action, L"A[$M]");
   ASSERT_EQ(rule.Values.size(), 2u);
   EXPECT_THAT(Fields(rule.Values[0]), ElementsAre(L"O[$M]", L"Nm", L"T[$M]", L"Act[$M]", L"Vm"));
   EXPECT_THAT(Fields(rule.Values[1]), ElementsAre(L"O2[$M]", L"", L"", L"", L"m"));
   ASSERT_EQ(rule.SubKeys.size(), depth > 0 ? 1u : 0u);
   if (depth > 0) {
      ExpectExpanded(rule.SubKeys[0], depth - 1);
   }
}

TEST(ExpandRegistryKeyRules, ExpandsPathsNewNamesAndNewValuesAtEveryDepth)
{
   std::vector<RegistryKeyRule> rules{{L"HK[$M]", SubKeyWithMacros(2)}, {L"HKLM", SubKeyWithMacros(0)}};
   ExpandRegistryKeyRules(rules, Table({{L"M", L"m"}}));
   EXPECT_EQ(rules[0].Root, L"HK[$M]");
   ExpectExpanded(rules[0].Key, 2);
   ExpectExpanded(rules[1].Key, 0);
}

TEST(ExpandConfigFileRules, ExpandsPathsInPlaceOnly)
{
   std::vector<ConfigFileRule> rules{{L"F[$M]", L"S[$M]\\a", L"D[$M]\\a", L"A[$M]"}};
   ExpandConfigFileRules(rules, Table({{L"M", L"m"}}));
   ASSERT_EQ(rules.size(), 1u);
   EXPECT_THAT(Fields(rules[0]), ElementsAre(L"F[$M]", L"Sm\\a", L"Dm\\a", L"A[$M]"));
}

TEST(ExpandConfigFileRulesForUser, AppendsExpandedCopiesAfterWhatIsThere)
{
   const std::vector<ConfigFileRule> rules{{L"F1", L"[$U]\\s1", L"[$U]\\d1", L"A1"},
                                           {L"F[$U]", L"s2", L"[$U]", L"A[$U]"}};
   std::vector<ConfigFileRule> result{{L"keep", L"keep", L"keep", L"keep"}};
   ExpandConfigFileRulesForUser(rules, Table({{L"U", L"C:\\Users\\Ann"}}), result);

   ASSERT_EQ(result.size(), 3u);
   EXPECT_THAT(Fields(result[0]), ElementsAre(L"keep", L"keep", L"keep", L"keep"));
   EXPECT_THAT(Fields(result[1]), ElementsAre(L"F1", L"C:\\Users\\Ann\\s1", L"C:\\Users\\Ann\\d1", L"A1"));
   EXPECT_THAT(Fields(result[2]), ElementsAre(L"F[$U]", L"s2", L"C:\\Users\\Ann", L"A[$U]"));
}

} // namespace
