#include "misc/msgfmt.h"

#include <atomic>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "misc/dynbuf.h"
#include "misc/errText.h"
#include "misc/panic.h"
#include "string/str.h"

namespace {

std::atomic<MsgFmtErrorStringTest> errorStringTest{ErrText_IsKnown};

constexpr int MSGFMT_TYPE_FLOAT_SIZE = -1;  // a floating conversion with a size it can't have
constexpr int MSGFMT_TYPE_COUNT = -2;       // %n
constexpr int MSGFMT_TYPE_UNKNOWN = -3;

// The argument type of a conversion letter with its normalised size letter.
int MsgFmtTypeOf(char conversion, char length)
{
   switch (conversion) {
   case 'A': case 'E': case 'F': case 'G': case 'a': case 'e': case 'f': case 'g':
      return length == 'L' || length == 'j' ? MSGFMT_TYPE_FLOAT_SIZE : int{MSGFMT_ARG_FLOAT64};
   case 'X': case 'd': case 'i': case 'o': case 'u': case 'x':
      return length == 'L' || length == 'j' || length == 't' || length == 'z' ? MSGFMT_ARG_INT64
                                                                              : MSGFMT_ARG_INT32;
   case 'c': case 'C':
      return MSGFMT_ARG_INT32;
   case 'p':
      return MSGFMT_ARG_PTR;
   case 's':
      return length == 'L' || length == 'j' || length == 'l' ? MSGFMT_ARG_STRING16
                                                             : MSGFMT_ARG_STRING8;
   case 'S':
      return MSGFMT_ARG_STRING16;
   case 'n':
      return MSGFMT_TYPE_COUNT;
   default:
      return MSGFMT_TYPE_UNKNOWN;
   }
}

bool MsgFmtIsConversion(char c)
{
   return c != '\0' && strchr("ACEFGSXacdefginopsux", c) != nullptr;
}

bool MsgFmtIsSpecifierChar(char c)
{
   return c != '\0' && strchr(" #'+-.0123456789ILZhjlqtz", c) != nullptr;
}

// A decimal number over [p, end) of digits only; false on overflow of a signed 32 bits.
bool MsgFmtDecimal(const char *&p, const char *end, int *value)
{
   int64_t number = 0;
   for (; p < end && *p >= '0' && *p <= '9'; p++) {
      number = number * 10 + (*p - '0');
      if (number > INT_MAX) {
         return false;
      }
   }
   *value = static_cast<int>(number);
   return true;
}

struct MsgFmtArgState {
   MsgFmtArg *args;
   int numArgs;   // the highest position seen
   int capacity;
   char *error;   // the first error, recorded once
};

void MsgFmtRecordError(MsgFmtArgState *state, const char *format, ...)
{
   if (state->error != nullptr) {
      return;
   }
   va_list args;
   va_start(args, format);
   state->error = Str_SafeVasprintf(nullptr, format, args);
   va_end(args);
}

} // namespace

void MsgFmt_SetErrorStringTest(MsgFmtErrorStringTest test)
{
   errorStringTest.store(test);
}

int MsgFmt_Parse(MsgFmtLiteralFunc literalFunc, MsgFmtSpecFunc specifierFunc, void *clientData,
                 const char *format)
{
   enum { Literal, Percent, Position, Specifier } state = Literal;
   const char *literal = format;  // start of the pending literal run
   const char *percent = nullptr;
   const char *pos = nullptr;
   const char *specifier = nullptr;
   int positional = -1;  // not known until the first specifier
   int count = 0;
   auto emit = [&](const char *end) {
      return literalFunc != nullptr && end > literal ? literalFunc(clientData, literal, end - literal)
                                                     : 0;
   };
   for (const char *p = format;; p++) {
      char c = *p;
      switch (state) {
      case Literal:
         if (c == '\0') {
            return emit(p);
         }
         if (c == '%') {
            percent = p;
            state = Percent;
         }
         continue;
      case Percent:
         if (c == '%') {
            // The second '%' starts the next literal run, so that one of the pair stays.
            if (int status = emit(percent)) {
               return status;
            }
            literal = p;
            state = Literal;
            continue;
         }
         if (c >= '1' && c <= '9') {
            pos = p;
            state = Position;
            continue;
         }
         pos = nullptr;
         specifier = p;
         state = Specifier;
         break;
      case Position:
         if (c >= '0' && c <= '9') {
            continue;
         }
         if (c == '$') {
            specifier = p + 1;
            state = Specifier;
            continue;
         }
         specifier = pos;  // those digits began a width, not a position
         pos = nullptr;
         state = Specifier;
         break;
      case Specifier:
         break;
      }
      // In a specifier, with c not yet taken.
      if (MsgFmtIsSpecifierChar(c)) {
         continue;
      }
      if (!MsgFmtIsConversion(c)) {
         return -2;
      }
      int hasPosition = pos != nullptr;
      if (positional != -1 && positional != hasPosition) {
         return -2;
      }
      positional = hasPosition;
      if (int status = emit(percent)) {
         return status;
      }
      char number[16];
      size_t posLength;
      if (hasPosition) {
         posLength = static_cast<size_t>(specifier - 1 - pos);
      } else {
         posLength = static_cast<size_t>(Str_Snprintf(number, sizeof number, "%d", ++count));
         pos = number;
      }
      if (int status = specifierFunc(clientData, pos, posLength, specifier,
                                     static_cast<size_t>(p + 1 - specifier))) {
         return status;
      }
      literal = p + 1;
      state = Literal;
   }
}

int MsgFmt_ParseSpec(const char *pos, size_t posLength, const char *type, size_t typeLength,
                     int *position, int *flags, int *width, int *precision,
                     char *lengthModifier, char *conversion)
{
   const char *p = pos;
   if (!MsgFmtDecimal(p, pos + posLength, position) || p != pos + posLength || *position < 1) {
      return -2;
   }
   const char *end = type + typeLength;
   p = type;
   *flags = 0;
   for (const char *flag; p < end && *p != '\0' && (flag = strchr(" #'+-0", *p)) != nullptr; p++) {
      static const int bits[] = {MSGFMT_FLAG_SPACE, MSGFMT_FLAG_ALT,   MSGFMT_FLAG_QUOTE,
                                 MSGFMT_FLAG_PLUS,  MSGFMT_FLAG_MINUS, MSGFMT_FLAG_ZERO};
      *flags |= bits[flag - " #'+-0"];
   }
   *width = -1;
   if (p < end && *p >= '1' && *p <= '9' && !MsgFmtDecimal(p, end, width)) {
      return -2;
   }
   *precision = -1;
   if (p < end && *p == '.') {
      p++;
      if (!MsgFmtDecimal(p, end, precision)) {
         return -2;
      }
   }
   auto next = [&](const char *text) {
      size_t n = strlen(text);
      return static_cast<size_t>(end - p) >= n && memcmp(p, text, n) == 0;
   };
   *lengthModifier = 0;
   if (next("I64") || next("ll")) {
      *lengthModifier = 'L';
      p += next("ll") ? 2 : 3;
   } else if (next("I32")) {
      p += 3;
   } else if (next("hh")) {
      *lengthModifier = 'H';
      p += 2;
   } else if (p < end && strchr("ILZhjlqtz", *p) != nullptr && *p != '\0') {
      *lengthModifier = *p == 'q' ? 'L' : *p == 'I' || *p == 'Z' ? 'z' : *p;
      p++;
   }
   if (p + 1 != end) {
      return -2;
   }
   *conversion = *p;
   return 0;
}

int MsgFmtGetArg1(void *clientData, const char *pos, size_t posLength, const char *type,
                  size_t typeLength)
{
   auto *state = static_cast<MsgFmtArgState *>(clientData);
   int posLen = static_cast<int>(posLength);
   int typeLen = static_cast<int>(typeLength);
   int position, flags, width, precision;
   char length, conversion;
   int status = MsgFmt_ParseSpec(pos, posLength, type, typeLength, &position, &flags, &width,
                                 &precision, &length, &conversion);
   if (status < 0) {
      MsgFmtRecordError(state, "MsgFmtGetArg1: bad specifier, status %d, pos \"%.*s\", type \"%.*s\"",
                        status, posLen, pos, typeLen, type);
      return status;
   }
   if (position > state->capacity) {
      int capacity = position + state->capacity < 4 ? 4 : position + state->capacity;
      auto *grown = static_cast<MsgFmtArg *>(realloc(state->args, capacity * sizeof(MsgFmtArg)));
      if (grown == nullptr) {
         return -1;
      }
      memset(grown + state->capacity, 0, (capacity - state->capacity) * sizeof(MsgFmtArg));
      state->args = grown;
      state->capacity = capacity;
   }
   state->numArgs = position > state->numArgs ? position : state->numArgs;
   int argType = MsgFmtTypeOf(conversion, length);
   switch (argType) {
   case MSGFMT_TYPE_FLOAT_SIZE:
      MsgFmtRecordError(state, "MsgFmtGetArg1: %%%c%c not supported, pos \"%.*s\", type \"%.*s\"",
                        length, conversion, posLen, pos, typeLen, type);
      return -2;
   case MSGFMT_TYPE_COUNT:
      MsgFmtRecordError(state, "MsgFmtGetArg1: %%n not supported, pos \"%.*s\", type \"%.*s\"",
                        posLen, pos, typeLen, type);
      return -2;
   case MSGFMT_TYPE_UNKNOWN:
      MsgFmtRecordError(state, "MsgFmtGetArg1: %%%c not understood, pos \"%.*s\", type \"%.*s\"",
                        conversion, posLen, pos, typeLen, type);
      Panic("%s\n", state->error);
   }
   MsgFmtArg *arg = &state->args[position - 1];
   if (arg->type != MSGFMT_ARG_INVALID && arg->type != static_cast<uint32_t>(argType)) {
      MsgFmtRecordError(state,
                        "MsgFmtGetArg1: incompatible specifiers for argument %d, old type %d, "
                        "new type %d, pos \"%.*s\", type \"%.*s\"",
                        position, arg->type, argType, posLen, pos, typeLen, type);
      return -2;
   }
   // A string used twice keeps as much as its longest use needs.
   bool firstUse = arg->type == MSGFMT_ARG_INVALID;
   arg->type = static_cast<uint32_t>(argType);
   if (firstUse || (arg->p.precision >= 0 && (precision < 0 || precision > arg->p.precision))) {
      arg->p.precision = precision;
   }
   return 0;
}

bool MsgFmt_GetArgs(const char *format, va_list args, MsgFmtArg **outArgs, int *outCount,
                    char **error)
{
   MsgFmtArgState state = {};
   int status = MsgFmt_Parse(nullptr, MsgFmtGetArg1, &state, format);
   MsgFmtErrorStringTest isErrorString = errorStringTest.load();
   for (int i = 0; status == 0 && i < state.numArgs; i++) {
      MsgFmtArg *arg = &state.args[i];
      switch (arg->type) {
      case MSGFMT_ARG_INVALID:
         MsgFmtRecordError(&state, "MsgFmt_GetArgs: gap in arguments at position %d", i + 1);
         status = -2;
         break;
      case MSGFMT_ARG_INT32:
      case MSGFMT_ARG_INT32_SAME:
         arg->v.signed32 = va_arg(args, int32_t);
         break;
      case MSGFMT_ARG_INT64:
         arg->v.signed64 = va_arg(args, int64_t);
         break;
      case MSGFMT_ARG_PTR:
         arg->v.ptr = va_arg(args, void *);
         break;
      case MSGFMT_ARG_FLOAT64:
         arg->v.float64 = va_arg(args, double);
         break;
      case MSGFMT_ARG_STRING8: {
         const char *text = va_arg(args, const char *);
         if (text != nullptr) {
            arg->v.string8 = arg->p.precision >= 0 ? SafeStrndup(text, arg->p.precision)
                                                   : SafeStrdup(text);
            int32_t code;
            if (isErrorString != nullptr && isErrorString(text, &code)) {
               arg->type = MSGFMT_ARG_ERRNO;
               arg->e.platform = kMsgFmtPlatformWindows;
               arg->e.code = code;
            }
         }
         break;
      }
      default: {  // the two wide string types
         const utf16_t *text = va_arg(args, const utf16_t *);
         if (text != nullptr) {
            size_t length = 0;
            while (text[length] != 0 && (arg->p.precision < 0 ||
                                         length < static_cast<size_t>(arg->p.precision))) {
               length++;
            }
            arg->v.string16 = static_cast<utf16_t *>(SafeMalloc((length + 1) * sizeof(utf16_t)));
            memcpy(arg->v.string16, text, length * sizeof(utf16_t));
            arg->v.string16[length] = 0;
         }
      }
      }
      arg->p.localized = nullptr;
   }
   if (status != 0) {
      if (status == -2) {
         MsgFmtRecordError(&state, "MsgFmt_GetArgs: error in format string");
      } else if (status == -1) {
         MsgFmtRecordError(&state, "MsgFmt_GetArgs: out of memory");
      } else {
         MsgFmtRecordError(&state, "MsgFmt_GetArgs: error %d", status);
      }
      MsgFmt_FreeArgs(state.args, state.numArgs);
      *error = state.error;
      return false;
   }
   *outArgs = state.args;
   *outCount = state.numArgs;
   return true;
}

void MsgFmt_FreeArgs(MsgFmtArg *args, int count)
{
   for (int i = 0; i < count; i++) {
      switch (args[i].type) {
      case MSGFMT_ARG_STRING8:
      case MSGFMT_ARG_ERRNO:
         free(args[i].v.string8);
         break;
      case MSGFMT_ARG_STRING16:
      case MSGFMT_ARG_STRING16_SAME:
         free(args[i].v.string16);
         break;
      }
   }
   free(args);
}

namespace {

struct MsgFmtOutput {
   DynBuf text;  // not terminated until the end
   const MsgFmtArg *args;
   int count;
};

int MsgFmtAppendLiteral(void *clientData, const char *text, size_t length)
{
   return DynBuf_Append(&static_cast<MsgFmtOutput *>(clientData)->text, text, length) ? 0 : -1;
}

// One conversion through the formatting engine, straight into the output.
int MsgFmtAppendValue(MsgFmtOutput *out, const char *format, ...)
{
   DynBuf *text = &out->text;
   for (size_t needed = text->size + 1;; ) {
      if (!DynBuf_Enlarge(text, needed)) {
         return -1;
      }
      va_list args;
      va_start(args, format);
      char *target = text->data + text->size;
      int n = bsd_vsnprintf(&target, text->allocated - text->size, format, args);
      va_end(args);
      if (n < 0) {
         return -1;
      }
      if (static_cast<size_t>(n) < text->allocated - text->size) {
         text->size += static_cast<size_t>(n);
         return 0;
      }
      needed = text->size + static_cast<size_t>(n) + 1;
   }
}

bool MsgFmtTypeFits(uint32_t argType, int wanted)
{
   switch (wanted) {
   case MSGFMT_ARG_INT32:
      return argType == MSGFMT_ARG_INT32 || argType == MSGFMT_ARG_INT32_SAME;
   case MSGFMT_ARG_STRING8:
      return argType == MSGFMT_ARG_STRING8 || argType == MSGFMT_ARG_ERRNO;
   case MSGFMT_ARG_STRING16:
      return argType == MSGFMT_ARG_STRING16 || argType == MSGFMT_ARG_STRING16_SAME;
   default:
      return argType == static_cast<uint32_t>(wanted);
   }
}

int MsgFmtFormatSpec(void *clientData, const char *pos, size_t posLength, const char *type,
                     size_t typeLength)
{
   auto *out = static_cast<MsgFmtOutput *>(clientData);
   int position, flags, width, precision;
   char length, conversion;
   if (MsgFmt_ParseSpec(pos, posLength, type, typeLength, &position, &flags, &width, &precision,
                        &length, &conversion) != 0 ||
       position > out->count) {
      return -2;
   }
   const MsgFmtArg *arg = &out->args[position - 1];
   int wanted = MsgFmtTypeOf(conversion, length);
   if (wanted <= 0 || !MsgFmtTypeFits(arg->type, wanted)) {
      return -2;
   }
   // The directive again, without its position, with the size the stored value has.
   char directive[64];
   size_t n = 0;
   directive[n++] = '%';
   for (int i = 0; i < 6; i++) {
      if ((flags & (1 << i)) != 0) {
         directive[n++] = "#0- +'"[i];
      }
   }
   if (width > 0) {
      n += static_cast<size_t>(Str_Snprintf(directive + n, sizeof directive - n, "%d", width));
   }
   if (precision >= 0) {
      n += static_cast<size_t>(Str_Snprintf(directive + n, sizeof directive - n, ".%d", precision));
   }
   const char *size = wanted == MSGFMT_ARG_INT64 ? "I64"
                      : wanted != MSGFMT_ARG_INT32 ? ""
                      : length == 'H' ? "hh"
                      : length == 'h' ? "h"
                      : length == 'l' ? "l"
                                      : "";
   // The engine's argument pass reserves no slot for %F: its text is that of %f, in upper
   // case where it is a word.
   Str_Snprintf(directive + n, sizeof directive - n, "%s%c", size,
                wanted == MSGFMT_ARG_STRING16 ? 'S' : wanted == MSGFMT_ARG_STRING8 ? 's'
                : conversion == 'F'           ? 'f'
                                              : conversion);
   size_t start = out->text.size;
   int status;
   switch (wanted) {
   case MSGFMT_ARG_INT32:
      status = MsgFmtAppendValue(out, directive, arg->v.signed32);
      break;
   case MSGFMT_ARG_INT64:
      status = MsgFmtAppendValue(out, directive, arg->v.signed64);
      break;
   case MSGFMT_ARG_PTR:
      status = MsgFmtAppendValue(out, directive, arg->v.ptr);
      break;
   case MSGFMT_ARG_FLOAT64:
      status = MsgFmtAppendValue(out, directive, arg->v.float64);
      if (status == 0 && conversion == 'F' && !std::isfinite(arg->v.float64)) {
         for (size_t i = start; i < out->text.size; i++) {
            out->text.data[i] = static_cast<char>(toupper(static_cast<unsigned char>(out->text.data[i])));
         }
      }
      break;
   case MSGFMT_ARG_STRING8: {
      const char *text = arg->p.localized != nullptr ? arg->p.localized : arg->v.string8;
      // A message string that was never localized shows its default text.
      if (text != nullptr && strncmp(text, "@&!*@*@(", 8) == 0 && strchr(text, ')') != nullptr) {
         text = strchr(text, ')') + 1;
      }
      status = MsgFmtAppendValue(out, directive, text);
      break;
   }
   default:
      status = MsgFmtAppendValue(out, directive, arg->v.string16);
   }
   return status;
}

} // namespace

char *MsgFmt_Format(const char *format, const MsgFmtArg *args, int count, size_t *outLength)
{
   MsgFmtOutput out = {{}, args, count};
   DynBuf_Init(&out.text);
   if (!DynBuf_Enlarge(&out.text, (strlen(format) + 1 + 63) / 64 * 64) ||
       MsgFmt_Parse(MsgFmtAppendLiteral, MsgFmtFormatSpec, &out, format) != 0 ||
       !DynBuf_Append(&out.text, "", 1)) {
      DynBuf_Destroy(&out.text);
      return nullptr;
   }
   if (outLength != nullptr) {
      *outLength = out.text.size - 1;
   }
   return DynBuf_Detach(&out.text);
}
