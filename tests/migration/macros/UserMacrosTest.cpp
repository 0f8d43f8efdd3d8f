#include <gtest/gtest.h>

#include "macros/UserMacros.h"

namespace {

TEST(UserMacros, FourRowsFromTheProfileAlone)
{
   struct Case {
      std::wstring profile;
      std::vector<std::wstring> values; // AppData, Desktop, CommonAppData, TEMP
   } const cases[] = {
      {L"C:\\Users\\Ann", {L"C:\\Users\\Ann\\AppData\\Roaming", L"C:\\Users\\Ann\\Desktop",
                           L"C:\\Users\\Ann\\AppData\\Local", L"C:\\Users\\Ann\\AppData\\Local\\Temp"}},
      {L"", {L"\\AppData\\Roaming", L"\\Desktop", L"\\AppData\\Local", L"\\AppData\\Local\\Temp"}},
      // Only a profile path that holds the text itself is touched, once per value.
      {L"D:\\%USERPROFILE%", {L"D:\\D:\\%USERPROFILE%\\AppData\\Roaming", L"D:\\D:\\%USERPROFILE%\\Desktop",
                              L"D:\\D:\\%USERPROFILE%\\AppData\\Local", L"D:\\D:\\%USERPROFILE%\\AppData\\Local\\Temp"}},
   };
   for (const Case &c : cases) {
      UserContext user;
      user.ProfilePath = c.profile;
      BuildUserMacros(user);
      ASSERT_EQ(user.Macros.size(), 4u);
      const wchar_t *names[] = {L"AppData", L"Desktop", L"CommonAppData", L"TEMP"};
      for (size_t i = 0; i < 4; ++i) {
         EXPECT_EQ(user.Macros[i].Name + L"=" + user.Macros[i].Variable + L"=" + user.Macros[i].Value,
                   std::wstring(names[i]) + L"==" + c.values[i]);
      }
   }
}

TEST(UserMacros, ReplaceFirst)
{
   struct Case {
      const wchar_t *text, *pattern, *expected;
   } const cases[] = {
      {L"a%X%b%X%", L"%X%", L"a<>b%X%"},
      {L"%x%", L"%X%", L"%x%"},
      {L"%X", L"%X%", L"%X"},
      {L"%X%", L"%X%", L"<>"},
   };
   for (const Case &c : cases) {
      EXPECT_EQ(ReplaceFirst(c.text, c.pattern, L"<>"), c.expected) << c.text;
   }
}

} // namespace
