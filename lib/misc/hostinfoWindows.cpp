#include "misc/hostinfo.h"

#include <windows.h>

#include "misc/uniqueResource.h"
#include "misc/win32uRegistry.h"

namespace {

bool HostinfoIsServer()
{
   OSVERSIONINFOEXW info = {};
   info.dwOSVersionInfoSize = sizeof info;
   info.wProductType = VER_NT_WORKSTATION;
   DWORDLONG condition = VerSetConditionMask(0, VER_PRODUCT_TYPE, VER_EQUAL);
   return !VerifyVersionInfoW(&info, VER_PRODUCT_TYPE, condition);
}

uint32_t HostinfoWordSize()
{
   SYSTEM_INFO info;
   GetNativeSystemInfo(&info);
   switch (info.wProcessorArchitecture) {
   case PROCESSOR_ARCHITECTURE_AMD64:
      return 64;
   case PROCESSOR_ARCHITECTURE_INTEL:
      return 32;
   default:
      return sizeof(void *) * 8;
   }
}

const char kCurrentVersionKey[] = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

uint32_t HostinfoBuild()
{
   UniqueHkey key;
   if (Win32U_RegOpenKeyEx(HKEY_LOCAL_MACHINE, kCurrentVersionKey, 0, KEY_READ, key.put()) !=
       ERROR_SUCCESS) {
      return 0;
   }
   char build[16 * 3];  // 16 characters, each at most three bytes of UTF-8
   DWORD size = sizeof build;
   DWORD type = REG_NONE;
   if (Win32U_RegQueryValueEx(key.get(), "CurrentBuild", &type, reinterpret_cast<BYTE *>(build),
                              &size) != ERROR_SUCCESS ||
       type != REG_SZ) {
      return 0;
   }
   return static_cast<uint32_t>(strtoul(build, nullptr, 10));
}

uint32_t HostinfoRevision()
{
   UniqueHkey key;
   if (Win32U_RegOpenKeyEx(HKEY_LOCAL_MACHINE, kCurrentVersionKey, 0, KEY_READ, key.put()) !=
       ERROR_SUCCESS) {
      return 0;
   }
   DWORD revision = 0;
   DWORD size = sizeof revision;
   DWORD type = REG_NONE;
   if (Win32U_RegQueryValueEx(key.get(), "UBR", &type, reinterpret_cast<BYTE *>(&revision),
                              &size) != ERROR_SUCCESS ||
       type != REG_DWORD) {
      return 0;
   }
   return revision;
}

uint32_t HostinfoProductType(const HostOsVersion *version)
{
   DWORD type = 0;
   if (!GetProductInfo(version->major, version->minor, 0, 0, &type)) {
      return 0;
   }
   return type;
}

bool HostinfoHasServicePack1()
{
   OSVERSIONINFOEXW info = {};
   info.dwOSVersionInfoSize = sizeof info;
   info.dwMajorVersion = 6;
   info.dwMinorVersion = 1;
   info.wServicePackMajor = 1;
   DWORDLONG condition = VerSetConditionMask(0, VER_MAJORVERSION, VER_GREATER_EQUAL);
   condition = VerSetConditionMask(condition, VER_MINORVERSION, VER_GREATER_EQUAL);
   condition = VerSetConditionMask(condition, VER_SERVICEPACKMAJOR, VER_GREATER_EQUAL);
   return VerifyVersionInfoW(&info, VER_MAJORVERSION | VER_MINORVERSION | VER_SERVICEPACKMAJOR,
                             condition);
}

uint64_t HostinfoCounterFrequency()
{
   LARGE_INTEGER frequency;
   return QueryPerformanceFrequency(&frequency) ? static_cast<uint64_t>(frequency.QuadPart) : 0;
}

uint64_t HostinfoCounter()
{
   LARGE_INTEGER count;
   QueryPerformanceCounter(&count);
   return static_cast<uint64_t>(count.QuadPart);
}

void HostinfoSleep(uint32_t milliseconds) { Sleep(milliseconds); }

} // namespace

HostinfoPlatform hostinfoPlatform = {
   HostinfoIsServer,         HostinfoWordSize,         HostinfoBuild,
   HostinfoRevision,         HostinfoProductType,      HostinfoHasServicePack1,
   HostinfoCounterFrequency, HostinfoCounter,          HostinfoSleep,
};
