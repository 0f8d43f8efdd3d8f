#include <windows.h>

#include <cerrno>
#include <cstdlib>

#include "misc/panic.h"
#include "misc/win32u.h"
#include "unicode/unicode.h"

char *Win32U_FormatMessage(DWORD flags, const void *source, DWORD messageId, DWORD language,
                           va_list *arguments)
{
   constexpr DWORD kSize = 0x10000;
   auto *buffer = static_cast<wchar_t *>(SafeMalloc(kSize));
   if ((flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0) {
      Panic("VERIFY %s:%d\n", "lib/misc/windowsu", 934);
   }
   if ((flags & FORMAT_MESSAGE_FROM_STRING) != 0) {
      Panic("VERIFY %s:%d\n", "lib/misc/windowsu", 935);
   }
   if (arguments != nullptr) {
      Panic("VERIFY %s:%d\n", "lib/misc/windowsu", 936);
   }
   if (language != 0 && language != 1024 && language != 1033) {
      Panic("VERIFY %s:%d\n", "lib/misc/windowsu", 938);
   }
   // The size is counted in characters against a buffer counted in bytes; it has always
   // been passed so, and messages never come near it.
   DWORD length = FormatMessageW(flags, source, messageId, language, buffer, kSize, nullptr);
   DWORD error = GetLastError();
   int savedErrno = errno;
   char *text = length == 0 ? nullptr
                            : Unicode_AllocWithLength(buffer, -1, STRING_ENCODING_UTF16_LE);
   free(buffer);
   errno = savedErrno;
   SetLastError(error);
   return text;
}
