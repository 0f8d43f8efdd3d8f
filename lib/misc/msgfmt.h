#pragma once
// Parses a printf format into a typed argument list, so that a message can be formatted
// later, in another language, with its arguments in another order.

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "misc/vtrChar16.h"

enum {
   MSGFMT_ARG_INVALID = 0,  // not used yet; left over at the end it is a gap
   MSGFMT_ARG_INT32 = 1,
   MSGFMT_ARG_INT64 = 2,
   MSGFMT_ARG_INT32_SAME = 3,  // handled as MSGFMT_ARG_INT32
   MSGFMT_ARG_PTR = 4,
   MSGFMT_ARG_FLOAT64 = 5,
   MSGFMT_ARG_STRING8 = 6,
   MSGFMT_ARG_STRING16 = 7,
   MSGFMT_ARG_STRING16_SAME = 8,
   MSGFMT_ARG_ERRNO = 9,  // a system error, made from a narrow string argument
};

enum {
   MSGFMT_FLAG_ALT = 1,      // #
   MSGFMT_FLAG_ZERO = 2,     // 0
   MSGFMT_FLAG_MINUS = 4,    // -
   MSGFMT_FLAG_SPACE = 8,    // blank
   MSGFMT_FLAG_PLUS = 16,    // +
   MSGFMT_FLAG_QUOTE = 32,   // '
};

constexpr int32_t kMsgFmtPlatformWindows = 2;

struct MsgFmtArg {
   uint32_t type;
   union {
      int32_t signed32;
      int64_t signed64;
      void *ptr;
      double float64;
      char *string8;  // owned
      utf16_t *string16;  // owned
   } v;
   struct {
      int32_t platform;  // for MSGFMT_ARG_ERRNO: 2 for a Windows error code
      int32_t code;
   } e;
   union {
      intptr_t precision;  // while parsing: a string's precision, -1 for none
      char *localized;     // afterwards: the localized form of a string, if any
   } p;
};

// Called for each run of literal text, and for each specifier with its position (digits)
// and the rest of it up to and including the conversion letter. A non-zero result stops
// the parse and becomes its result.
typedef int (*MsgFmtLiteralFunc)(void *clientData, const char *text, size_t length);
typedef int (*MsgFmtSpecFunc)(void *clientData, const char *pos, size_t posLength,
                              const char *type, size_t typeLength);

// 0, -2 for a bad format, or what a callback gave. Either every specifier has a position
// or none has; without, specifier n gets position n.
int MsgFmt_Parse(MsgFmtLiteralFunc literalFunc, MsgFmtSpecFunc specifierFunc, void *clientData,
                 const char *format);

// Splits one specifier. `lengthModifier` is one letter: 'L' for I64, ll and q; 'z' for I
// and Z; 'H' for hh; h, l, L, j, t, z as written; 0 for none. Widths and precisions not
// given are -1 (an empty precision is 0). 0 or -2.
int MsgFmt_ParseSpec(const char *pos, size_t posLength, const char *type, size_t typeLength,
                     int *position, int *flags, int *width, int *precision,
                     char *lengthModifier, char *conversion);

// The per-specifier step of MsgFmt_GetArgs; clientData is its parse state.
int MsgFmtGetArg1(void *clientData, const char *pos, size_t posLength, const char *type,
                  size_t typeLength);

// Builds the argument array (free with MsgFmt_FreeArgs) from the format and the variable
// arguments, copying strings. On failure *error is a text to free.
bool MsgFmt_GetArgs(const char *format, va_list args, MsgFmtArg **outArgs, int *outCount,
                    char **error);
void MsgFmt_FreeArgs(MsgFmtArg *args, int count);

// Formats with the arguments by position. Null if a position is beyond `count` or an
// argument's type does not fit its specifier. The result is the caller's (free()).
char *MsgFmt_Format(const char *format, const MsgFmtArg *args, int count, size_t *outLength);

// Whether `text` is a string that the error layer handed out for a system error, and its
// code. The error layer's own test by default; tests put another in its place.
typedef bool (*MsgFmtErrorStringTest)(const char *text, int32_t *code);
void MsgFmt_SetErrorStringTest(MsgFmtErrorStringTest test);
