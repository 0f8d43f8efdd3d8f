#include "misc/coreDump.h"

#include <dbghelp.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "misc/errText.h"
#include "misc/file.h"
#include "misc/hashTable.h"
#include "misc/log.h"
#include "misc/panic.h"
#include "misc/uniqueResource.h"
#include "misc/win32u.h"
#include "misc/windowsUtil2.h"
#include "string/str.h"
#include "user/preference.h"

struct BacktraceSymbol {
   uint64_t address;
   const char *modulePath;  // null outside any module
   uint64_t moduleBase;
   uint32_t section;        // from 1; 0 when the image could not be read
   uint64_t sectionOffset;
   char *name;              // null when no symbol was found
   uint64_t displacement;
};

struct BacktraceSymbolCache {
   std::atomic<HashTable *> table;
   char *(*format)(const BacktraceSymbol *symbol);
};

namespace {

HMODULE CoreDumpLoadLibrary(const wchar_t *name) { return LoadLibraryW(name); }

bool CoreDumpCommitSetting()
{
   return Preference_GetBool(false, "panic.commitAddrSpaceReserved");
}

int32_t CoreDumpReservedKBSetting()
{
   return Preference_GetInt32(0, "panic.addrSpaceReservedKB");
}

typedef BOOL(WINAPI *SymInitializeWFn)(HANDLE, PCWSTR, BOOL);
typedef DWORD64(WINAPI *SymGetModuleBase64Fn)(HANDLE, DWORD64);
typedef DWORD64(WINAPI *SymLoadModuleExWFn)(HANDLE, HANDLE, PCWSTR, PCWSTR, DWORD64, DWORD,
                                             PMODLOAD_DATA, DWORD);
typedef BOOL(WINAPI *SymSetSearchPathWFn)(HANDLE, PCWSTR);
typedef BOOL(WINAPI *SymFromAddrWFn)(HANDLE, DWORD64, PDWORD64, PSYMBOL_INFOW);
typedef BOOL(WINAPI *SymGetSymFromAddr64Fn)(HANDLE, DWORD64, PDWORD64, PIMAGEHLP_SYMBOL64);
typedef BOOL(WINAPI *StackWalk64Fn)(DWORD, HANDLE, HANDLE, LPSTACKFRAME64, PVOID,
                                    PREAD_PROCESS_MEMORY_ROUTINE64,
                                    PFUNCTION_TABLE_ACCESS_ROUTINE64,
                                    PGET_MODULE_BASE_ROUTINE64, PTRANSLATE_ADDRESS_ROUTINE64);
typedef BOOL(WINAPI *MiniDumpWriteDumpFn)(HANDLE, DWORD, HANDLE, MINIDUMP_TYPE,
                                          PMINIDUMP_EXCEPTION_INFORMATION,
                                          PMINIDUMP_USER_STREAM_INFORMATION,
                                          PMINIDUMP_CALLBACK_INFORMATION);

struct CoreDumpDbgHelp {
   std::atomic<bool> tried;
   bool usable;
   HMODULE module;
   SymInitializeWFn symInitialize;
   SymGetModuleBase64Fn symGetModuleBase;
   SymLoadModuleExWFn symLoadModule;
   SymSetSearchPathWFn symSetSearchPath;
   SymFromAddrWFn symFromAddr;
   SymGetSymFromAddr64Fn symGetSymFromAddr;
};

struct CoreDumpStackWalk {
   std::atomic<bool> tried;
   bool usable;
   StackWalk64Fn stackWalk;
   PFUNCTION_TABLE_ACCESS_ROUTINE64 functionTableAccess;
   PGET_MODULE_BASE_ROUTINE64 getModuleBase;
};

struct CoreDumpState {
   uint32_t maxDumpCount = 5;
   char *dumpPath = nullptr;
   void *reservedAddress = nullptr;
   SIZE_T reservedSize = 0;
   std::atomic<bool> initialised{false};
};

CoreDumpState coreDump;
CoreDumpDbgHelp dbgHelp;
CoreDumpStackWalk stackWalk;
// dbghelp.dll is not thread-safe: every call that touches process state holds this.
CRITICAL_SECTION *volatile dbgHelpLock = nullptr;

struct CoreDumpLockHolder {
   CRITICAL_SECTION *lock = W32Util_GetSingletonCriticalSection(&dbgHelpLock);
   CoreDumpLockHolder() { EnterCriticalSection(lock); }
   ~CoreDumpLockHolder() { LeaveCriticalSection(lock); }
   CoreDumpLockHolder(const CoreDumpLockHolder &) = delete;
   CoreDumpLockHolder &operator=(const CoreDumpLockHolder &) = delete;
};

template <typename Fn>
Fn CoreDumpEntry(HMODULE module, const char *name)
{
   return reinterpret_cast<Fn>(reinterpret_cast<void *>(coreDumpPlatform.getProcAddress(module, name)));
}

void CoreDumpLoadDbgHelpLocked()
{
   dbgHelp.module = coreDumpPlatform.loadLibrary(L"dbghelp.dll");
   if (dbgHelp.module == nullptr) {
      Warning("CoreDump: Can't find DbgHelp.dll!\n");
      return;
   }
   HMODULE m = dbgHelp.module;
   dbgHelp.symInitialize = CoreDumpEntry<SymInitializeWFn>(m, "SymInitializeW");
   dbgHelp.symGetModuleBase = CoreDumpEntry<SymGetModuleBase64Fn>(m, "SymGetModuleBase64");
   dbgHelp.symLoadModule = CoreDumpEntry<SymLoadModuleExWFn>(m, "SymLoadModuleExW");
   dbgHelp.symSetSearchPath = CoreDumpEntry<SymSetSearchPathWFn>(m, "SymSetSearchPathW");
   dbgHelp.symFromAddr = CoreDumpEntry<SymFromAddrWFn>(m, "SymFromAddrW");
   dbgHelp.symGetSymFromAddr = CoreDumpEntry<SymGetSymFromAddr64Fn>(m, "SymGetSymFromAddr64");
   if (dbgHelp.symInitialize == nullptr) {
      Warning("CoreDump: Can't find SymInitializeW!\n");
      return;
   }
   if (!dbgHelp.symInitialize(GetCurrentProcess(), nullptr, FALSE)) {
      Warning("CoreDump: SymInitializeW failed\n");
      return;
   }
   if (dbgHelp.symGetModuleBase == nullptr || dbgHelp.symLoadModule == nullptr ||
       dbgHelp.symSetSearchPath == nullptr) {
      Warning("CoreDump: Failed to resolve dbghelp.dll symbols (ver. 6.3 required!) No "
              "backtrace.----\n");
      return;
   }
   if (dbgHelp.symFromAddr == nullptr && dbgHelp.symGetSymFromAddr == nullptr) {
      Warning("CoreDump: Failed to resolve dbghelp.dll symbols. No backtrace.----\n");
      return;
   }
   dbgHelp.usable = true;
}

// The first attempt's outcome stands for the life of the process.
bool CoreDumpLoadDbgHelp()
{
   if (!dbgHelp.tried.load(std::memory_order_acquire)) {
      CoreDumpLockHolder held;
      if (!dbgHelp.tried.load(std::memory_order_relaxed)) {
         CoreDumpLoadDbgHelpLocked();
         dbgHelp.tried.store(true, std::memory_order_release);
      }
   }
   return dbgHelp.usable;
}

bool CoreDumpLoadStackWalk()
{
   if (!stackWalk.tried.load(std::memory_order_acquire)) {
      bool loaded = CoreDumpLoadDbgHelp();
      CoreDumpLockHolder held;
      if (!stackWalk.tried.load(std::memory_order_relaxed)) {
         if (loaded) {
            HMODULE m = dbgHelp.module;
            stackWalk.stackWalk = CoreDumpEntry<StackWalk64Fn>(m, "StackWalk64");
            stackWalk.functionTableAccess =
               CoreDumpEntry<PFUNCTION_TABLE_ACCESS_ROUTINE64>(m, "SymFunctionTableAccess64");
            stackWalk.getModuleBase =
               CoreDumpEntry<PGET_MODULE_BASE_ROUTINE64>(m, "SymGetModuleBase64");
            stackWalk.usable = stackWalk.stackWalk != nullptr &&
                               stackWalk.functionTableAccess != nullptr &&
                               stackWalk.getModuleBase != nullptr;
         }
         stackWalk.tried.store(true, std::memory_order_release);
      }
   }
   return stackWalk.usable;
}

void CoreDumpReserve()
{
   bool commit = false;
   int32_t kilobytes = 0;
   if (CoreDumpLoadDbgHelp()) {
      commit = coreDumpPlatform.commitSetting();
      kilobytes = coreDumpPlatform.reservedKBSetting();
   }
   if (kilobytes <= 0) {
      return;
   }
   SYSTEM_INFO system;
   GetSystemInfo(&system);
   SIZE_T page = system.dwPageSize;
   SIZE_T size = static_cast<SIZE_T>(kilobytes < 20480 ? kilobytes : 20480) * 1024;
   size = (size + page - 1) / page * page;
   void *address = coreDumpPlatform.virtualAlloc(
      nullptr, size, commit ? MEM_COMMIT | MEM_RESERVE : MEM_RESERVE, PAGE_NOACCESS);
   if (address != nullptr && size != 0) {
      coreDump.reservedAddress = address;
      coreDump.reservedSize = size;
      Log("Reserved virtual address space for CoreDump(addr:%p, size:%I64uKB)\n", address,
          static_cast<uint64_t>(size / 1024));
   }
}

// The process's name between the last backslash and the last dot, or the whole module
// path when it has no such part.
char *CoreDumpProcessName()
{
   char *module = Win32U_GetModuleFileName(nullptr);
   if (module == nullptr) {
      return SafeStrdup("unknown");
   }
   char *backslash = strrchr(module, '\\');
   char *dot = strrchr(module, '.');
   if (backslash == nullptr || dot == nullptr || dot < backslash) {
      return module;
   }
   *dot = '\0';
   char *name = SafeStrdup(backslash + 1);
   free(module);
   return name;
}

struct CoreDumpCapture {
   DWORD thread;
   bool captured;
   EXCEPTION_RECORD record;
   CONTEXT context;
};
CoreDumpCapture *coreDumpCapture = nullptr;

// The stand-in for a guarded block around the fake exception: it copies the failing
// thread's state and lets the thread go on where it raised.
LONG CALLBACK CoreDumpFilter(EXCEPTION_POINTERS *pointers)
{
   CoreDumpCapture *capture = coreDumpCapture;
   if (capture == nullptr || pointers->ExceptionRecord->ExceptionCode != 0xcafebabe ||
       capture->thread != GetCurrentThreadId()) {
      return EXCEPTION_CONTINUE_SEARCH;
   }
   capture->record = *pointers->ExceptionRecord;
   capture->context = *pointers->ContextRecord;
   capture->captured = true;
   return EXCEPTION_CONTINUE_EXECUTION;
}

BOOL CALLBACK CoreDumpCallback(PVOID, const PMINIDUMP_CALLBACK_INPUT input,
                               PMINIDUMP_CALLBACK_OUTPUT)
{
   switch (input->CallbackType) {
   case ModuleCallback: {
      const MINIDUMP_MODULE_CALLBACK &module = input->Module;
      Log("CoreDump: including module base 0x%#010I64x size 0x%#010x\n",
          static_cast<uint64_t>(module.BaseOfImage), module.SizeOfImage);
      Log("  checksum %#010x timestamp %#010x\n", module.CheckSum, module.TimeDateStamp);
      Log("  image file %S\n", module.FullPath);
      Log("  file version %u.%u.%u.%u\n", HIWORD(module.VersionInfo.dwFileVersionMS),
          LOWORD(module.VersionInfo.dwFileVersionMS), HIWORD(module.VersionInfo.dwFileVersionLS),
          LOWORD(module.VersionInfo.dwFileVersionLS));
      break;
   }
   case ThreadCallback:
      Log("CoreDump: Including thread %d\n", input->Thread.ThreadId);
      break;
   case ThreadExCallback:
      Log("CoreDump: Including threadex %d\n", input->ThreadEx.ThreadId);
      break;
   default:
      break;
   }
   return TRUE;
}

// ---- Symbols --------------------------------------------------------------------------

std::atomic<HashTable *> modulePaths{nullptr};

// The module's path by its base, or null for memory that no module holds.
const char *CoreDumpModulePath(uint64_t base)
{
   HashTable *table = HashTable_AllocOnce(&modulePaths, 16, HASH_INT_KEY | HASH_FLAG_ATOMIC,
                                          nullptr);
   const void *key = reinterpret_cast<const void *>(base);
   void *path = nullptr;
   if (HashTable_Lookup(table, key, &path)) {
      return static_cast<const char *>(path);
   }
   char *found = Win32U_GetModuleFileName(reinterpret_cast<HMODULE>(base));
   void *kept = HashTable_LookupOrInsert(table, key, found);
   if (kept != found) {
      free(found);
   }
   return static_cast<const char *>(kept);
}

// Finds the section of the image at `base` that holds `offset`, reading only what the
// headers show to be there.
void CoreDumpFindSection(uint64_t base, uint64_t offset, BacktraceSymbol *symbol)
{
   auto *image = reinterpret_cast<const BYTE *>(base);
   auto *dos = reinterpret_cast<const IMAGE_DOS_HEADER *>(image);
   if (IsBadReadPtr(dos, 64) || dos->e_magic != IMAGE_DOS_SIGNATURE) {
      return;
   }
   auto *nt = reinterpret_cast<const IMAGE_NT_HEADERS64 *>(image + dos->e_lfanew);
   if (IsBadReadPtr(nt, 264) || nt->Signature != IMAGE_NT_SIGNATURE) {
      return;
   }
   size_t headers = offsetof(IMAGE_NT_HEADERS64, OptionalHeader) +
                    nt->FileHeader.SizeOfOptionalHeader;
   if (IsBadReadPtr(nt, headers)) {
      return;
   }
   auto *sections = IMAGE_FIRST_SECTION(nt);
   WORD count = nt->FileHeader.NumberOfSections;
   if (count == 0 || IsBadReadPtr(sections, sizeof(IMAGE_SECTION_HEADER)) ||
       IsBadReadPtr(sections, count * sizeof(IMAGE_SECTION_HEADER))) {
      return;
   }
   for (WORD i = 0; i < count; i++) {
      uint64_t start = sections[i].VirtualAddress;
      uint64_t span = sections[i].Misc.VirtualSize > sections[i].SizeOfRawData
                         ? sections[i].Misc.VirtualSize
                         : sections[i].SizeOfRawData;
      if (offset >= start && offset < start + span) {
         symbol->section = i + 1u;
         symbol->sectionOffset = offset - start;
         return;
      }
   }
}

std::atomic<HashTable *> modulesLoaded{nullptr};

// dbghelp.dll knows only the modules it is told of, since the process isn't searched when
// it starts, and both the names and the unwinding through a frame need its module.
void CoreDumpLoadModuleSymbols(const char *modulePath, uint64_t base)
{
   HashTable *loaded = HashTable_AllocOnce(&modulesLoaded, 16, HASH_INT_KEY | HASH_FLAG_ATOMIC,
                                           nullptr);
   if (!HashTable_Insert(loaded, reinterpret_cast<const void *>(base), nullptr)) {
      return;
   }
   char *folder = SafeStrdup(modulePath);
   UniqueMallocBlock keptFolder(folder);
   if (char *backslash = strrchr(folder, '\\')) {
      *backslash = '\0';
   }
   Win32UWideArg wideFolder(folder);
   Win32UWideArg widePath(modulePath);
   CoreDumpLockHolder held;
   dbgHelp.symSetSearchPath(GetCurrentProcess(), wideFolder.text);
   dbgHelp.symLoadModule(GetCurrentProcess(), nullptr, widePath.text, nullptr, base, 0, nullptr,
                         0);
}

// The module base of the allocation that holds `address`, or 0.
uint64_t CoreDumpAllocationBase(uint64_t address)
{
   MEMORY_BASIC_INFORMATION memory;
   if (VirtualQuery(reinterpret_cast<const void *>(address), &memory, sizeof memory) == 0) {
      return 0;
   }
   return reinterpret_cast<uint64_t>(memory.AllocationBase);
}

void CoreDumpLoadModuleOf(uint64_t address)
{
   uint64_t base = CoreDumpAllocationBase(address);
   const char *path = base != 0 ? CoreDumpModulePath(base) : nullptr;
   if (path != nullptr) {
      CoreDumpLoadModuleSymbols(path, base);
   }
}

PVOID CALLBACK CoreDumpFunctionTableAccess(HANDLE process, DWORD64 address)
{
   CoreDumpLoadModuleOf(address);
   return stackWalk.functionTableAccess(process, address);
}

DWORD64 CALLBACK CoreDumpGetModuleBase(HANDLE process, DWORD64 address)
{
   CoreDumpLoadModuleOf(address);
   return stackWalk.getModuleBase(process, address);
}

void CoreDumpFindName(BacktraceSymbol *symbol)
{
   CoreDumpLockHolder held;
   DWORD64 displacement = 0;
   if (dbgHelp.symFromAddr != nullptr) {
      alignas(SYMBOL_INFOW) BYTE buffer[sizeof(SYMBOL_INFOW) + 512 * sizeof(wchar_t)] = {};
      auto *info = reinterpret_cast<SYMBOL_INFOW *>(buffer);
      info->SizeOfStruct = 88;
      info->MaxNameLen = 512;
      if (dbgHelp.symFromAddr(GetCurrentProcess(), symbol->address, &displacement, info)) {
         symbol->name = Win32U_Utf8Of(info->Name);
         symbol->displacement = symbol->address - info->Address;
      }
   } else {
      alignas(IMAGEHLP_SYMBOL64) BYTE buffer[sizeof(IMAGEHLP_SYMBOL64) + 512] = {};
      auto *info = reinterpret_cast<IMAGEHLP_SYMBOL64 *>(buffer);
      info->SizeOfStruct = 32;
      info->MaxNameLength = 512;
      if (dbgHelp.symGetSymFromAddr(GetCurrentProcess(), symbol->address, &displacement, info)) {
         symbol->name = SafeStrdup(info->Name);
         symbol->displacement = symbol->address - info->Address;
      }
   }
}

void CoreDumpDescribe(uint64_t address, BacktraceSymbol *symbol)
{
   *symbol = {};
   symbol->address = address;
   uint64_t base = CoreDumpAllocationBase(address);
   symbol->modulePath = base != 0 ? CoreDumpModulePath(base) : nullptr;
   if (symbol->modulePath == nullptr) {
      return;
   }
   symbol->moduleBase = base;
   CoreDumpFindSection(base, address - base, symbol);
   if (CoreDumpLoadDbgHelp()) {
      CoreDumpLoadModuleSymbols(symbol->modulePath, base);
      CoreDumpFindName(symbol);
   }
}

char *CoreDumpShortText(const BacktraceSymbol *symbol)
{
   if (symbol->name != nullptr) {
      return SafeStrdup(symbol->name);
   }
   if (symbol->modulePath != nullptr) {
      return Str_SafeAsprintf(nullptr, "<%s>+%#I64x", symbol->modulePath,
                              symbol->address - symbol->moduleBase);
   }
   return SafeStrdup("???");
}

char *CoreDumpLongText(const BacktraceSymbol *symbol)
{
   char *module;
   if (symbol->modulePath == nullptr) {
      module = SafeStrdup("[no module data]");
   } else if (symbol->section != 0) {
      module = Str_SafeAsprintf(nullptr, "[%s base %#0*I64x %#06x:%#0*I64x]", symbol->modulePath,
                                18, symbol->moduleBase, symbol->section, 18,
                                symbol->sectionOffset);
   } else {
      module = Str_SafeAsprintf(nullptr, "[%s base %#0*I64x]", symbol->modulePath, 18,
                                symbol->moduleBase);
   }
   char *rest = CoreDumpShortText(symbol);
   char *text = Str_SafeAsprintf(nullptr, "%s %s", module, rest);
   free(module);
   free(rest);
   return text;
}

BacktraceSymbolCache shortSymbols = {{nullptr}, CoreDumpShortText};
BacktraceSymbolCache longSymbols = {{nullptr}, CoreDumpLongText};
BacktraceSymbolCache defaultSymbols = {{nullptr}, CoreDumpLongText};

void CoreDumpOutput(BacktraceOutputFunc output, void *context, const char *format, ...)
{
   va_list args;
   va_start(args, format);
   output(context, format, args);
   va_end(args);
}

} // namespace

CoreDumpPlatform coreDumpPlatform = {
   CoreDumpLoadLibrary, GetProcAddress, VirtualAlloc, CoreDumpCommitSetting,
   CoreDumpReservedKBSetting,
};

BacktraceSymbolCache *CoreDump_ShortSymbols() { return &shortSymbols; }
BacktraceSymbolCache *CoreDump_LongSymbols() { return &longSymbols; }

const char *CoreDump_SymbolText(BacktraceSymbolCache *cache, uint64_t address)
{
   HashTable *table = HashTable_AllocOnce(&cache->table, 2048, HASH_INT_KEY | HASH_FLAG_ATOMIC,
                                          nullptr);
   const void *key = reinterpret_cast<const void *>(address);
   void *text = nullptr;
   if (HashTable_Lookup(table, key, &text)) {
      return static_cast<const char *>(text);
   }
   BacktraceSymbol symbol;
   CoreDumpDescribe(address, &symbol);
   char *made = cache->format(&symbol);
   free(symbol.name);
   // A lost race keeps the entry that was there first.
   text = HashTable_LookupOrInsert(table, key, made);
   if (text != made) {
      free(made);
   }
   return static_cast<const char *>(text);
}

void CoreDump_SetMaxDumpCount(uint32_t count) { coreDump.maxDumpCount = count; }
const char *CoreDump_GetDumpPath() { return coreDump.dumpPath; }

void CoreDump_Init(const char *folder)
{
   if (coreDump.initialised.load(std::memory_order_acquire)) {
      return;
   }
   CoreDumpLockHolder held;
   if (coreDump.initialised.load(std::memory_order_relaxed)) {
      return;
   }
   CoreDumpReserve();
   char *directory = folder != nullptr ? SafeStrdup(folder) : FileGetSafeTmpDir(true, false);
   if (directory == nullptr) {
      Log("CoreDump: unable to determine app data path\n");
   } else {
      char *name = CoreDumpProcessName();
      coreDump.dumpPath = Str_SafeAsprintf(nullptr, "%s\\%s.dmp", directory, name);
      free(name);
      free(directory);
   }
   coreDump.initialised.store(true, std::memory_order_release);
}

bool CoreDump_WriteMiniDump(EXCEPTION_RECORD *record, CONTEXT *context)
{
   if (coreDump.maxDumpCount == 0) {
      Warning("CoreDump: Dump creation is disabled as max dump count is set to 0.\n");
      return false;
   }
   if (!CoreDumpLoadDbgHelp()) {
      return false;
   }
   CoreDump_Init(nullptr);
   auto writeDump = CoreDumpEntry<MiniDumpWriteDumpFn>(dbgHelp.module, "MiniDumpWriteDump");
   if (writeDump == nullptr) {
      Log("CoreDump: dbghelp.dll missing minidump support: %s\n", ErrText_Last());
      return false;
   }
   const char *path = coreDump.dumpPath;
   if (path == nullptr) {
      return false;  // the initialisation has said why
   }
   Win32UWideArg widePath(path);
   UniqueHandle file(CreateFileW(widePath.text, GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                 FILE_ATTRIBUTE_NORMAL, nullptr));
   if (file.get() == INVALID_HANDLE_VALUE) {
      file.release();
      DWORD error = GetLastError();
      if (error != ERROR_FILE_EXISTS) {
         Warning("CoreDump: Cannot open minidump file %s: %s.\n", path, ErrText_Of(error));
         return false;
      }
      Log("CoreDump: Minidump file %s exists. Rotating ...\n", path);
      Log("CoreDump: Current max dump count is %u.\n", coreDump.maxDumpCount);
      FileRotateByRename(path, coreDump.maxDumpCount - 1, false, nullptr);
      file.reset(CreateFileW(widePath.text, GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                             FILE_ATTRIBUTE_NORMAL, nullptr));
      if (file.get() == INVALID_HANDLE_VALUE) {
         file.release();
         Warning("CoreDump: Cannot rotate/open minidump file %s: %s.\n", path, ErrText_Last());
         return false;
      }
   }
   MINIDUMP_CALLBACK_INFORMATION callback = {CoreDumpCallback, nullptr};
   EXCEPTION_POINTERS pointers = {record, context};
   MINIDUMP_EXCEPTION_INFORMATION exception = {GetCurrentThreadId(), &pointers, FALSE};
   int32_t type = Panic_GetCoreDumpFlags();
   if (type == 0) {
      type = MiniDumpWithDataSegs | MiniDumpWithHandleData;
   }
   Warning("CoreDump: Writing minidump to %s\n", path);
   BOOL written;
   {
      CoreDumpLockHolder held;
      written = writeDump(GetCurrentProcess(), GetCurrentProcessId(), file.get(),
                          static_cast<MINIDUMP_TYPE>(type),
                          record != nullptr ? &exception : nullptr, nullptr, &callback);
   }
   if (!written) {
      Warning("Minidump failed: %s\n", ErrText_Last());
   }
   Win32UErrorKeeper kept;
   file.reset();
   kept.Restore();
   return written != FALSE;
}

void CoreDump_CoreDump()
{
   Log("%s: faking exception to get context\n", "CoreDump_CoreDump");
   CoreDumpCapture capture = {};
   capture.thread = GetCurrentThreadId();
   coreDumpCapture = &capture;
   PVOID handler = AddVectoredExceptionHandler(1, CoreDumpFilter);
   RaiseException(0xcafebabe, 0, 0, nullptr);
   if (handler != nullptr) {
      RemoveVectoredExceptionHandler(handler);
   }
   coreDumpCapture = nullptr;
   if (!capture.captured) {
      RtlCaptureContext(&capture.context);
   }
   // Given back now, so that the dump writer has room to load what it needs.
   if (coreDump.reservedAddress != nullptr) {
      VirtualFree(coreDump.reservedAddress, 0, MEM_RELEASE);
      coreDump.reservedAddress = nullptr;
      coreDump.reservedSize = 0;
   }
   CoreDump_WriteMiniDump(capture.captured ? &capture.record : nullptr, &capture.context);
}

void CoreDump_Backtrace(const BacktraceOptions *options, BacktraceOutputFunc output,
                        void *context)
{
   BacktraceOptions settings = options != nullptr ? *options : BacktraceOptions{};
   uint32_t skip = settings.skipFrames + 1;  // this function
   const char *prefix = settings.prefix != nullptr ? settings.prefix : "";
   const char *suffix = settings.suffix != nullptr ? settings.suffix : "\n";
   BacktraceSymbolCache *cache =
      settings.symbolCache != nullptr ? settings.symbolCache : &defaultSymbols;
   if (settings.bugNumber != 0) {
      CoreDumpOutput(output, context, "%sBacktrace for bugNr=%d%s", prefix, settings.bugNumber,
                     suffix);
   } else {
      CoreDumpOutput(output, context, "%sBacktrace:%s", prefix, suffix);
   }
   if (!CoreDumpLoadStackWalk()) {
      Warning("CoreDump: Failed to resolve dbghelp.dll symbols. No backtrace.----\n");
      return;
   }
   CONTEXT registers;
   RtlCaptureContext(&registers);
   STACKFRAME64 frame = {};
   frame.AddrPC.Offset = registers.Rip;
   frame.AddrPC.Mode = AddrModeFlat;
   frame.AddrFrame.Offset = registers.Rbp;
   frame.AddrFrame.Mode = AddrModeFlat;
   frame.AddrStack.Offset = registers.Rsp;
   frame.AddrStack.Mode = AddrModeFlat;
   uint64_t lowest = settings.lowestFrameAddress != 0
                        ? settings.lowestFrameAddress
                        : reinterpret_cast<uint64_t>(&registers);
   uint32_t reported = 0;
   for (uint32_t index = 0; index < 100; index++) {
      BOOL walked;
      {
         CoreDumpLockHolder held;
         walked = stackWalk.stackWalk(IMAGE_FILE_MACHINE_AMD64, GetCurrentProcess(),
                                      GetCurrentThread(), &frame, &registers, nullptr,
                                      CoreDumpFunctionTableAccess, CoreDumpGetModuleBase,
                                      nullptr);
      }
      if (!walked || frame.AddrFrame.Offset == 0 || frame.AddrPC.Offset == 0) {
         break;
      }
      const char *text = CoreDump_SymbolText(cache, frame.AddrPC.Offset);
      if (index < skip || frame.AddrFrame.Offset < lowest) {
         continue;
      }
      CoreDumpOutput(output, context,
                     "%sbacktrace[%02d] frame %#010I64x IP %#010I64x params %#I64x %#I64x %#I64x "
                     "%#I64x %s%s",
                     prefix, reported, frame.AddrFrame.Offset, frame.AddrPC.Offset,
                     frame.Params[0], frame.Params[1], frame.Params[2], frame.Params[3], text,
                     suffix);
      reported++;
      if (settings.maxFrames != 0 && reported >= settings.maxFrames) {
         break;
      }
   }
}
