#pragma once
// The migration's log: one line per call, appended to MigrVantora.log in the temporary
// directory of whoever runs the action. Logging never fails the caller.
#include <cstdint>
#include <string>

enum LogLevel : uint32_t {
   LogLevelError = 1,
   LogLevelWarning = 2,
   LogLevelInfo = 4,
   LogFlagLastError = 0x10000,
   LogLevelErrorWithCode = LogLevelError | LogFlagLastError,
};

// `format` follows the C runtime's formatted output: %s narrow, %S and %ws wide.
void LogMessage(uint32_t level, const char *format, ...);

// Wide text as the log writes it (UTF-8), for the few lines that format it with a narrow %s.
std::string NarrowLogText(const std::wstring &text);

const char *GetLevelName(uint32_t level);
std::string GetSystemErrorText(uint32_t code);
void AppendLogLine(const std::string &line);

// Logs entering the scope and, on every way out of it (exceptions too), leaving it. The
// outermost one on a thread keeps the log file open until it leaves.
class FunctionTrace
{
public:
   explicit FunctionTrace(const char *name);
   ~FunctionTrace();
   FunctionTrace(const FunctionTrace &) = delete;
   FunctionTrace &operator=(const FunctionTrace &) = delete;

private:
   std::string name_;
};
