#pragma once
// Minidumps and stack backtraces of a failing process.

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
