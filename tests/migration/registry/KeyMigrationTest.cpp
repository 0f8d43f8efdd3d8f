// Key trees copied by rule below HKLM and HKCR of the Wine prefix: the tree afterwards, the
// log, the default descriptor's life, and no handle left open.
#include <windows.h>
#include <sddl.h>

#include <gtest/gtest.h>

#include <stdexcept>

#include "HandleGuards.h"
#include "LogCapture.h"
#include "MsiScenario.h"
#include "RegistryTestSupport.h"
#include "actions/CustomActions.h"
#include "registry/KeyMigration.h"

namespace {

using Lines = std::vector<std::string>;
using scenario::DumpTree;
using scenario::DwordValue;

const std::wstring Vendor = OldVendorKeyPath;  // Software\Eldrix, Inc.
const std::wstring Source = Vendor + L"\\Client";
const std::wstring TestRoot = L"Software\\VtrDst";
const std::wstring Dest = TestRoot + L"\\Client";
const HKEY Machine = HKEY_LOCAL_MACHINE;

RegistryKeyRule Rule(const std::wstring &source, const std::wstring &dest, const std::wstring &action,
                     std::vector<RegistrySubKeyRule> subKeys = {}, std::vector<RegistryValueRule> values = {})
{
   return RegistryKeyRule{L"HKLM", RegistrySubKeyRule{source, dest, action, std::move(values), std::move(subKeys)}};
}

// Runs one rule and gives its log; every handle the engine opened must be closed again.
Lines Migrate(HKEY root, const std::wstring &prefix, const RegistryKeyRule &rule)
{
   LogCapture log;
   const std::vector<HANDLE> before = OpenHandles();
   MigrateRegistryKeyRule(root, prefix, rule);
   EXPECT_EQ(OpenHandles(), before) << "a handle was left open";
   EXPECT_EQ(defaultKeySecurityDescriptor, nullptr);
   return log.Entries();
}

class KeyMigrationTest : public testing::Test
{
protected:
   void SetUp() override
   {
      TearDown();
      scenario::WriteValue(Machine, Source, DwordValue(L"v1", 1));
      scenario::WriteString(Machine, Source + L"\\A", L"a", L"x");
      scenario::WriteValue(Machine, Source + L"\\A\\A1", DwordValue(L"deep", 3));
      scenario::WriteValue(Machine, Source + L"\\B", {L"b", REG_BINARY, {7}});
      scenario::CreateKey(Machine, TestRoot);
   }
   void TearDown() override
   {
      ASSERT_TRUE(scenario::SetPrivilege(SE_SECURITY_NAME, false));
      scenario::DeleteTree(Machine, Vendor);
      scenario::DeleteTree(Machine, TestRoot);
   }
};

const Lines SourceTree = {"Client", "Client: v1 = REG_DWORD 1", "Client\\A", "Client\\A: a = REG_SZ \"x\"",
                          "Client\\A\\A1", "Client\\A\\A1: deep = REG_DWORD 3", "Client\\B", "Client\\B: b = type 3 hex:07"};
const std::string ClientExists = "INFO The destination key Software\\VtrDst\\Client exists, ignore and continue.";

TEST_F(KeyMigrationTest, TreeWalk)
{
   const struct {
      RegistryKeyRule rule;
      std::vector<std::pair<std::wstring, scenario::RegValue>> before;  // below TestRoot
      int runs;
      Lines tree;  // of Dest afterwards
      Lines log;   // of the last run
   } rows[] = {
      // Values before children, depth first; an existing destination keeps its own values.
      {Rule(Source, Dest, L"Overwrite"), {{L"Client", DwordValue(L"v1", 99)}, {L"Client", DwordValue(L"own", 5)}}, 1,
       {"Client", "Client: own = REG_DWORD 5", "Client: v1 = REG_DWORD 1", "Client\\A", "Client\\A: a = REG_SZ \"x\"", "Client\\A\\A1",
        "Client\\A\\A1: deep = REG_DWORD 3", "Client\\B", "Client\\B: b = type 3 hex:07"},
       {ClientExists, "INFO Migrated v1 to v1.", "INFO Migrated a to a.", "INFO Migrated deep to deep.", "INFO Migrated b to b."}},
      // Skip still creates and walks the keys.
      {Rule(Source, Dest, L"skip"), {}, 1, {"Client", "Client\\A", "Client\\A\\A1", "Client\\B"},
       {"INFO Value v1 skipped.", "INFO Value a skipped.", "INFO Value deep skipped.", "INFO Value b skipped."}},
      // A sub-key rule renames a child, through segments old and new with a trailing
      // separator, and rules the child's subtree.
      {Rule(Source, Dest, L"Overwrite", {{L"A", L"Renamed\\Deeper\\", L"Skip", {{L"a", L"a2", L"", L"Overwrite", L"y"}}, {}}}),
       {{L"Client\\Renamed", DwordValue(L"r", 0)}}, 1,
       {"Client", "Client: v1 = REG_DWORD 1", "Client\\B", "Client\\B: b = type 3 hex:07", "Client\\Renamed", "Client\\Renamed: r = REG_DWORD 0",
        "Client\\Renamed\\Deeper", "Client\\Renamed\\Deeper: a2 = REG_SZ \"y\"", "Client\\Renamed\\Deeper\\A1"},
       {ClientExists, "INFO Migrated v1 to v1.", "INFO Migrated a to a2.", "INFO Value deep skipped.", "INFO Migrated b to b."}},
      // Only the first rule naming a direct child exactly applies to it.
      {Rule(Source, Dest, L"Overwrite", {{L"a", L"LowerCase", L"Skip", {}, {}}, {L"A\\A1", L"Nested", L"Skip", {}, {}},
            {L"A1", L"NotADirectChild", L"Skip", {}, {}}, {L"B ", L"TrailingBlank", L"Skip", {}, {}},
            {L"B", L"First", L"Overwrite", {}, {}}, {L"B", L"Second", L"Overwrite", {}, {}}}), {}, 1,
       {"Client", "Client: v1 = REG_DWORD 1", "Client\\A", "Client\\A: a = REG_SZ \"x\"", "Client\\A\\A1",
        "Client\\A\\A1: deep = REG_DWORD 3", "Client\\First", "Client\\First: b = type 3 hex:07"},
       {"INFO Migrated v1 to v1.", "INFO Migrated a to a.", "INFO Migrated deep to deep.", "INFO Migrated b to b."}},
      // SkipIfExists keeps what is there, and a second run creates nothing new.
      {Rule(Source, Dest, L"SkipIfExists"), {{L"Client", DwordValue(L"v1", 99)}}, 2,
       {"Client", "Client: v1 = REG_DWORD 99", "Client\\A", "Client\\A: a = REG_SZ \"x\"", "Client\\A\\A1",
        "Client\\A\\A1: deep = REG_DWORD 3", "Client\\B", "Client\\B: b = type 3 hex:07"},
       {ClientExists, "INFO Value v1 exists and skipped.", "INFO The destination key A exists, ignore and continue.",
        "INFO Value a exists and skipped.", "INFO The destination key A1 exists, ignore and continue.", "INFO Value deep exists and skipped.",
        "INFO The destination key B exists, ignore and continue.", "INFO Value b exists and skipped."}},
      // A missing source creates nothing, not even the keys in front of the destination.
      {Rule(Vendor + L"\\Nope", Dest + L"\\Y", L"Overwrite"), {}, 1, {},
       {"WARN Failed to open source registry key Software\\Eldrix, Inc.\\Nope, ignore..."}},
   };
   for (const auto &r : rows) {
      scenario::DeleteTree(Machine, TestRoot);
      scenario::CreateKey(Machine, TestRoot);
      for (const auto &[key, value] : r.before) {
         scenario::WriteValue(Machine, TestRoot + L"\\" + key, value);
      }
      Lines log;
      for (int run = 0; run < r.runs; ++run) {
         log = Migrate(Machine, Vendor, r.rule);
      }
      EXPECT_EQ(DumpTree(Machine, Dest), r.tree) << scenario::Narrow(r.rule.Key.Action);
      EXPECT_EQ(log, r.log) << scenario::Narrow(r.rule.Key.Action);
      EXPECT_EQ(DumpTree(Machine, Source), SourceTree) << "the source stays as it was";
   }
}

// A rule that writes into its own source, named in any case, walks the key it added there
// (Z, after B) too.
TEST_F(KeyMigrationTest, RuleIntoItsOwnSourceWalksWhatItAdds)
{
   for (const std::wstring &dest : {Source, std::wstring(L"SOFTWARE\\ELDRIX, INC.\\CLIENT\\")}) {
      EXPECT_EQ(Migrate(Machine, Vendor, Rule(Source, dest, L"Overwrite", {{L"A", L"Z", L"Overwrite", {}, {}}})),
                (Lines{"INFO The destination key " + scenario::Narrow(dest) + " exists, ignore and continue.", "INFO Migrated v1 to v1.",
                       "INFO Migrated a to a.", "INFO Migrated deep to deep.", "INFO The destination key B exists, ignore and continue.",
                       "INFO Migrated b to b.", "INFO The destination key Z exists, ignore and continue.", "INFO Migrated a to a.",
                       "INFO The destination key A1 exists, ignore and continue.", "INFO Migrated deep to deep."}));
      scenario::DeleteTree(Machine, Source + L"\\Z");
   }
}

TEST_F(KeyMigrationTest, ChildOfTheLongestNameIsWalked)
{
   const std::wstring name(255, L'k');
   scenario::WriteValue(Machine, Source + L"\\B\\" + name, DwordValue(L"w", 1));
   Migrate(Machine, Vendor, Rule(Source + L"\\B", Dest, L"Overwrite"));
   EXPECT_EQ(ValueLines(Dest + L"\\" + name), Lines{"w = REG_DWORD 1"});
}

TEST_F(KeyMigrationTest, RuleWithoutADefaultDescriptorAborts)
{
   // A root without Software\Classes, as a classes hive that lacks it would be.
   scenario::CreateKey(Machine, TestRoot + L"\\Hive");
   UniqueHkey hive;
   ASSERT_EQ(RegOpenKeyExW(Machine, (TestRoot + L"\\Hive").c_str(), 0, KEY_ALL_ACCESS, hive.put()), 0);
   // Without SeSecurityPrivilege, a vendor key with a descriptor of its own can't be read.
   ASSERT_TRUE(scenario::SetKeySecurity(Machine, Vendor, L"D:P(A;;KA;;;BA)(A;;KA;;;SY)(A;;KR;;;BU)"));
   const struct {
      HKEY root;
      std::wstring prefix;
      const char *warning;
   } rows[] = {
      {Machine, TestRoot + L"\\NoVendor", "WARN Source path Software\\VtrDst\\NoVendor doesn't exist."},
      {hive.get(), L"", "WARN Source path Software\\Classes doesn't exist."},
      {nullptr, Vendor, "WARN Source path Software\\Eldrix, Inc. doesn't exist."},
      {Machine, Vendor, "WARN Source path Software\\Eldrix, Inc. doesn't exist."},
   };
   for (const auto &r : rows) {
      EXPECT_EQ(Migrate(r.root, r.prefix, Rule(Source, Dest, L"Overwrite")),
                (Lines{r.warning, "ERRO Can't retrieve default security descriptor, abort."}));
      EXPECT_FALSE(scenario::KeyExists(Machine, Dest));
   }
}

TEST_F(KeyMigrationTest, RelativeRulesRunBelowAnOpenRootHandle)
{
   scenario::CreateKey(Machine, TestRoot + L"\\Hive\\Software\\Classes");
   scenario::WriteString(Machine, TestRoot + L"\\Hive\\Src", L"", L"def");
   UniqueHkey root;
   ASSERT_EQ(RegOpenKeyExW(Machine, (TestRoot + L"\\Hive").c_str(), 0, KEY_ALL_ACCESS, root.put()), 0);

   EXPECT_EQ(Migrate(root.get(), L"", Rule(L"Src", L"Dst", L"Overwrite")), Lines{"INFO Migrated  to ."});
   EXPECT_EQ(ValueLines(TestRoot + L"\\Hive\\Dst"), Lines{"(default) = REG_SZ \"def\""});
}

TEST_F(KeyMigrationTest, MalformedNewValuePassesThroughAndClearsTheDefaultDescriptor)
{
   const RegistryKeyRule rule = Rule(Source, Dest, L"Overwrite", {}, {{L"v1", L"", L"", L"Overwrite", L"AB"}});
   EXPECT_THROW(Migrate(Machine, Vendor, rule), std::invalid_argument);
   EXPECT_EQ(defaultKeySecurityDescriptor, nullptr);
   // The destination key had been created before the value was reached.
   EXPECT_TRUE(scenario::KeyExists(Machine, Dest));
}

TEST_F(KeyMigrationTest, EnsureDestinationKeyWithoutDefaultDescriptorIsAProgramError)
{
   LogCapture log;
   EXPECT_FALSE(EnsureDestinationKey(Machine, Source, Machine, Dest));
   EXPECT_FALSE(scenario::KeyExists(Machine, Dest));
   // An existing destination needs no descriptor.
   EXPECT_TRUE(EnsureDestinationKey(Machine, Source, Machine, TestRoot));
   MigrateKeyTree(Machine, Machine, Source, Dest, L"Overwrite", {}, {});

   const std::string programError =
      "ERRO Program error detected, the default security descriptor is not set before migrating registry keys.";
   EXPECT_EQ(log.Entries(), (Lines{programError, "INFO The destination key Software\\VtrDst exists, ignore and continue.", programError,
                                   "ERRO Failed to create destination registry key Software\\VtrDst\\Client."}));
}

TEST_F(KeyMigrationTest, SegmentThatCannotBeCreatedEndsTheKey)
{
   // A volatile key can't hold the non-volatile keys that migration creates.
   UniqueHkey volatileKey;
   ASSERT_EQ(RegCreateKeyExW(Machine, (TestRoot + L"\\Volatile").c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr,
                             volatileKey.put(), nullptr), ERROR_SUCCESS);
   EXPECT_EQ(Migrate(Machine, Vendor, Rule(Source + L"\\A", TestRoot + L"\\Volatile\\X\\Y", L"Overwrite")),
             (Lines{"ERRO Failed to create key: Software\\VtrDst\\Volatile\\X, error=1021.",
                    "ERRO Failed to create destination registry key Software\\VtrDst\\Volatile\\X\\Y."}));
   EXPECT_EQ(DumpTree(Machine, TestRoot + L"\\Volatile"), Lines{"Volatile"});
}

TEST_F(KeyMigrationTest, DestinationThatRefusesWritingIsLoggedAndSkipped)
{
   scenario::CreateKey(Machine, Dest);
   ASSERT_TRUE(scenario::SetKeySecurity(Machine, Dest, L"D:P(A;;KR;;;WD)"));
   EXPECT_EQ(Migrate(Machine, Vendor, Rule(Source, Dest, L"Overwrite")),
             (Lines{ClientExists, "ERRO Failed to open destinition registry key Software\\VtrDst\\Client, ignore..."}));
   ASSERT_TRUE(scenario::SetKeySecurity(Machine, Dest, L"D:P(A;;KA;;;WD)"));
   EXPECT_EQ(DumpTree(Machine, Dest), Lines{"Client"});
}

// Windows gives a new key the descriptor it is created with; Wine doesn't. Every key that
// is created with one is new where this is used.
LONG WINAPI CreateApplyingDescriptor(HKEY root, LPCWSTR path, DWORD reserved, LPWSTR keyClass, DWORD options,
                                     REGSAM access, LPSECURITY_ATTRIBUTES attributes, PHKEY key, LPDWORD disposition)
{
   const LONG result = RegCreateKeyExW(root, path, reserved, keyClass, options, access, attributes, key, disposition);
   UniqueHkey owner;
   if (result == ERROR_SUCCESS && attributes != nullptr &&
       RegOpenKeyExW(*key, L"", 0, WRITE_DAC, owner.put()) == ERROR_SUCCESS) {
      RegSetKeySecurity(owner.get(), DACL_SECURITY_INFORMATION, attributes->lpSecurityDescriptor);
   }
   return result;
}

// The creator of a key may use it whatever its new descriptor says; the walk may not. A
// sibling accepted before (A) vouches only for its own descriptor, of the same length as the
// refusing one, and a refusal (B) for none.
TEST_F(KeyMigrationTest, NewKeyWhoseCopiedDescriptorRefusesWritingIsLeftEmpty)
{
   ASSERT_TRUE(scenario::SetPrivilege(SE_SECURITY_NAME, true));
   scenario::WriteValue(Machine, Source + L"\\C", DwordValue(L"c", 5));
   for (const wchar_t *child : {L"\\A", L"\\B", L"\\C"}) {
      const wchar_t *dacl = child[1] == L'A' ? L"D:P(A;;KA;;;WD)" : L"D:P(A;;KR;;;WD)";
      ASSERT_TRUE(scenario::SetKeySecurity(Machine, Source + child, dacl));
   }
   const RegistryPlatformCalls saved = registryPlatform;
   registryPlatform.RegCreateKeyExW = CreateApplyingDescriptor;
   const Lines log = Migrate(Machine, Vendor, Rule(Source, Dest, L"Overwrite"));
   registryPlatform = saved;

   EXPECT_EQ(log, (Lines{"INFO Migrated v1 to v1.", "INFO Migrated a to a.", "INFO Migrated deep to deep.",
                         "ERRO Failed to open destinition registry key B, ignore...", "ERRO Failed to open destinition registry key C, ignore..."}));
   // The refused key stands, empty, with the source's descriptor.
   EXPECT_EQ(DumpTree(Machine, Dest + L"\\B"), Lines{"B"});
   // Read as the engine reads a source: the key's own bytes (see DescriptorIsTheKeysOwnBytes).
   UniqueLocalMemory descriptor(GetKeySecurityDescriptor(Machine, Dest + L"\\B"));
   wchar_t *sddl = nullptr;
   ASSERT_TRUE(descriptor && ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.get(), SDDL_REVISION_1, DACL_SECURITY_INFORMATION,
                                                                                  &sddl, nullptr));
   UniqueLocalMemory text(sddl);
   EXPECT_EQ(std::wstring(sddl), L"D:P(A;;KR;;;WD)");
   for (const std::wstring &path : {Source + L"\\B", Source + L"\\C", Dest + L"\\B", Dest + L"\\C"}) {
      EXPECT_TRUE(scenario::SetKeySecurity(Machine, path, L"D:P(A;;KA;;;WD)"));
   }
}

TEST_F(KeyMigrationTest, ClassesRootTakesTheMachineClassesDescriptor)
{
   const wchar_t *names[] = {L"VtrTestClassSrc", L"VtrTestClassDst"};
   scenario::WriteString(HKEY_CLASSES_ROOT, names[0], L"FriendlyAppName", L"App");
   EXPECT_EQ(Migrate(HKEY_CLASSES_ROOT, L"", Rule(names[0], names[1], L"Overwrite")),
             Lines{"INFO Migrated FriendlyAppName to FriendlyAppName."});
   EXPECT_EQ(DumpTree(HKEY_CLASSES_ROOT, names[1]), (Lines{"VtrTestClassDst", "VtrTestClassDst: FriendlyAppName = REG_SZ \"App\""}));
   scenario::DeleteTree(HKEY_CLASSES_ROOT, names[0]);
   scenario::DeleteTree(HKEY_CLASSES_ROOT, names[1]);
}

TEST_F(KeyMigrationTest, LeafIsCreatedEvenWhenItsSourceDescriptorCannotBeRead)
{
   ASSERT_TRUE(scenario::SetKeySecurity(Machine, Source, L"D:P(A;;KA;;;BA)(A;;KA;;;SY)"));
   {
      // Needs a platform that lets the vendor key (no descriptor of its own) be opened for
      // its SACL without the privilege, as Wine does; Windows refuses both keys.
      UniqueHkey vendor;
      if (RegOpenKeyExW(Machine, Vendor.c_str(), 0, KEY_READ | ACCESS_SYSTEM_SECURITY, vendor.put()) != ERROR_SUCCESS) {
         GTEST_SKIP() << "the vendor key's SACL can't be read without SeSecurityPrivilege here";
      }
   }
   // Only the leaf asks for the source's descriptor: one line, though two keys are made.
   const Lines log = Migrate(Machine, Vendor, Rule(Source, TestRoot + L"\\Middle\\Client", L"Overwrite"));
   ASSERT_GE(log.size(), 2u);
   EXPECT_EQ(Lines(log.begin(), log.begin() + 2), (Lines{"WARN Source path Software\\Eldrix, Inc.\\Client doesn't exist.", "INFO Migrated v1 to v1."}));
   EXPECT_EQ(ValueLines(TestRoot + L"\\Middle\\Client"), Lines{"v1 = REG_DWORD 1"});
}

// Reading a SACL needs ACCESS_SYSTEM_SECURITY, which needs SeSecurityPrivilege on a key that
// has a descriptor of its own; the descriptor is the key's own bytes, all four parts.
TEST_F(KeyMigrationTest, DescriptorIsTheKeysOwnBytes)
{
   ASSERT_TRUE(scenario::SetPrivilege(SE_SECURITY_NAME, true));
   ASSERT_TRUE(scenario::SetKeySecurity(Machine, Source, L"D:P(A;;KA;;;BA)(A;;KA;;;SY)(A;;KR;;;WD)S:(AU;SA;KA;;;WD)",
                                        DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION));
   LogCapture log;
   UniqueLocalMemory descriptor(GetKeySecurityDescriptor(Machine, Source));
   ASSERT_TRUE(descriptor);
   UniqueHkey key;
   ASSERT_EQ(RegOpenKeyExW(Machine, Source.c_str(), 0, KEY_READ | ACCESS_SYSTEM_SECURITY, key.put()), ERROR_SUCCESS);
   std::vector<BYTE> expected(4096);
   DWORD size = static_cast<DWORD>(expected.size());
   const SECURITY_INFORMATION all = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION;
   ASSERT_EQ(RegGetKeySecurity(key.get(), all, expected.data(), &size), ERROR_SUCCESS);
   const BYTE *bytes = static_cast<const BYTE *>(descriptor.get());
   EXPECT_EQ(std::vector<BYTE>(bytes, bytes + GetSecurityDescriptorLength(descriptor.get())),
             std::vector<BYTE>(expected.begin(), expected.begin() + size));
   EXPECT_TRUE(log.Entries().empty());
}

} // namespace
