#pragma once
// The few operating-system services that the portable modules of the support library need,
// under one set of names. On Windows each is the system call the modules were written
// against; elsewhere the host's nearest equivalent stands in, so that the same module code
// builds and is tested in both presets.

#include <cstdint>

#if defined(_WIN32)
#include <windows.h>
typedef CRITICAL_SECTION PlatformMutex;
#else
#include <pthread.h>
typedef pthread_mutex_t PlatformMutex;
#endif

// InitializeCriticalSectionAndSpinCount: false with the reason in the last error.
bool Platform_MutexInit(PlatformMutex *mutex, uint32_t spinCount);
void Platform_MutexLock(PlatformMutex *mutex);
void Platform_MutexUnlock(PlatformMutex *mutex);
void Platform_MutexDestroy(PlatformMutex *mutex);

uint32_t Platform_ThreadId();
uint32_t Platform_ProcessId();
uint32_t Platform_TickCount();
void Platform_Sleep(uint32_t milliseconds);

// The thread's last error: GetLastError on Windows, errno elsewhere.
uint32_t Platform_GetLastError();
void Platform_SetLastError(uint32_t error);

void Platform_DebugOutput(const char *text);  // OutputDebugStringA; nothing elsewhere
void Platform_WriteStderr(const char *text);
[[noreturn]] void Platform_TerminateProcess(int exitCode);

// GetGuiResources of the current process (GDI, USER); false where there is no user32.
bool Platform_GuiResources(uint32_t *gdiObjects, uint32_t *userObjects);

// The process's ANSI code page: GetACP on Windows; UTF-8 (65001) elsewhere, which is what
// a host's narrow text is.
uint32_t Platform_AnsiCodePage();
