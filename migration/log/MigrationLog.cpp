#include "log/MigrationLog.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "HandleGuards.h"

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

namespace {

// The log file of the traced call in progress. Opening the file costs the system more than
// the line itself (an open, a handle lookup and a close per line, against one write), so
// the outermost traced function, an action, keeps it open until it leaves. It belongs to
// the thread that entered that function; any other thread logging meanwhile opens and
// closes the file per line as before, so no lock is needed. Only the owner touches the
// handle, the path and the depth.
struct TracedLog {
   std::atomic<DWORD> ownerThread{0};
   unsigned depth = 0;
   UniqueHandle file;
   char path[TempPathSize] = {};
};
TracedLog tracedLog;

bool OwnsTracedLog()
{
   return tracedLog.ownerThread.load(std::memory_order_relaxed) == GetCurrentThreadId();
}

// Shared for reading, writing and deleting: an admin may read, rename or delete the log
// while an action runs. Append-only access puts every write at the end of the file, after
// whatever another writer added in between.
HANDLE OpenLogFile(const char *path)
{
   HANDLE file = CreateFileA(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                             OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
   return file == INVALID_HANDLE_VALUE ? nullptr : file;
}

// The file has always been written in text mode: every LF goes out as CR LF, also the one
// that ends a system message's own CR LF.
std::string TextModeBytes(const std::string &line)
{
   std::string bytes;
   bytes.reserve(line.size() + 2);
   for (char c : line) {
      if (c == '\n') {
         bytes += '\r';
      }
      bytes += c;
   }
   return bytes;
}

void WriteLogBytes(HANDLE file, const std::string &bytes)
{
   DWORD written = 0;
   WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

} // namespace

void AppendLogLine(const std::string &line)
{
   // Looked up for every line, so the file follows the temporary directory of whichever
   // context runs the action.
   char path[TempPathSize] = {};
   GetTempPathA(TempPathSize, path);
   strncat_s(path, sizeof(path), LogFileName, _TRUNCATE);
   const std::string bytes = TextModeBytes(line);

   if (!OwnsTracedLog()) {
      UniqueHandle file(OpenLogFile(path));
      if (file) {
         WriteLogBytes(file.get(), bytes);
      }
      return;
   }
   if (tracedLog.file && strcmp(tracedLog.path, path) != 0) {
      tracedLog.file.reset();
   }
   if (!tracedLog.file) {
      // A file that can't be opened loses this line only; the next line tries again.
      tracedLog.file.reset(OpenLogFile(path));
      if (!tracedLog.file) {
         return;
      }
      strcpy_s(tracedLog.path, sizeof(tracedLog.path), path);
   }
   // Handed to the system before the call returns: a crash after it loses nothing.
   WriteLogBytes(tracedLog.file.get(), bytes);
}

namespace {

// One conversion of a format string, as far as the runtime needs it to fetch an argument.
struct Conversion {
   std::string flags;
   bool widthFromArgument = false;
   std::string width;
   bool precisionFromArgument = false;
   bool hasPrecision = false;
   std::string precision;
   std::string size; // "h", "hh", "l", "ll", "L", "w", "I", "I32", "I64", "z", "j", "t"
   char type = 0;
};

const char *ParseConversion(const char *p, Conversion &c)
{
   while (*p && strchr("-+ #0'", *p)) {
      c.flags += *p++;
   }
   if (*p == '*') {
      c.widthFromArgument = true;
      ++p;
   } else {
      while (*p >= '0' && *p <= '9') {
         c.width += *p++;
      }
   }
   if (*p == '.') {
      c.hasPrecision = true;
      ++p;
      if (*p == '*') {
         c.precisionFromArgument = true;
         ++p;
      } else {
         while (*p >= '0' && *p <= '9') {
            c.precision += *p++;
         }
      }
   }
   if (strncmp(p, "I64", 3) == 0 || strncmp(p, "I32", 3) == 0) {
      c.size.assign(p, 3);
      p += 3;
   } else if (strncmp(p, "hh", 2) == 0 || strncmp(p, "ll", 2) == 0) {
      c.size.assign(p, 2);
      p += 2;
   } else if (*p && strchr("hlLwIzjtq", *p)) {
      c.size.assign(p, 1);
      ++p;
   }
   c.type = *p;
   return *p ? p + 1 : p;
}

bool IsWideString(const Conversion &c)
{
   if (c.type == 's') {
      return c.size == "l" || c.size == "w";
   }
   return c.type == 'S' && c.size != "h";
}

bool Is64BitInteger(const Conversion &c)
{
   return c.size == "ll" || c.size == "I64" || c.size == "I" || c.size == "z" || c.size == "j" ||
          c.size == "t" || c.size == "q";
}

std::string WideToUtf8Text(const wchar_t *text, int length)
{
   // ASCII, the usual key and value name, is its own UTF-8.
   if (std::all_of(text, text + length, [](wchar_t ch) { return ch < 0x80; })) {
      return std::string(text, text + length);
   }
   const int bytes = WideCharToMultiByte(CP_UTF8, 0, text, length, nullptr, 0, nullptr, nullptr);
   std::string result(bytes > 0 ? bytes : 0, '\0');
   if (bytes > 0) {
      WideCharToMultiByte(CP_UTF8, 0, text, length, result.data(), bytes, nullptr, nullptr);
   }
   return result;
}

} // namespace

std::string NarrowLogText(const std::wstring &text)
{
   return WideToUtf8Text(text.c_str(), static_cast<int>(text.size()));
}

namespace {

template <typename T>
void AppendOne(std::string &out, const std::string &directive, int width, int precision, int stars, T value)
{
   // stars: 0 none, 1 width only, 2 precision only, 3 both.
   int needed;
   switch (stars) {
   case 1: needed = _scprintf(directive.c_str(), width, value); break;
   case 2: needed = _scprintf(directive.c_str(), precision, value); break;
   case 3: needed = _scprintf(directive.c_str(), width, precision, value); break;
   default: needed = _scprintf(directive.c_str(), value); break;
   }
   if (needed <= 0) {
      return;
   }
   std::string piece(needed + 1, '\0');
   switch (stars) {
   case 1: _snprintf(piece.data(), piece.size(), directive.c_str(), width, value); break;
   case 2: _snprintf(piece.data(), piece.size(), directive.c_str(), precision, value); break;
   case 3: _snprintf(piece.data(), piece.size(), directive.c_str(), width, precision, value); break;
   default: _snprintf(piece.data(), piece.size(), directive.c_str(), value); break;
   }
   out.append(piece.data(), needed);
}

// Formats with the C runtime, one conversion at a time. The runtime's own %S converts wide
// text through the "C" locale and gives up on the first character it can't map, losing the
// rest of the line; user names and paths in any alphabet have to reach the log, so wide
// strings are turned into UTF-8 here and handed to the runtime as narrow ones.
std::string FormatLogText(const char *format, va_list args)
{
   std::string out;
   const char *p = format;
   while (*p) {
      if (*p != '%') {
         const char *literal = p;
         while (*p && *p != '%') {
            ++p;
         }
         out.append(literal, p - literal);
         continue;
      }
      if (p[1] == '%') {
         out += '%';
         p += 2;
         continue;
      }
      Conversion c;
      const char *end = ParseConversion(p + 1, c);
      const int width = c.widthFromArgument ? va_arg(args, int) : 0;
      int precision = c.precisionFromArgument ? va_arg(args, int) : -1;
      const int stars = (c.widthFromArgument ? 1 : 0) | (c.precisionFromArgument ? 2 : 0);
      if (c.hasPrecision && !c.precisionFromArgument) {
         precision = c.precision.empty() ? 0 : atoi(c.precision.c_str());
      }
      std::string directive = "%" + c.flags + (c.widthFromArgument ? "*" : c.width);
      if (c.hasPrecision) {
         directive += c.precisionFromArgument ? ".*" : "." + c.precision;
      }
      // With no flag, width or precision the runtime copies a string and prints a decimal as
      // it is. Most lines hold only such conversions, a name or two per line of a walk that
      // writes tens of thousands, and doing them here spares two runtime calls each.
      const bool plain = c.flags.empty() && c.width.empty() && !c.widthFromArgument && !c.hasPrecision;
      const bool plainDecimal = plain && (c.type == 'd' || c.type == 'i' || c.type == 'u') && !Is64BitInteger(c) &&
                                c.size != "h" && c.size != "hh";

      switch (c.type) {
      case 'd':
      case 'i':
      case 'u':
      case 'o':
      case 'x':
      case 'X':
         if (plainDecimal) {
            const int number = va_arg(args, int);
            out += c.type == 'u' ? std::to_string(static_cast<unsigned>(number)) : std::to_string(number);
         } else if (Is64BitInteger(c)) {
            AppendOne(out, directive + "I64" + c.type, width, precision, stars, va_arg(args, long long));
         } else {
            std::string sized = c.size == "h" || c.size == "hh" ? c.size : "";
            AppendOne(out, directive + sized + c.type, width, precision, stars, va_arg(args, int));
         }
         break;
      case 'c':
      case 'C':
         if ((c.type == 'C' && c.size != "h") || c.size == "l" || c.size == "w") {
            const wchar_t wide = static_cast<wchar_t>(va_arg(args, int));
            AppendOne(out, directive + "s", width, -1, stars & 1, WideToUtf8Text(&wide, 1).c_str());
         } else {
            AppendOne(out, directive + "c", width, precision, stars, va_arg(args, int));
         }
         break;
      case 's':
      case 'S':
         if (IsWideString(c)) {
            const wchar_t *text = va_arg(args, const wchar_t *);
            std::string narrow = "(null)";
            if (text != nullptr) {
               int length = static_cast<int>(wcslen(text));
               if (precision >= 0 && precision < length) {
                  length = precision;
               }
               narrow = WideToUtf8Text(text, length);
            }
            if (plain) {
               out += narrow;
               break;
            }
            // The precision has been applied in characters already; width stays the runtime's.
            std::string narrowDirective = "%" + c.flags + (c.widthFromArgument ? "*" : c.width) + "s";
            AppendOne(out, narrowDirective, width, -1, stars & 1, narrow.c_str());
         } else {
            const char *text = va_arg(args, const char *);
            if (plain && text != nullptr) {
               out += text;
               break;
            }
            AppendOne(out, directive + "s", width, precision, stars, text);
         }
         break;
      case 'p':
         AppendOne(out, directive + "p", width, precision, stars, va_arg(args, void *));
         break;
      case 'e':
      case 'E':
      case 'f':
      case 'g':
      case 'G':
      case 'a':
      case 'A':
         AppendOne(out, directive + c.type, width, precision, stars,
                   c.size == "L" ? static_cast<double>(va_arg(args, long double)) : va_arg(args, double));
         break;
      default:
         // Unknown or %n: written as it stands, consuming nothing.
         out.append(p, end - p);
         break;
      }
      p = end;
   }
   return out;
}

} // namespace

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

   va_list args;
   va_start(args, format);
   std::string message = FormatLogText(format, args);
   va_end(args);
   if (message.size() > MessageBufferSize - 1) {
      message.resize(MessageBufferSize - 1);
   }

   std::string line;
   line.reserve(128 + message.size());
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
   // Writing the file leaves its own error behind (opening for append reports that the file
   // exists); a caller that logs a failure and hands it on must see the failure's error.
   SetLastError(lastError);
}

FunctionTrace::FunctionTrace(const char *name) : name_(name)
{
   LogMessage(LogLevelInfo, "Enter function: %s.", name_.c_str());
   // Counted only once the line is out: a constructor that throws has no destructor to
   // undo the count.
   DWORD none = 0;
   if (OwnsTracedLog() || tracedLog.ownerThread.compare_exchange_strong(none, GetCurrentThreadId())) {
      ++tracedLog.depth;
   }
}

FunctionTrace::~FunctionTrace()
{
   LogMessage(LogLevelInfo, "Leave function: %s.", name_.c_str());
   if (OwnsTracedLog() && --tracedLog.depth == 0) {
      // The action is over; the file is nobody's once it returns.
      tracedLog.file.reset();
      tracedLog.ownerThread.store(0);
   }
}
