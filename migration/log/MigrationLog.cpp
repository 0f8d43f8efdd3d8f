#include "log/MigrationLog.h"

#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <share.h>

namespace {

constexpr size_t TimestampBufferSize = 512;
constexpr size_t MessageBufferSize = 4096;
constexpr DWORD TempPathSize = MAX_PATH;
constexpr char LogFileName[] = "MigrVantora.log";

} // namespace

const char *GetLevelName(uint32_t level)
{
   switch (level & 0x7) {
   case LogLevelError:
      return "ERRO";
   case LogLevelWarning:
      return "WARN";
   case LogLevelInfo:
      return "INFO";
   default:
      return "UNKN";
   }
}

std::string GetSystemErrorText(uint32_t code)
{
   char text[512] = {};
   DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                 code, 0, text, sizeof(text), nullptr);
   if (length == 0) {
      // The system knows no text for this code; the number that follows still identifies it.
      return "unknown error";
   }
   return std::string(text, length);
}

void AppendLogLine(const std::string &line)
{
   // Looked up for every line, so the file follows the temporary directory of whichever
   // context runs the action.
   char path[TempPathSize] = {};
   GetTempPathA(TempPathSize, path);
   strncat_s(path, sizeof(path), LogFileName, _TRUNCATE);

   FILE *file = _fsopen(path, "at", _SH_DENYNO);
   if (file == nullptr) {
      return;
   }
   fputs(line.c_str(), file);
   fclose(file);
}

void LogMessage(uint32_t level, const char *format, ...)
{
   const DWORD processId = GetCurrentProcessId();
   const DWORD threadId = GetCurrentThreadId();
   // Taken before any further system call of ours can overwrite it.
   const DWORD lastError = GetLastError();

   SYSTEMTIME now;
   GetLocalTime(&now);
   char timestamp[TimestampBufferSize];
   snprintf(timestamp, sizeof(timestamp), "%4d-%02d-%02d %02d:%02d:%02d.%03d", now.wYear, now.wMonth,
            now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds);

   // Zeroed first: the runtime's formatter leaves a cut message unterminated.
   char message[MessageBufferSize] = {};
   va_list args;
   va_start(args, format);
   // The runtime's own _vsnprintf, not the C99 formatter that mingw puts behind vsnprintf:
   // callers rely on its %S and %ws reading wide strings.
   _vsnprintf(message, MessageBufferSize - 1, format, args);
   va_end(args);

   std::string line;
   line.reserve(128 + strlen(message));
   line += timestamp;
   line += " <" + std::to_string(processId) + "> ";
   line += "[" + std::to_string(threadId) + "] ";
   line += GetLevelName(level);
   line += ' ';
   line += message;
   if (level & LogFlagLastError) {
      line += "Last Error: ";
      line += GetSystemErrorText(lastError);
      line += " (code: " + std::to_string(lastError) + ")";
   }
   line += '\n';

   AppendLogLine(line);
}

FunctionTrace::FunctionTrace(const char *name) : name_(name)
{
   LogMessage(LogLevelInfo, "Enter function: %s.", name_.c_str());
}

FunctionTrace::~FunctionTrace()
{
   LogMessage(LogLevelInfo, "Leave function: %s.", name_.c_str());
}
