#include "misc/platform.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#if defined(_WIN32)

bool Platform_MutexInit(PlatformMutex *mutex, uint32_t spinCount)
{
   return InitializeCriticalSectionAndSpinCount(mutex, spinCount) != FALSE;
}

void Platform_MutexLock(PlatformMutex *mutex) { EnterCriticalSection(mutex); }
void Platform_MutexUnlock(PlatformMutex *mutex) { LeaveCriticalSection(mutex); }
void Platform_MutexDestroy(PlatformMutex *mutex) { DeleteCriticalSection(mutex); }
uint32_t Platform_ThreadId() { return GetCurrentThreadId(); }
uint32_t Platform_ProcessId() { return GetCurrentProcessId(); }
uint32_t Platform_TickCount() { return GetTickCount(); }
void Platform_Sleep(uint32_t milliseconds) { Sleep(milliseconds); }
uint32_t Platform_GetLastError() { return GetLastError(); }
void Platform_SetLastError(uint32_t error) { SetLastError(error); }
void Platform_DebugOutput(const char *text) { OutputDebugStringA(text); }
uint32_t Platform_AnsiCodePage() { return GetACP(); }

[[noreturn]] void Platform_TerminateProcess(int exitCode)
{
   TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exitCode));
   // TerminateProcess on the own process does not return; the compiler cannot know that.
   std::abort();
}

bool Platform_GuiResources(uint32_t *gdiObjects, uint32_t *userObjects)
{
   HMODULE user32 = GetModuleHandleW(L"user32.dll");
   if (user32 == nullptr) {
      return false;
   }
   auto getGuiResources = reinterpret_cast<DWORD(WINAPI *)(HANDLE, DWORD)>(
      reinterpret_cast<void *>(GetProcAddress(user32, "GetGuiResources")));
   if (getGuiResources == nullptr) {
      return false;
   }
   *gdiObjects = getGuiResources(GetCurrentProcess(), 0);
   *userObjects = getGuiResources(GetCurrentProcess(), 1);
   return true;
}

#else

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

bool Platform_MutexInit(PlatformMutex *mutex, uint32_t)
{
   int error = pthread_mutex_init(mutex, nullptr);
   if (error != 0) {
      errno = error;
   }
   return error == 0;
}

void Platform_MutexLock(PlatformMutex *mutex) { pthread_mutex_lock(mutex); }
void Platform_MutexUnlock(PlatformMutex *mutex) { pthread_mutex_unlock(mutex); }
void Platform_MutexDestroy(PlatformMutex *mutex) { pthread_mutex_destroy(mutex); }
uint32_t Platform_ThreadId() { return static_cast<uint32_t>(syscall(SYS_gettid)); }
uint32_t Platform_ProcessId() { return static_cast<uint32_t>(getpid()); }
uint32_t Platform_GetLastError() { return static_cast<uint32_t>(errno); }
void Platform_SetLastError(uint32_t error) { errno = static_cast<int>(error); }
void Platform_DebugOutput(const char *) {}
uint32_t Platform_AnsiCodePage() { return 65001; }
bool Platform_GuiResources(uint32_t *, uint32_t *) { return false; }

uint32_t Platform_TickCount()
{
   timespec now;
   clock_gettime(CLOCK_MONOTONIC, &now);
   return static_cast<uint32_t>(now.tv_sec * 1000 + now.tv_nsec / 1000000);
}

void Platform_Sleep(uint32_t milliseconds)
{
   usleep(static_cast<useconds_t>(milliseconds) * 1000);
}

[[noreturn]] void Platform_TerminateProcess(int exitCode)
{
   _exit(exitCode);
}

#endif

void Platform_WriteStderr(const char *text)
{
   fputs(text, stderr);
   fflush(stderr);
}
