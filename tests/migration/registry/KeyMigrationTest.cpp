#include <gtest/gtest.h>
#include <gmock/gmock.h>

#include <windows.h>
#include <sddl.h>

#include <stdexcept>

#include "HandleGuards.h"
#include "LogCapture.h"
#include "MsiScenario.h"
#include "RegistryTestSupport.h"
#include "actions/CustomActions.h"
#include "registry/KeyMigration.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::wstring Vendor = OldVendorKeyPath; // Software\Eldrix, Inc.
const std::wstring Source = Vendor + L"\\Client";
const std::wstring TestRoot = L"Software\\VtrTestKeys";
const std::wstring Dest = TestRoot + L"\\Client";

void SetPrivilege(const wchar_t *name, bool enable)
{
   ASSERT_TRUE(scenario::SetPrivilege(name, enable));
}

RegistryKeyRule Rule(const std::wstring &source, const std::wstring &dest, const std::wstring &action,
                     std::vector<RegistrySubKeyRule> subKeys = {}, std::vector<RegistryValueRule> values = {})
{
   return RegistryKeyRule{L"HKLM", RegistrySubKeyRule{source, dest, action, std::move(values), std::move(subKeys)}};
}

std::vector<std::wstring> SubKeyNames(const std::wstring &path)
{
   return scenario::SubKeyNames(HKEY_LOCAL_MACHINE, path);
}

void SetKeySecurity(const std::wstring &path, const wchar_t *sddl, SECURITY_INFORMATION what)
{
   PSECURITY_DESCRIPTOR descriptor = nullptr;
   ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, &descriptor, nullptr));
   UniqueLocalMemory owned(descriptor);
   UniqueHkey key;
   ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ | WRITE_DAC | WRITE_OWNER, key.put()),
             ERROR_SUCCESS);
   ASSERT_EQ(RegSetKeySecurity(key.get(), what, descriptor), ERROR_SUCCESS);
}

// The key's DACL in SDDL form, empty if it can't be read.
std::wstring DaclOf(const std::wstring &path)
{
   UniqueHkey key;
   if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS) {
      return L"";
   }
   DWORD size = 0;
   RegGetKeySecurity(key.get(), DACL_SECURITY_INFORMATION, nullptr, &size);
   Bytes block(size);
   if (RegGetKeySecurity(key.get(), DACL_SECURITY_INFORMATION, block.data(), &size) != ERROR_SUCCESS) {
      return L"";
   }
   LPWSTR text = nullptr;
   if (!ConvertSecurityDescriptorToStringSecurityDescriptorW(block.data(), SDDL_REVISION_1, DACL_SECURITY_INFORMATION,
                                                            &text, nullptr)) {
      return L"";
   }
   std::wstring result = text;
   LocalFree(text);
   return result;
}

class KeyMigrationTest : public testing::Test
{
protected:
   void SetUp() override
   {
      SetPrivilege(SE_SECURITY_NAME, false);
      Cleanup();
      // Client
      //   v1 = 1
      //   A: a = "x"
      //     A1: deep = 3
      //   B: b = binary 07
      PutTestValue(Source, L"v1", DwordValue(1));
      PutTestValue(Source + L"\\A", L"a", SzValue(L"x"));
      PutTestValue(Source + L"\\A\\A1", L"deep", DwordValue(3));
      PutTestValue(Source + L"\\B", L"b", {REG_BINARY, Bytes{7}});
      UniqueHkey(CreateTestKey(TestRoot));
      log_.emplace();
   }
   void TearDown() override
   {
      log_.reset();
      EXPECT_EQ(defaultKeySecurityDescriptor, nullptr);
      SetPrivilege(SE_SECURITY_NAME, false);
      Cleanup();
   }
   static void Cleanup()
   {
      DeleteTestTree(Vendor);
      DeleteTestTree(TestRoot);
   }
   std::vector<std::string> Log() { return log_->Entries(); }

   std::optional<LogCapture> log_;
};

// An existing destination is logged, keeps its own values and takes the source's.
TEST_F(KeyMigrationTest, CopiesTheTreeDepthFirstWithValuesBeforeChildren)
{
   PutTestValue(Dest, L"v1", DwordValue(99));
   PutTestValue(Dest, L"own", DwordValue(5));
   MigrateRegistryKeyRule(HKEY_LOCAL_MACHINE, Vendor, Rule(Source, Dest, L"Overwrite"));

   EXPECT_THAT(Log(), ElementsAre("INFO The destination key Software\\VtrTestKeys\\Client exists, ignore and continue.",
                                  "INFO Migrated v1 to v1.", "INFO Migrated a to a.", "INFO Migrated deep to deep.",
                                  "INFO Migrated b to b."));
   EXPECT_THAT(SubKeyNames(Dest), ElementsAre(L"A", L"B"));
   EXPECT_THAT(SubKeyNames(Dest + L"\\A"), ElementsAre(L"A1"));
   EXPECT_EQ(ReadTestValue(Dest, L"v1"), DwordValue(1));
   EXPECT_EQ(ReadTestValue(Dest, L"own"), DwordValue(5));
   EXPECT_EQ(ReadTestValue(Dest + L"\\A", L"a"), SzValue(L"x"));
   EXPECT_EQ(ReadTestValue(Dest + L"\\A\\A1", L"deep"), DwordValue(3));
   EXPECT_EQ(ReadTestValue(Dest + L"\\B", L"b"), (StoredValue{REG_BINARY, Bytes{7}}));
   // The source stays as it was.
   EXPECT_EQ(ReadTestValue(Source, L"v1"), DwordValue(1));
}

TEST_F(KeyMigrationTest, SkipActionStillCreatesAndWalksKeys)
{
   MigrateRegistryKeyRule(HKEY_LOCAL_MACHINE, Vendor, Rule(Source, Dest, L"skip"));

   EXPECT_THAT(Log(), ElementsAre("INFO Value v1 skipped.", "INFO Value a skipped.", "INFO Value deep skipped.",
                                  "INFO Value b skipped."));
   EXPECT_TRUE(TestKeyExists(Dest + L"\\A\\A1"));
   EXPECT_TRUE(TestKeyExists(Dest + L"\\B"));
   EXPECT_EQ(ReadTestValue(Dest, L"v1"), std::nullopt);
}

TEST_F(KeyMigrationTest, SubKeyRuleRenamesAChildAndRulesItsSubTree)
{
   const RegistrySubKeyRule renameA{
      L"A", L"Renamed\\Deeper\\", L"Skip", {{L"a", L"a2", L"", L"Overwrite", L"y"}}, {}};
   MigrateRegistryKeyRule(HKEY_LOCAL_MACHINE, Vendor, Rule(Source, Dest, L"Overwrite", {renameA}));

   EXPECT_THAT(Log(), ElementsAre("INFO Migrated v1 to v1.", "INFO Migrated a to a2.", "INFO Value deep skipped.",
                                  "INFO Migrated b to b."));
   EXPECT_THAT(SubKeyNames(Dest), ElementsAre(L"B", L"Renamed"));
   EXPECT_EQ(ReadTestValue(Dest + L"\\Renamed\\Deeper", L"a2"), SzValue(L"y"));
   EXPECT_TRUE(TestKeyExists(Dest + L"\\Renamed\\Deeper\\A1"));
   EXPECT_EQ(ReadTestValue(Dest + L"\\Renamed\\Deeper\\A1", L"deep"), std::nullopt);
}

// Only the first rule naming a direct child exactly applies to it.
TEST_F(KeyMigrationTest, FirstSubKeyRuleMatchingADirectChildNameExactlyWins)
{
   const std::vector<RegistrySubKeyRule> rules{
      {L"a", L"LowerCase", L"Skip", {}, {}},
      {L"A\\A1", L"Nested", L"Skip", {}, {}},
      {L"A1", L"NotADirectChild", L"Skip", {}, {}},
      {L"B ", L"TrailingBlank", L"Skip", {}, {}},
      {L"B", L"First", L"Overwrite", {}, {}},
      {L"B", L"Second", L"Overwrite", {}, {}},
   };
   MigrateRegistryKeyRule(HKEY_LOCAL_MACHINE, Vendor, Rule(Source, Dest, L"Overwrite", rules));

   EXPECT_THAT(SubKeyNames(Dest), ElementsAre(L"A", L"First"));
   EXPECT_THAT(SubKeyNames(Dest + L"\\A"), ElementsAre(L"A1"));
   EXPECT_EQ(ReadTestValue(Dest + L"\\A\\A1", L"deep"), DwordValue(3));
}

TEST_F(KeyMigrationTest, SkipIfExistsKeepsWhatIsThereAndASecondRunCreatesNothingNew)
{
   PutTestValue(Dest, L"v1", DwordValue(99));
   const RegistryKeyRule rule = Rule(Source, Dest, L"SkipIfExists");
   MigrateRegistryKeyRule(HKEY_LOCAL_MACHINE, Vendor, rule);
   EXPECT_EQ(ReadTestValue(Dest + L"\\A", L"a"), SzValue(L"x"));
   log_.emplace();
   MigrateRegistryKeyRule(HKEY_LOCAL_MACHINE, Vendor, rule);

   EXPECT_THAT(Log(), ElementsAre("INFO The destination key Software\\VtrTestKeys\\Client exists, ignore and continue.",
                                  "INFO Value v1 exists and skipped.",
                                  "INFO The destination key A exists, ignore and continue.",
                                  "INFO Value a exists and skipped.",
                                  "INFO The destination key A1 exists, ignore and continue.",
                                  "INFO Value deep exists and skipped.",
                                  "INFO The destination key B exists, ignore and continue.",
                                  "INFO Value b exists and skipped."));
   EXPECT_EQ(ReadTestValue(Dest, L"v1"), DwordValue(99));
   EXPECT_THAT(SubKeyNames(Dest), ElementsAre(L"A", L"B"));
   EXPECT_THAT(SubKeyNames(TestRoot), ElementsAre(L"Client"));
}

TEST_F(KeyMigrationTest, MissingSourceCreatesNothing)
{
   MigrateRegistryKeyRule(HKEY_LOCAL_MACHINE, Vendor, Rule(Vendor + L"\\Nope", TestRoot + L"\\X\\Y", L"Overwrite"));

   EXPECT_THAT(Log(), ElementsAre("WARN Failed to open source registry key Software\\Eldrix, Inc.\\Nope, ignore..."));
   EXPECT_THAT(SubKeyNames(TestRoot), IsEmpty());
}

TEST_F(KeyMigrationTest, RuleWithoutADefaultDescriptorAborts)
{
   // A root without Software\Classes, as a classes hive that lacks it would be.
   UniqueHkey hive(CreateTestKey(TestRoot + L"\\Hive"));
   // Without SeSecurityPrivilege, a vendor key with a descriptor of its own can't be read.
   SetKeySecurity(Vendor, L"D:P(A;;KA;;;BA)(A;;KA;;;SY)(A;;KR;;;BU)", DACL_SECURITY_INFORMATION);
   const struct {
      HKEY root;
      std::wstring prefix;
      const char *warning;
   } rows[] = {
      {HKEY_LOCAL_MACHINE, TestRoot + L"\\NoVendor", "WARN Source path Software\\VtrTestKeys\\NoVendor doesn't exist."},
      {hive.get(), L"", "WARN Source path Software\\Classes doesn't exist."},
      {nullptr, Vendor, "WARN Source path Software\\Eldrix, Inc. doesn't exist."},
      {HKEY_LOCAL_MACHINE, Vendor, "WARN Source path Software\\Eldrix, Inc. doesn't exist."},
   };
   for (const auto &r : rows) {
      log_.emplace();
      MigrateRegistryKeyRule(r.root, r.prefix, Rule(Source, Dest, L"Overwrite"));
      EXPECT_THAT(Log(), ElementsAre(r.warning, "ERRO Can't retrieve default security descriptor, abort."));
      EXPECT_FALSE(TestKeyExists(Dest));
   }
}

TEST_F(KeyMigrationTest, RelativeRulesRunBelowAnOpenRootHandle)
{
   UniqueHkey root(CreateTestKey(TestRoot + L"\\Hive"));
   UniqueHkey(CreateTestKey(TestRoot + L"\\Hive\\Software\\Classes"));
   PutTestValue(TestRoot + L"\\Hive\\Src", L"", SzValue(L"def"));
   MigrateRegistryKeyRule(root.get(), L"", Rule(L"Src", L"Dst", L"Overwrite"));

   EXPECT_THAT(Log(), ElementsAre("INFO Migrated  to ."));
   EXPECT_EQ(ReadTestValue(TestRoot + L"\\Hive\\Dst", L""), SzValue(L"def"));
}

TEST_F(KeyMigrationTest, MalformedNewValuePassesThroughAndClearsTheDefaultDescriptor)
{
   const RegistryKeyRule rule = Rule(Source, Dest, L"Overwrite", {}, {{L"v1", L"", L"", L"Overwrite", L"AB"}});
   EXPECT_THROW(MigrateRegistryKeyRule(HKEY_LOCAL_MACHINE, Vendor, rule), std::invalid_argument);
   EXPECT_EQ(defaultKeySecurityDescriptor, nullptr);
   // The destination key had been created before the value was reached.
   EXPECT_TRUE(TestKeyExists(Dest));
}

TEST_F(KeyMigrationTest, EnsureDestinationKeyWithoutDefaultDescriptorIsAProgramError)
{
   ASSERT_EQ(defaultKeySecurityDescriptor, nullptr);
   EXPECT_FALSE(EnsureDestinationKey(HKEY_LOCAL_MACHINE, Source, HKEY_LOCAL_MACHINE, Dest));
   EXPECT_FALSE(TestKeyExists(Dest));
   // An existing destination needs no descriptor.
   EXPECT_TRUE(EnsureDestinationKey(HKEY_LOCAL_MACHINE, Source, HKEY_LOCAL_MACHINE, TestRoot));

   MigrateKeyTree(HKEY_LOCAL_MACHINE, HKEY_LOCAL_MACHINE, Source, Dest, L"Overwrite", {}, {});
   EXPECT_THAT(Log(),
               ElementsAre("ERRO Program error detected, the default security descriptor is not set before migrating "
                           "registry keys.",
                           "INFO The destination key Software\\VtrTestKeys exists, ignore and continue.",
                           "ERRO Program error detected, the default security descriptor is not set before migrating "
                           "registry keys.",
                           "ERRO Failed to create destination registry key Software\\VtrTestKeys\\Client."));
}

TEST_F(KeyMigrationTest, SegmentThatCannotBeCreatedEndsTheKeyButNotItsSiblings)
{
   // A volatile key can't hold the non-volatile keys that migration creates.
   UniqueHkey volatileKey;
   ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, (TestRoot + L"\\Volatile").c_str(), 0, nullptr, REG_OPTION_VOLATILE,
                             KEY_ALL_ACCESS, nullptr, volatileKey.put(), nullptr),
             ERROR_SUCCESS);
   MigrateRegistryKeyRule(HKEY_LOCAL_MACHINE, Vendor, Rule(Source + L"\\A", TestRoot + L"\\Volatile\\X\\Y", L"Overwrite"));

   EXPECT_THAT(Log(), ElementsAre("ERRO Failed to create key: Software\\VtrTestKeys\\Volatile\\X, error=1021.",
                                  "ERRO Failed to create destination registry key Software\\VtrTestKeys\\Volatile\\X\\Y."));
   EXPECT_THAT(SubKeyNames(TestRoot + L"\\Volatile"), IsEmpty());
}

TEST_F(KeyMigrationTest, DestinationThatRefusesWritingIsLoggedAndSkipped)
{
   UniqueHkey(CreateTestKey(Dest));
   SetKeySecurity(Dest, L"D:P(A;;KR;;;WD)", DACL_SECURITY_INFORMATION);
   MigrateRegistryKeyRule(HKEY_LOCAL_MACHINE, Vendor, Rule(Source, Dest, L"Overwrite"));

   EXPECT_THAT(Log(), ElementsAre("INFO The destination key Software\\VtrTestKeys\\Client exists, ignore and continue.",
                                  "ERRO Failed to open destinition registry key Software\\VtrTestKeys\\Client, ignore..."));
   SetKeySecurity(Dest, L"D:P(A;;KA;;;WD)", DACL_SECURITY_INFORMATION);
   EXPECT_THAT(SubKeyNames(Dest), IsEmpty());
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

// The creator of a key may use it whatever its new descriptor says; the walk may not.
TEST_F(KeyMigrationTest, NewKeyWhoseCopiedDescriptorRefusesWritingIsLeftEmpty)
{
   SetPrivilege(SE_SECURITY_NAME, true);
   SetKeySecurity(Source + L"\\A", L"D:P(A;;KR;;;WD)", DACL_SECURITY_INFORMATION);
   const RegistryPlatformCalls saved = registryPlatform;
   registryPlatform.RegCreateKeyExW = CreateApplyingDescriptor;
   MigrateRegistryKeyRule(HKEY_LOCAL_MACHINE, Vendor, Rule(Source, Dest, L"Overwrite"));
   registryPlatform = saved;

   EXPECT_THAT(Log(), ElementsAre("INFO Migrated v1 to v1.", "ERRO Failed to open destinition registry key A, ignore...",
                                  "INFO Migrated b to b."));
   EXPECT_EQ(DaclOf(Dest + L"\\A"), L"D:P(A;;KR;;;WD)");
   for (const std::wstring &key : {Source + L"\\A", Dest + L"\\A"}) {
      SetKeySecurity(key, L"D:P(A;;KA;;;WD)", DACL_SECURITY_INFORMATION);
   }
}

TEST_F(KeyMigrationTest, ClassesRootTakesTheMachineClassesDescriptor)
{
   const auto cleanup = [] {
      for (const wchar_t *name : {L"VtrTestClassSrc", L"VtrTestClassDst"}) {
         RegDeleteTreeW(HKEY_CLASSES_ROOT, name);
         RegDeleteKeyW(HKEY_CLASSES_ROOT, name);
      }
   };
   cleanup();
   UniqueHkey source;
   ASSERT_EQ(RegCreateKeyExW(HKEY_CLASSES_ROOT, L"VtrTestClassSrc", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, source.put(),
                             nullptr),
             ERROR_SUCCESS);
   SetTestValue(source.get(), L"FriendlyAppName", REG_SZ, WideBytes(L"App"));
   source.reset();

   MigrateRegistryKeyRule(HKEY_CLASSES_ROOT, L"", Rule(L"VtrTestClassSrc", L"VtrTestClassDst", L"Overwrite"));

   EXPECT_THAT(Log(), ElementsAre("INFO Migrated FriendlyAppName to FriendlyAppName."));
   UniqueHkey dest;
   EXPECT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, L"VtrTestClassDst", 0, KEY_READ, dest.put()), ERROR_SUCCESS);
   EXPECT_EQ(ReadTestValue(dest.get(), L"FriendlyAppName"), SzValue(L"App"));
   dest.reset();
   cleanup();
}

TEST_F(KeyMigrationTest, LeafIsCreatedEvenWhenItsSourceDescriptorCannotBeRead)
{
   SetKeySecurity(Source, L"D:P(A;;KA;;;BA)(A;;KA;;;SY)", DACL_SECURITY_INFORMATION);
   {
      // Needs a platform that lets the vendor key (no descriptor of its own) be opened for
      // its SACL without the privilege, as Wine does; Windows refuses both keys.
      UniqueHkey vendor;
      if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, Vendor.c_str(), 0, KEY_READ | ACCESS_SYSTEM_SECURITY, vendor.put()) !=
          ERROR_SUCCESS) {
         GTEST_SKIP() << "the vendor key's SACL can't be read without SeSecurityPrivilege here";
      }
   }
   // Only the leaf asks for the source's descriptor: one line, though two keys are made.
   const std::wstring dest = TestRoot + L"\\Middle\\Client";
   MigrateRegistryKeyRule(HKEY_LOCAL_MACHINE, Vendor, Rule(Source, dest, L"Overwrite"));

   ASSERT_GE(Log().size(), 2u);
   EXPECT_EQ(Log()[0], "WARN Source path Software\\Eldrix, Inc.\\Client doesn't exist.");
   EXPECT_EQ(Log()[1], "INFO Migrated v1 to v1.");
   EXPECT_EQ(ReadTestValue(dest, L"v1"), DwordValue(1));
}

// Descriptors. Reading a SACL needs ACCESS_SYSTEM_SECURITY, which needs SeSecurityPrivilege
// on a key that has a descriptor of its own.
class KeySecurityTest : public KeyMigrationTest
{
protected:
   void SetUp() override
   {
      KeyMigrationTest::SetUp();
      SetKeySecurity(Vendor, VendorSddl, DACL_SECURITY_INFORMATION);
      SetKeySecurity(Source, SourceSddl, DACL_SECURITY_INFORMATION);
   }
   static constexpr const wchar_t *VendorSddl = L"D:P(A;;KA;;;BA)(A;;KA;;;SY)(A;;KR;;;BU)";
   static constexpr const wchar_t *SourceSddl = L"D:P(A;;KA;;;BA)(A;;KA;;;SY)(A;;KR;;;WD)";
};

TEST_F(KeySecurityTest, DescriptorIsTheKeysOwnBytes)
{
   SetPrivilege(SE_SECURITY_NAME, true);
   UniqueLocalMemory descriptor(GetKeySecurityDescriptor(HKEY_LOCAL_MACHINE, Source));
   ASSERT_TRUE(descriptor);

   UniqueHkey key;
   ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, Source.c_str(), 0, KEY_READ | ACCESS_SYSTEM_SECURITY, key.put()),
             ERROR_SUCCESS);
   const SECURITY_INFORMATION all =
      OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION;
   DWORD size = 0;
   ASSERT_EQ(RegGetKeySecurity(key.get(), all, nullptr, &size), ERROR_INSUFFICIENT_BUFFER);
   Bytes expected(size);
   ASSERT_EQ(RegGetKeySecurity(key.get(), all, expected.data(), &size), ERROR_SUCCESS);
   ASSERT_EQ(GetSecurityDescriptorLength(descriptor.get()), size);
   EXPECT_EQ(Bytes(static_cast<BYTE *>(descriptor.get()), static_cast<BYTE *>(descriptor.get()) + size), expected);
   EXPECT_THAT(Log(), IsEmpty());
}

// Whether RegCreateKeyExW applies lpSecurityAttributes here; Wine 8 ignores them.
bool CreateHonoursSecurityAttributes()
{
   const std::wstring probe = TestRoot + L"\\Probe";
   PSECURITY_DESCRIPTOR descriptor = nullptr;
   ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;;KA;;;WD)", SDDL_REVISION_1, &descriptor, nullptr);
   UniqueLocalMemory owned(descriptor);
   SECURITY_ATTRIBUTES attributes{sizeof(attributes), descriptor, FALSE};
   UniqueHkey key;
   RegCreateKeyExW(HKEY_LOCAL_MACHINE, probe.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, &attributes, key.put(), nullptr);
   key.reset();
   const bool honoured = DaclOf(probe) == L"D:P(A;;KA;;;WD)";
   DeleteTestTree(probe);
   return honoured;
}

TEST_F(KeySecurityTest, MultiSegmentDestinationIsCreatedSegmentBySegment)
{
   SetPrivilege(SE_SECURITY_NAME, true);
   UniqueHkey(CreateTestKey(TestRoot + L"\\A"));
   MigrateRegistryKeyRule(HKEY_LOCAL_MACHINE, Vendor, Rule(Source, TestRoot + L"\\A\\B\\C\\", L"Overwrite"));

   EXPECT_THAT(SubKeyNames(TestRoot + L"\\A"), ElementsAre(L"B"));
   EXPECT_THAT(SubKeyNames(TestRoot + L"\\A\\B"), ElementsAre(L"C"));
   EXPECT_EQ(ReadTestValue(TestRoot + L"\\A\\B\\C", L"v1"), DwordValue(1));
   EXPECT_EQ(Log().front(), "INFO Migrated v1 to v1.");
   // The segments get the vendor key's descriptor and the leaf the source's.
   if (!CreateHonoursSecurityAttributes()) {
      GTEST_SKIP() << "RegCreateKeyExW ignores lpSecurityAttributes on this platform";
   }
   EXPECT_EQ(DaclOf(TestRoot + L"\\A\\B"), DaclOf(Vendor));
   EXPECT_EQ(DaclOf(TestRoot + L"\\A\\B\\C"), DaclOf(Source));
   EXPECT_NE(DaclOf(Vendor), DaclOf(Source));
}

} // namespace
