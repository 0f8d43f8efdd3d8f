#include "misc/log.h"

#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "misc/mxuser.h"
#include "misc/panic.h"
#include "misc/platform.h"
#include "misc/vthread.h"
#include "misc/win32u.h"
#include "string/str.h"

namespace {

void LogRealUtcTime(LogUtcTime *time)
{
#if defined(_WIN32)
   SYSTEMTIME now;
   GetSystemTime(&now);
   *time = {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond,
            now.wMilliseconds};
#else
   timespec now;
   clock_gettime(CLOCK_REALTIME, &now);
   tm parts;
   gmtime_r(&now.tv_sec, &parts);
   *time = {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour,
            parts.tm_min, parts.tm_sec, static_cast<int>(now.tv_nsec / 1000000)};
#endif
}

} // namespace

LogPlatform logPlatform = {Platform_WriteStderr, Win32U_OutputDebugString, LogRealUtcTime};

namespace {

constexpr size_t kLocalBufferSize = 319;
constexpr size_t kLargeBufferSize = 32767;
constexpr size_t kRingSize = 65536;
constexpr size_t kReaderSize = 32768;
constexpr uint32_t kModuleCount = 314;
constexpr uint32_t kMaxOutputs = 16;

const LogLevelRow logLevels[24] = {
   {0, "audit", "No"},    {1, "panic", "Cr"},    {2, "error", "Er"},    {3, "warning", "Wa"},
   {4, "notice", "No"},   {5, "info", "In"},     {6, "verbose", "In"},  {7, "trivia", "In"},
   {8, "debug", "Db"},    {9, "debug1", "Db"},   {10, "debug2", "Db"},  {11, "debug3", "Db"},
   {12, "debug4", "Db"},  {13, "debug5", "Db"},  {14, "debug6", "Db"},  {15, "debug7", "Db"},
   {16, "debug8", "Db"},  {17, "debug9", "Db"},  {18, "debug10", "Db"}, {19, "debug11", "Db"},
   {20, "debug12", "Db"}, {21, "debug13", "Db"}, {22, "debug14", "Db"}, {23, "debug15", "Db"},
};

// The components that own these filters have no part in this system, so their names are
// not kept; every one of them starts switched off.
struct LogModuleFilters {
   LogFilter filters[kModuleCount];
   constexpr LogModuleFilters() : filters()
   {
      for (LogFilter &filter : filters) {
         filter = {-1, -1, nullptr};
      }
   }
};
LogModuleFilters moduleFilters;

// Records are a 16-bit length of what follows, the header and the text; any field may
// wrap around the end of the store.
struct LogRing {
   uint8_t *start;
   size_t write;
   size_t read;
   size_t used;
   size_t size;
};

uint8_t ringStore[kRingSize];
char largeStore[kLargeBufferSize];
char readerBuffer[kReaderSize];

struct LogState {
   // activeCount stays non-zero while the lock is being made; logging waits for nothing
   // then, the message is simply dropped.
   MXUserRecLockStorage lockStorage;
   bool noLock;
   int32_t depth;  // log calls nested under the lock
   LogFilter defaultFilter;
   std::atomic<char *> largeBuffer;  // null while some call uses it
   LogRing ring;
   uint32_t outputCount;
   LogOutput *outputs[kMaxOutputs];
   void (*tagCallback)(char *tag, size_t size);  // none is installed in this system
};

LogState logState = {
   {"logLock", {nullptr}, 0xFF000002, {0}},
   false,
   0,
   {5, -1, nullptr},
   {largeStore},
   {ringStore, 0, 0, 0, kRingSize},
   0,
   {},
   nullptr,
};

// Takes the lock, making it on first use; false while some other call is making it.
bool LogLock()
{
   if (logState.noLock) {
      logState.depth = 0;
      return true;
   }
   if (logState.lockStorage.activeCount.load() != 0) {
      return false;
   }
   MXUser_AcquireRecLock(MXUser_GetStorageRecLock(&logState.lockStorage));
   logState.depth++;
   return true;
}

void LogUnlock()
{
   if (!logState.noLock) {
      logState.depth--;
      MXUser_ReleaseRecLock(logState.lockStorage.lock.load());
   }
}

void LogRingCopyOut(const LogRing *ring, size_t position, void *to, size_t length)
{
   position %= ring->size;
   size_t first = length < ring->size - position ? length : ring->size - position;
   memcpy(to, ring->start + position, first);
   memcpy(static_cast<char *>(to) + first, ring->start, length - first);
}

void LogRingCopyIn(LogRing *ring, const void *from, size_t length)
{
   size_t first = length < ring->size - ring->write ? length : ring->size - ring->write;
   memcpy(ring->start + ring->write, from, first);
   memcpy(ring->start, static_cast<const char *>(from) + first, length - first);
   ring->write = (ring->write + length) % ring->size;
   ring->used += length;
}

// Reads the record at `position` into a header and a text buffer of kReaderSize bytes,
// cutting a text too long for it; returns the bytes the record takes in the ring.
size_t LogRingReadRecord(const LogRing *ring, size_t position, LogHeader *header, char *text,
                         size_t *textLength)
{
   uint16_t recordLength;
   LogRingCopyOut(ring, position, &recordLength, sizeof recordLength);
   LogRingCopyOut(ring, position + sizeof recordLength, header, sizeof *header);
   size_t length = recordLength - sizeof *header;
   size_t kept = length < kReaderSize ? length : kReaderSize - 1;
   LogRingCopyOut(ring, position + sizeof recordLength + sizeof *header, text, kept);
   text[kept] = '\0';
   *textLength = kept < length ? LogCutAtWholeCharacter(text, kReaderSize) : kept;
   return sizeof recordLength + recordLength;
}

// The oldest records make room, silently.
void LogRingAppend(const LogHeader *header, const char *text, size_t length)
{
   LogRing *ring = &logState.ring;
   size_t recordLength = length + sizeof *header;
   while (recordLength + 2 >= ring->size - ring->used && ring->used != 0) {
      uint16_t oldest;
      LogRingCopyOut(ring, ring->read, &oldest, sizeof oldest);
      ring->read = (ring->read + sizeof oldest + oldest) % ring->size;
      ring->used -= sizeof oldest + oldest;
   }
   uint16_t stored = static_cast<uint16_t>(recordLength);
   LogRingCopyIn(ring, &stored, sizeof stored);
   LogRingCopyIn(ring, header, sizeof *header);
   LogRingCopyIn(ring, text, length);
}

// Whole-message outputs first; then each line to the line-by-line outputs. A message
// under a module's own filter already passed that filter, so the output's level is moot.
void LogWriteOutputs(const LogHeader *header, const char *text, size_t length)
{
   bool moduleFilter = header->filter != &logState.defaultFilter;
   auto takes = [&](const LogOutput *output, bool wholeMessage) {
      return output->wholeMessage == wholeMessage && output->level >= 0 &&
             (moduleFilter || static_cast<uint32_t>(output->level) >= header->levelRow->level);
   };
   for (uint32_t i = 0; i < logState.outputCount; i++) {
      if (takes(logState.outputs[i], true)) {
         logState.outputs[i]->write(logState.outputs[i], header, length, text);
      }
   }
   LogHeader line = *header;
   for (size_t start = 0; start < length;) {
      const void *newline = memchr(text + start, '\n', length - start);
      size_t end = newline != nullptr ? static_cast<const char *>(newline) - text + 1 : length;
      for (uint32_t i = 0; i < logState.outputCount; i++) {
         if (takes(logState.outputs[i], false)) {
            logState.outputs[i]->write(logState.outputs[i], &line, end - start, text + start);
         }
      }
      line.continuation = 1;
      start = end;
   }
}

void LogReplayRing()
{
   LogRing *ring = &logState.ring;
   while (ring->used != 0) {
      LogHeader header;
      size_t length;
      size_t taken = LogRingReadRecord(ring, ring->read, &header, readerBuffer, &length);
      ring->read = (ring->read + taken) % ring->size;
      ring->used -= taken;
      LogWriteOutputs(&header, readerBuffer, length);
   }
}

void LogFillHeader(LogHeader *header, const LogFilter *filter, const LogLevelRow *row)
{
   memset(header, 0, sizeof *header);
   header->filter = filter;
   header->levelRow = row;
   const char *name = VThread_CurName();
   Str_Snprintf(header->threadName, sizeof header->threadName, "%s",
                name[0] != '\0' ? name : "*UNKNOWN*");
   if (logState.tagCallback != nullptr) {
      logState.tagCallback(header->tag, sizeof header->tag);
   }
   LogUtcTime now;
   logPlatform.utcTime(&now);
   Str_Snprintf(header->time, sizeof header->time, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ",
                now.year, now.month, now.day, now.hour, now.minute, now.second,
                now.milliseconds);
}

// A text fits if there is room for the newline that every message ends in.
bool LogFits(const char *text, int length, size_t size)
{
   return length >= 0 &&
          (static_cast<size_t>(length) + 1 < size || (length > 0 && text[length - 1] == '\n'));
}

size_t LogEndLine(char *text, size_t length)
{
   if (length == 0 || text[length - 1] != '\n') {
      text[length++] = '\n';
      text[length] = '\0';
   }
   return length;
}

// A deliberate mask of one word, in every message whatever its source.
void LogMaskWord(char *text, size_t length)
{
   auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
   for (size_t i = 0; length - i >= 3;) {
      if (lower(text[i]) == 'q' && lower(text[i + 1]) == 'z' && lower(text[i + 2]) == 'x') {
         memcpy(text + i, "***", 3);
         i += 3;
      } else {
         i++;
      }
   }
}

// Formats into `buffer`, cutting at a whole character when the text does not fit even
// there; returns the length, newline included.
size_t LogFormatCut(char *buffer, size_t size, const char *format, va_list args)
{
   memset(buffer, 0, size);
   char *target = buffer;
   bsd_vsnprintf(&target, size, format, args);
   size_t length = strnlen(buffer, size - 1);
   return length + 1 < size ? LogEndLine(buffer, length) : LogCutAtWholeCharacter(buffer, size);
}

void LogFormatAndWrite(uint32_t word, const char *format, va_list args)
{
   uint32_t level = word & 31;
   uint32_t module = word >> LOG_MODULE_SHIFT;
   const LogLevelRow *row = &logLevels[level >= 24 ? 5 : level];
   if (logState.lockStorage.activeCount.load() != 0) {
      return;
   }
   const LogFilter *filter = &logState.defaultFilter;
   bool toFile = true;
   bool toStderr = false;
   if (level != LOG_LEVEL_AUDIT) {
      if (module >= 1 && module <= kModuleCount) {
         filter = &moduleFilters.filters[module - 1];
      }
      toFile = static_cast<int32_t>(level) <= filter->fileLevel;
      toStderr = static_cast<int32_t>(level) <= filter->stderrLevel;
      if (!toFile && !toStderr) {
         return;
      }
   }

   char local[kLocalBufferSize];
   char *text = local;
   size_t length;
   va_list copy;
   va_copy(copy, args);
   int n = Str_Vsnprintf(local, sizeof local, format, copy);
   va_end(copy);
   char *large = nullptr;
   if (LogFits(local, n, sizeof local)) {
      length = LogEndLine(local, static_cast<size_t>(n));
   } else {
      large = logState.largeBuffer.exchange(nullptr);
      if (large != nullptr) {
         text = large;
         va_copy(copy, args);
         n = Str_Vsnprintf(large, kLargeBufferSize, format, copy);
         va_end(copy);
      }
      if (large != nullptr && LogFits(large, n, kLargeBufferSize)) {
         length = LogEndLine(large, static_cast<size_t>(n));
      } else {
         va_copy(copy, args);
         length = LogFormatCut(text, large != nullptr ? kLargeBufferSize : sizeof local,
                               format, copy);
         va_end(copy);
      }
   }
   LogMaskWord(text, length);

   if (LogLock()) {
      if (toStderr) {
         logPlatform.writeStderr(text);
         logPlatform.debugOutput(text);
      }
      if (toFile) {
         LogHeader header;
         LogFillHeader(&header, filter, row);
         if (logState.depth <= 1 && logState.outputCount > 0) {
            LogReplayRing();
            LogWriteOutputs(&header, text, length);
         } else {
            LogRingAppend(&header, text, length);
         }
      }
      LogUnlock();
   }
   if (large != nullptr) {
      logState.largeBuffer.store(large);
   }
}

// Whatever the log does, the caller finds the last error as it left it.
void LogV(uint32_t word, const char *format, va_list args)
{
   uint32_t lastError = Platform_GetLastError();
   LogFormatAndWrite(word, format, args);
   Platform_SetLastError(lastError);
}

} // namespace

size_t LogCutAtWholeCharacter(char *buffer, size_t size)
{
   size_t whole = TrimUtf8End(buffer, size - 1);
   // The newline takes the place of the last whole character's last byte, and never
   // lands inside a character.
   size_t at = whole == 0 ? 0 : TrimUtf8End(buffer, whole - 1);
   buffer[at] = '\n';
   buffer[at + 1] = '\0';
   return at + 1;
}

void Log(const char *format, ...)
{
   va_list args;
   va_start(args, format);
   LogV(LOG_LEVEL_INFO, format, args);
   va_end(args);
}

void Warning(const char *format, ...)
{
   va_list args;
   va_start(args, format);
   LogV(LOG_LEVEL_WARNING, format, args);
   va_end(args);
}

void LogAt(uint32_t level, const char *format, ...)
{
   va_list args;
   va_start(args, format);
   LogV(level, format, args);
   va_end(args);
}

void Log_SetLevels(uint32_t module, int32_t fileLevel, int32_t stderrLevel)
{
   LogFilter *filter = module == 0 ? &logState.defaultFilter
                       : module <= kModuleCount ? &moduleFilters.filters[module - 1]
                                                : nullptr;
   if (filter != nullptr) {
      filter->fileLevel = fileLevel;
      filter->stderrLevel = stderrLevel;
   }
}

bool Log_AttachOutput(LogOutput *output)
{
   bool attached = false;
   if (LogLock()) {
      if (logState.outputCount < kMaxOutputs) {
         logState.outputs[logState.outputCount++] = output;
         attached = true;
      }
      LogUnlock();
   }
   return attached;
}

void Log_DetachOutput(LogOutput *output)
{
   if (!LogLock()) {
      return;
   }
   uint32_t kept = 0;
   for (uint32_t i = 0; i < logState.outputCount; i++) {
      if (logState.outputs[i] != output) {
         logState.outputs[kept++] = logState.outputs[i];
      }
   }
   logState.outputCount = kept;
   LogUnlock();
}

const char *LogGetFilePath()
{
   const char *path = nullptr;
   if (LogLock()) {
      for (uint32_t i = 0; i < logState.outputCount && path == nullptr; i++) {
         if (logState.outputs[i]->kind == kLogFileOutputKind) {
            path = logState.outputs[i]->path;
         }
      }
      LogUnlock();
   }
   return path;
}

void LogNotifyPanic()
{
   if (!LogLock()) {
      return;
   }
   for (uint32_t i = 0; i < logState.outputCount; i++) {
      if (logState.outputs[i]->notifyPanic != nullptr) {
         logState.outputs[i]->notifyPanic(logState.outputs[i]);
      }
   }
   LogUnlock();
}

void Log_ForEachRingRecord(void (*visit)(const LogHeader *header, const char *text,
                                         size_t length, void *context),
                           void *context)
{
   if (!LogLock()) {
      return;
   }
   char *text = static_cast<char *>(SafeMalloc(kReaderSize));
   const LogRing *ring = &logState.ring;
   for (size_t offset = 0; offset < ring->used;) {
      LogHeader header;
      size_t length;
      offset += LogRingReadRecord(ring, ring->read + offset, &header, text, &length);
      visit(&header, text, length, context);
   }
   free(text);
   LogUnlock();
}
