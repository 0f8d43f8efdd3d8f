#include "misc/vthread.h"

#include <cstdint>

#include "misc/platform.h"
#include "string/str.h"

namespace {
thread_local char threadName[32];
}

const char *VThread_CurName()
{
   if (threadName[0] == '\0') {
      Str_Snprintf(threadName, sizeof threadName, "host-%I64u",
                   static_cast<uint64_t>(Platform_ThreadId()));
   }
   return threadName;
}

void VThread_SetCurName(const char *name)
{
   Str_Snprintf(threadName, sizeof threadName, "%s", name);
}
