#include "misc/panic.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "misc/coreDump.h"
#include "misc/log.h"
#include "misc/mxuser.h"
#include "misc/platform.h"
#include "misc/productState.h"
#include "misc/vthread.h"
#include "misc/win32u.h"
#include "string/str.h"
#include "user/msg.h"

PanicPlatform panicPlatform = {
   Platform_WriteStderr,
   Platform_DebugOutput,
   Platform_TerminateProcess,
   Platform_Sleep,
   Platform_GuiResources,
};

namespace {

uint32_t panicCount = 0;
// Start-up settings; nothing in this module changes them.
const bool postPanicMessage = true;
const bool coreDumpOnPanic = true;
volatile bool loopOnPanic = false;
const int32_t coreDumpFlags = 0;

void PanicBacktraceLine(void *, const char *format, va_list args)
{
   char line[509];
   int length = Str_Vsnprintf(line, 508, format, args);
   if (length < 0) {
      length = static_cast<int>(strlen(line));
   }
   if (length == 0 || line[length - 1] != '\n') {
      line[length++] = '\n';
      line[length] = '\0';
   }
   Log("%s", line);
}

// The finished text becomes a format once more, so a '%' that survived the first round is
// read again: the report has always done so.
void PanicPostMessage(const char *text)
{
   char message[1024];
   Str_Snprintf(message, sizeof message, text);
   Msg_Append("@&!*@*@(msg.log.error.unrecoverable)%s%s unrecoverable error: (%s)\n%s",
              Msg_HasPending() ? "\n" : "", ProductState_GetName(), VThread_CurName(),
              message);
   const char *logPath = LogGetFilePath();
   if (logPath != nullptr) {
      Msg_Append("@&!*@*@(msg.panic.haveLog)A log file is available in \"%s\".  ", logPath);
   }
   Msg_Append("@&!*@*@(msg.panic.requestSupport.withoutLog)You can request support.  ");
   if ((ProductState_GetMask() & 0x10000) != 0) {
      Msg_Append("@&!*@*@(msg.panic.requestSupport.qrSupport .windowsOrLinux)\n"
                 "To collect data to submit to Corvane support, choose \"Collect Support "
                 "Data\" from the \"About\" menu.\nYou can also run the \"support.bat\" or "
                 "\"vantora-log-collector\" script in the \"dct\" folder of the application "
                 "bundle directly.\n");
   } else {
      Msg_Append("@&!*@*@(msg.panic.requestSupport.qrSupport .qrx86)\n"
                 "To collect data to submit to Corvane support, run the \"support.bat\" or "
                 "\"vantora-log-collector\" script in the \"dct\" folder of the application "
                 "bundle.\n");
   }
   Msg_CallPrePostHook();
   Msg_Post(3, "@&!*@*@(msg.panic.response)We will respond on the basis of your support "
               "entitlement.\n");
}

} // namespace

bool Panic_GetPostPanicMessage() { return postPanicMessage; }
bool Panic_GetCoreDumpOnPanic() { return coreDumpOnPanic; }
bool Panic_GetLoopOnPanic() { return loopOnPanic; }
int32_t Panic_GetCoreDumpFlags() { return coreDumpFlags; }

[[noreturn]] void TerminateCurrentProcess(int exitCode)
{
   panicPlatform.terminate(exitCode);
   std::abort();  // only a test's replacement can come back here
}

void PanicBacktrace(uint32_t bugNumber)
{
   BacktraceOptions options = {};
   options.bugNumber = bugNumber;
   CoreDump_Backtrace(&options, PanicBacktraceLine, nullptr);
}

void LogGuiResources()
{
   uint32_t gdi = 0;
   uint32_t user = 0;
   if (panicPlatform.guiResources(&gdi, &user)) {
      Warning("Win32 object usage: GDI %d, USER %d\n", gdi, user);
   }
}

[[noreturn]] void Panic(const char *format, ...)
{
   MXUserNotifyPanic();
   // On the stack: the heap may be what failed.
   char text[1024];
   va_list args;
   va_start(args, format);
   Str_Vsnprintf(text, sizeof text, format, args);
   va_end(args);
   panicPlatform.writeStderr(text);
   panicPlatform.debugOutput(text);

   // Not atomic: two threads panicking at once may both report in full.
   uint32_t count = panicCount++;
   if (count == 0) {
      LogNotifyPanic();
      Win32U_OutputDebugString(text);
      LogAt(1, "PANIC: %s", text);
      PanicBacktrace(0);
      LogGuiResources();
      if (coreDumpOnPanic) {
         CoreDump_CoreDump();
      }
      if (loopOnPanic) {
         char line[64];
         Str_Snprintf(line, sizeof line, "Looping pid=%d\n", Platform_ProcessId());
         panicPlatform.writeStderr(line);
         while (loopOnPanic) {
            panicPlatform.sleep(1000);
         }
      }
      if (postPanicMessage) {
         PanicPostMessage(text);
      }
      Log("Exiting\n");
      TerminateCurrentProcess(-1);
   }
   // A step of the first report failed and came back here: end before anything can loop.
   if (count == 1) {
      LogAt(1, "PANIC: %s", text);
      LogAt(1, "Panic loop\n");
   }
   panicPlatform.writeStderr("Panic loop\n");
   TerminateCurrentProcess(1);
}

void *SafeMalloc(size_t size)
{
   void *p = malloc(size);
   if (p == nullptr && size != 0) {
      Panic("Unrecoverable memory allocation failure, %I64u bytes attempted\n",
            static_cast<uint64_t>(size));
   }
   return p;
}

void *SafeRealloc(void *pointer, size_t size)
{
   void *p = realloc(pointer, size);
   if (p == nullptr && size != 0) {
      Panic("Unrecoverable memory allocation failure, %I64u bytes attempted\n",
            static_cast<uint64_t>(size));
   }
   return p;
}

void *SafeCalloc(size_t count, size_t size)
{
   void *p = calloc(count, size);
   if (p == nullptr && count != 0 && size != 0) {
      Panic("Unrecoverable memory allocation failure, %I64u bytes attempted\n",
            static_cast<uint64_t>(size));
   }
   return p;
}

char *SafeStrdup(const char *text)
{
   if (text == nullptr) {
      return nullptr;
   }
   size_t size = strlen(text) + 1;
   char *p = static_cast<char *>(malloc(size));
   if (p == nullptr) {
      Panic("Unrecoverable memory allocation failure, %I64u bytes attempted\n",
            static_cast<uint64_t>(size));
   }
   return static_cast<char *>(memcpy(p, text, size));
}

char *SafeStrndup(const char *text, size_t limit)
{
   if (text == nullptr) {
      return nullptr;
   }
   const void *nul = memchr(text, '\0', limit);
   size_t length = nul != nullptr ? static_cast<size_t>(static_cast<const char *>(nul) - text)
                                  : limit;
   char *p = static_cast<char *>(malloc(length + 1));
   if (p == nullptr) {
      Panic("Unrecoverable memory allocation failure, %I64u bytes attempted\n",
            static_cast<uint64_t>(length));
   }
   memcpy(p, text, length);
   p[length] = '\0';
   return p;
}
