#include "misc/log.h"

// Not built yet: messages are dropped and no output is attached.
void Log(const char *, ...) {}
void Warning(const char *, ...) {}
void LogAt(uint32_t, const char *, ...) {}
const char *LogGetFilePath() { return nullptr; }
void LogNotifyPanic() {}
