#pragma once
// The support library's own logger. A message passes a level filter, is formatted on the
// stack (long ones in one shared spare buffer), and is kept in a memory ring until an
// output is attached; the ring is then replayed to the outputs before the next message.
// Every call keeps the thread's last error.

#include <cstddef>
#include <cstdint>

// A level word: bits 0 to 4 are the level, the bits above a module number (0: none).
enum {
   LOG_LEVEL_AUDIT = 0,  // file side only, whatever the filters say
   LOG_LEVEL_PANIC = 1,
   LOG_LEVEL_ERROR = 2,
   LOG_LEVEL_WARNING = 3,
   LOG_LEVEL_NOTICE = 4,
   LOG_LEVEL_INFO = 5,
   LOG_LEVEL_VERBOSE = 6,
   LOG_LEVEL_TRIVIA = 7,
   LOG_LEVEL_DEBUG = 8,
   LOG_MODULE_SHIFT = 5,
};

void Log(const char *format, ...);      // level 5
void Warning(const char *format, ...);  // level 3
void LogAt(uint32_t level, const char *format, ...);

// A message passes a side if its level is at most that side's level.
struct LogFilter {
   int32_t fileLevel;
   int32_t stderrLevel;
   const char *moduleName;  // null for the default filter
};

struct LogLevelRow {
   uint32_t level;
   const char *name;
   const char *shortTag;
};

// What travels with every message, in the ring and to the outputs.
struct LogHeader {
   const LogFilter *filter;
   const LogLevelRow *levelRow;
   uint8_t continuation;  // 1 for the second and later lines of a message
   char threadName[32];
   char tag[33];
   char time[50];  // UTC, 2024-01-31T23:59:59.999Z
   char padding[12];
};
static_assert(sizeof(LogHeader) == 144, "a ring record's header has a fixed size");

constexpr uint32_t kLogFileOutputKind = 0x12345;

// Sets the levels of the default filter (module 0) or of a module's filter (1 to 314). All
// modules start switched off, the default at file level 5 and stderr level -1.
void Log_SetLevels(uint32_t module, int32_t fileLevel, int32_t stderrLevel);

// An attached output. The log keeps the pointer; the caller keeps the record alive until
// it is detached.
struct LogOutput {
   uint32_t kind;       // kLogFileOutputKind for an output that writes a file
   bool wholeMessage;   // takes a message at once rather than line by line
   int32_t level;       // the highest level it takes; negative: switched off
   void (*write)(LogOutput *output, const LogHeader *header, size_t length, const char *text);
   void (*notifyPanic)(LogOutput *output);  // may be null
   const char *path;    // the file of a file output
};

// Nothing in this module attaches an output; a host program or a test may.
bool Log_AttachOutput(LogOutput *output);  // false when the table is full
void Log_DetachOutput(LogOutput *output);

// The path of the first file output, or null.
const char *LogGetFilePath();
// Calls the panic notification of every output, in order.
void LogNotifyPanic();

// Calls `visit` for each record in the memory ring, oldest first, without consuming them.
void Log_ForEachRingRecord(void (*visit)(const LogHeader *header, const char *text,
                                         size_t length, void *context),
                           void *context);

// Ends the text held in buffer[0, size - 1) with a newline and a terminator, cutting it
// so that it ends on a whole UTF-8 character; returns the new length.
size_t LogCutAtWholeCharacter(char *buffer, size_t size);

// The calls the log makes to the platform. Tests replace entries to watch the standard
// error side or to fix the clock; nothing else changes them.
struct LogUtcTime {
   int year, month, day, hour, minute, second, milliseconds;
};
struct LogPlatform {
   void (*writeStderr)(const char *text);
   void (*debugOutput)(const char *text);
   void (*utcTime)(LogUtcTime *time);
};
extern LogPlatform logPlatform;
