#pragma once
// One end-to-end scenario: a known machine state, a copy of the base package, a real
// msiexec install under Wine, and the product removed again afterwards.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "MsiScenario.h"

class InstallScenario : public ::testing::Test
{
protected:
   void SetUp() override;
   void TearDown() override;

   // Builds this scenario's package from the base package and installs it.
   scenario::InstallResult Install(const scenario::PackageChanges &changes = {});

   // Changes that hand the deferred actions a document on disk directly, bypassing the
   // immediate action; the document is written to this scenario's work directory.
   scenario::PackageChanges DeferredWithDocument(const std::string &xml);
   std::wstring DocumentPath() const { return workDirectory_ + L"vtrMigrateConf.xml"; }

   // MigrationDone as a REG_DWORD.
   static void SetMarker(DWORD value)
   {
      ASSERT_TRUE(scenario::WriteDword(HKEY_LOCAL_MACHINE, L"Software\\Corvane", L"MigrationDone", value));
   }

   std::wstring workDirectory_;
   std::wstring package_;
   std::vector<std::wstring> mounts_; // below HKEY_USERS before the scenario
};

// The entries of `log` that mention one of `prefixes` ("Enter function", ...), in order.
std::vector<std::string> EntriesStartingWith(const std::vector<std::string> &log,
                                             const std::vector<std::string> &prefixes);
