#pragma once
// Conversion between the encodings the library meets: its own UTF-8, the platform's UTF-16
// and the local code page. Two paths, picked by dontUseIcu: the built-in converters (the
// one in use) and ICU's, for whoever clears the flag. Results are reported, never logged.

#include <cstddef>
#include <cstdint>

#include "misc/dynbuf.h"

// Set when the program starts; while set, no conversion makes an ICU call.
extern bool dontUseIcu;

enum {
   CSGTG_NORMAL = 0,     // fail on what cannot be converted
   CSGTG_TRANSLIT = 1,   // put a substitute in its place
   CSGTG_IGNORE = 2,     // pass over it
};

bool CodeSet_GenericToGeneric(const char *sourceName, const char *buffer, size_t size,
                              const char *targetName, unsigned policy, DynBuf *output);
// A new buffer, terminated (four zero bytes on the ICU path, two on the built-in one); the
// size excludes the terminator. Null result and false on failure.
bool CodeSet_Utf8ToUtf16le(const char *buffer, size_t size, char **result, size_t *resultSize);
bool CodeSet_Utf16leToUtf8(const char *buffer, size_t size, char **result, size_t *resultSize);
bool CodeSet_Validate(const char *buffer, size_t size, const char *name);

// ---- The ICU entry points the ICU path uses -----------------------------------------------
// Declared here rather than taken from ICU's headers, because on Windows they come from the
// system's icu.dll at run time and the DLL must not import it.

struct UConverter;
typedef int CodeSetIcuError;  // UErrorCode
constexpr CodeSetIcuError kIcuBufferOverflow = 15;
typedef void (*CodeSetIcuCallback)();  // an ICU callback; only passed back to ICU

struct CodeSetIcu {
   UConverter *(*open)(const char *name, CodeSetIcuError *error);
   void (*close)(UConverter *converter);
   void (*setToUCallBack)(UConverter *converter, CodeSetIcuCallback action,
                          const void *context, CodeSetIcuCallback *oldAction,
                          const void **oldContext, CodeSetIcuError *error);
   void (*setFromUCallBack)(UConverter *converter, CodeSetIcuCallback action,
                            const void *context, CodeSetIcuCallback *oldAction,
                            const void **oldContext, CodeSetIcuError *error);
   void (*convertEx)(UConverter *targetConverter, UConverter *sourceConverter, char **target,
                     const char *targetLimit, const char **source, const char *sourceLimit,
                     char16_t *pivotStart, char16_t **pivotSource, char16_t **pivotTarget,
                     const char16_t *pivotLimit, int8_t reset, int8_t flush,
                     CodeSetIcuError *error);
   int32_t (*toUChars)(UConverter *converter, char16_t *target, int32_t capacity,
                       const char *source, int32_t sourceLength, CodeSetIcuError *error);
   // Stop, substitute and skip, for the two directions.
   CodeSetIcuCallback toU[3];
   CodeSetIcuCallback fromU[3];
};

// The ICU entry points, or null when ICU cannot be had (a Windows without icu.dll).
const CodeSetIcu *CodeSetGetIcu();
