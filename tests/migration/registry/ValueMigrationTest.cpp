// The values of one open key carried to another: action words, rules, NewValue text read by
// the source's type, the walk's fixed buffers, and the log.
#include <gtest/gtest.h>

#include <stdexcept>

#include "HandleGuards.h"
#include "LogCapture.h"
#include "RegistryTestSupport.h"
#include "registry/ValueMigration.h"

namespace {

using Lines = std::vector<std::string>;
using Values = std::vector<scenario::RegValue>;
using scenario::BinaryValue;
using scenario::DwordValue;
using scenario::TextValue;

const std::wstring TestRoot = L"Software\\VtrTestValues";
const std::wstring SourcePath = TestRoot + L"\\Src";
const std::wstring DestPath = TestRoot + L"\\Dst";

struct Outcome {
   Lines dest;          // ValueLines of the destination afterwards
   Lines log;
   std::string thrown;  // what() of a conversion error, and "(range)" for out_of_range
};

// The destination handle has what the key walk gives it: set and query access, no more.
Outcome Migrate(const Values &source, const Values &before, const std::vector<RegistryValueRule> &rules, const std::wstring &keyAction)
{
   scenario::DeleteTree(HKEY_LOCAL_MACHINE, TestRoot);
   scenario::CreateKey(HKEY_LOCAL_MACHINE, SourcePath);
   scenario::CreateKey(HKEY_LOCAL_MACHINE, DestPath);
   for (const auto &value : source) {
      EXPECT_TRUE(scenario::WriteValue(HKEY_LOCAL_MACHINE, SourcePath, value));
   }
   for (const auto &value : before) {
      EXPECT_TRUE(scenario::WriteValue(HKEY_LOCAL_MACHINE, DestPath, value));
   }
   Outcome out;
   {
      LogCapture log;
      UniqueHkey from, to;
      EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, SourcePath.c_str(), 0, KEY_QUERY_VALUE, from.put()), 0);
      EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, DestPath.c_str(), 0, KEY_QUERY_VALUE | KEY_SET_VALUE, to.put()), 0);
      try {
         MigrateKeyValues(from.get(), to.get(), rules, keyAction);
      } catch (const std::out_of_range &e) {
         out.thrown = std::string(e.what()) + " (range)";
      } catch (const std::invalid_argument &e) {
         out.thrown = e.what();
      }
      out.log = log.Entries();
   }
   out.dest = ValueLines(DestPath);
   scenario::DeleteTree(HKEY_LOCAL_MACHINE, TestRoot);
   return out;
}

const scenario::RegValue New = TextValue(L"v", L"new");
const scenario::RegValue Seven = DwordValue(L"v", 7);
const std::string A255 = "a" + std::string(254, 'x');

TEST(MigrateKeyValues, RulesAndActionWords)
{
   const struct {
      Values source;
      Values before;  // already at the destination
      std::vector<RegistryValueRule> rules;
      const wchar_t *keyAction;
      Lines dest;
      Lines log;
   } rows[] = {
      // A value without a rule follows the key's word, whose case doesn't matter; a word we
      // don't know moves nothing and says nothing.
      {{New}, {Seven}, {}, L"Overwrite", {"v = REG_SZ \"new\""}, {"INFO Migrated v to v."}},
      {{New}, {}, {}, L"OVERWRITE", {"v = REG_SZ \"new\""}, {"INFO Migrated v to v."}},
      {{New}, {}, {}, L"skip", {}, {"INFO Value v skipped."}},
      {{New}, {Seven}, {}, L"SkipIfexists", {"v = REG_DWORD 7"}, {"INFO Value v exists and skipped."}},
      {{New}, {}, {}, L"SKIPIFEXISTS", {"v = REG_SZ \"new\""}, {"INFO Migrated v to v."}},
      {{New}, {}, {}, L"Skipped", {}, {}},
      {{New}, {}, {}, L"", {}, {}},
      {{New}, {}, {}, L"Overwrite ", {}, {}},
      {{New}, {}, {}, L"Over", {}, {}},
      // A rule for a value the source lacks is never read, however malformed its NewValue.
      {{DwordValue(L"other", 1)}, {}, {{L"v", L"", L"", L"Overwrite", L"AB"}}, L"Overwrite", {"other = REG_DWORD 1"},
       {"INFO Migrated other to other."}},
      // A type without a textual form: logged and left out with a NewValue, copied without.
      {{{L"a", REG_DWORD_BIG_ENDIAN, {0, 0, 0, 1}}, {L"b", REG_NONE, {9}}, {L"c", REG_LINK, {8}}, DwordValue(L"d", 3)}, {},
       {{L"a", L"", L"", L"Overwrite", L"1"}, {L"b", L"", L"", L"Overwrite", L"1"}, {L"c", L"", L"", L"Overwrite", L"1"}}, L"Overwrite",
       {"d = REG_DWORD 3"},
       {"ERRO Unsupport data type 5 in configuration file.", "WARN Wrong format in configuration, the registry value data of Name: a",
        "ERRO Unsupport data type 0 in configuration file.", "WARN Wrong format in configuration, the registry value data of Name: b",
        "ERRO Unsupport data type 6 in configuration file.", "WARN Wrong format in configuration, the registry value data of Name: c",
        "INFO Migrated d to d."}},
      {{{L"n", REG_NONE, {1, 2}}}, {}, {}, L"Overwrite", {"n = type 0 hex:0102"}, {"INFO Migrated n to n."}},
      // A rename keeps the source's type whatever the rule's Type says, and logs the old name first.
      {{{L"Old", REG_BINARY, {5, 6}}}, {}, {{L"Old", L"New", L"REG_SZ", L"Overwrite", L""}}, L"Skip",
       {"New = type 3 hex:0506"}, {"INFO Migrated Old to New."}},
      // SkipIfExists looks for the new name: A is there under its old name only, B under its new.
      {{DwordValue(L"A", 1), DwordValue(L"B", 2)}, {DwordValue(L"A", 10), DwordValue(L"NewB", 20)},
       {{L"A", L"NewA", L"", L"SkipIfExists", L""}, {L"B", L"NewB", L"", L"skipifexists", L""}}, L"Skip",
       {"A = REG_DWORD 10", "NewA = REG_DWORD 1", "NewB = REG_DWORD 20"},
       {"INFO Migrated A to NewA.", "INFO Value NewB exists and skipped."}},
      {{DwordValue(L"Old", 1)}, {}, {{L"Old", L"New", L"", L"SKIP", L""}}, L"Overwrite", {}, {"INFO Value Old skipped."}},
      // A rule's word replaces the key's for its value only.
      {{DwordValue(L"a", 1), DwordValue(L"b", 2), DwordValue(L"c", 3)}, {}, {{L"a", L"", L"", L"Overwrite", L""}, {L"c", L"", L"", L"Skipped", L""}},
       L"Skip", {"a = REG_DWORD 1"}, {"INFO Migrated a to a.", "INFO Value b skipped."}},
      // Rules match the old name exactly, the first one wins, and none creates a value.
      {{DwordValue(L"name", 1)}, {},
       {{L"Name", L"Upper", L"", L"Overwrite", L""}, {L"name", L"First", L"", L"Overwrite", L""},
        {L"name", L"Second", L"", L"Overwrite", L""}, {L"[$M]", L"Macro", L"", L"Overwrite", L""}},
       L"Skip", {"First = REG_DWORD 1"}, {"INFO Migrated name to First."}},
      {{TextValue(L"", L"default")}, {}, {}, L"Overwrite", {"(default) = REG_SZ \"default\""}, {"INFO Migrated  to ."}},
      {{TextValue(L"", L"default")}, {}, {{L"", L"Named", L"", L"Overwrite", L"x"}}, L"Skip", {"Named = REG_SZ \"x\""}, {"INFO Migrated  to Named."}},
      {{}, {}, {{L"a", L"b", L"", L"Overwrite", L"1"}}, L"Overwrite", {}, {}},
      // A value whose data or name doesn't fit the walk's buffers (1024 bytes, 256 characters
      // with the terminator) ends the walk of its key; names give the enumeration order.
      {{BinaryValue(L"a", 10, 0x11), BinaryValue(L"b", 1024, 0x22), BinaryValue(L"c", 1025, 0x33), DwordValue(L"d", 4)}, {}, {}, L"Overwrite",
       {"a = type 3 hex:" + std::string(20, '1'), "b = type 3 hex:" + std::string(2048, '2')}, {"INFO Migrated a to a.", "INFO Migrated b to b."}},
      {{DwordValue(scenario::Widen(A255), 1), DwordValue(L"b" + std::wstring(255, L'x'), 2), DwordValue(L"c", 3)}, {}, {},
       L"Overwrite", {A255 + " = REG_DWORD 1"}, {"INFO Migrated " + A255 + " to " + A255 + "."}},
   };
   for (const auto &r : rows) {
      const Outcome out = Migrate(r.source, r.before, r.rules, r.keyAction);
      EXPECT_EQ(out.dest, r.dest) << scenario::Narrow(r.keyAction);
      EXPECT_EQ(out.log, r.log) << scenario::Narrow(r.keyAction);
      EXPECT_EQ(out.thrown, "");
   }
}

// The source's type decides how NewValue is read and what is written; a malformed number
// leaves as the runtime's exception, with the text installer logs have always shown.
TEST(MigrateKeyValues, NewValueIsReadByTheSourceType)
{
   const struct {
      DWORD type;
      const wchar_t *newValue;
      const char *result;  // the value written, or what was thrown
   } rows[] = {
      {REG_SZ, L"AB", "v = REG_SZ \"AB\""},
      {REG_EXPAND_SZ, L"%TEMP%\\x", "v = REG_EXPAND_SZ \"%TEMP%\\x\""},
      {REG_BINARY, L"AB", "v = type 3 hex:ab"},
      {REG_BINARY, L"01fF7", "v = type 3 hex:01ff"},
      {REG_BINARY, L"A", "v = type 3 hex:"},
      {REG_BINARY, L" A0B", "v = type 3 hex:0a0b"},
      {REG_BINARY, L"7-", "v = type 3 hex:07"},
      {REG_BINARY, L"-1", "v = type 3 hex:ff"},
      {REG_MULTI_SZ, L"41004200000000", "v = type 7 hex:41004200000000"},
      {REG_DWORD, L"4294967295", "v = REG_DWORD 4294967295"},
      {REG_DWORD, L"  42abc", "v = REG_DWORD 42"},
      {REG_DWORD, L"+7", "v = REG_DWORD 7"},
      {REG_DWORD, L"-1", "v = REG_DWORD 4294967295"},
      {REG_DWORD, L"0x10", "v = REG_DWORD 0"},
      {REG_QWORD, L"18446744073709551615", "v = REG_QWORD 18446744073709551615"},
      {REG_QWORD, L"99999999999", "v = REG_QWORD 99999999999"},
      {REG_DWORD, L"AB", "invalid stoul argument"},
      {REG_DWORD, L"99999999999", "stoul argument out of range (range)"},
      {REG_DWORD, L"-99999999999", "stoul argument out of range (range)"},
      {REG_QWORD, L"x1", "invalid stoull argument"},
      {REG_QWORD, L"18446744073709551616", "stoull argument out of range (range)"},
      {REG_BINARY, L"00ZZ", "invalid stoul argument"},
      {REG_MULTI_SZ, L"g0", "invalid stoul argument"},
   };
   for (const auto &r : rows) {
      // The rule's Type disagrees on purpose.
      const Outcome out = Migrate({{L"v", r.type, {1, 2, 3, 4}}}, {}, {{L"v", L"", L"REG_NONE", L"Overwrite", r.newValue}}, L"Skip");
      const bool thrown = !out.thrown.empty();
      EXPECT_EQ(thrown ? out.thrown : out.dest.empty() ? "" : out.dest[0], r.result) << scenario::Narrow(r.newValue);
      EXPECT_EQ(out.log, thrown ? Lines{} : Lines{"INFO Migrated v to v."}) << scenario::Narrow(r.newValue);
      EXPECT_EQ(out.dest.size(), thrown ? 0u : 1u);
   }
}

} // namespace
