// Util_ExpandString's chunks and fall-backs, and the environment cache it reads.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "misc/platform.h"
#include "misc/util.h"
#include "unicode/unicode.h"

namespace {

void SetEnv(const char *name, const char *value)
{
#if defined(_WIN32)
   _putenv_s(name, value != nullptr ? value : "");
#else
   value != nullptr ? setenv(name, value, 1) : unsetenv(name);
#endif
}

std::string Expand(const std::string &name)
{
   char *s = Util_ExpandString(name.c_str());
   std::string r = s != nullptr ? s : "<null>";
   free(s);
   return r;
}

TEST(UtilExpandString, Chunks)
{
   SetEnv("VTR_FOO", "a");
   SetEnv("VTR_UNSET", nullptr);
   SetEnv("pid", nullptr);
   SetEnv("PID", nullptr);
   std::string chunks100;
   for (int i = 0; i < 50; i++) {  // a '$' alone is a chunk, and so is what follows it
      chunks100 += "$/";
   }
   const std::string pid = std::to_string(Platform_ProcessId());
   const struct { std::string name; std::string want; } rows[] = {
      {"$VTR_FOO/x", "a/x"},
      {"$VTR_UNSET/x", "$VTR_UNSET/x"},
      {"~/x", "~/x"},
      {"a$", "a$"},
      {"$$VTR_FOO", "$a"},
      {"$VTR_FOO$VTR_FOO.$VTR_FOO-", "aa.a-"},
      {"/tmp/$pid.log", "/tmp/" + pid + ".log"},
      {"$PiD", pid},
      {chunks100, chunks100},
      {chunks100 + "$", "<null>"},
   };
   for (const auto &r : rows) {
      EXPECT_EQ(Expand(r.name), r.want) << r.name;
   }
   SetEnv("PID", "mine");
   EXPECT_EQ(Expand("$PID"), "mine");
   SetEnv("PID", nullptr);
   EXPECT_NE(Expand("$USER"), "$USER");
   EXPECT_NE(Expand("$USER"), "");
}

TEST(GetEnvCached, StablePointers)
{
   SetEnv("VTR_CACHED", "one");
   const char *first = GetEnvCached("VTR_CACHED");
   EXPECT_STREQ(first, "one");
   EXPECT_EQ(GetEnvCached("VTR_CACHED"), first);
   SetEnv("VTR_CACHED", "two");
   const char *second = GetEnvCached("VTR_CACHED");
   EXPECT_STREQ(second, "two");
   EXPECT_STREQ(first, "one");  // still readable over one change
   SetEnv("VTR_CACHED", nullptr);
   EXPECT_EQ(GetEnvCached("VTR_CACHED"), nullptr);
}

} // namespace
