#include "LogCapture.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>

#include "MsiScenario.h"

namespace {

std::wstring GetEnv(const wchar_t *name)
{
   wchar_t value[MAX_PATH] = {};
   DWORD length = GetEnvironmentVariableW(name, value, MAX_PATH);
   return std::wstring(value, length < MAX_PATH ? length : 0);
}

} // namespace

LogCapture::LogCapture() : savedTmp_(GetEnv(L"TMP")), savedTemp_(GetEnv(L"TEMP"))
{
   static unsigned serial = 0;
   directory_ = scenario::TempDirectory() + L"vtrlog-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                std::to_wstring(++serial);
   scenario::RemoveTree(directory_);
   CreateDirectoryW(directory_.c_str(), nullptr);
   // GetTempPath reads TMP first, then TEMP; both are set so either lookup finds the directory.
   SetEnvironmentVariableW(L"TMP", (directory_ + L"\\").c_str());
   SetEnvironmentVariableW(L"TEMP", (directory_ + L"\\").c_str());
}

LogCapture::~LogCapture()
{
   SetEnvironmentVariableW(L"TMP", savedTmp_.empty() ? nullptr : savedTmp_.c_str());
   SetEnvironmentVariableW(L"TEMP", savedTemp_.empty() ? nullptr : savedTemp_.c_str());
   scenario::RemoveTree(directory_);
}

std::string LogCapture::Contents() const
{
   return scenario::ReadFileBytes(directory_ + L"\\MigrVantora.log");
}

std::vector<std::string> LogCapture::Entries() const
{
   return scenario::SplitLogEntries(Contents());
}

std::vector<std::string> LogCapture::Lines(const std::wstring &path) const
{
   const std::string shown = scenario::Narrow(path);
   std::vector<std::string> lines = scenario::CutErrorTexts(Entries());
   for (std::string &line : lines) {
      for (size_t at; !shown.empty() && (at = line.find(shown)) != std::string::npos;) {
         line.replace(at, shown.size(), "{path}");
      }
   }
   return lines;
}

MSIHANDLE OpenSession(const scenario::PackageChanges &changes)
{
   static unsigned serial = 0;
   // Reused by the next run: the tests that open sessions never run beside each other.
   const std::wstring package = scenario::TempDirectory() + L"vtrsession-" + std::to_wstring(++serial) + L".msi";
   std::string error;
   EXPECT_TRUE(scenario::BuildPackage(scenario::FromUnixPath(scenario::Widen(VTR_BASE_MSI)), package, changes, error))
      << error;
   MsiSetInternalUI(INSTALLUILEVEL_NONE, nullptr);
   MSIHANDLE session = 0;
   EXPECT_EQ(MsiOpenPackageW(package.c_str(), &session), 0u);
   return session;
}
