#pragma once
// Points the migration log at a fresh temporary directory for one test and reads it back.
#include <windows.h>
#include <msi.h>

#include <string>
#include <vector>

#include "MsiScenario.h"

// A session of a copy of the base package with `changes`, opened without UI as msiexec opens
// one for its immediate actions; 0, and a failed test, when it can't be had.
MSIHANDLE OpenSession(const scenario::PackageChanges &changes);

class LogCapture
{
public:
   LogCapture();
   ~LogCapture();
   LogCapture(const LogCapture &) = delete;
   LogCapture &operator=(const LogCapture &) = delete;

   // The raw bytes of MigrVantora.log, empty if it was never written.
   std::string Contents() const;
   // Each entry with the timestamp, process and thread ids cut off: "INFO Enter function: X."
   // A message whose system text spans lines stays one entry.
   std::vector<std::string> Entries() const;
   // The entries with `path` shown as "{path}" and the system's text behind "Last Error: "
   // cut off, once its code part has been seen.
   std::vector<std::string> Lines(const std::wstring &path) const;
   const std::wstring &Directory() const { return directory_; }

private:
   std::wstring directory_;
   std::wstring savedTmp_;
   std::wstring savedTemp_;
};
