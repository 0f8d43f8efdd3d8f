// MigrateVantoraSvc under Wine, in two modes.
//
//   svc_migration_bench DLL PACKAGE WORK_DIRECTORY time [TOP MIDDLE LEAVES VALUES [REPEAT]]
//     Times the action on a generated tree against `reg copy /s /f` of the same tree, REPEAT
//     times in turns, and prints each pair's ratio and their median.
//   svc_migration_bench DLL PACKAGE WORK_DIRECTORY dump OUTPUT [SEED]
//     Runs the action once on a seeded tree that takes every path of the key and value walk
//     (existing, refusing and volatile destinations, renames, value rules, descriptors of its
//     own, values that end a walk) and writes what came out to OUTPUT: the result, the log
//     without timestamps and ids, and every key below both vendors' keys with its descriptor
//     and values, byte for byte. Two builds that behave alike write the same file.
#include <windows.h>
#include <msi.h>
#include <msiquery.h>
#include <sddl.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <regex>
#include <string>
#include <vector>

#include "MsiScenario.h"

namespace {

const wchar_t VendorRoot[] = L"Software\\Eldrix, Inc.";
const wchar_t SourceRoot[] = L"Software\\Eldrix, Inc.\\Bench";
const wchar_t MigratedRoot[] = L"Software\\Corvane\\Bench";
const wchar_t CopiedRoot[] = L"Software\\Corvane\\BenchRegCopy";

using CustomAction = UINT(__stdcall *)(MSIHANDLE);

struct TreeShape {
   int top = 10;
   int middle = 10;
   int leaves = 99;
   int valuesPerKey = 5;
};

struct TreeSize {
   long keys = 0;
   long values = 0;
};

void WriteValues(HKEY key, int count, int seed)
{
   for (int i = 0; i < count; ++i) {
      const std::wstring name = L"Value" + std::to_wstring(i);
      switch (i % 5) {
      case 0: {
         const std::wstring text = L"C:\\Program Files\\Eldrix\\Vantora Client\\item-" + std::to_wstring(seed);
         RegSetValueExW(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE *>(text.c_str()),
                        static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
         break;
      }
      case 1: {
         const DWORD number = seed;
         RegSetValueExW(key, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE *>(&number), 4);
         break;
      }
      case 2: {
         BYTE bytes[64];
         for (int b = 0; b < 64; ++b) {
            bytes[b] = static_cast<BYTE>(seed + b);
         }
         RegSetValueExW(key, name.c_str(), 0, REG_BINARY, bytes, sizeof(bytes));
         break;
      }
      case 3: {
         const ULONGLONG number = 0x100000000ull * seed;
         RegSetValueExW(key, name.c_str(), 0, REG_QWORD, reinterpret_cast<const BYTE *>(&number), 8);
         break;
      }
      default: {
         const std::wstring text = L"%ProgramData%\\Eldrix\\cache-" + std::to_wstring(seed);
         RegSetValueExW(key, name.c_str(), 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE *>(text.c_str()),
                        static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
      }
      }
   }
}

HKEY Create(HKEY parent, const std::wstring &name, DWORD options = 0)
{
   HKEY key = nullptr;
   RegCreateKeyExW(parent, name.c_str(), 0, nullptr, options, KEY_ALL_ACCESS, nullptr, &key, nullptr);
   return key;
}

TreeSize Generate(const TreeShape &shape)
{
   TreeSize size;
   HKEY root = Create(HKEY_LOCAL_MACHINE, SourceRoot);
   WriteValues(root, shape.valuesPerKey, 0);
   size.keys = 1;
   size.values = shape.valuesPerKey;
   int seed = 1;
   for (int t = 0; t < shape.top; ++t) {
      HKEY top = Create(root, L"Group" + std::to_wstring(t));
      WriteValues(top, shape.valuesPerKey, seed++);
      for (int m = 0; m < shape.middle; ++m) {
         HKEY middle = Create(top, L"Section" + std::to_wstring(m));
         WriteValues(middle, shape.valuesPerKey, seed++);
         for (int l = 0; l < shape.leaves; ++l) {
            HKEY leaf = Create(middle, L"Item" + std::to_wstring(l));
            WriteValues(leaf, shape.valuesPerKey, seed++);
            RegCloseKey(leaf);
         }
         RegCloseKey(middle);
      }
      RegCloseKey(top);
   }
   RegCloseKey(root);
   size.keys += static_cast<long>(shape.top) * (1 + shape.middle * (1 + shape.leaves));
   size.values = size.keys * shape.valuesPerKey;
   return size;
}

TreeSize Count(HKEY parent, const std::wstring &path)
{
   TreeSize size;
   HKEY key;
   if (RegOpenKeyExW(parent, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
      return size;
   }
   DWORD subKeys = 0, values = 0;
   RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subKeys, nullptr, nullptr, &values, nullptr, nullptr, nullptr,
                    nullptr);
   size.keys = 1;
   size.values = values;
   for (DWORD i = 0; i < subKeys; ++i) {
      wchar_t name[256];
      DWORD length = 256;
      if (RegEnumKeyExW(key, i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
         break;
      }
      const TreeSize child = Count(key, name);
      size.keys += child.keys;
      size.values += child.values;
   }
   RegCloseKey(key);
   return size;
}

// A failing open whose name shows in a trace of the wineserver's requests (WINEDEBUG=+server),
// so that the requests of the migration alone can be counted.
void Marker(const wchar_t *name)
{
   HKEY key = nullptr;
   if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, name, 0, KEY_READ, &key) == ERROR_SUCCESS) {
      RegCloseKey(key);
   }
}

// User and kernel time of a process so far: what it spent itself, beside waiting for the
// wineserver. (Wine's answer for another process, such as reg.exe, can't be trusted.)
double CpuSeconds(HANDLE process)
{
   FILETIME created, exited, kernel, user;
   if (!GetProcessTimes(process, &created, &exited, &kernel, &user)) {
      return 0;
   }
   const auto ticks = [](const FILETIME &time) {
      return (static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
   };
   return (ticks(kernel) + ticks(user)) / 1e7;
}

// CPU time of the wineserver so far, when run.sh names its /proc stat file (through Z:) and
// the clock's ticks per second: the other half of every request. Negative when unknown.
double ServerCpuSeconds()
{
   wchar_t path[MAX_PATH] = {}, ticks[32] = {};
   if (!GetEnvironmentVariableW(L"VTR_WINESERVER_STAT", path, MAX_PATH) ||
       !GetEnvironmentVariableW(L"VTR_CLOCK_TICKS", ticks, 32)) {
      return -1;
   }
   const std::string stat = scenario::ReadFileBytes(path);
   const size_t name = stat.rfind(')');
   unsigned long long user = 0, system = 0;
   // After the command's name: state, then eleven numbers, then user and system time.
   if (name == std::string::npos ||
       sscanf(stat.c_str() + name + 1, " %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %llu %llu", &user, &system) != 2) {
      return -1;
   }
   return static_cast<double>(user + system) / _wtoi(ticks);
}

double Seconds(std::chrono::steady_clock::time_point since)
{
   return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

bool WriteDocument(const std::wstring &path, const std::string &rules)
{
   return scenario::WriteFileBytes(path, "<?xml version=\"1.0\" encoding=\"UTF-8\"?><VantoraMigration><ServiceMigration>" +
                                            rules + "</ServiceMigration></VantoraMigration>");
}

std::string Rule(const std::wstring &source, const std::wstring &dest, const char *action, const std::string &inner = "",
                 const char *root = "HKLM")
{
   return std::string("<RegistryKey Root=\"") + root + "\" SourcePath=\"" + scenario::Narrow(source) +
          "\" DestPath=\"" + scenario::Narrow(dest) + "\" Action=\"" + action + "\">" + inner + "</RegistryKey>";
}

double Median(std::vector<double> numbers)
{
   std::sort(numbers.begin(), numbers.end());
   const size_t n = numbers.size();
   return n == 0 ? 0.0 : n % 2 ? numbers[n / 2] : (numbers[n / 2 - 1] + numbers[n / 2]) / 2;
}

// Seconds that `reg copy /s /f` takes for the source tree; its exit code in `exitCode`.
double TimeRegCopy(DWORD &exitCode)
{
   std::wstring command = L"reg.exe copy \"HKLM\\" + std::wstring(SourceRoot) + L"\" \"HKLM\\" + CopiedRoot +
                          L"\" /s /f";
   STARTUPINFOW startup = {};
   startup.cb = sizeof(startup);
   PROCESS_INFORMATION process = {};
   const auto start = std::chrono::steady_clock::now();
   exitCode = ~0u;
   if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process)) {
      return 0;
   }
   WaitForSingleObject(process.hProcess, INFINITE);
   const double seconds = Seconds(start);
   GetExitCodeProcess(process.hProcess, &exitCode);
   CloseHandle(process.hThread);
   CloseHandle(process.hProcess);
   return seconds;
}

int Time(CustomAction migrate, MSIHANDLE session, const std::wstring &work, const TreeShape &shape, int repeat)
{
   auto start = std::chrono::steady_clock::now();
   const TreeSize generated = Generate(shape);
   printf("generated %ld keys, %ld values in %.2f s\n", generated.keys, generated.values, Seconds(start));

   const std::wstring document = work + L"\\bench.xml";
   if (!WriteDocument(document, Rule(SourceRoot, MigratedRoot, "Overwrite"))) {
      return 1;
   }
   MsiSetPropertyW(session, L"CustomActionData", document.c_str());

   // In turns, each from the same registry: a load that comes and goes on a shared machine
   // then weighs on both sides of a pair, and the median of the pairs' ratios stands.
   bool complete = true;
   UINT result = 0;
   std::vector<double> ratios;
   for (int run = 1; run <= repeat; ++run) {
      DeleteFileW(scenario::MigrationLogPath().c_str());
      Marker(L"VtrBenchMigrationBegins");
      const double cpuBefore = CpuSeconds(GetCurrentProcess()), serverBefore = ServerCpuSeconds();
      start = std::chrono::steady_clock::now();
      result |= migrate(session);
      const double migrateSeconds = Seconds(start);
      const double migrateCpu = CpuSeconds(GetCurrentProcess()) - cpuBefore;
      const double migrateServer = ServerCpuSeconds() - serverBefore;
      Marker(L"VtrBenchMigrationEnds");
      const TreeSize migrated = Count(HKEY_LOCAL_MACHINE, MigratedRoot);
      scenario::DeleteTree(HKEY_LOCAL_MACHINE, MigratedRoot);

      DWORD copyExit = 0;
      const double copyServerBefore = ServerCpuSeconds();
      const double copySeconds = TimeRegCopy(copyExit);
      const double copyServer = ServerCpuSeconds() - copyServerBefore;
      const TreeSize copied = Count(HKEY_LOCAL_MACHINE, CopiedRoot);
      scenario::DeleteTree(HKEY_LOCAL_MACHINE, CopiedRoot);

      WIN32_FILE_ATTRIBUTE_DATA log = {};
      GetFileAttributesExW(scenario::MigrationLogPath().c_str(), GetFileExInfoStandard, &log);
      const double ratio = copySeconds > 0 ? migrateSeconds / copySeconds : 0.0;
      ratios.push_back(ratio);
      printf("run %d: MigrateVantoraSvc %.2f s (cpu: own %.2f s, wineserver %.2f s; %ld keys, %ld values, log %lu "
             "bytes), reg copy /s /f %.2f s (cpu: wineserver %.2f s; exit %lu, %ld keys, %ld values), ratio %.2f\n",
             run, migrateSeconds, migrateCpu, migrateServer, migrated.keys, migrated.values, log.nFileSizeLow,
             copySeconds, copyServer, copyExit, copied.keys, copied.values, ratio);
      fflush(stdout);
      complete = complete && migrated.keys == generated.keys && migrated.values == generated.values &&
                 copied.keys == generated.keys && copied.values == generated.values && copyExit == 0;
   }

   // Once more with the log's directory missing: every line then costs its lookup and an
   // open that fails, and nothing is written.
   wchar_t savedTmp[MAX_PATH] = {}, savedTemp[MAX_PATH] = {};
   GetEnvironmentVariableW(L"TMP", savedTmp, MAX_PATH);
   GetEnvironmentVariableW(L"TEMP", savedTemp, MAX_PATH);
   const std::wstring nowhere = work + L"\\no-such-directory\\";
   SetEnvironmentVariableW(L"TMP", nowhere.c_str());
   SetEnvironmentVariableW(L"TEMP", nowhere.c_str());
   start = std::chrono::steady_clock::now();
   migrate(session);
   printf("same, log unwritable: %.2f s\n", Seconds(start));
   SetEnvironmentVariableW(L"TMP", savedTmp);
   SetEnvironmentVariableW(L"TEMP", savedTemp);

   printf("ratio MigrateVantoraSvc / reg copy, %ld keys: %.2f (median of %d)\n", generated.keys, Median(ratios),
          repeat);
   if (!complete) {
      printf("the copies are incomplete\n");
   }
   return result == 0 && complete ? 0 : 1;
}

// --- the seeded tree and its dump -------------------------------------------------------

const wchar_t SeededSource[] = L"Software\\Eldrix, Inc.\\Seeded";
const wchar_t SeededDest[] = L"Software\\Corvane\\Seeded";

struct Random {
   unsigned state;
   unsigned Next(unsigned below)
   {
      state = state * 1664525u + 1013904223u;
      return (state >> 8) % below;
   }
};

void SetSecurity(HKEY root, const std::wstring &path, const wchar_t *sddl)
{
   PSECURITY_DESCRIPTOR descriptor = nullptr;
   if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, &descriptor, nullptr)) {
      return;
   }
   SECURITY_INFORMATION what = 0;
   BOOL present = FALSE, defaulted = FALSE;
   PSID sid = nullptr;
   PACL acl = nullptr;
   if (GetSecurityDescriptorOwner(descriptor, &sid, &defaulted) && sid) {
      what |= OWNER_SECURITY_INFORMATION;
   }
   if (GetSecurityDescriptorGroup(descriptor, &sid, &defaulted) && sid) {
      what |= GROUP_SECURITY_INFORMATION;
   }
   if (GetSecurityDescriptorDacl(descriptor, &present, &acl, &defaulted) && present) {
      what |= DACL_SECURITY_INFORMATION;
   }
   if (GetSecurityDescriptorSacl(descriptor, &present, &acl, &defaulted) && present) {
      what |= SACL_SECURITY_INFORMATION;
   }
   HKEY key = nullptr;
   if (RegOpenKeyExW(root, path.c_str(), 0, READ_CONTROL | WRITE_DAC | WRITE_OWNER | ACCESS_SYSTEM_SECURITY, &key) ==
       ERROR_SUCCESS) {
      RegSetKeySecurity(key, what, descriptor);
      RegCloseKey(key);
   }
   LocalFree(descriptor);
}

// Gives every key below `path` a DACL that lets it be deleted.
void Unlock(HKEY root, const std::wstring &path)
{
   SetSecurity(root, path, L"D:P(A;;KA;;;WD)");
   for (const std::wstring &name : scenario::SubKeyNames(root, path)) {
      Unlock(root, path + L"\\" + name);
   }
}

void Clean()
{
   for (const wchar_t *path : {L"Software\\Corvane", VendorRoot}) {
      Unlock(HKEY_LOCAL_MACHINE, path);
      scenario::DeleteTree(HKEY_LOCAL_MACHINE, path);
   }
}

void Put(const std::wstring &path, const std::wstring &name, DWORD type, const std::vector<BYTE> &data,
         DWORD options = 0)
{
   HKEY key = Create(HKEY_LOCAL_MACHINE, path, options);
   RegSetValueExW(key, name.c_str(), 0, type, data.data(), static_cast<DWORD>(data.size()));
   RegCloseKey(key);
}

std::vector<BYTE> Text(const std::wstring &text)
{
   const BYTE *bytes = reinterpret_cast<const BYTE *>(text.c_str());
   return std::vector<BYTE>(bytes, bytes + (text.size() + 1) * sizeof(wchar_t));
}

std::vector<BYTE> Number(ULONGLONG number, size_t size)
{
   std::vector<BYTE> bytes(size);
   memcpy(bytes.data(), &number, size);
   return bytes;
}

const wchar_t *const Names[] = {L"Item", L"Settings", L"Cache Dir", L"\u00dcberblick", L"\u540d\u524d", L"a.b-c_d"};
const wchar_t *const SourceSddls[] = {
   L"D:P(A;;KA;;;BA)(A;;KA;;;SY)(A;;KR;;;BU)",
   L"O:BAG:SYD:(A;OICI;KA;;;WD)S:(AU;SA;KA;;;WD)",
   L"D:P(A;;KA;;;WD)(D;;KW;;;BU)",
   L"D:P(A;;KR;;;WD)",
};

// A random sub-tree: values of every type, sizes around the walk's limits, names in several
// alphabets, now and then a descriptor of its own.
void GrowRandom(Random &random, const std::wstring &path, int depth, int &budget)
{
   const int values = random.Next(7);
   for (int i = 0; i < values; ++i) {
      std::wstring name = random.Next(8) == 0 ? L"" : std::wstring(Names[random.Next(6)]) + std::to_wstring(i);
      if (random.Next(40) == 0) {
         name.assign(300, L'n');
      }
      const DWORD types[] = {REG_SZ, REG_EXPAND_SZ, REG_DWORD, REG_QWORD, REG_BINARY, REG_MULTI_SZ, REG_NONE};
      const DWORD type = types[random.Next(7)];
      std::vector<BYTE> data(random.Next(30) == 0 ? 1000 + random.Next(60) : random.Next(80));
      for (BYTE &byte : data) {
         byte = static_cast<BYTE>(random.Next(256));
      }
      Put(path, name, type, data);
   }
   HKEY key = Create(HKEY_LOCAL_MACHINE, path);
   RegCloseKey(key);
   if (random.Next(5) == 0) {
      SetSecurity(HKEY_LOCAL_MACHINE, path, SourceSddls[random.Next(4)]);
   }
   const int children = depth == 0 ? 0 : random.Next(5);
   for (int i = 0; i < children && budget > 0; ++i, --budget) {
      GrowRandom(random, path + L"\\" + Names[random.Next(6)] + std::to_wstring(i), depth - 1, budget);
   }
}

// Below the source, a fixed part that the rules name and a random part; below the
// destination, what an earlier installation could have left.
std::string Seed(unsigned seed)
{
   const std::wstring s = SeededSource, d = SeededDest;
   Create(HKEY_LOCAL_MACHINE, VendorRoot);
   SetSecurity(HKEY_LOCAL_MACHINE, VendorRoot, L"D:P(A;OICI;KA;;;BA)(A;OICI;KA;;;SY)(A;OICI;KR;;;BU)S:(AU;FA;KA;;;WD)");
   Put(s + L"\\Fixed", L"Version", REG_SZ, Text(L"7.2"));
   Put(s + L"\\Fixed", L"Flags", REG_DWORD, Number(5, 4));
   Put(s + L"\\Fixed", L"Big", REG_QWORD, Number(1ull << 40, 8));
   Put(s + L"\\Fixed", L"Blob", REG_BINARY, {1, 2, 3});
   Put(s + L"\\Fixed", L"List", REG_MULTI_SZ, {'a', 0, 0, 0});
   Put(s + L"\\Fixed", L"Nothing", REG_NONE, {9});
   Put(s + L"\\Fixed", L"Kept", REG_SZ, Text(L"old"));
   Put(s + L"\\Fixed", L"", REG_SZ, Text(L"default"));
   Put(s + L"\\Fixed\\Child", L"c", REG_SZ, Text(L"child"));
   Put(s + L"\\Fixed\\Child\\Grandchild", L"g", REG_DWORD, Number(3, 4));
   Put(s + L"\\Fixed\\Other", L"o", REG_BINARY, std::vector<BYTE>(1025, 7));
   Put(s + L"\\Fixed\\Other", L"after", REG_SZ, Text(L"never"));
   Put(s + L"\\Fixed\\Hidden", L"h", REG_SZ, Text(L"unreadable"));
   Put(s + L"\\Fixed\\Case", L"k", REG_SZ, Text(L"case"));
   SetSecurity(HKEY_LOCAL_MACHINE, s + L"\\Fixed\\Hidden", L"D:P(A;;KA;;;SY)");
   SetSecurity(HKEY_LOCAL_MACHINE, s + L"\\Fixed\\Child", L"O:BAG:BAD:P(A;;KA;;;WD)S:(AU;SAFA;KW;;;WD)");
   Random random{seed};
   int budget = 900;
   for (int i = 0; budget > 0; ++i, --budget) {
      GrowRandom(random, s + L"\\Random\\Top" + std::to_wstring(i), 4, budget);
   }

   Put(d + L"\\Existing\\Fixed", L"Kept", REG_SZ, Text(L"new"));
   Put(d + L"\\Existing\\Fixed\\Child", L"mine", REG_DWORD, Number(1, 4));
   Put(d + L"\\ReadOnly", L"r", REG_SZ, Text(L"r"));
   SetSecurity(HKEY_LOCAL_MACHINE, d + L"\\ReadOnly", L"D:P(A;;KR;;;WD)");
   Put(d + L"\\WriteOnly", L"w", REG_SZ, Text(L"w"));
   SetSecurity(HKEY_LOCAL_MACHINE, d + L"\\WriteOnly", L"D:P(A;;0x20006;;;WD)");
   Put(d + L"\\Volatile", L"v", REG_SZ, Text(L"v"), REG_OPTION_VOLATILE);

   const std::string values = "<Value OldName=\"Version\" NewName=\"ClientVersion\" Action=\"Overwrite\"/>"
                              "<Value OldName=\"Flags\" Action=\"OVERWRITE\" NewValue=\"12abc\"/>"
                              "<Value OldName=\"Big\" Action=\"overwrite\" NewValue=\" 18446744073709551615\"/>"
                              "<Value OldName=\"Blob\" Action=\"Overwrite\" NewValue=\"0A0B0\"/>"
                              "<Value OldName=\"List\" Action=\"Overwrite\" NewValue=\"6100000000\"/>"
                              "<Value OldName=\"Nothing\" Action=\"Overwrite\" NewValue=\"1\"/>"
                              "<Value OldName=\"Kept\" Action=\"SkipIfExists\"/>"
                              "<Value OldName=\"\" NewName=\"Renamed default\" Action=\"Skip\"/>"
                              "<Value OldName=\"Absent\" Action=\"Overwrite\" NewValue=\"1\"/>";
   const std::string subKeys = "<RegistrySubKey SourcePath=\"Child\" DestPath=\"Moved\\Deeper\\\" Action=\"SkipIfExists\">"
                               "<RegistrySubKey SourcePath=\"Grandchild\" DestPath=\"G2\" Action=\"Skipped\"/></RegistrySubKey>"
                               "<RegistrySubKey SourcePath=\"case\" DestPath=\"LowerCase\" Action=\"Overwrite\"/>"
                               "<RegistrySubKey SourcePath=\"Other\" DestPath=\"Other\" Action=\"skip\"/>";
   return Rule(s + L"\\Fixed", d + L"\\Fixed", "Overwrite", values + subKeys) +
          Rule(s + L"\\Fixed", d + L"\\Fixed", "SkipIfExists") +
          Rule(s + L"\\Fixed", d + L"\\Existing\\Fixed", "Overwrite", values) +
          Rule(s + L"\\Fixed", d + L"\\ReadOnly", "Overwrite") +
          Rule(s + L"\\Fixed", d + L"\\WriteOnly", "Overwrite") +
          Rule(s + L"\\Fixed", d + L"\\Volatile", "Overwrite") +
          Rule(s + L"\\Fixed", d + L"\\Volatile\\Inside\\Leaf\\", "Overwrite") +
          Rule(s + L"\\Missing", d + L"\\Missing", "Overwrite") +
          Rule(s + L"\\Random", d + L"\\Random", "Overwrite", "", "HKCU") +
          Rule(s + L"\\Random", d + L"\\Random", "SkipIfExists") + Rule(s + L"\\Random", d + L"\\Unknown", "Nothing");
}

std::string Hex(const BYTE *bytes, size_t size)
{
   static const char digits[] = "0123456789abcdef";
   std::string text;
   for (size_t i = 0; i < size; ++i) {
      text += digits[bytes[i] >> 4];
      text += digits[bytes[i] & 15];
   }
   return text;
}

// One line per key (its descriptor as SDDL and as bytes) and per value (type and bytes), in
// the platform's order.
void DumpKey(HKEY parent, const std::wstring &path, const std::wstring &shown, std::string &out)
{
   HKEY key = nullptr;
   if (RegOpenKeyExW(parent, path.c_str(), 0, KEY_READ | ACCESS_SYSTEM_SECURITY, &key) != ERROR_SUCCESS &&
       RegOpenKeyExW(parent, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
      out += "key " + scenario::Narrow(shown) + " can't be opened\n";
      return;
   }
   const SECURITY_INFORMATION all =
      OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION;
   DWORD size = 0;
   RegGetKeySecurity(key, all, nullptr, &size);
   std::vector<BYTE> descriptor(size);
   LPWSTR sddl = nullptr;
   if (size == 0 || RegGetKeySecurity(key, all, descriptor.data(), &size) != ERROR_SUCCESS ||
       !ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.data(), SDDL_REVISION_1, all, &sddl,
                                                            nullptr)) {
      descriptor.clear();
   }
   out += "key " + scenario::Narrow(shown) + " " + (sddl ? scenario::Narrow(sddl) : "?") + " " +
          Hex(descriptor.data(), descriptor.size()) + "\n";
   LocalFree(sddl);
   for (DWORD index = 0;; ++index) {
      wchar_t name[16384];
      DWORD nameLength = 16384, type = 0, dataSize = 0;
      if (RegEnumValueW(key, index, name, &nameLength, nullptr, &type, nullptr, &dataSize) != ERROR_SUCCESS) {
         break;
      }
      std::vector<BYTE> data(dataSize);
      nameLength = 16384;
      RegEnumValueW(key, index, name, &nameLength, nullptr, &type, data.data(), &dataSize);
      out += "  value \"" + scenario::Narrow(std::wstring(name, nameLength)) + "\" type " + std::to_string(type) +
             " " + Hex(data.data(), dataSize) + "\n";
   }
   for (DWORD index = 0;; ++index) {
      wchar_t name[256];
      DWORD nameLength = 256;
      if (RegEnumKeyExW(key, index, name, &nameLength, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
         break;
      }
      DumpKey(key, name, shown + L"\\" + name, out);
   }
   RegCloseKey(key);
}

// The log without what differs from run to run: the timestamp, process and thread ids that
// open every entry. Line breaks, the system's texts and everything else stay as written.
std::string NormalisedLog(const std::string &log)
{
   static const std::regex entryHead("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} <\\d+> \\[\\d+\\] ");
   std::string out;
   size_t start = 0;
   while (start < log.size()) {
      size_t end = log.find('\n', start);
      end = end == std::string::npos ? log.size() : end + 1;
      out += std::regex_replace(log.substr(start, end - start), entryHead, "",
                                std::regex_constants::format_first_only);
      start = end;
   }
   return out;
}

int Dump(CustomAction migrate, MSIHANDLE session, const std::wstring &work, const std::wstring &output, unsigned seed)
{
   Clean();
   const std::wstring document = work + L"\\seeded.xml";
   if (!WriteDocument(document, Seed(seed))) {
      return 1;
   }
   MsiSetPropertyW(session, L"CustomActionData", document.c_str());
   DeleteFileW(scenario::MigrationLogPath().c_str());
   const UINT result = migrate(session);

   std::string out = "result " + std::to_string(result) + "\n--- log\n" +
                     NormalisedLog(scenario::ReadFileBytes(scenario::MigrationLogPath())) + "--- registry\n";
   DumpKey(HKEY_LOCAL_MACHINE, L"Software\\Corvane", L"Software\\Corvane", out);
   DumpKey(HKEY_LOCAL_MACHINE, VendorRoot, VendorRoot, out);
   Clean();
   return scenario::WriteFileBytes(output, out) ? 0 : 1;
}

} // namespace

int wmain(int argc, wchar_t **argv)
{
   const std::wstring mode = argc > 4 ? argv[4] : L"";
   const bool timing = mode == L"time" && (argc == 5 || argc == 9 || argc == 10);
   const bool dumping = mode == L"dump" && (argc == 6 || argc == 7);
   if (!timing && !dumping) {
      fprintf(stderr, "usage: svc_migration_bench DLL PACKAGE WORK_DIRECTORY time [TOP MIDDLE LEAVES VALUES [REPEAT]]\n"
                      "       svc_migration_bench DLL PACKAGE WORK_DIRECTORY dump OUTPUT [SEED]\n");
      return 2;
   }
   const std::wstring work = argv[3];
   CreateDirectoryW(work.c_str(), nullptr);
   // Setting and reading audit settings takes this; the action enables it too.
   scenario::SetPrivilege(SE_SECURITY_NAME, true);

   HMODULE dll = LoadLibraryW(argv[1]);
   auto migrate = dll ? reinterpret_cast<CustomAction>(reinterpret_cast<void *>(GetProcAddress(dll, "MigrateVantoraSvc")))
                      : nullptr;
   MSIHANDLE session = 0;
   MsiSetInternalUI(INSTALLUILEVEL_NONE, nullptr);
   if (migrate == nullptr || MsiOpenPackageW(argv[2], &session) != ERROR_SUCCESS) {
      fprintf(stderr, "can't load the DLL or open the package\n");
      return 1;
   }

   int status;
   if (dumping) {
      status = Dump(migrate, session, work, argv[5], argc == 7 ? wcstoul(argv[6], nullptr, 10) : 1);
   } else {
      TreeShape shape;
      int repeat = 5;
      if (argc >= 9) {
         shape = {_wtoi(argv[5]), _wtoi(argv[6]), _wtoi(argv[7]), _wtoi(argv[8])};
      }
      if (argc == 10) {
         repeat = std::max(1, _wtoi(argv[9]));
      }
      scenario::DeleteTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane");
      scenario::DeleteTree(HKEY_LOCAL_MACHINE, VendorRoot);
      status = Time(migrate, session, work, shape, repeat);
      scenario::DeleteTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane");
      scenario::DeleteTree(HKEY_LOCAL_MACHINE, VendorRoot);
   }
   MsiCloseHandle(session);
   return status;
}
