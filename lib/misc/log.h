#pragma once
// The support library's own logger. It keeps the thread's last error across every call.
// The front end with its filters, the memory ring and the outputs arrive with the log
// facility; until then a message goes nowhere.

#include <cstdint>

void Log(const char *format, ...);
void Warning(const char *format, ...);
void LogAt(uint32_t level, const char *format, ...);
const char *LogGetFilePath();
void LogNotifyPanic();
