#include "ScenarioFixture.h"

namespace {

std::wstring BasePackagePath()
{
   return scenario::FromUnixPath(scenario::Widen(VTR_BASE_MSI));
}

void ResetMachine()
{
   scenario::DeleteTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane");
   scenario::DeleteTree(HKEY_LOCAL_MACHINE, L"Software\\Eldrix, Inc.");
}

} // namespace

void InstallScenario::SetUp()
{
   const ::testing::TestInfo *info = ::testing::UnitTest::GetInstance()->current_test_info();
   workDirectory_ = scenario::TempDirectory() + L"vtr-e2e\\";
   CreateDirectoryW(workDirectory_.c_str(), nullptr);
   workDirectory_ += scenario::Widen(info->name()) + L"\\";
   CreateDirectoryW(workDirectory_.c_str(), nullptr);
   ResetMachine();
   mounts_ = scenario::SubKeyNames(HKEY_USERS);
}

void InstallScenario::TearDown()
{
   if (!package_.empty()) {
      scenario::UninstallPackage(package_);
   }
   ResetMachine();
   EXPECT_EQ(scenario::SubKeyNames(HKEY_USERS), mounts_) << "a hive stayed mounted";
}

scenario::InstallResult InstallScenario::Install(const scenario::PackageChanges &changes)
{
   package_ = workDirectory_ + L"package.msi";
   std::string error;
   if (!scenario::BuildPackage(BasePackagePath(), package_, changes, error)) {
      ADD_FAILURE() << error;
      return {};
   }
   // A product left installed by an earlier, interrupted run would put msi in maintenance mode.
   scenario::UninstallPackage(package_);
   return scenario::InstallPackage(package_);
}

scenario::PackageChanges InstallScenario::DeferredWithDocument(const std::string &xml)
{
   EXPECT_TRUE(scenario::WriteFileBytes(DocumentPath(), xml));
   scenario::PackageChanges changes;
   changes.configXml = xml;
   changes.properties.push_back({L"MigrateConfigFilepath", DocumentPath()});
   changes.skippedActions.push_back(L"ExtractMigrConfig");
   return changes;
}

std::vector<std::string> EntriesStartingWith(const std::vector<std::string> &log,
                                             const std::vector<std::string> &prefixes)
{
   std::vector<std::string> selected;
   for (const std::string &entry : log) {
      for (const std::string &prefix : prefixes) {
         if (entry.compare(0, prefix.size(), prefix) == 0) {
            selected.push_back(entry);
            break;
         }
      }
   }
   return selected;
}
