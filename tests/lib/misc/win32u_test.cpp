// The wrappers keep the platform's last error and errno, and answer in UTF-8.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "misc/win32u.h"
#include "misc/win32uRegistry.h"

namespace {

TEST(Win32U, KeepTheLastErrorAndAnswerInUtf8)
{
   errno = 0;
   EXPECT_FALSE(Win32U_CreateDirectory("C:\\no\\such\\parent\\d\xC3\xA9", nullptr));
   EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
   EXPECT_EQ(Win32U_GetFileAttributes("C:\\no-such-file-\xC3\xA9"), INVALID_FILE_ATTRIBUTES);
   EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));

   DWORD size = 0;
   EXPECT_FALSE(Win32U_GetUserName(nullptr, &size));
   EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
   ASSERT_GT(size, 1u);
   std::string name(size, '\0');
   EXPECT_TRUE(Win32U_GetUserName(name.data(), &size));
   EXPECT_EQ(strlen(name.c_str()) + 1, size);

   DWORD needed = Win32U_GetTempPath(0, nullptr);
   std::string temp(needed, '\0');
   EXPECT_EQ(Win32U_GetTempPath(needed, temp.data()), needed - 1);
   EXPECT_EQ(temp[needed - 2], '\\');

   char *module = Win32U_GetModuleFileName(nullptr);
   ASSERT_NE(module, nullptr);
   EXPECT_NE(strstr(module, "win32u_test"), nullptr);
   free(module);
   EXPECT_EQ(Win32U_GetModuleHandle("kernel32.dll"), GetModuleHandleW(L"kernel32.dll"));

   char *text = Win32U_FormatMessage(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                     nullptr, ERROR_FILE_NOT_FOUND, 0, nullptr);
   ASSERT_NE(text, nullptr);
   EXPECT_GT(strlen(text), 0u);
   free(text);
}

TEST(Win32U, RegistryValuesInUtf8)
{
   HKEY key = nullptr;
   RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\vtr-win32u-test", 0, nullptr, 0, KEY_ALL_ACCESS,
                   nullptr, &key, nullptr);
   RegCloseKey(key);
   ASSERT_EQ(Win32U_RegOpenKeyEx(HKEY_CURRENT_USER, "Software\\vtr-win32u-test", 0,
                                 KEY_ALL_ACCESS, &key), ERROR_SUCCESS);
   RegSetValueExW(key, L"sz", 0, REG_SZ, reinterpret_cast<const BYTE *>(L"d\u00e9"), 6);
   RegSetValueExW(key, L"multi", 0, REG_MULTI_SZ, reinterpret_cast<const BYTE *>(L"a\0\u00e9\0"), 10);
   const struct {
      const char *name;
      DWORD room;
      LONG status;
      DWORD type, size;
      std::string data;  // what fits in the room
   } rows[] = {
      {"sz", 16, ERROR_SUCCESS, REG_SZ, 4, std::string("d\xC3\xA9", 4)},
      {"sz", 3, ERROR_MORE_DATA, REG_SZ, 4, ""},
      {"multi", 16, ERROR_SUCCESS, REG_MULTI_SZ, 6, std::string("a\0\xC3\xA9\0\0", 6)},
      {"missing", 16, ERROR_FILE_NOT_FOUND, REG_NONE, 16, ""},
   };
   for (const auto &r : rows) {
      char data[16] = {};
      DWORD type = 99, size = r.room;
      EXPECT_EQ(Win32U_RegQueryValueEx(key, r.name, &type, reinterpret_cast<BYTE *>(data), &size),
                r.status) << r.name;
      EXPECT_EQ(type, r.type) << r.name;
      EXPECT_EQ(size, r.size) << r.name;
      EXPECT_EQ(std::string(data, r.data.size()), r.data) << r.name;
   }
   RegCloseKey(key);
   RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\vtr-win32u-test");
}

} // namespace
