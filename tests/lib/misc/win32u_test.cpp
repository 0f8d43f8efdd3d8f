// The wrappers keep the platform's last error and errno, and answer in UTF-8.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "misc/win32u.h"

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

} // namespace
