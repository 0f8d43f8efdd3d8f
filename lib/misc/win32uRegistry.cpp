#include "misc/win32uRegistry.h"

#include <cstdlib>
#include <cstring>

#include "misc/panic.h"
#include "misc/uniqueResource.h"
#include "misc/win32u.h"
#include "misc/codeset.h"

LONG Win32U_RegOpenKeyEx(HKEY key, const char *subKey, DWORD options, REGSAM access,
                         HKEY *result)
{
   Win32UWideArg wideKey(subKey);
   return RegOpenKeyExW(key, wideKey.text, options, access, result);
}

LONG Win32U_RegQueryValueEx(HKEY key, const char *name, DWORD *type, BYTE *data, DWORD *size)
{
   Win32UWideArg wideName(name);
   DWORD valueType = REG_NONE;
   DWORD wideSize = 0;
   LONG status = RegQueryValueExW(key, wideName.text, nullptr, &valueType, nullptr, &wideSize);
   if (type != nullptr) {
      *type = valueType;
   }
   if (status != ERROR_SUCCESS) {
      return status;
   }
   if (valueType != REG_SZ && valueType != REG_EXPAND_SZ && valueType != REG_MULTI_SZ) {
      return RegQueryValueExW(key, wideName.text, nullptr, nullptr, data, size);
   }
   // Room for a terminator the stored value may lack.
   UniqueMallocBlock wide(SafeCalloc(wideSize + 2 * sizeof(wchar_t), 1));
   status = RegQueryValueExW(key, wideName.text, nullptr, nullptr,
                             static_cast<BYTE *>(wide.get()), &wideSize);
   if (status != ERROR_SUCCESS) {
      return status;
   }
   // The UTF-16 units, terminators included, as UTF-8.
   size_t units = wideSize / sizeof(wchar_t);
   const wchar_t *text = static_cast<const wchar_t *>(wide.get());
   if (units == 0 || text[units - 1] != L'\0') {
      units++;
   }
   char *utf8 = nullptr;
   size_t utf8Size = 0;
   if (!CodeSet_Utf16leToUtf8(static_cast<const char *>(wide.get()), units * sizeof(wchar_t),
                              &utf8, &utf8Size)) {
      return ERROR_INVALID_DATA;
   }
   UniqueMallocBlock kept(utf8);
   DWORD room = *size;
   *size = static_cast<DWORD>(utf8Size);
   if (data == nullptr) {
      return ERROR_SUCCESS;
   }
   if (utf8Size > room) {
      return ERROR_MORE_DATA;
   }
   memcpy(data, utf8, utf8Size);
   return ERROR_SUCCESS;
}
