#pragma once
// UTF-8 faces of the wide platform calls. Each converts its text arguments, calls the wide
// function and hands back UTF-8 text that the caller frees. All but the two that copy into
// a caller's buffer keep the last error and errno as the platform call left them.

#include <cstddef>
#include <cstdint>

void Win32U_OutputDebugString(const char *text);

#if defined(_WIN32)
#include <windows.h>

#include <cerrno>

// A wide copy of a UTF-8 argument for the length of a scope; null stays null. The
// conversion of valid text does not fail, and invalid text is a panic.
struct Win32UWideArg {
   wchar_t *text = nullptr;
   explicit Win32UWideArg(const char *utf8);
   ~Win32UWideArg();
   Win32UWideArg(const Win32UWideArg &) = delete;
   Win32UWideArg &operator=(const Win32UWideArg &) = delete;
};

// Keeps the last error and errno of a platform call across the frees that follow it.
struct Win32UErrorKeeper {
   DWORD error = GetLastError();
   int savedErrno = errno;
   void Restore() const
   {
      errno = savedErrno;
      SetLastError(error);
   }
};

// A new UTF-8 copy of a wide text, or null for null.
char *Win32U_Utf8Of(const wchar_t *wide);

BOOL Win32U_CreateDirectory(const char *path, LPSECURITY_ATTRIBUTES security);
char *Win32U_FormatMessage(DWORD flags, const void *source, DWORD messageId,
                           DWORD language, va_list *arguments);
DWORD Win32U_GetFileAttributes(const char *path);
char *Win32U_GetModuleFileName(HMODULE module);
HMODULE Win32U_GetModuleHandle(const char *moduleName);
HANDLE Win32U_FindFirstFileEx(const char *path, WIN32_FIND_DATAW *findData);
DWORD Win32U_GetTempPath(DWORD size, char *buffer);
BOOL Win32U_GetUserName(char *buffer, DWORD *size);
int Win32U_MessageBox(HWND owner, const char *text, const char *caption, UINT style);
HRESULT Win32U_SHGetFolderPath(HWND owner, int folder, HANDLE token, DWORD flags,
                               char **path);
#endif
