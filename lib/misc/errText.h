#pragma once
// The texts of the platform's error numbers. Each is made once and kept for the life of the
// process, so a caller may hold on to it, and a text handed out here can later be known
// again by its pointer. Every call keeps the thread's last error and errno as they were.

#include <cstdint>

const char *ErrText_Last();
const char *ErrText_Of(uint32_t code);
// True when `text` is a pointer that this module handed out; its number goes to *code.
// Shaped for MsgFmt_SetErrorStringTest.
bool ErrText_IsKnown(const char *text, int32_t *code);

// Where the texts come from. Tests replace the entry to feed texts the system never gives;
// nothing else changes it.
struct ErrTextPlatform {
   char *(*systemMessage)(uint32_t code);  // the system's text as UTF-8 (caller frees), or null
};
extern ErrTextPlatform errTextPlatform;
