#pragma once
// Ends the process. Never returns.
[[noreturn]] void Panic(const char *format, ...);
