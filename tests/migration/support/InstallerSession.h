#pragma once
// An installer session in the test process: a copy of the base package, opened without UI
// the way msiexec opens one for its immediate actions, so that custom action code can be
// called with a real session handle.
#include <windows.h>
#include <msi.h>

#include <string>

#include "MsiScenario.h"

class InstallerSession
{
public:
   explicit InstallerSession(const scenario::PackageChanges &changes = {});
   ~InstallerSession();
   InstallerSession(const InstallerSession &) = delete;
   InstallerSession &operator=(const InstallerSession &) = delete;

   // 0 when the package couldn't be built or opened; the test has failed then.
   MSIHANDLE Handle() const { return handle_; }
   // The property's value, empty when unset.
   std::wstring Property(const wchar_t *name) const;

private:
   std::wstring package_;
   MSIHANDLE handle_ = 0;
};
