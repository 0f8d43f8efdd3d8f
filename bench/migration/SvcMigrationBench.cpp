// Times MigrateVantoraSvc on a generated tree against `reg copy /s /f` of the same tree, in
// one run under the same Wine prefix, and prints both times and their ratio.
//
//   svc_migration_bench DLL PACKAGE WORK_DIRECTORY [TOP MIDDLE LEAVES VALUES]
#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "MsiScenario.h"

namespace {

const wchar_t SourceRoot[] = L"Software\\Eldrix, Inc.\\Bench";
const wchar_t MigratedRoot[] = L"Software\\Corvane\\Bench";
const wchar_t CopiedRoot[] = L"Software\\Corvane\\BenchRegCopy";

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

HKEY Create(HKEY parent, const std::wstring &name)
{
   HKEY key = nullptr;
   RegCreateKeyExW(parent, name.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
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

double Seconds(std::chrono::steady_clock::time_point since)
{
   return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

} // namespace

int wmain(int argc, wchar_t **argv)
{
   if (argc != 4 && argc != 8) {
      fprintf(stderr, "usage: svc_migration_bench DLL PACKAGE WORK_DIRECTORY [TOP MIDDLE LEAVES VALUES]\n");
      return 2;
   }
   TreeShape shape;
   if (argc == 8) {
      shape = {_wtoi(argv[4]), _wtoi(argv[5]), _wtoi(argv[6]), _wtoi(argv[7])};
   }
   const std::wstring work = argv[3];
   CreateDirectoryW(work.c_str(), nullptr);

   scenario::DeleteTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane");
   scenario::DeleteTree(HKEY_LOCAL_MACHINE, L"Software\\Eldrix, Inc.");
   auto start = std::chrono::steady_clock::now();
   const TreeSize generated = Generate(shape);
   printf("generated %ld keys, %ld values in %.2f s\n", generated.keys, generated.values, Seconds(start));

   const std::wstring document = work + L"\\bench.xml";
   const std::string xml = "<VantoraMigration><ServiceMigration>"
                           "<RegistryKey Root=\"HKLM\" SourcePath=\"" +
                           scenario::Narrow(SourceRoot) + "\" DestPath=\"" + scenario::Narrow(MigratedRoot) +
                           "\" Action=\"Overwrite\"/></ServiceMigration></VantoraMigration>";
   FILE *file = _wfopen(document.c_str(), L"wb");
   if (file == nullptr) {
      return 1;
   }
   fwrite(xml.data(), 1, xml.size(), file);
   fclose(file);

   HMODULE dll = LoadLibraryW(argv[1]);
   using CustomAction = UINT(__stdcall *)(MSIHANDLE);
   auto migrate = dll ? reinterpret_cast<CustomAction>(reinterpret_cast<void *>(GetProcAddress(dll, "MigrateVantoraSvc")))
                      : nullptr;
   MSIHANDLE session = 0;
   MsiSetInternalUI(INSTALLUILEVEL_NONE, nullptr);
   if (migrate == nullptr || MsiOpenPackageW(argv[2], &session) != ERROR_SUCCESS) {
      fprintf(stderr, "can't load the DLL or open the package\n");
      return 1;
   }
   MsiSetPropertyW(session, L"CustomActionData", document.c_str());
   DeleteFileW(scenario::MigrationLogPath().c_str());

   start = std::chrono::steady_clock::now();
   const UINT result = migrate(session);
   const double migrateSeconds = Seconds(start);
   const TreeSize migrated = Count(HKEY_LOCAL_MACHINE, MigratedRoot);

   // The same migration once more with the log's directory missing: every line still costs
   // its lookup and a failed open, but nothing is written. Tells the file work apart.
   scenario::DeleteTree(HKEY_LOCAL_MACHINE, MigratedRoot);
   wchar_t savedTmp[MAX_PATH] = {}, savedTemp[MAX_PATH] = {};
   GetEnvironmentVariableW(L"TMP", savedTmp, MAX_PATH);
   GetEnvironmentVariableW(L"TEMP", savedTemp, MAX_PATH);
   const std::wstring nowhere = work + L"\\no-such-directory\\";
   SetEnvironmentVariableW(L"TMP", nowhere.c_str());
   SetEnvironmentVariableW(L"TEMP", nowhere.c_str());
   start = std::chrono::steady_clock::now();
   migrate(session);
   const double unloggedSeconds = Seconds(start);
   SetEnvironmentVariableW(L"TMP", savedTmp);
   SetEnvironmentVariableW(L"TEMP", savedTemp);
   MsiCloseHandle(session);

   std::wstring command = L"reg.exe copy \"HKLM\\" + std::wstring(SourceRoot) + L"\" \"HKLM\\" + CopiedRoot +
                          L"\" /s /f";
   STARTUPINFOW startup = {};
   startup.cb = sizeof(startup);
   PROCESS_INFORMATION process = {};
   start = std::chrono::steady_clock::now();
   if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process)) {
      fprintf(stderr, "can't start reg.exe\n");
      return 1;
   }
   WaitForSingleObject(process.hProcess, INFINITE);
   const double copySeconds = Seconds(start);
   DWORD copyExit = 0;
   GetExitCodeProcess(process.hProcess, &copyExit);
   CloseHandle(process.hThread);
   CloseHandle(process.hProcess);
   const TreeSize copied = Count(HKEY_LOCAL_MACHINE, CopiedRoot);

   WIN32_FILE_ATTRIBUTE_DATA log = {};
   GetFileAttributesExW(scenario::MigrationLogPath().c_str(), GetFileExInfoStandard, &log);

   printf("MigrateVantoraSvc: result %u, %ld keys, %ld values, %.2f s (log %lu bytes)\n", result, migrated.keys,
          migrated.values, migrateSeconds, log.nFileSizeLow);
   printf("  same, log unwritable: %.2f s\n", unloggedSeconds);
   printf("reg copy /s /f:    exit %lu, %ld keys, %ld values, %.2f s\n", copyExit, copied.keys, copied.values,
          copySeconds);
   printf("ratio MigrateVantoraSvc / reg copy: %.2f\n", copySeconds > 0 ? migrateSeconds / copySeconds : 0.0);

   scenario::DeleteTree(HKEY_LOCAL_MACHINE, L"Software\\Corvane");
   scenario::DeleteTree(HKEY_LOCAL_MACHINE, L"Software\\Eldrix, Inc.");
   const bool complete = migrated.keys == generated.keys && migrated.values == generated.values &&
                         copied.keys == generated.keys && copied.values == generated.values;
   if (!complete) {
      printf("the copies are incomplete\n");
   }
   return result == 0 && complete ? 0 : 1;
}
