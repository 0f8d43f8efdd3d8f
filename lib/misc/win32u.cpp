#include "misc/win32u.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "misc/codeset.h"
#include "misc/log.h"
#include "misc/panic.h"
#include "misc/platform.h"
#include "string/str.h"
#include "unicode/unicode.h"

void Win32U_OutputDebugString(const char *text)
{
   if (CodeSet_Validate(text, strlen(text), "US-ASCII")) {
      Platform_DebugOutput(text);
      return;
   }
   char *escaped = UnicodeEscapeBytes(text, strlen(text));
   if (escaped == nullptr) {
      Platform_DebugOutput(text);
      return;
   }
   char *line = Str_Asprintf(nullptr, "%s: String with invalid encoding: %s",
                             "Win32U_OutputDebugString", escaped);
   Platform_DebugOutput(line != nullptr ? line : escaped);
   free(line);
   free(escaped);
}

#if defined(_WIN32)

#include <shlobj.h>

Win32UWideArg::Win32UWideArg(const char *utf8)
{
   if (utf8 != nullptr) {
      char *wide = nullptr;
      if (!CodeSet_Utf8ToUtf16le(utf8, strlen(utf8), &wide, nullptr)) {
         Panic("%s: invalid UTF8 string @ %p\n", "Win32U", static_cast<const void *>(utf8));
      }
      text = reinterpret_cast<wchar_t *>(wide);
   }
}

Win32UWideArg::~Win32UWideArg() { free(text); }

char *Win32U_Utf8Of(const wchar_t *wide)
{
   return Unicode_AllocWithLength(wide, -1, STRING_ENCODING_UTF16_LE);
}

namespace {

// The bounded copy of a UTF-8 result into a caller's buffer: a result that doesn't fit is
// a programming error.
void CopyOut(char *buffer, size_t size, const char *text, int line)
{
   if (strlen(text) >= size) {
      Panic("VERIFY %s:%d\n", "lib/misc/win32u", line);
   }
   memcpy(buffer, text, strlen(text) + 1);
}

} // namespace

BOOL Win32U_CreateDirectory(const char *path, LPSECURITY_ATTRIBUTES security)
{
   BOOL result;
   Win32UErrorKeeper kept;
   {
      Win32UWideArg widePath(path);
      result = CreateDirectoryW(widePath.text, security);
      kept = Win32UErrorKeeper();
   }
   kept.Restore();
   return result;
}

DWORD Win32U_GetFileAttributes(const char *path)
{
   WIN32_FILE_ATTRIBUTE_DATA data;
   BOOL ok;
   Win32UErrorKeeper kept;
   {
      Win32UWideArg widePath(path);
      ok = GetFileAttributesExW(widePath.text, GetFileExInfoStandard, &data);
      kept = Win32UErrorKeeper();
   }
   if (!ok) {
      Log("%s: GetFileAttributesExW(\"%s\", ...) failed, error: %u\n",
          "Win32U_GetFileAttributes", path, kept.error);
      kept.Restore();
      return INVALID_FILE_ATTRIBUTES;
   }
   kept.Restore();
   return data.dwFileAttributes;
}

char *Win32U_GetModuleFileName(HMODULE module)
{
   DWORD size = 260;
   wchar_t *name = nullptr;
   char *result = nullptr;
   Win32UErrorKeeper kept;
   for (;;) {
      name = static_cast<wchar_t *>(SafeRealloc(name, size * sizeof(wchar_t)));
      DWORD got = GetModuleFileNameW(module, name, size);
      kept = Win32UErrorKeeper();
      if (got == 0) {
         break;
      }
      if (got < size) {
         result = Win32U_Utf8Of(name);
         break;
      }
      size *= 2;  // exactly full: the name may have been cut
   }
   free(name);
   kept.Restore();
   return result;
}

HMODULE Win32U_GetModuleHandle(const char *moduleName)
{
   HMODULE module;
   Win32UErrorKeeper kept;
   {
      Win32UWideArg wideName(moduleName);
      module = GetModuleHandleW(wideName.text);
      kept = Win32UErrorKeeper();
   }
   kept.Restore();
   return module;
}

HANDLE Win32U_FindFirstFileEx(const char *path, WIN32_FIND_DATAW *findData)
{
   HANDLE search;
   Win32UErrorKeeper kept;
   {
      Win32UWideArg widePath(path);
      search = FindFirstFileExW(widePath.text, FindExInfoStandard, findData,
                                FindExSearchNameMatch, nullptr, 0);
      kept = Win32UErrorKeeper();
   }
   kept.Restore();
   return search;
}

DWORD Win32U_GetTempPath(DWORD size, char *buffer)
{
   DWORD room = 260;
   wchar_t *path = nullptr;
   DWORD got;
   for (;;) {
      path = static_cast<wchar_t *>(SafeRealloc(path, room * sizeof(wchar_t)));
      got = GetTempPathW(room, path);
      if (got == 0 || got < room) {
         break;
      }
      room = got;
   }
   if (got == 0) {
      free(path);
      return 0;
   }
   char *text = Win32U_Utf8Of(path);
   free(path);
   DWORD length = static_cast<DWORD>(strlen(text));
   if (buffer != nullptr && size != 0) {
      CopyOut(buffer, size, text, 1598);
   } else {
      length++;  // what a buffer needs, terminator included
   }
   free(text);
   return length;
}

BOOL Win32U_GetUserName(char *buffer, DWORD *size)
{
   DWORD room = 257;
   wchar_t *name = nullptr;
   for (;;) {
      name = static_cast<wchar_t *>(SafeRealloc(name, room * sizeof(wchar_t)));
      DWORD asked = room;
      if (GetUserNameW(name, &asked)) {
         break;
      }
      if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
         free(name);
         return FALSE;
      }
      room = asked;
   }
   char *text = Win32U_Utf8Of(name);
   free(name);
   DWORD length = static_cast<DWORD>(strlen(text));
   BOOL result = FALSE;
   if (buffer != nullptr && *size != 0) {
      CopyOut(buffer, *size, text, 1981);
      result = TRUE;
   }
   *size = length + 1;
   free(text);
   if (!result) {
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
   }
   return result;
}

int Win32U_MessageBox(HWND owner, const char *text, const char *caption, UINT style)
{
   int result;
   Win32UErrorKeeper kept;
   {
      Win32UWideArg wideText(text);
      Win32UWideArg wideCaption(caption);
      result = MessageBoxW(owner, wideText.text, wideCaption.text, style);
      kept = Win32UErrorKeeper();
   }
   kept.Restore();
   return result;
}

HRESULT Win32U_SHGetFolderPath(HWND owner, int folder, HANDLE token, DWORD flags, char **path)
{
   *path = nullptr;
   wchar_t buffer[MAX_PATH];
   HRESULT result = SHGetFolderPathW(owner, folder, token, flags, buffer);
   Win32UErrorKeeper kept;
   if (result >= 0) {
      *path = Win32U_Utf8Of(buffer);
   }
   kept.Restore();
   return result;
}

#endif
