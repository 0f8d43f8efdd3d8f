#pragma once
// The single exit for what the support library does not survive, and the allocator that
// does not fail. Panic reports on every channel left and ends the process; it never
// returns.

#include <cstddef>
#include <cstdint>

[[noreturn]] void Panic(const char *format, ...);
[[noreturn]] void TerminateCurrentProcess(int exitCode);
void PanicBacktrace(uint32_t bugNumber);
void LogGuiResources();

bool Panic_GetPostPanicMessage();
bool Panic_GetCoreDumpOnPanic();
bool Panic_GetLoopOnPanic();
int32_t Panic_GetCoreDumpFlags();

// Each returns what the C library's allocator gives, and panics where that is null.
void *SafeMalloc(size_t size);
void *SafeRealloc(void *pointer, size_t size);
void *SafeCalloc(size_t count, size_t size);
char *SafeStrdup(const char *text);
char *SafeStrndup(const char *text, size_t limit);

// The platform calls Panic makes. Tests replace entries to watch the channels, to make a
// panic happen while the process is ending, or to take GetGuiResources away; nothing else
// changes them.
struct PanicPlatform {
   void (*writeStderr)(const char *text);
   void (*debugOutput)(const char *text);
   void (*terminate)(int exitCode);  // must not return for the real process
   void (*sleep)(uint32_t milliseconds);
   bool (*guiResources)(uint32_t *gdiObjects, uint32_t *userObjects);  // false without them
};
extern PanicPlatform panicPlatform;
