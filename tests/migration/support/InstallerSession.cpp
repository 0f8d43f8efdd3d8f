#include "InstallerSession.h"

#include <msiquery.h>

#include <gtest/gtest.h>

InstallerSession::InstallerSession(const scenario::PackageChanges &changes)
{
   static unsigned serial = 0;
   package_ = scenario::TempDirectory() + L"vtrsession-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
              std::to_wstring(++serial) + L".msi";
   std::string error;
   if (!scenario::BuildPackage(scenario::FromUnixPath(scenario::Widen(VTR_BASE_MSI)), package_, changes, error)) {
      ADD_FAILURE() << error;
      return;
   }
   MsiSetInternalUI(INSTALLUILEVEL_NONE, nullptr);
   const UINT status = MsiOpenPackageW(package_.c_str(), &handle_);
   if (status != ERROR_SUCCESS) {
      ADD_FAILURE() << "can't open " << scenario::Narrow(package_) << ": " << status;
      handle_ = 0;
   }
}

InstallerSession::~InstallerSession()
{
   if (handle_ != 0) {
      MsiCloseHandle(handle_);
   }
   DeleteFileW(package_.c_str());
}

std::wstring InstallerSession::Property(const wchar_t *name) const
{
   wchar_t value[1024] = {};
   DWORD size = 1024;
   MsiGetPropertyW(handle_, name, value, &size);
   return value;
}
