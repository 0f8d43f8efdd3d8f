#pragma once
// Minidumps and stack backtraces of a failing process. Everything here runs while the
// process is already failing: each step that finds something missing says so in the log
// and the next one follows.

#include <cstdarg>
#include <cstdint>

struct BacktraceSymbolCache;

struct BacktraceOptions {
   uint32_t maxFrames;          // 0: no limit
   uint32_t skipFrames;
   uint64_t lowestFrameAddress;  // 0: the present stack position
   uint32_t bugNumber;          // 0: none
   const char *prefix;          // null: empty
   const char *suffix;          // null: a single line feed
   BacktraceSymbolCache *symbolCache;  // null: the default
};

typedef void (*BacktraceOutputFunc)(void *context, const char *format, va_list args);

void CoreDump_CoreDump();
void CoreDump_Backtrace(const BacktraceOptions *options, BacktraceOutputFunc output,
                        void *context);

#if defined(_WIN32)
#include <windows.h>

// Writes one dump of the given state (both may be null); true when the file was written.
bool CoreDump_WriteMiniDump(EXCEPTION_RECORD *record, CONTEXT *context);
// Reads the settings, sets the address space aside and makes the dump path in `folder`, or
// in the safe temporary directory when that is null. Only the first call does anything.
void CoreDump_Init(const char *folder);
const char *CoreDump_GetDumpPath();  // null until a path could be made
void CoreDump_SetMaxDumpCount(uint32_t count);  // 0 turns dumps off; 5 unless set

// The symbol caches: "name", or "<module>+offset", or "???"; and the long form that puts
// the module, its base and the section before that.
BacktraceSymbolCache *CoreDump_ShortSymbols();
BacktraceSymbolCache *CoreDump_LongSymbols();
const char *CoreDump_SymbolText(BacktraceSymbolCache *cache, uint64_t address);

// The platform calls and settings the module starts from. Tests replace entries to take
// dbghelp.dll or its entry points away, or to watch the reservation; nothing else changes
// them.
struct CoreDumpPlatform {
   HMODULE (*loadLibrary)(const wchar_t *name);
   FARPROC (*getProcAddress)(HMODULE module, const char *name);
   void *(*virtualAlloc)(void *address, SIZE_T size, DWORD type, DWORD protect);
   bool (*commitSetting)();
   int32_t (*reservedKBSetting)();
};
extern CoreDumpPlatform coreDumpPlatform;
#endif
