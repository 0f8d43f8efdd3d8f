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
   std::optional<std::string> configXml{};                          // replaces the Binary stream
   bool withoutConfigRow = false;                                   // no Binary row for the document
   std::vector<std::pair<std::wstring, std::wstring>> properties{}; // added to the Property table
   std::vector<std::wstring> skippedActions{};                      // sequenced with condition 0
   // Where a copy of the document is made right after ExtractMigrConfig has written it back,
   // before the deferred actions use and delete it.
   std::wstring keptDocument{};
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
// Creates or replaces the file; false if it can't be written whole.
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

// A REG_SZ (or other string type) with its terminator, a REG_DWORD, or `size` bytes of
// `fill`, as the platform stores them.
RegValue TextValue(const std::wstring &name, const std::wstring &text, DWORD type = REG_SZ);
RegValue DwordValue(const std::wstring &name, DWORD number);
RegValue BinaryValue(const std::wstring &name, size_t size, BYTE fill);

// Each creates the key (and the keys above it) when it is missing.
bool WriteValue(HKEY root, const std::wstring &path, const RegValue &value);
bool WriteString(HKEY root, const std::wstring &path, const std::wstring &name, const std::wstring &text);
bool WriteDword(HKEY root, const std::wstring &path, const std::wstring &name, DWORD number);
bool CreateKey(HKEY root, const std::wstring &path);
bool KeyExists(HKEY root, const std::wstring &path);
std::optional<RegValue> ReadValue(HKEY root, const std::wstring &path, const std::wstring &name);
void DeleteTree(HKEY root, const std::wstring &path);
// Replaces the parts `what` of the key's descriptor with those the SDDL text gives; the SACL
// needs SeSecurityPrivilege.
bool SetKeySecurity(HKEY root, const std::wstring &path, const wchar_t *sddl,
                    SECURITY_INFORMATION what = DACL_SECURITY_INFORMATION);

// One line per key and value below `path`, depth first in enumeration order:
//   "Client\Sub" for a key, "Client\Sub: Name = REG_SZ \"text\"" for a value.
// Every byte shows: a string value with more zeros behind its terminator ends in " in N
// bytes"; one without a terminator, or with text behind it, and a number of the wrong size,
// are written as "type N hex:..." like any other data.
std::vector<std::string> DumpTree(HKEY root, const std::wstring &path);

// --- files, profiles and hives --------------------------------------------------------

// The profile list's entry of `sid` below HKEY_LOCAL_MACHINE; ProfileImagePath names the folder.
std::wstring ProfileKey(const std::wstring &sid);

// Writes `bytes` to `path`, creating the folders in front of it.
bool WriteFileAt(const std::wstring &path, const std::string &bytes);
bool PathExists(const std::wstring &path);
// Removes a file, or a directory with everything below it.
void RemoveTree(const std::wstring &directory);

std::wstring CurrentUserSid();
// "domain\name" of the current user, as the platform names the account.
std::wstring CurrentAccountName();
// Enables or disables one privilege of the process's token; false when that fails.
bool SetPrivilege(const wchar_t *name, bool enable);
// Names of the sub-keys of `path` (empty: of `root` itself), in enumeration order.
std::vector<std::wstring> SubKeyNames(HKEY root, const std::wstring &path = L"");

// One value of a hive file, with the key that holds it relative to the hive's root.
struct HiveValue {
   std::wstring keyPath;
   RegValue value;
};
// Writes a hive file with these values through RegSaveKeyW, in the platform's own format
// (the caller holds SeBackupPrivilege). A file that is there already is replaced.
bool SaveHiveFile(const std::wstring &filePath, const std::vector<HiveValue> &values);
// True when the file can be opened for exclusive use, as Windows refuses for a loaded hive.
// Wine reads a hive file whole and never holds it, so there only a leaked handle shows.
bool FileIsFree(const std::wstring &path);

// Log entries with the system's text of an error left out ("...Last Error: (code: 5)"):
// the code says the same on every system, the text differs between them.
std::vector<std::string> WithoutSystemText(std::vector<std::string> entries);

// `text` with each placeholder (such as "%P") replaced by its value, every occurrence.
std::string Fill(std::string text, const std::vector<std::pair<std::string, std::wstring>> &values);
// Each line filled as Fill does.
std::vector<std::string> FillLines(std::vector<std::string> lines, const std::vector<std::pair<std::string, std::wstring>> &values);

std::string Narrow(const std::wstring &text);
std::wstring Widen(const std::string &text);

} // namespace scenario
