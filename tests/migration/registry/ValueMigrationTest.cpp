#include <gtest/gtest.h>
#include <gmock/gmock.h>

#include <stdexcept>

#include "HandleGuards.h"
#include "LogCapture.h"
#include "RegistryTestSupport.h"
#include "registry/ValueMigration.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::wstring TestRoot = L"Software\\VtrTestValues";
const std::wstring SourcePath = TestRoot + L"\\Src";
const std::wstring DestPath = TestRoot + L"\\Dst";

class ValueMigrationTest : public testing::Test
{
protected:
   void SetUp() override
   {
      DeleteTestTree(TestRoot);
      source_.reset(CreateTestKey(SourcePath));
      UniqueHkey(CreateTestKey(DestPath));
      // What the key walk hands over: set and query access, nothing more.
      ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, DestPath.c_str(), 0, KEY_QUERY_VALUE | KEY_SET_VALUE, dest_.put()),
                ERROR_SUCCESS);
      log_.emplace();
   }
   void TearDown() override
   {
      log_.reset();
      source_.reset();
      dest_.reset();
      DeleteTestTree(TestRoot);
   }

   void Migrate(const std::vector<RegistryValueRule> &rules, const std::wstring &keyAction)
   {
      MigrateKeyValues(source_.get(), dest_.get(), rules, keyAction);
   }
   std::optional<StoredValue> Dest(const std::wstring &name) { return ReadTestValue(dest_.get(), name); }
   std::vector<std::string> Log() { return log_->Entries(); }

   UniqueHkey source_;
   UniqueHkey dest_;
   std::optional<LogCapture> log_;
};

// A value without a rule, under each action word, with or without the value already at the
// destination.
struct KeyActionCase {
   const char *label;
   const wchar_t *action;
   bool destinationHasValue;
   bool written;
   const char *logLine; // null: nothing logged
};

class KeyActionTest : public ValueMigrationTest, public testing::WithParamInterface<KeyActionCase> {};

TEST_P(KeyActionTest, AppliesActionWord)
{
   const KeyActionCase &c = GetParam();
   SetTestValue(source_.get(), L"v", REG_SZ, WideBytes(L"new"));
   if (c.destinationHasValue) {
      SetTestValue(dest_.get(), L"v", REG_DWORD, DwordBytes(7));
   }
   Migrate({}, c.action);

   if (c.written) {
      EXPECT_EQ(Dest(L"v"), SzValue(L"new"));
   } else {
      EXPECT_EQ(Dest(L"v"), c.destinationHasValue ? std::optional(DwordValue(7)) : std::nullopt);
   }
   EXPECT_EQ(Log(), c.logLine != nullptr ? std::vector<std::string>{c.logLine} : std::vector<std::string>{});
}

const KeyActionCase KeyActionCases[] = {
   {"Overwrite", L"Overwrite", true, true, "INFO Migrated v to v."},
   {"OverwriteUpper", L"OVERWRITE", false, true, "INFO Migrated v to v."},
   {"SkipLower", L"skip", false, false, "INFO Value v skipped."},
   {"SkipIfExistsPresent", L"SkipIfexists", true, false, "INFO Value v exists and skipped."},
   {"SkipIfExistsAbsent", L"SKIPIFEXISTS", false, true, "INFO Migrated v to v."},
   {"Skipped", L"Skipped", false, false, nullptr},
   {"Empty", L"", false, false, nullptr},
   {"TrailingBlank", L"Overwrite ", false, false, nullptr},
   {"Prefix", L"Over", false, false, nullptr},
};

INSTANTIATE_TEST_SUITE_P(Words, KeyActionTest, testing::ValuesIn(KeyActionCases),
                         [](const testing::TestParamInfo<KeyActionCase> &info) { return info.param.label; });

// A value named by a rule with a NewValue: what lands at the destination, or the exception
// (with the runtime's familiar text) that a malformed number leaves as.
struct NewValueCase {
   const char *label;
   DWORD sourceType;
   const wchar_t *newValue;
   Bytes expected;
   const char *thrown = nullptr;
   bool outOfRange = false;
};

class NewValueTest : public ValueMigrationTest, public testing::WithParamInterface<NewValueCase> {};

TEST_P(NewValueTest, ConvertsByTheSourceType)
{
   const NewValueCase &c = GetParam();
   SetTestValue(source_.get(), L"v", c.sourceType, Bytes{1, 2, 3, 4});
   try {
      // The rule's Type disagrees on purpose: only the source's type counts.
      Migrate({RegistryValueRule{L"v", L"", L"REG_NONE", L"Overwrite", c.newValue}}, L"Skip");
      EXPECT_EQ(c.thrown, nullptr) << "no exception";
   } catch (const std::logic_error &e) {
      EXPECT_STREQ(e.what(), c.thrown);
      EXPECT_EQ(dynamic_cast<const std::out_of_range *>(&e) != nullptr, c.outOfRange);
   }
   if (c.thrown == nullptr) {
      EXPECT_EQ(Dest(L"v"), (StoredValue{c.sourceType, c.expected}));
      EXPECT_THAT(Log(), ElementsAre("INFO Migrated v to v."));
   } else {
      EXPECT_EQ(Dest(L"v"), std::nullopt);
      EXPECT_THAT(Log(), IsEmpty());
   }
}

const NewValueCase NewValueCases[] = {
   {"SzText", REG_SZ, L"AB", WideBytes(L"AB")},
   {"ExpandSzText", REG_EXPAND_SZ, L"%TEMP%\\x", WideBytes(L"%TEMP%\\x")},
   {"BinaryOneByte", REG_BINARY, L"AB", Bytes{0xAB}},
   {"BinaryOddLengthDropsLast", REG_BINARY, L"01fF7", Bytes{0x01, 0xFF}},
   {"BinaryOneCharacterIsEmpty", REG_BINARY, L"A", Bytes{}},
   {"BinaryLeadingBlank", REG_BINARY, L" A0B", Bytes{0x0A, 0x0B}},
   {"BinaryTrailingJunkInPair", REG_BINARY, L"7-", Bytes{0x07}},
   {"BinaryNegativePairKeepsLowByte", REG_BINARY, L"-1", Bytes{0xFF}},
   {"MultiSzFromHex", REG_MULTI_SZ, L"41004200000000", Bytes{0x41, 0, 0x42, 0, 0, 0, 0}},
   {"DwordMax", REG_DWORD, L"4294967295", DwordBytes(0xFFFFFFFFu)},
   {"DwordBlanksAndTrailingText", REG_DWORD, L"  42abc", DwordBytes(42)},
   {"DwordPlus", REG_DWORD, L"+7", DwordBytes(7)},
   {"DwordMinusOneWraps", REG_DWORD, L"-1", DwordBytes(0xFFFFFFFFu)},
   {"DwordHexIsDecimal", REG_DWORD, L"0x10", DwordBytes(0)},
   {"QwordMax", REG_QWORD, L"18446744073709551615", QwordBytes(0xFFFFFFFFFFFFFFFFull)},
   {"QwordAboveDword", REG_QWORD, L"99999999999", QwordBytes(99999999999ull)},
   {"DwordHexText", REG_DWORD, L"AB", {}, "invalid stoul argument", false},
   {"DwordTooBig", REG_DWORD, L"99999999999", {}, "stoul argument out of range", true},
   {"DwordTooSmall", REG_DWORD, L"-99999999999", {}, "stoul argument out of range", true},
   {"QwordText", REG_QWORD, L"x1", {}, "invalid stoull argument", false},
   {"QwordTooBig", REG_QWORD, L"18446744073709551616", {}, "stoull argument out of range", true},
   {"BinaryNotHex", REG_BINARY, L"00ZZ", {}, "invalid stoul argument", false},
   {"MultiSzNotHex", REG_MULTI_SZ, L"g0", {}, "invalid stoul argument", false},
};

INSTANTIATE_TEST_SUITE_P(Types, NewValueTest, testing::ValuesIn(NewValueCases),
                         [](const testing::TestParamInfo<NewValueCase> &info) { return info.param.label; });

// Values at the source (and perhaps already at the destination), the rules and the key's
// action word: every value at the destination afterwards, and the log.
struct RuleCase {
   const char *label;
   ValueMap source;
   ValueMap before;
   std::vector<RegistryValueRule> rules;
   const wchar_t *keyAction;
   ValueMap after;
   std::vector<std::string> log;
};

class RuleTest : public ValueMigrationTest, public testing::WithParamInterface<RuleCase> {};

TEST_P(RuleTest, Migrates)
{
   const RuleCase &c = GetParam();
   for (const auto &[name, value] : c.source) {
      SetTestValue(source_.get(), name, value.type, value.data);
   }
   for (const auto &[name, value] : c.before) {
      SetTestValue(dest_.get(), name, value.type, value.data);
   }
   Migrate(c.rules, c.keyAction);
   EXPECT_EQ(ValuesOf(dest_.get()), c.after);
   EXPECT_EQ(Log(), c.log);
}

const StoredValue One = DwordValue(1);
const StoredValue Default = SzValue(L"default");

const RuleCase RuleCases[] = {
   {"MalformedNewValueForAValueTheSourceLacksIsNeverRead", {{L"other", One}}, {},
    {{L"v", L"", L"", L"Overwrite", L"AB"}}, L"Overwrite", {{L"other", One}}, {"INFO Migrated other to other."}},
   {"UnsupportedTypeWithNewValueIsLoggedAndLeftOut",
    {{L"a", {REG_DWORD_BIG_ENDIAN, {0, 0, 0, 1}}}, {L"b", {REG_NONE, {9}}}, {L"c", {REG_LINK, {8}}},
     {L"d", DwordValue(3)}},
    {},
    {{L"a", L"", L"", L"Overwrite", L"1"}, {L"b", L"", L"", L"Overwrite", L"1"}, {L"c", L"", L"", L"Overwrite", L"1"}},
    L"Overwrite",
    {{L"d", DwordValue(3)}},
    {"ERRO Unsupport data type 5 in configuration file.",
     "WARN Wrong format in configuration, the registry value data of Name: a",
     "ERRO Unsupport data type 0 in configuration file.",
     "WARN Wrong format in configuration, the registry value data of Name: b",
     "ERRO Unsupport data type 6 in configuration file.",
     "WARN Wrong format in configuration, the registry value data of Name: c", "INFO Migrated d to d."}},
   {"UnsupportedTypeWithoutNewValueIsCopiedAsItIs", {{L"n", {REG_NONE, {1, 2}}}}, {}, {}, L"Overwrite",
    {{L"n", {REG_NONE, {1, 2}}}}, {"INFO Migrated n to n."}},
   // The rule's Type is not the type written.
   {"RenameWritesUnderNewNameAndLogsOldNameFirst", {{L"Old", {REG_BINARY, {5, 6}}}}, {},
    {{L"Old", L"New", L"REG_SZ", L"Overwrite", L""}}, L"Skip", {{L"New", {REG_BINARY, {5, 6}}}},
    {"INFO Migrated Old to New."}},
   // A is at the destination under its old name only, B under its new name only.
   {"SkipIfExistsLooksForTheNewName", {{L"A", One}, {L"B", DwordValue(2)}},
    {{L"A", DwordValue(10)}, {L"NewB", DwordValue(20)}},
    {{L"A", L"NewA", L"", L"SkipIfExists", L""}, {L"B", L"NewB", L"", L"skipifexists", L""}}, L"Skip",
    {{L"A", DwordValue(10)}, {L"NewA", One}, {L"NewB", DwordValue(20)}},
    {"INFO Migrated A to NewA.", "INFO Value NewB exists and skipped."}},
   {"SkipNamesTheOldName", {{L"Old", One}}, {}, {{L"Old", L"New", L"", L"SKIP", L""}}, L"Overwrite", {},
    {"INFO Value Old skipped."}},
   {"RuleActionReplacesKeyActionForItsValueOnly", {{L"a", One}, {L"b", DwordValue(2)}, {L"c", DwordValue(3)}}, {},
    {{L"a", L"", L"", L"Overwrite", L""}, {L"c", L"", L"", L"Skipped", L""}}, L"Skip", {{L"a", One}},
    {"INFO Migrated a to a.", "INFO Value b skipped."}},
   // Rules match the old name exactly, the first one wins, and none creates a value the
   // source doesn't have.
   {"RulesMatchOldNameExactlyAndFirstRuleWins", {{L"name", One}}, {},
    {{L"Name", L"Upper", L"", L"Overwrite", L""}, {L"name", L"First", L"", L"Overwrite", L""},
     {L"name", L"Second", L"", L"Overwrite", L""}, {L"[$M]", L"Macro", L"", L"Overwrite", L""}},
    L"Skip", {{L"First", One}}, {"INFO Migrated name to First."}},
   {"DefaultValueTakesTheSamePath", {{L"", Default}}, {}, {}, L"Overwrite", {{L"", Default}}, {"INFO Migrated  to ."}},
   {"DefaultValueCanBeRenamedAndGivenNewData", {{L"", Default}}, {}, {{L"", L"Named", L"", L"Overwrite", L"x"}},
    L"Skip", {{L"Named", SzValue(L"x")}}, {"INFO Migrated  to Named."}},
   {"EmptySourceKeyDoesNothing", {}, {}, {{L"a", L"b", L"", L"Overwrite", L"1"}}, L"Overwrite", {}, {}},
};

INSTANTIATE_TEST_SUITE_P(Rules, RuleTest, testing::ValuesIn(RuleCases),
                         [](const testing::TestParamInfo<RuleCase> &info) { return info.param.label; });

TEST_F(ValueMigrationTest, ValueOverTheDataBufferEndsTheWalkOfTheKey)
{
   // Named so that creation order and name order agree; the expectation follows the
   // platform's own enumeration all the same.
   SetTestValue(source_.get(), L"a-small", REG_BINARY, Bytes(10, 0x11));
   SetTestValue(source_.get(), L"b-exactly-1024", REG_BINARY, Bytes(1024, 0x22));
   SetTestValue(source_.get(), L"c-1025", REG_BINARY, Bytes(1025, 0x33));
   SetTestValue(source_.get(), L"d-after", REG_DWORD, DwordBytes(4));
   ASSERT_THAT(ValueNames(source_.get()), ElementsAre(L"a-small", L"b-exactly-1024", L"c-1025", L"d-after"));

   Migrate({}, L"Overwrite");
   EXPECT_THAT(ValueNames(dest_.get()), ElementsAre(L"a-small", L"b-exactly-1024"));
   EXPECT_EQ(Dest(L"b-exactly-1024"), (StoredValue{REG_BINARY, Bytes(1024, 0x22)}));
   EXPECT_THAT(Log(), ElementsAre("INFO Migrated a-small to a-small.", "INFO Migrated b-exactly-1024 to b-exactly-1024."));
}

TEST_F(ValueMigrationTest, ValueNameOverTheNameBufferEndsTheWalkOfTheKey)
{
   const std::wstring fits = L"a" + std::wstring(254, L'x');  // 255 characters
   const std::wstring tooLong = L"b" + std::wstring(255, L'x'); // 256 characters
   SetTestValue(source_.get(), fits, REG_DWORD, DwordBytes(1));
   SetTestValue(source_.get(), tooLong, REG_DWORD, DwordBytes(2));
   SetTestValue(source_.get(), L"c", REG_DWORD, DwordBytes(3));
   ASSERT_THAT(ValueNames(source_.get()), ElementsAre(fits, tooLong, L"c"));

   Migrate({}, L"Overwrite");
   EXPECT_THAT(ValueNames(dest_.get()), ElementsAre(fits));
}

TEST(ParseRegistryValueData, SizesAndNullResults)
{
   struct Case {
      const wchar_t *text;
      DWORD type;
      bool null;
      DWORD size;
   };
   const Case cases[] = {
      {L"", REG_SZ, false, 2},       {L"abc", REG_EXPAND_SZ, false, 8}, {L"", REG_BINARY, false, 0},
      {L"A", REG_MULTI_SZ, false, 0}, {L"0", REG_DWORD, false, 4},       {L"0", REG_QWORD, false, 8},
      {L"1", REG_NONE, true, 0},      {L"1", 12, true, 0},                {L"1", 0xFFFFFFFF, true, 0},
   };
   for (const Case &c : cases) {
      SCOPED_TRACE(testing::Message() << "type " << c.type << " text " << testing::PrintToString(std::wstring(c.text)));
      LogCapture log;
      DWORD size = 123;
      UniqueLocalMemory block(ParseRegistryValueData(c.text, c.type, size));
      EXPECT_EQ(!block, c.null);
      EXPECT_EQ(size, c.size);
      if (c.null) {
         EXPECT_THAT(log.Entries(), ElementsAre("ERRO Unsupport data type " + std::to_string(static_cast<int>(c.type)) +
                                                " in configuration file."));
      } else {
         EXPECT_THAT(log.Entries(), IsEmpty());
      }
   }
}

} // namespace
