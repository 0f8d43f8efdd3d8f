#include "MsiScenario.h"

#include <msi.h>
#include <msiquery.h>
#include <sddl.h>

#include <cstdio>

#include "HandleGuards.h"
#include <regex>
#include <sstream>

namespace scenario {
namespace {

bool Execute(MSIHANDLE database, const std::wstring &sql, std::string &error)
{
   UniqueMsiHandle view;
   UINT status = MsiDatabaseOpenViewW(database, sql.c_str(), view.put());
   if (status == ERROR_SUCCESS) {
      status = MsiViewExecute(view.get(), 0);
   }
   if (status != ERROR_SUCCESS) {
      error = "SQL failed (" + std::to_string(status) + "): " + Narrow(sql);
      return false;
   }
   return true;
}

std::wstring Quoted(const std::wstring &text)
{
   std::wstring out;
   for (wchar_t c : text) {
      out += c;
      if (c == L'\'') {
         out += L'\'';
      }
   }
   return out;
}

std::wstring WineStderrPath()
{
   wchar_t unixPath[MAX_PATH] = {};
   const DWORD length = GetEnvironmentVariableW(L"VTR_WINE_STDERR", unixPath, MAX_PATH);
   if (length == 0 || length >= MAX_PATH) {
      return std::wstring();
   }
   return FromUnixPath(unixPath);
}

long long FileSize(const std::wstring &path)
{
   WIN32_FILE_ATTRIBUTE_DATA data;
   if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) {
      return 0;
   }
   return (static_cast<long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

std::string ReadFileTail(const std::wstring &path, long long offset)
{
   const std::string bytes = ReadFileBytes(path);
   return offset < static_cast<long long>(bytes.size()) ? bytes.substr(offset) : std::string();
}

DWORD RunProcess(std::wstring commandLine, const std::wstring &outputPath, const wchar_t *wineDebug)
{
   SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
   HANDLE output = CreateFileW(outputPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                               CREATE_ALWAYS, 0, nullptr);
   // msi reads its trace switch from the environment it starts with.
   wchar_t savedDebug[256] = {};
   const DWORD savedLength = GetEnvironmentVariableW(L"WINEDEBUG", savedDebug, 256);
   SetEnvironmentVariableW(L"WINEDEBUG", wineDebug);

   STARTUPINFOW startup = {};
   startup.cb = sizeof(startup);
   startup.dwFlags = STARTF_USESTDHANDLES;
   startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
   startup.hStdOutput = output;
   startup.hStdError = output;
   PROCESS_INFORMATION process = {};
   DWORD exitCode = static_cast<DWORD>(-1);
   if (CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process)) {
      WaitForSingleObject(process.hProcess, INFINITE);
      GetExitCodeProcess(process.hProcess, &exitCode);
      CloseHandle(process.hThread);
      CloseHandle(process.hProcess);
   }
   SetEnvironmentVariableW(L"WINEDEBUG", savedLength > 0 ? savedDebug : nullptr);
   if (output != INVALID_HANDLE_VALUE) {
      CloseHandle(output);
   }
   return exitCode;
}

std::wstring ProductCodeOf(const std::wstring &packagePath)
{
   UniqueMsiHandle database;
   if (MsiOpenDatabaseW(packagePath.c_str(), MSIDBOPEN_READONLY, database.put()) != ERROR_SUCCESS) {
      return std::wstring();
   }
   UniqueMsiHandle view;
   UniqueMsiHandle record;
   if (MsiDatabaseOpenViewW(database.get(), L"SELECT `Value` FROM `Property` WHERE `Property`='ProductCode'",
                            view.put()) != ERROR_SUCCESS ||
       MsiViewExecute(view.get(), 0) != ERROR_SUCCESS || MsiViewFetch(view.get(), record.put()) != ERROR_SUCCESS) {
      return std::wstring();
   }
   wchar_t code[64] = {};
   DWORD size = 64;
   MsiRecordGetStringW(record.get(), 1, code, &size);
   return code;
}

// The text of a string value that ends at a terminator with nothing but zeros behind it.
std::optional<std::wstring> StringText(const RegValue &value)
{
   if (value.data.size() % sizeof(wchar_t) != 0) {
      return std::nullopt;
   }
   std::wstring units(value.data.size() / sizeof(wchar_t), L'\0');
   memcpy(units.data(), value.data.data(), value.data.size());
   const size_t end = units.find(L'\0');
   if (end == std::wstring::npos || units.find_first_not_of(L'\0', end) != std::wstring::npos) {
      return std::nullopt;
   }
   return units.substr(0, end);
}

void AppendValueText(std::ostringstream &out, const RegValue &value)
{
   if (value.type == REG_SZ || value.type == REG_EXPAND_SZ) {
      if (const std::optional<std::wstring> text = StringText(value)) {
         out << (value.type == REG_SZ ? "REG_SZ \"" : "REG_EXPAND_SZ \"") << Narrow(*text) << "\"";
         if (value.data.size() != (text->size() + 1) * sizeof(wchar_t)) {
            out << " in " << value.data.size() << " bytes";
         }
         return;
      }
   }
   if (value.type == REG_DWORD && value.data.size() == 4) {
      DWORD number;
      memcpy(&number, value.data.data(), 4);
      out << "REG_DWORD " << number;
      return;
   }
   if (value.type == REG_QWORD && value.data.size() == 8) {
      ULONGLONG number;
      memcpy(&number, value.data.data(), 8);
      out << "REG_QWORD " << number;
      return;
   }
   static const char digits[] = "0123456789abcdef";
   out << "type " << value.type << " hex:";
   for (BYTE b : value.data) {
      out << digits[b >> 4] << digits[b & 15];
   }
}

void DumpKey(HKEY parent, const std::wstring &path, const std::wstring &shownPath, std::vector<std::string> &lines)
{
   UniqueHkey key;
   if (RegOpenKeyExW(parent, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS) {
      return;
   }
   lines.push_back(Narrow(shownPath));
   for (DWORD index = 0;; ++index) {
      wchar_t name[16384];
      DWORD nameLength = 16384;
      DWORD type = 0;
      DWORD size = 0;
      if (RegEnumValueW(key.get(), index, name, &nameLength, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) {
         break;
      }
      RegValue value;
      value.name.assign(name, nameLength);
      value.type = type;
      value.data.resize(size);
      nameLength = 16384;
      RegEnumValueW(key.get(), index, name, &nameLength, nullptr, &type, value.data.data(), &size);
      std::ostringstream line;
      line << Narrow(shownPath) << ": " << (value.name.empty() ? "(default)" : Narrow(value.name)) << " = ";
      AppendValueText(line, value);
      lines.push_back(line.str());
   }
   for (DWORD index = 0;; ++index) {
      wchar_t name[256];
      DWORD nameLength = 256;
      if (RegEnumKeyExW(key.get(), index, name, &nameLength, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
         break;
      }
      DumpKey(key.get(), name, shownPath + L"\\" + name, lines);
   }
}

} // namespace

bool WriteFileBytes(const std::wstring &path, const std::string &bytes)
{
   FILE *file = _wfopen(path.c_str(), L"wb");
   if (file == nullptr) {
      return false;
   }
   const bool ok = fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
   return fclose(file) == 0 && ok;
}

std::string ReadFileBytes(const std::wstring &path)
{
   std::string bytes;
   FILE *file = _wfopen(path.c_str(), L"rb");
   if (file == nullptr) {
      return bytes;
   }
   char chunk[8192];
   size_t read;
   while ((read = fread(chunk, 1, sizeof(chunk), file)) > 0) {
      bytes.append(chunk, read);
   }
   fclose(file);
   return bytes;
}

std::string Narrow(const std::wstring &text)
{
   if (text.empty()) {
      return std::string();
   }
   const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr,
                                        nullptr);
   std::string out(size, '\0');
   WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), size, nullptr, nullptr);
   return out;
}

std::wstring Widen(const std::string &text)
{
   if (text.empty()) {
      return std::wstring();
   }
   const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
   std::wstring out(size, L'\0');
   MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), size);
   return out;
}

std::wstring TempDirectory()
{
   wchar_t path[MAX_PATH] = {};
   GetTempPathW(MAX_PATH, path);
   return path;
}

std::wstring FromUnixPath(const std::wstring &unixPath)
{
   std::wstring path = L"Z:";
   for (wchar_t c : unixPath) {
      path += c == L'/' ? L'\\' : c;
   }
   return path;
}

std::wstring MigrationLogPath()
{
   return TempDirectory() + L"MigrVantora.log";
}

std::wstring DocumentlessTwin(const std::wstring &basePackage)
{
   return basePackage.substr(0, basePackage.size() - 4) + L"-nodoc.msi";
}

bool BuildPackage(const std::wstring &basePackage, const std::wstring &packagePath, const PackageChanges &changes,
                  std::string &error)
{
   const bool ownDocument = changes.configXml || changes.withoutConfigRow;
   const std::wstring source = ownDocument ? DocumentlessTwin(basePackage) : basePackage;
   if (!CopyFileW(source.c_str(), packagePath.c_str(), FALSE)) {
      error = "can't copy " + Narrow(source) + " to " + Narrow(packagePath);
      return false;
   }
   SetFileAttributesW(packagePath.c_str(), FILE_ATTRIBUTE_NORMAL);

   UniqueMsiHandle database;
   if (MsiOpenDatabaseW(packagePath.c_str(), MSIDBOPEN_TRANSACT, database.put()) != ERROR_SUCCESS) {
      error = "can't open " + Narrow(packagePath);
      return false;
   }

   if (changes.configXml && !changes.withoutConfigRow) {
      const std::wstring streamFile = packagePath + L".conf.xml";
      if (!WriteFileBytes(streamFile, *changes.configXml)) {
         error = "can't write " + Narrow(streamFile);
         return false;
      }
      UniqueMsiHandle record(MsiCreateRecord(2));
      MsiRecordSetStringW(record.get(), 1, L"vtrMigrateConf.xml");
      UINT status = MsiRecordSetStreamW(record.get(), 2, streamFile.c_str());
      UniqueMsiHandle view;
      if (status == ERROR_SUCCESS) {
         status = MsiDatabaseOpenViewW(database.get(), L"INSERT INTO `Binary` (`Name`, `Data`) VALUES (?, ?)",
                                       view.put());
      }
      if (status == ERROR_SUCCESS) {
         status = MsiViewExecute(view.get(), record.get());
      }
      view.reset();
      record.reset();
      DeleteFileW(streamFile.c_str());
      if (status != ERROR_SUCCESS) {
         error = "can't add the configuration stream (" + std::to_string(status) + ")";
         return false;
      }
   }

   for (const auto &[name, value] : changes.properties) {
      if (!Execute(database.get(),
                   L"INSERT INTO `Property` (`Property`, `Value`) VALUES ('" + Quoted(name) + L"', '" + Quoted(value) +
                      L"')",
                   error)) {
         return false;
      }
   }
   for (const std::wstring &action : changes.skippedActions) {
      if (!Execute(database.get(),
                   L"UPDATE `InstallExecuteSequence` SET `Condition`='0' WHERE `Action`='" + Quoted(action) + L"'",
                   error)) {
         return false;
      }
   }
   // An immediate copy step (EXE in a directory, return ignored), only when there is a path to copy.
   if (!changes.keptDocument.empty() &&
       (!Execute(database.get(),
                 L"INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('KeepMigrationDocument', 98, "
                 L"'TARGETDIR', 'cmd.exe /c copy /y \"[MigrateConfigFilepath]\" \"" +
                    Quoted(changes.keptDocument) + L"\"')",
                 error) ||
        !Execute(database.get(),
                 L"INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES "
                 L"('KeepMigrationDocument', 'MigrateConfigFilepath', 1515)",
                 error))) {
      return false;
   }
   if (MsiDatabaseCommit(database.get()) != ERROR_SUCCESS) {
      error = "can't commit " + Narrow(packagePath);
      return false;
   }
   return true;
}

InstallResult InstallPackage(const std::wstring &packagePath, const std::wstring &properties)
{
   InstallResult result;
   DeleteFileW(MigrationLogPath().c_str());

   const std::wstring verboseLog = packagePath + L".install.log";
   const std::wstring outputPath = packagePath + L".output.log";
   const std::wstring tracePath = WineStderrPath();
   const long long traceStart = tracePath.empty() ? 0 : FileSize(tracePath);
   result.msiexecExitCode =
      RunProcess(L"msiexec.exe /i \"" + packagePath + L"\" /qn /l*v \"" + verboseLog + L"\" " + properties, outputPath,
                 L"+msi");

   if (!tracePath.empty()) {
      result.installerTrace = ReadFileTail(tracePath, traceStart);
   }
   result.actions = ParseActionOutcomes(result.installerTrace);
   result.propertiesSet = ParsePropertiesSet(result.installerTrace);
   result.migrationLog = ReadFileBytes(MigrationLogPath());
   result.logEntries = SplitLogEntries(result.migrationLog);
   return result;
}

void UninstallPackage(const std::wstring &packagePath)
{
   const std::wstring productCode = ProductCodeOf(packagePath);
   if (productCode.empty() || MsiQueryProductStateW(productCode.c_str()) != INSTALLSTATE_DEFAULT) {
      return;
   }
   RunProcess(L"msiexec.exe /x " + productCode + L" /qn", packagePath + L".uninstall.log", L"-all");
}

std::vector<std::string> SplitLogEntries(const std::string &log)
{
   static const std::regex head(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} <\d+> \[\d+\] )");
   std::vector<std::string> entries;
   std::istringstream lines(log);
   std::string line;
   while (std::getline(lines, line)) {
      while (!line.empty() && line.back() == '\r') {
         line.pop_back();
      }
      std::smatch match;
      if (std::regex_search(line, match, head)) {
         entries.push_back(match.suffix());
      } else if (!entries.empty()) {
         entries.back() += "\n" + line;
      }
   }
   return entries;
}

std::vector<std::string> CutErrorTexts(std::vector<std::string> entries)
{
   static const std::regex withCode(R"(^([\s\S]*Last Error: )[\s\S]* \(code: \d+\)$)");
   for (std::string &entry : entries) {
      entry = std::regex_replace(entry, withCode, "$1");
   }
   return entries;
}

std::map<std::wstring, ActionOutcome> ParseActionOutcomes(const std::string &trace)
{
   // msi names the custom action it is about to run, then reports a return value only when
   // it is neither 0 nor one of the few it passes through, and halts on any failure.
   static const std::regex handling(R"re(Handling custom action L"([^"]+)")re");
   static const std::regex calling(R"re(Calling function L"([^"]+)")re");
   static const std::regex invalid(R"([Ii]nvalid Return Code (\d+))");
   static const std::regex halted(R"re(action L"(.*)"(\.\.\.)? returned (\d+))re");
   std::map<std::wstring, ActionOutcome> outcomes;
   std::wstring current;
   std::istringstream lines(trace);
   std::string line;
   while (std::getline(lines, line)) {
      std::smatch match;
      if (std::regex_search(line, match, handling)) {
         // A deferred action is handled twice: when it is scheduled and when the script runs it.
         current = Widen(match[1]);
         outcomes[current].code = 0;
      } else if (std::regex_search(line, match, calling) && !current.empty()) {
         outcomes[current].ran = true;
      } else if (std::regex_search(line, match, invalid) && !current.empty()) {
         outcomes[current].code = static_cast<unsigned>(std::stoul(match[1]));
      } else if (std::regex_search(line, match, halted)) {
         // A deferred action is named with its script data in front: "[data<=>sid<=>product]Name",
         // and a long name is cut short with "..."; the action being handled is the one meant.
         std::string name = match[1];
         const bool cut = match[2].matched;
         if (!cut && !name.empty() && name.front() == '[' && name.rfind(']') != std::string::npos) {
            name.erase(0, name.rfind(']') + 1);
         }
         const std::wstring action = cut ? current : Widen(name);
         if (action.empty()) {
            continue;
         }
         ActionOutcome &outcome = outcomes[action];
         outcome.ran = true;
         if (outcome.code == 0) {
            outcome.code = static_cast<unsigned>(std::stoul(match[3]));
         }
      }
   }
   return outcomes;
}

std::map<std::wstring, std::wstring> ParsePropertiesSet(const std::string &trace)
{
   static const std::regex set(R"re(msi_set_property [0-9A-Fa-f]+ L"([^"]*)" L"((?:[^"\\]|\\.)*)")re");
   std::map<std::wstring, std::wstring> properties;
   std::istringstream lines(trace);
   std::string line;
   while (std::getline(lines, line)) {
      std::smatch match;
      if (std::regex_search(line, match, set)) {
         std::string value;
         const std::string escaped = match[2];
         for (size_t i = 0; i < escaped.size(); ++i) {
            value += escaped[i] == '\\' && i + 1 < escaped.size() ? escaped[++i] : escaped[i];
         }
         properties[Widen(match[1])] = Widen(value);
      }
   }
   return properties;
}

bool CreateKey(HKEY root, const std::wstring &path)
{
   UniqueHkey key;
   return RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.put(), nullptr) ==
          ERROR_SUCCESS;
}

bool WriteValue(HKEY root, const std::wstring &path, const RegValue &value)
{
   UniqueHkey key;
   if (RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.put(), nullptr) !=
       ERROR_SUCCESS) {
      return false;
   }
   return RegSetValueExW(key.get(), value.name.c_str(), 0, value.type, value.data.data(),
                         static_cast<DWORD>(value.data.size())) == ERROR_SUCCESS;
}

RegValue TextValue(const std::wstring &name, const std::wstring &text, DWORD type)
{
   const BYTE *bytes = reinterpret_cast<const BYTE *>(text.c_str());
   return {name, type, std::vector<BYTE>(bytes, bytes + (text.size() + 1) * sizeof(wchar_t))};
}

RegValue DwordValue(const std::wstring &name, DWORD number)
{
   RegValue value{name, REG_DWORD, std::vector<BYTE>(4)};
   memcpy(value.data.data(), &number, 4);
   return value;
}

RegValue BinaryValue(const std::wstring &name, size_t size, BYTE fill)
{
   return {name, REG_BINARY, std::vector<BYTE>(size, fill)};
}

bool WriteString(HKEY root, const std::wstring &path, const std::wstring &name, const std::wstring &text)
{
   return WriteValue(root, path, TextValue(name, text));
}

bool WriteDword(HKEY root, const std::wstring &path, const std::wstring &name, DWORD number)
{
   return WriteValue(root, path, DwordValue(name, number));
}

bool KeyExists(HKEY root, const std::wstring &path)
{
   UniqueHkey key;
   return RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, key.put()) == ERROR_SUCCESS;
}

std::optional<RegValue> ReadValue(HKEY root, const std::wstring &path, const std::wstring &name)
{
   UniqueHkey key;
   if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS) {
      return std::nullopt;
   }
   RegValue value{name, REG_NONE, {}};
   DWORD size = 0;
   if (RegQueryValueExW(key.get(), name.c_str(), nullptr, &value.type, nullptr, &size) != ERROR_SUCCESS) {
      return std::nullopt;
   }
   value.data.resize(size);
   if (RegQueryValueExW(key.get(), name.c_str(), nullptr, &value.type, value.data.data(), &size) != ERROR_SUCCESS) {
      return std::nullopt;
   }
   value.data.resize(size);
   return value;
}

void DeleteTree(HKEY root, const std::wstring &path)
{
   RegDeleteTreeW(root, path.c_str());
   RegDeleteKeyW(root, path.c_str());
}

bool SetKeySecurity(HKEY root, const std::wstring &path, const wchar_t *sddl, SECURITY_INFORMATION what)
{
   PSECURITY_DESCRIPTOR descriptor = nullptr;
   if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, &descriptor, nullptr)) {
      return false;
   }
   UniqueLocalMemory owned(descriptor);
   const REGSAM access = ((what & DACL_SECURITY_INFORMATION) ? WRITE_DAC : 0) |
                         ((what & SACL_SECURITY_INFORMATION) ? ACCESS_SYSTEM_SECURITY : 0) |
                         ((what & (OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION)) ? WRITE_OWNER : 0);
   UniqueHkey key;
   return RegOpenKeyExW(root, path.c_str(), 0, access, key.put()) == ERROR_SUCCESS &&
          RegSetKeySecurity(key.get(), what, descriptor) == ERROR_SUCCESS;
}

std::vector<std::string> DumpTree(HKEY root, const std::wstring &path)
{
   std::vector<std::string> lines;
   const size_t cut = path.rfind(L'\\');
   DumpKey(root, path, cut == std::wstring::npos ? path : path.substr(cut + 1), lines);
   return lines;
}

bool PathExists(const std::wstring &path)
{
   return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// Creates the folders in front of the last backslash of an absolute path.
void CreateParentFolders(const std::wstring &path)
{
   for (size_t found = path.find(L'\\', 3); found != std::wstring::npos; found = path.find(L'\\', found + 1)) {
      CreateDirectoryW(path.substr(0, found).c_str(), nullptr);
   }
}

bool WriteFileAt(const std::wstring &path, const std::string &bytes)
{
   CreateParentFolders(path);
   return WriteFileBytes(path, bytes);
}

void RemoveTree(const std::wstring &directory)
{
   if (DeleteFileW(directory.c_str())) {
      return;
   }
   WIN32_FIND_DATAW data;
   HANDLE find = FindFirstFileW((directory + L"\\*").c_str(), &data);
   if (find != INVALID_HANDLE_VALUE) {
      do {
         const std::wstring name = data.cFileName;
         if (name == L"." || name == L"..") {
            continue;
         }
         const std::wstring path = directory + L"\\" + name;
         if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            RemoveTree(path);
         } else {
            SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
            DeleteFileW(path.c_str());
         }
      } while (FindNextFileW(find, &data));
      FindClose(find);
   }
   RemoveDirectoryW(directory.c_str());
}

std::wstring CurrentUserSid()
{
   UniqueHandle token;
   BYTE buffer[256];
   DWORD size = 0;
   wchar_t *text = nullptr;
   if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put()) ||
       !GetTokenInformation(token.get(), TokenUser, buffer, sizeof(buffer), &size) ||
       !ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER *>(buffer)->User.Sid, &text)) {
      return std::wstring();
   }
   UniqueLocalMemory owned(text);
   return text;
}

std::wstring CurrentAccountName()
{
   PSID sid = nullptr;
   wchar_t name[256] = {};
   wchar_t domain[256] = {};
   DWORD nameLength = 256;
   DWORD domainLength = 256;
   SID_NAME_USE use;
   if (!ConvertStringSidToSidW(CurrentUserSid().c_str(), &sid)) {
      return std::wstring();
   }
   UniqueLocalMemory owned(sid);
   if (!LookupAccountSidW(nullptr, sid, name, &nameLength, domain, &domainLength, &use)) {
      return std::wstring();
   }
   return std::wstring(domain) + L"\\" + name;
}

bool SetPrivilege(const wchar_t *name, bool enable)
{
   UniqueHandle token;
   TOKEN_PRIVILEGES privileges{};
   privileges.PrivilegeCount = 1;
   privileges.Privileges[0].Attributes = enable ? SE_PRIVILEGE_ENABLED : 0;
   return OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, token.put()) &&
          LookupPrivilegeValueW(nullptr, name, &privileges.Privileges[0].Luid) &&
          AdjustTokenPrivileges(token.get(), FALSE, &privileges, sizeof(privileges), nullptr, nullptr);
}

std::wstring ProfileKey(const std::wstring &sid)
{
   return L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\" + sid;
}

std::vector<std::wstring> SubKeyNames(HKEY root, const std::wstring &path)
{
   std::vector<std::wstring> names;
   UniqueHkey key;
   if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS) {
      return names;
   }
   for (DWORD index = 0;; ++index) {
      wchar_t name[256];
      DWORD length = 256;
      if (RegEnumKeyExW(key.get(), index, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
         break;
      }
      names.emplace_back(name, length);
   }
   return names;
}

bool SaveHiveFile(const std::wstring &filePath, const std::vector<HiveValue> &values)
{
   // Staged under the current user's key, which every process may write.
   const std::wstring stage = L"Software\\VtrHiveStage";
   DeleteTree(HKEY_CURRENT_USER, stage);
   bool ok = CreateKey(HKEY_CURRENT_USER, stage);
   for (const HiveValue &entry : values) {
      const std::wstring path = entry.keyPath.empty() ? stage : stage + L"\\" + entry.keyPath;
      ok = ok && WriteValue(HKEY_CURRENT_USER, path, entry.value);
   }
   UniqueHkey key;
   CreateParentFolders(filePath);
   DeleteFileW(filePath.c_str());
   ok = ok && RegOpenKeyExW(HKEY_CURRENT_USER, stage.c_str(), 0, KEY_READ, key.put()) == ERROR_SUCCESS &&
        RegSaveKeyW(key.get(), filePath.c_str(), nullptr) == ERROR_SUCCESS;
   key.reset();
   DeleteTree(HKEY_CURRENT_USER, stage);
   return ok;
}

bool FileIsFree(const std::wstring &path)
{
   HANDLE file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
   if (file == INVALID_HANDLE_VALUE) {
      return false;
   }
   CloseHandle(file);
   return true;
}

std::string Fill(std::string text, const std::vector<std::pair<std::string, std::wstring>> &values)
{
   for (const auto &[placeholder, value] : values) {
      const std::string narrow = Narrow(value);
      for (size_t at = text.find(placeholder); at != std::string::npos; at = text.find(placeholder, at + narrow.size())) {
         text.replace(at, placeholder.size(), narrow);
      }
   }
   return text;
}

std::vector<std::string> FillLines(std::vector<std::string> lines, const std::vector<std::pair<std::string, std::wstring>> &values)
{
   for (std::string &line : lines) {
      line = Fill(line, values);
   }
   return lines;
}

std::vector<std::string> WithoutSystemText(std::vector<std::string> entries)
{
   static const std::regex systemText(R"((Last Error: )[\s\S]*? (\(code: -?\d+\))$)");
   for (std::string &entry : entries) {
      entry = std::regex_replace(entry, systemText, "$1$2");
   }
   return entries;
}

} // namespace scenario
