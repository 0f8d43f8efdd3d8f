#pragma once
// Drives the real installer under Wine: a copy of the base package with its own
// configuration document, a known registry state, an msiexec run, and what came out of it.
#include <windows.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace scenario {

// What distinguishes one scenario's package from the base package.
struct PackageChanges {
   std::optional<std::string> configXml;                          // replaces the Binary stream
   bool withoutConfigRow = false;                                 // no Binary row for the document
   std::vector<std::pair<std::wstring, std::wstring>> properties; // added to the Property table
   std::vector<std::wstring> skippedActions;                      // sequenced with condition 0
   // Where a copy of the document is made right after ExtractMigrConfig has written it back,
   // before the deferred actions use and delete it.
   std::wstring keptDocument;
};

// An action's result as the installer saw it. `code` is the number the DLL returned, as far
// as Wine's msi tells it apart: it passes 0 and 1603 through and names every other value.
struct ActionOutcome {
   bool ran = false;
   unsigned code = 0;
};

struct InstallResult {
   DWORD msiexecExitCode = 0;
   std::map<std::wstring, ActionOutcome> actions;
   std::string migrationLog;             // MigrVantora.log as written during this install
   std::vector<std::string> logEntries;  // its entries without timestamp and ids
   std::string installerTrace;           // msi's own trace of the run
   // Every property that msi set during the run, with its last value.
   std::map<std::wstring, std::wstring> propertiesSet;
};

// The whole file, or empty when it can't be read.
std::string ReadFileBytes(const std::wstring &path);
bool WriteFileBytes(const std::wstring &path, const std::string &bytes);

// Paths inside the Wine prefix, as the test process sees them.
std::wstring TempDirectory();
// A Unix path as the prefix's Z: drive shows it.
std::wstring FromUnixPath(const std::wstring &unixPath);
std::wstring MigrationLogPath();

// Writes a copy of `basePackage` at `packagePath` with the changes applied. A package with
// a document of its own, or none, is built from the base package's documentless twin, the
// file beside it whose name ends in "-nodoc.msi": Wine's msi keeps a stream that a file
// already holds.
bool BuildPackage(const std::wstring &basePackage, const std::wstring &packagePath, const PackageChanges &changes,
                  std::string &error);

// Runs msiexec /i on the package (quiet, verbose log beside it) and collects the results.
// MigrVantora.log is removed first, so the result holds exactly this run's lines. msi's
// trace is read from the file that receives Wine's debug output (VTR_WINE_STDERR, a Unix
// path); without it the installer's return values stay unknown.
// `properties` ("NAME=value ...") go on the command line.
InstallResult InstallPackage(const std::wstring &packagePath, const std::wstring &properties = L"");

// Removes the product that `packagePath` installs, if it is installed.
void UninstallPackage(const std::wstring &packagePath);

// Splits a migration log into entries (see InstallResult::logEntries).
std::vector<std::string> SplitLogEntries(const std::string &log);
// The entries with the system's text behind "Last Error: " cut off, once its code part has
// been seen: what stays is the same on every system language.
std::vector<std::string> CutErrorTexts(std::vector<std::string> entries);

// Reads which custom actions ran and what they returned from msi's trace.
std::map<std::wstring, ActionOutcome> ParseActionOutcomes(const std::string &trace);
std::map<std::wstring, std::wstring> ParsePropertiesSet(const std::string &trace);

// --- registry helpers -----------------------------------------------------------------

struct RegValue {
   std::wstring name;
   DWORD type = REG_NONE;
   std::vector<BYTE> data;
};

bool WriteValue(HKEY root, const std::wstring &path, const RegValue &value);
bool WriteString(HKEY root, const std::wstring &path, const std::wstring &name, const std::wstring &text);
bool WriteDword(HKEY root, const std::wstring &path, const std::wstring &name, DWORD number);
bool CreateKey(HKEY root, const std::wstring &path);
bool KeyExists(HKEY root, const std::wstring &path);
std::optional<RegValue> ReadValue(HKEY root, const std::wstring &path, const std::wstring &name);
void DeleteTree(HKEY root, const std::wstring &path);

// One line per key and value below `path`, depth first in enumeration order:
//   "Client\Sub" for a key, "Client\Sub: Name = REG_SZ \"text\"" for a value.
std::vector<std::string> DumpTree(HKEY root, const std::wstring &path);

std::string Narrow(const std::wstring &text);
std::wstring Widen(const std::string &text);

} // namespace scenario
