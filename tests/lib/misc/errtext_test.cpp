// Error texts: the stops cut from the system's messages, the fall-back, and that a text
// is known again by its pointer only.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "misc/errText.h"
#include "misc/platform.h"

namespace {

const char *systemText;

TEST(ErrText, CutsStopsAndFallsBack)
{
   errTextPlatform.systemMessage = [](uint32_t) {
      return systemText != nullptr ? strdup(systemText) : nullptr;
   };
   const struct { uint32_t code; const char *system; const char *want; } rows[] = {
      {90001, "Access is denied.\r\n", "Access is denied"},
      {90002, "a.\n.\r", "a"},
      {90003, "\xE6\x96\x87\xE3\x80\x82", "\xE6\x96\x87"},
      {90004, "end\xE3\x80\x82.\r\n\xE3\x80\x82", "end"},
      {1234, nullptr, "Unknown error 1234 (0x4d2)"},
   };
   for (const auto &r : rows) {
      systemText = r.system;
      errno = 33;
      Platform_SetLastError(77);  // on a host this is errno itself
      int errnoBefore = errno;
      const char *text = ErrText_Of(r.code);
      EXPECT_STREQ(text, r.want);
      EXPECT_EQ(Platform_GetLastError(), 77u);
      EXPECT_EQ(errno, errnoBefore);
      systemText = "changed";
      EXPECT_EQ(ErrText_Of(r.code), text) << "made once";
      int32_t code = 0;
      EXPECT_TRUE(ErrText_IsKnown(text, &code));
      EXPECT_EQ(static_cast<uint32_t>(code), r.code);
      std::string copy = text;
      EXPECT_FALSE(ErrText_IsKnown(copy.c_str(), &code));
   }
   EXPECT_FALSE(ErrText_IsKnown(nullptr, nullptr));
}

} // namespace
