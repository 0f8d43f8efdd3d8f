#pragma once
// UTF-8 faces of the registry calls the support library makes.

#include <windows.h>

LONG Win32U_RegOpenKeyEx(HKEY key, const char *subKey, DWORD options, REGSAM access,
                         HKEY *result);
// String data (REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ) comes back as UTF-8 and `size` counts
// its bytes with the terminator; too small a buffer gives ERROR_MORE_DATA with the size
// needed. Other data comes back as the platform gives it.
LONG Win32U_RegQueryValueEx(HKEY key, const char *name, DWORD *type, BYTE *data, DWORD *size);
