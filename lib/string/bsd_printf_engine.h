#pragma once
// The formatting engine behind bsd_vsnprintf and bsd_vsnwprintf: the BSD vfprintf loop with
// the stream replaced by a memory target. One body serves both widths; what differs
// (string arguments, %c, the source of floating text, locale queries) is chosen by the
// character type. Internal to lib/string.

#include <cctype>
#include <climits>
#include <clocale>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <type_traits>

#include "string/bsd_fmt_int.h"
#include "string/bsd_vsnprintf.h"

namespace bsdfmt {

enum : unsigned {
   ALT = 0x0001,       // #
   LADJUST = 0x0004,   // -
   LONGINT = 0x0010,   // l
   LLONGINT = 0x0020,  // ll, L, q, I64
   SHORTINT = 0x0040,  // h
   ZEROPAD = 0x0080,   // 0
   FPT = 0x0100,       // a floating conversion is under way
   GROUPING = 0x0200,  // '
   SIZET = 0x0400,     // z, Z, I
   PTRDIFFT = 0x0800,  // t
   INTMAXT = 0x1000,   // j
   CHARINT = 0x2000,   // hh
};
constexpr unsigned kInteger64 = LLONGINT | SIZET | PTRDIFFT | INTMAXT;

constexpr int64_t kMaxTotal = 0x7fffffff;
constexpr int kIntBufferSize = 100;
constexpr int kPadChunk = 16;
constexpr int kBatchPieces = 8;
constexpr int kStackTypes = 8;
constexpr int kStackSlots = 8;  // slot 0 and up to 7 arguments

enum ArgType : unsigned char { ARG_UNUSED, ARG_INT, ARG_WCHAR, ARG_INT64, ARG_POINTER, ARG_DOUBLE };

template <typename CharT>
inline bool IsDigit(CharT c)
{
   return c >= '0' && c <= '9';
}

// Widths, precisions and argument numbers saturate instead of overflowing; anything that
// large fails the call on the total anyway.
inline int AddDigit(int n, int digit)
{
   return n > (INT_MAX - digit) / 10 ? INT_MAX : n * 10 + digit;
}

// The number of the argument a conversion takes, moving on to the next one.
inline int TakeNext(int &nextarg)
{
   return nextarg < INT_MAX ? nextarg++ : nextarg;
}

template <typename CharT>
int ReadNumber(const CharT *&p, int first)
{
   int n = first;
   while (IsDigit(*p)) {
      n = AddDigit(n, static_cast<int>(*p++ - '0'));
   }
   return n;
}

// The size letters that may stand between the flags and the conversion, read the same way
// by the argument pass and the main pass. `fmt` stands just behind `ch`. Always in line:
// a call here costs as much as the work, and the two callers keep `fmt` in a register.
template <typename CharT>
[[gnu::always_inline]] inline void ApplySizeModifier(CharT ch, const CharT *&fmt, unsigned &flags)
{
   switch (ch) {
   case 'h':
      flags = (flags & SHORTINT) ? (flags & ~SHORTINT) | CHARINT : flags | SHORTINT;
      break;
   case 'l':
      flags = (flags & LONGINT) ? (flags & ~LONGINT) | LLONGINT : flags | LONGINT;
      break;
   case 'L': case 'q':
      flags |= LLONGINT;
      break;
   case 'I':
      if (fmt[0] == '6' && fmt[1] == '4') {
         fmt += 2;
         flags |= LLONGINT;
      } else if (fmt[0] == '3' && fmt[1] == '2') {
         fmt += 2;
      } else {
         flags |= SIZET;
      }
      break;
   case 'z': case 'Z':
      flags |= SIZET;
      break;
   case 't':
      flags |= PTRDIFFT;
      break;
   case 'j':
      flags |= INTMAXT;
      break;
   default:
      break;
   }
}

// The next '%' or the terminator, from a place that holds neither. Literal text is most of
// many formats, so the narrow scan goes to the C library's word-at-a-time routines rather
// than looking at each byte here.
inline const char *ScanLiteral(const char *p)
{
#if defined(__GLIBC__)
   return strchrnul(p, '%');
#else
   return p + strcspn(p, "%");
#endif
}

template <typename CharT>
const CharT *ScanLiteral(const CharT *p)
{
   while (*p != 0 && *p != '%') {
      p++;
   }
   return p;
}

// Both passes scan the same literal text for the same '%'. The argument pass notes where
// its first scans started and ended, and the main pass takes the end from there instead of
// reading the text a second time. A scan's end depends on nothing but its start, so the
// note is used only for a scan from the very same place; any other scan reads the text.
constexpr int kNotedScans = 8;

template <typename CharT>
struct ScanNotes {
   const CharT *from[kNotedScans];
   const CharT *to[kNotedScans];
   int count;  // noted by the argument pass
   int used;   // taken by the main pass, in the same order
};

// A '%' or the terminator right here is the common case after a conversion: no scan.
template <typename CharT>
inline const CharT *FindConversionNoting(const CharT *p, ScanNotes<CharT> *notes)
{
   if (*p == '%' || *p == 0) {
      return p;
   }
   const CharT *found = ScanLiteral(p);
   if (notes->count < kNotedScans) {
      notes->from[notes->count] = p;
      notes->to[notes->count] = found;
      notes->count++;
   }
   return found;
}

template <typename CharT>
inline const CharT *FindConversionNoted(const CharT *p, ScanNotes<CharT> *notes)
{
   if (*p == '%' || *p == 0) {
      return p;
   }
   if (notes->used < notes->count && notes->from[notes->used] == p) {
      return notes->to[notes->used++];
   }
   return ScanLiteral(p);
}

// ---- Argument pass ----------------------------------------------------------------------

struct TypeTable {
   ArgType onStack[kStackTypes];
   ArgType *types;
   int64_t size;
   int maxIndex;
};

inline void TypeTableInit(TypeTable *t)
{
   memset(t->onStack, 0, sizeof t->onStack);
   t->types = t->onStack;
   t->size = kStackTypes;
   t->maxIndex = 0;
}

inline void TypeTableFree(TypeTable *t)
{
   if (t->types != t->onStack) {
      free(t->types);
   }
}

inline void TypeTableSet(TypeTable *t, int index, ArgType type)
{
   if (index >= t->size) {
      int64_t size = t->size * 2 > index + 1 ? t->size * 2 : static_cast<int64_t>(index) + 1;
      ArgType *grown = static_cast<ArgType *>(malloc(static_cast<size_t>(size)));
      if (grown == nullptr) {
         abort();
      }
      memcpy(grown, t->types, static_cast<size_t>(t->size));
      memset(grown + t->size, 0, static_cast<size_t>(size - t->size));
      TypeTableFree(t);
      t->types = grown;
      t->size = size;
   }
   t->types[index] = type;
   if (index > t->maxIndex) {
      t->maxIndex = index;
   }
}

// `*` or `*n$`: the argument that gives a width or precision.
template <typename CharT>
void NoteAsterisk(const CharT *&fmt, int *nextarg, TypeTable *t)
{
   const CharT *cp = fmt;
   int n = 0;
   while (IsDigit(*cp)) {
      n = AddDigit(n, static_cast<int>(*cp++ - '0'));
   }
   if (*cp == '$') {
      TypeTableSet(t, n, ARG_INT);
      fmt = cp + 1;
   } else {
      TypeTableSet(t, TakeNext(*nextarg), ARG_INT);
   }
}

// Records the type of every argument the format names. Its floating conversions are
// a A e E f g G: %F takes no slot here, %a does (the main pass prints %F and not %a).
// Always in line in its one caller, which runs it on every call.
template <typename CharT>
[[gnu::always_inline]] inline void FindArgumentTypes(const CharT *fmt, TypeTable *t,
                                                     ScanNotes<CharT> *notes)
{
   int nextarg = 1;
   for (;;) {
      fmt = FindConversionNoting(fmt, notes);
      if (*fmt == 0) {
         return;
      }
      fmt++;
      unsigned flags = 0;
      for (;;) {
         CharT ch = *fmt++;
         switch (ch) {
         case ' ': case '#': case '-': case '+': case '0': case '\'':
            continue;
         case '*':
            NoteAsterisk(fmt, &nextarg, t);
            continue;
         case '.':
            if (*fmt == '*') {
               fmt++;
               NoteAsterisk(fmt, &nextarg, t);
            } else {
               while (IsDigit(*fmt)) {
                  fmt++;
               }
            }
            continue;
         case '1': case '2': case '3': case '4': case '5': case '6': case '7': case '8': case '9': {
            int n = ReadNumber(fmt, static_cast<int>(ch - '0'));
            if (*fmt == '$') {
               fmt++;
               nextarg = n;
            }
            continue;
         }
         case 'h': case 'l': case 'L': case 'q': case 'I': case 'z': case 'Z': case 't': case 'j':
            ApplySizeModifier(ch, fmt, flags);
            continue;
         case 'c':
            TypeTableSet(t, TakeNext(nextarg), (flags & LONGINT) ? ARG_WCHAR : ARG_INT);
            break;
         case 'C':
            TypeTableSet(t, TakeNext(nextarg), ARG_WCHAR);
            break;
         case 'd': case 'i': case 'o': case 'u': case 'x': case 'X':
            TypeTableSet(t, TakeNext(nextarg), (flags & kInteger64) ? ARG_INT64 : ARG_INT);
            break;
         case 'D': case 'O': case 'U':
            TypeTableSet(t, TakeNext(nextarg), ARG_INT);
            break;
         case 'a': case 'A': case 'e': case 'E': case 'f': case 'g': case 'G':
            TypeTableSet(t, TakeNext(nextarg), ARG_DOUBLE);
            break;
         case 'n': case 'p': case 's': case 'S':
            TypeTableSet(t, TakeNext(nextarg), ARG_POINTER);
            break;
         case 0:
            return;
         default:
            break;
         }
         break;
      }
   }
}

// Reads the arguments in order into 64-bit slots; slots no conversion named are ints.
inline void ReadArguments(const TypeTable *t, uint64_t *slots, va_list &args)
{
   slots[0] = 0;
   for (int i = 1; i <= t->maxIndex; i++) {
      switch (t->types[i]) {
      case ARG_UNUSED:
      case ARG_INT:
         slots[i] = static_cast<uint32_t>(va_arg(args, int));
         break;
      case ARG_WCHAR:
         slots[i] = static_cast<uint16_t>(va_arg(args, int));
         break;
      case ARG_INT64:
         slots[i] = static_cast<uint64_t>(va_arg(args, long long));
         break;
      case ARG_POINTER:
         slots[i] = reinterpret_cast<uintptr_t>(va_arg(args, void *));
         break;
      case ARG_DOUBLE: {
         double d = va_arg(args, double);
         memcpy(&slots[i], &d, sizeof d);
         break;
      }
      }
   }
}

// ---- Output target ----------------------------------------------------------------------

template <typename CharT>
struct Output {
   CharT *buffer;
   uint64_t capacity;  // characters, terminator included
   bool growing;
   CharT *next;        // where the next copied character goes
   uint64_t room;      // characters that can still be copied before the terminator's place
   int64_t total;
   struct {
      const CharT *text;
      size_t length;
   } pieces[kBatchPieces];
   int count;
   bool failed;
};

// Copies one piece of the batch. Pieces are mostly a few characters (a sign, a point, a
// separator, a number, a short run of the format), and for those a call to memcpy, and the
// registers that the call makes the caller save, cost more than the copy itself. So moves
// of a fixed size do it here: two of one size, the first from the start and the second up
// to the end, cover every length from that size to twice it (they overlap in the middle);
// longer pieces go in blocks of 16 and a last block up to the end.
inline void CopyBytes(char *to, const char *from, size_t n)
{
   if (n >= 8) {
      if (n >= 16) {
         for (size_t i = 0; i + 16 < n; i += 16) {
            memcpy(to + i, from + i, 16);
         }
         memcpy(to + n - 16, from + n - 16, 16);
      } else {
         memcpy(to, from, 8);
         memcpy(to + n - 8, from + n - 8, 8);
      }
   } else if (n >= 4) {
      memcpy(to, from, 4);
      memcpy(to + n - 4, from + n - 4, 4);
   } else if (n >= 2) {
      memcpy(to, from, 2);
      memcpy(to + n - 2, from + n - 2, 2);
   } else if (n == 1) {
      *to = *from;
   }
}

// Growing mode: makes room for the batch and the terminator, to the least multiple of the
// old capacity that holds them. False when the allocation fails, now or before.
template <typename CharT>
bool OutputMakeRoom(Output<CharT> *o)
{
   if (o->failed) {
      return false;
   }
   uint64_t pending = 0;
   for (int i = 0; i < o->count; i++) {
      pending += o->pieces[i].length;
   }
   uint64_t written = static_cast<uint64_t>(o->next - o->buffer);
   uint64_t needed = written + pending + 1;
   if (o->capacity < needed) {
      uint64_t capacity = o->capacity * ((needed - 1 + o->capacity) / o->capacity);
      CharT *grown =
         static_cast<CharT *>(realloc(o->buffer, static_cast<size_t>(capacity) * sizeof(CharT)));
      if (grown == nullptr) {
         o->failed = true;
         return false;
      }
      o->buffer = grown;
      o->next = grown + written;
      o->capacity = capacity;
      o->room = capacity - written - 1;
   }
   return true;
}

// Copies out the batch, each piece cut to the room that is left; in fixed mode what does
// not fit is dropped, and the total goes on counting.
template <typename CharT>
bool OutputCopyOut(Output<CharT> *o)
{
   if (o->growing && !OutputMakeRoom(o)) [[unlikely]] {
      return false;
   }
   // Held in locals: the copies store characters, which as far as the compiler knows could
   // land in the fields of *o, and it would read them again after every piece.
   uint64_t room = o->room;
   CharT *to = o->next;
   const int count = o->count;
   for (int i = 0; i < count; i++) {
      uint64_t n = o->pieces[i].length < room ? o->pieces[i].length : room;
      CopyBytes(reinterpret_cast<char *>(to), reinterpret_cast<const char *>(o->pieces[i].text),
                static_cast<size_t>(n) * sizeof(CharT));
      to += n;
      room -= n;
   }
   o->next = to;
   o->room = room;
   o->count = 0;
   return true;
}

// Copies out the batch. An empty batch is the common case at the end of a call and after a
// conversion that printed nothing; it is answered here without the call. A failed copy
// leaves its pieces in the batch, so an empty batch has not failed.
template <typename CharT>
inline bool OutputFlush(Output<CharT> *o)
{
   return o->count == 0 || OutputCopyOut(o);
}

template <typename CharT>
void OutputPrint(Output<CharT> *o, const CharT *text, int64_t length)
{
   if (length <= 0 || o->failed) {
      return;
   }
   o->pieces[o->count].text = text;
   o->pieces[o->count].length = static_cast<size_t>(length);
   o->count++;
   if (o->count == kBatchPieces) {
      OutputFlush(o);
   }
}

template <typename CharT>
struct Padding {
   static constexpr CharT blanks[kPadChunk] = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ',
                                               ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
   static constexpr CharT zeroes[kPadChunk] = {'0', '0', '0', '0', '0', '0', '0', '0',
                                               '0', '0', '0', '0', '0', '0', '0', '0'};
};

// `n` characters of padding, in pieces of at most 16.
template <typename CharT, typename Put>
void PutPadding(Put &put, int64_t n, const CharT *with)
{
   while (n > 0) {
      int64_t k = n < kPadChunk ? n : kPadChunk;
      put(with, k);
      n -= k;
   }
}

// What there is of [p, p + available) up to `length`, then padding to `length`.
template <typename CharT, typename Put>
void PutAndPad(Put &put, const CharT *p, int64_t available, int64_t length, const CharT *with)
{
   int64_t n = available < length ? available : length;
   if (n > 0) {
      put(p, n);
   } else {
      n = 0;
   }
   PutPadding(put, length - n, with);
}

// ---- Locale -----------------------------------------------------------------------------

// A caller may hand the locale in; otherwise localeconv() is asked, once per call and only
// when a conversion needs it: the decimal point for a floating conversion, the separator
// and grouping for the ' flag. Most formats need neither, and the query is not cheap.
struct LocaleSource {
   const BsdFormatLocale *given;
   bool haveDecimalPoint;
   bool haveGrouping;
   char decimalPoint;
   char thousandsSep;
   const char *grouping;
};

inline char LocaleDecimalPoint(LocaleSource *l)
{
   if (!l->haveDecimalPoint) {
      if (l->given != nullptr) {
         l->decimalPoint = l->given->decimalPoint;
      } else {
         const struct lconv *lc = localeconv();
         l->decimalPoint = lc->decimal_point != nullptr ? lc->decimal_point[0] : '.';
      }
      l->haveDecimalPoint = true;
   }
   return l->decimalPoint;
}

inline void LocaleGrouping(LocaleSource *l, char *separator, const char **grouping)
{
   if (!l->haveGrouping) {
      if (l->given != nullptr) {
         l->thousandsSep = l->given->thousandsSep;
         l->grouping = l->given->grouping;
      } else {
         const struct lconv *lc = localeconv();
         l->thousandsSep = lc->thousands_sep != nullptr ? lc->thousands_sep[0] : '\0';
         l->grouping = lc->grouping;
      }
      if (l->grouping == nullptr || *l->grouping == '\0') {
         l->grouping = "\x7f";
      }
      l->haveGrouping = true;
   }
   *separator = l->thousandsSep;
   *grouping = l->grouping;
}

template <typename CharT>
size_t TextLength(const CharT *s)
{
   const CharT *p = s;
   while (*p != 0) {
      p++;
   }
   return static_cast<size_t>(p - s);
}

template <typename CharT>
int64_t TextLengthWithin(const CharT *s, int64_t limit)
{
   int64_t n = 0;
   while (n < limit && s[n] != 0) {
      n++;
   }
   return n;
}

inline bool EqualsIgnoringCase(const char *a, const char *b)
{
   for (; *a != '\0' && *b != '\0'; a++, b++) {
      if (tolower(static_cast<unsigned char>(*a)) != tolower(static_cast<unsigned char>(*b))) {
         return false;
      }
   }
   return *a == *b;
}

// ---- The engine -------------------------------------------------------------------------

// Scratch owned by one call, released on every way out.
template <typename CharT>
struct Scratch {
   uint64_t slotsOnStack[kStackSlots];
   uint64_t *slots;
   TypeTable types;
   ScanNotes<CharT> scans;
   void *stringBuffer;   // converted %S (narrow) or %s (wide)
   char digits[kDoubleDigitsSize];  // floating digits, on the stack: no call allocates them
   utf16_t *wideDigits;             // the same, widened (wide engine)
   // Set with each of the three pointers above when it is given a block. Most calls own
   // none, and then this one test answers for them all.
   bool owning;
};

// Keeps the converted text of the current %S (or wide %s) until the next one or the end of
// the call; null when the conversion failed.
template <typename CharT>
void *HoldConverted(Scratch<CharT> &s, void *converted)
{
   free(s.stringBuffer);
   s.stringBuffer = converted;
   s.owning = true;
   return converted;
}

template <typename CharT>
void ScratchFree(Scratch<CharT> *s)
{
   TypeTableFree(&s->types);
   if (s->owning) {
      if (s->slots != s->slotsOnStack) {
         free(s->slots);
      }
      free(s->stringBuffer);
      free(s->wideDigits);
   }
}

// What the flags, width, precision and size letters of one conversion set.
template <typename CharT>
struct ConversionSpec {
   unsigned flags;
   int64_t width;
   int64_t prec;   // -1 when none was given
   CharT sign;     // '-', '+', ' ' or 0
   CharT ox[2];    // "0x" or "0X" when ox[1] is set
};

// A precision counts characters of the output width; on narrow text it never splits a
// UTF-8 character, on wide text it ignores surrogate pairs.
inline int64_t StringLength(const char *text, int64_t precision)
{
   if (precision < 0) {
      return static_cast<int64_t>(strlen(text));
   }
   // memchr stops at the first NUL it meets, so a text shorter than the precision is not
   // read beyond its terminator.
   const void *nul = memchr(text, 0, static_cast<size_t>(precision));
   size_t n = nul != nullptr ? static_cast<size_t>(static_cast<const char *>(nul) - text)
                             : static_cast<size_t>(precision);
   // A text that ends in an ASCII byte ends on a whole character, which is what the trim
   // would find after looking at that byte.
   if (n == 0 || static_cast<unsigned char>(text[n - 1]) < 0x80) {
      return static_cast<int64_t>(n);
   }
   return static_cast<int64_t>(TrimUtf8End(text, n));
}

inline int64_t StringLength(const utf16_t *text, int64_t precision)
{
   return precision < 0 ? static_cast<int64_t>(TextLength(text)) : TextLengthWithin(text, precision);
}

// The pieces of a field of everything but the floating conversions, in order, each handed
// to `put`: blanks, sign, prefix, zeros to the width, zeros to the precision, the text,
// blanks. Padding goes in pieces of at most 16 from the constant strings.
template <typename CharT, typename Put>
[[gnu::always_inline]] inline void FieldPieces(const ConversionSpec<CharT> &c, const CharT *text,
                                               int64_t size, int64_t dprec, int64_t realsz,
                                               int64_t field, Put put)
{
   if (field == size) {
      // The field is the text alone, with no sign, prefix or padding of any kind: each of
      // the steps below but the text itself would print nothing.
      put(text, size);
      return;
   }
   const int64_t padding = field - realsz;
   if ((c.flags & (LADJUST | ZEROPAD)) == 0) {
      PutPadding(put, padding, Padding<CharT>::blanks);
   }
   if (c.sign) {
      put(&c.sign, 1);
   }
   if (c.ox[1]) {
      put(c.ox, 2);
   }
   if ((c.flags & (LADJUST | ZEROPAD)) == ZEROPAD) {
      PutPadding(put, padding, Padding<CharT>::zeroes);
   }
   PutPadding(put, dprec - size, Padding<CharT>::zeroes);
   put(text, size);
   if (c.flags & LADJUST) {
      PutPadding(put, padding, Padding<CharT>::blanks);
   }
}

// Copies a piece straight into a fixed buffer, cut to the room as the copy-out cuts it.
template <typename CharT>
inline void OutputCopyNow(Output<CharT> *o, const CharT *text, int64_t length)
{
   if (length <= 0) {
      return;
   }
   uint64_t n = static_cast<uint64_t>(length) < o->room ? static_cast<uint64_t>(length) : o->room;
   CopyBytes(reinterpret_cast<char *>(o->next), reinterpret_cast<const char *>(text),
             static_cast<size_t>(n) * sizeof(CharT));
   o->next += n;
   o->room -= n;
}

// Counts a field towards the total; false when that would pass its limit. With a fixed
// buffer the pieces of the field then go straight in, after what the batch holds is copied
// out here: batched, they would be copied out in the same order (when eight are pending and
// at the end of the conversion), each cut to the room that is left, and from here to there
// nothing can fail, as copying out into a fixed buffer cannot. So this gives the same bytes
// without the round through the batch. Literal runs still wait in the batch: a conversion
// after them may fail, and then they are not copied out.
template <typename CharT>
inline bool OutputBeginField(Output<CharT> *o, int64_t field)
{
   if (o->total + field > kMaxTotal) {
      return false;
   }
   o->total += field;
   if (!o->growing) {
      OutputFlush(o);
   }
   return true;
}

// Where the pieces of a floating conversion go: straight into a fixed buffer (see
// OutputBeginField), into the batch otherwise.
template <typename CharT>
struct FieldSink {
   Output<CharT> *o;
   bool direct;

   void operator()(const CharT *text, int64_t length) const
   {
      if (direct) {
         OutputCopyNow(o, text, length);
      } else {
         OutputPrint(o, text, length);
      }
   }
};

// Field assembly of everything but the floating conversions: the field counts towards the
// total, and its pieces go straight into a fixed buffer or through the batch, which is then
// copied out. False when the total would pass its limit or the copy failed. Always in line
// in its one caller, which runs it for almost every conversion.
template <typename CharT>
[[gnu::always_inline]] inline bool OutputField(Output<CharT> *o, const ConversionSpec<CharT> &c,
                                               const CharT *text, int64_t size, int64_t dprec)
{
   int64_t realsz = dprec > size ? dprec : size;
   if (c.sign) {
      realsz++;
   }
   if (c.ox[1]) {
      realsz += 2;
   }
   int64_t field = c.width > realsz ? c.width : realsz;
   if (!OutputBeginField(o, field)) {
      return false;
   }
   if (!o->growing) {
      FieldPieces(c, text, size, dprec, realsz, field,
                  [o](const CharT *p, int64_t n) { OutputCopyNow(o, p, n); });
      return true;
   }
   FieldPieces(c, text, size, dprec, realsz, field,
               [o](const CharT *p, int64_t n) { OutputPrint(o, p, n); });
   return OutputFlush(o);
}

// A floating conversion (e E f F g G) of `bits`, from its digits to its field, copied out
// before it returns: the batch points at the text it builds here. False ends the call with
// -1 (no digits, no memory, or a total past its limit).
template <typename CharT>
bool OutputFloating(Output<CharT> *o, ConversionSpec<CharT> c, CharT ch, uint64_t bits,
                    LocaleSource *loc, Scratch<CharT> &s)
{
   constexpr bool kWide = !std::is_same_v<CharT, char>;
   const CharT *blanks = Padding<CharT>::blanks;
   const CharT *zeroes = Padding<CharT>::zeroes;
   unsigned flags = c.flags;
   int64_t prec = c.prec;
   CharT sign = c.sign;
   CharT expchar;
   switch (ch) {
   case 'e':
   case 'E':
      expchar = ch;
      prec = prec < 0 ? 7 : prec + 1;
      break;
   case 'f':
   case 'F':
      expchar = 0;
      if (prec < 0) {
         prec = 6;
      }
      break;
   default:  // g, G
      expchar = static_cast<CharT>(ch - ('g' - 'e'));
      if (prec < 0) {
         prec = 6;
      } else if (prec == 0) {
         prec = 1;
      }
      break;
   }

   double value;
   memcpy(&value, &bits, sizeof value);
   int expt = 0;
   int signflag = 0;
   char *digitsEnd = nullptr;
   int mode = (ch == 'f' || ch == 'F') ? 3 : 2;
   int count = prec > INT_MAX ? INT_MAX : static_cast<int>(prec);
   DoubleToDigitsInto(s.digits, value, mode, count, &expt, &signflag, &digitsEnd);
   // The batch points at the point until the copy at the end of this conversion.
   CharT decimalPoint = static_cast<CharT>(static_cast<unsigned char>(LocaleDecimalPoint(loc)));
   int ndig = static_cast<int>(digitsEnd - s.digits);
   const CharT *cp;
   bool special;
   if constexpr (kWide) {
      free(s.wideDigits);
      s.wideDigits = Utf8ToWideString(s.digits, -1);
      s.owning = true;
      if (s.wideDigits == nullptr) {
         return false;
      }
      cp = s.wideDigits;
      special = expt == 9999;
   } else {
      cp = s.digits;
      // Text that starts with a digit is none of the three words.
      special = expt == 9999 ||
                (!IsDigit(s.digits[0]) &&
                 (EqualsIgnoringCase(s.digits, "-inf") || EqualsIgnoringCase(s.digits, "inf") ||
                  EqualsIgnoringCase(s.digits, "nan")));
      if (special) {
         bool upper = ch == 'E' || ch == 'F' || ch == 'G';
         for (char *p = s.digits; *p != '\0'; p++) {
            *p = static_cast<char>(upper ? toupper(static_cast<unsigned char>(*p))
                                         : tolower(static_cast<unsigned char>(*p)));
         }
      }
   }

   int64_t size;
   CharT expstr[16];
   int expsize = 0;
   int64_t lead = 0;
   int nseps = 0;
   int nrepeats = 0;
   const char *grouping = nullptr;
   CharT separator = 0;
   if (special) {
      if (*cp == '-') {
         sign = '-';
         cp++;
      }
      size = static_cast<int64_t>(TextLength(cp));
   } else {
      if (signflag) {
         sign = '-';
      }
      if (ch == 'g' || ch == 'G') {
         if (expt < -3 || expt > prec) {
            if (!(flags & ALT)) {
               prec = ndig;
            }
         } else {
            expchar = 0;
            prec = (flags & ALT) ? prec - expt : ndig - expt;
            if (prec < 0) {
               prec = 0;
            }
         }
      }
      if (expchar) {
         expsize = ExponentText<CharT>(expstr, expt - 1, expchar);
         size = expsize + prec;
         if (prec > 1 || (flags & ALT)) {
            size++;
         }
      } else {
         size = expt > 0 ? expt : 1;
         if (prec || (flags & ALT)) {
            size += prec + 1;
         }
         lead = expt;
         if ((flags & GROUPING) && expt > 0) {
            char sep;
            LocaleGrouping(loc, &sep, &grouping);
            separator = static_cast<CharT>(static_cast<unsigned char>(sep));
            while (*grouping != CHAR_MAX && *grouping > 0) {
               if (lead <= *grouping) {
                  break;
               }
               lead -= *grouping;
               if (grouping[1] != '\0') {
                  nseps++;
                  grouping++;
               } else {
                  nrepeats++;
               }
            }
            size += nseps + nrepeats;
         }
      }
   }

   // Field assembly: as for the other conversions, with no prefix and no precision's zeros,
   // and with the digits laid out around the point here.
   int64_t realsz = sign ? size + 1 : size;
   int64_t field = c.width > realsz ? c.width : realsz;
   if (!OutputBeginField(o, field)) {
      return false;
   }
   FieldSink<CharT> put{o, !o->growing};
   if ((flags & (LADJUST | ZEROPAD)) == 0) {
      PutPadding(put, field - realsz, blanks);
   }
   if (sign) {
      put(&sign, 1);
   }
   CharT firstDigit = '0';
   if (special) {
      // Infinities and NaN: the word alone, so a zero-padded one gets no zeros.
      put(cp, size);
   } else {
      if ((flags & (LADJUST | ZEROPAD)) == ZEROPAD) {
         PutPadding(put, field - realsz, zeroes);
      }
      if (!expchar) {
         if (expt <= 0) {
            put(zeroes, 1);
            if (prec || (flags & ALT)) {
               put(&decimalPoint, 1);
            }
            PutPadding(put, -static_cast<int64_t>(expt), zeroes);
            prec += expt;
            PutAndPad(put, cp, ndig, prec, zeroes);
         } else {
            int64_t at = 0;
            PutAndPad(put, cp, ndig - at, lead, zeroes);
            at += lead;
            if (grouping != nullptr) {
               while (nseps > 0 || nrepeats > 0) {
                  if (nrepeats > 0) {
                     nrepeats--;
                  } else {
                     grouping--;
                     nseps--;
                  }
                  put(&separator, 1);
                  PutAndPad(put, cp + (at < ndig ? at : ndig), ndig - at, *grouping,
                                    zeroes);
                  at += *grouping;
               }
            }
            if (at > ndig) {
               at = ndig;
            }
            if (prec || (flags & ALT)) {
               put(&decimalPoint, 1);
            }
            PutAndPad(put, cp + at, ndig - at, prec, zeroes);
         }
      } else {
         firstDigit = ndig > 0 ? cp[0] : static_cast<CharT>('0');
         put(&firstDigit, 1);
         if (prec > 1 || (flags & ALT)) {
            int rest = ndig > 1 ? ndig - 1 : 0;
            put(&decimalPoint, 1);
            put(cp + 1, rest);
            PutPadding(put, prec - 1 - rest, zeroes);
         }
         put(expstr, expsize);
      }
   }
   if (flags & LADJUST) {
      PutPadding(put, field - realsz, blanks);
   }
   return OutputFlush(o);
}

template <typename CharT>
int FormatCore(CharT **buffer, size_t capacity, const BsdFormatLocale *locale,
               const CharT *format, va_list ap)
{
   constexpr bool kWide = !std::is_same_v<CharT, char>;
   static constexpr CharT kNull[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
   static constexpr CharT kDigits[32] = {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'a',
                                         'b', 'c', 'd', 'e', 'f', '0', '1', '2', '3', '4', '5',
                                         '6', '7', '8', '9', 'A', 'B', 'C', 'D', 'E', 'F'};

   // The batch entries are written before they are read; the rest starts out empty.
   Output<CharT> o;
   o.total = 0;
   o.count = 0;
   o.failed = false;
   o.growing = *buffer == nullptr;
   if (o.growing) {
      uint64_t n = TextLength(format) + 1;
      if (n > 1) {
         n = (n + 63) & ~static_cast<uint64_t>(63);
      }
      o.buffer = static_cast<CharT *>(malloc(static_cast<size_t>(n) * sizeof(CharT)));
      if (o.buffer == nullptr) {
         return -1;
      }
      o.capacity = n;
   } else {
      o.buffer = *buffer;
      o.capacity = capacity;
   }
   o.next = o.buffer;
   o.room = o.capacity != 0 ? o.capacity - 1 : 0;

   LocaleSource loc{locale, false, false, '.', '\0', nullptr};

   // Only what every way out reads is set: the argument slots are written before use.
   Scratch<CharT> s;
   s.slots = s.slotsOnStack;
   s.stringBuffer = nullptr;
   s.wideDigits = nullptr;
   s.owning = false;
   s.scans.count = 0;
   s.scans.used = 0;
   TypeTableInit(&s.types);
   FindArgumentTypes(format, &s.types, &s.scans);
   if (s.types.maxIndex >= kStackSlots) {
      s.slots = static_cast<uint64_t *>(malloc((static_cast<size_t>(s.types.maxIndex) + 1) * 8));
      if (s.slots == nullptr) {
         s.slots = s.slotsOnStack;
         goto fail;
      }
      s.owning = true;
   }
   {
      va_list args;
      va_copy(args, ap);
      ReadArguments(&s.types, s.slots, args);
      va_end(args);
   }

   {
      const CharT *fmt = format;
      int nextarg = 1;
      // Fixed from here on; in locals, the compiler need not read them again after each
      // character the conversions store.
      const int maxIndex = s.types.maxIndex;
      const uint64_t *const slots = s.slots;
      // A conversion that names no argument the argument pass saw (%F) reads zero.
      auto arg = [&](int index) -> uint64_t {
         // One unsigned comparison for 0 <= index <= maxIndex.
         return static_cast<unsigned>(index) <= static_cast<unsigned>(maxIndex) ? slots[index] : 0;
      };
      auto asterisk = [&]() -> int {
         const CharT *cp = fmt;
         int n = 0;
         while (IsDigit(*cp)) {
            n = AddDigit(n, static_cast<int>(*cp++ - '0'));
         }
         if (*cp == '$') {
            fmt = cp + 1;
            return static_cast<int>(arg(n));
         }
         return static_cast<int>(arg(TakeNext(nextarg)));
      };

      for (;;) {
         const CharT *run = fmt;
         fmt = FindConversionNoted(fmt, &s.scans);
         if (fmt != run) {
            int64_t n = fmt - run;
            if (o.total + n > kMaxTotal) {
               goto fail;
            }
            OutputPrint(&o, run, n);
            o.total += n;
         }
         if (*fmt == 0) {
            break;
         }
         fmt++;

         ConversionSpec<CharT> c;
         c.flags = 0;
         c.width = 0;
         c.prec = -1;
         c.sign = 0;
         c.ox[0] = '0';
         c.ox[1] = 0;
         CharT ch;
         for (;;) {
            ch = *fmt++;
            switch (ch) {
            case ' ':
               if (c.sign == 0) {
                  c.sign = ' ';
               }
               continue;
            case '+':
               c.sign = '+';
               continue;
            case '-':
               c.flags |= LADJUST;
               continue;
            case '#':
               c.flags |= ALT;
               continue;
            case '0':
               c.flags |= ZEROPAD;
               continue;
            case '\'':
               c.flags |= GROUPING;
               continue;
            case '*': {
               int64_t w = asterisk();
               if (w < 0) {
                  c.flags |= LADJUST;
                  w = -w;
               }
               c.width = w;
               continue;
            }
            case '.':
               if (*fmt == '*') {
                  fmt++;
                  int p = asterisk();
                  c.prec = p < 0 ? -1 : p;
               } else {
                  c.prec = ReadNumber(fmt, 0);
               }
               continue;
            case '1': case '2': case '3': case '4': case '5': case '6': case '7': case '8': case '9': {
               int n = ReadNumber(fmt, static_cast<int>(ch - '0'));
               if (*fmt == '$') {
                  fmt++;
                  nextarg = n;
               } else {
                  c.width = n;
               }
               continue;
            }
            case 'h': case 'l': case 'L': case 'q': case 'I': case 'z': case 'Z': case 't': case 'j':
               ApplySizeModifier(ch, fmt, c.flags);
               continue;
            default:
               break;
            }
            break;
         }

         // Each conversion below ends with its text in [cp, cp + size), or prints its own
         // field and goes on with the next stretch of the format.
         const CharT *cp = nullptr;
         int64_t size = 0;
         int64_t dprec = 0;
         uint64_t uval = 0;
         int base = 10;
         const CharT *xdigs = kDigits;
         CharT intBuffer[kIntBufferSize];
         CharT charBuffer[MB_LEN_MAX > 4 ? MB_LEN_MAX : 4];
         switch (ch) {
         case 'c':
            if (c.flags & LONGINT) {
               goto wideChar;
            }
            if constexpr (kWide) {
               int value = static_cast<int>(static_cast<uint32_t>(arg(TakeNext(nextarg))));
               wint_t w = value == EOF ? WEOF : btowc(value);
               charBuffer[0] = w == WEOF ? static_cast<utf16_t>(0xFFFF) : static_cast<utf16_t>(w);
            } else {
               charBuffer[0] = static_cast<char>(arg(TakeNext(nextarg)));
            }
            cp = charBuffer;
            size = 1;
            c.sign = 0;
            break;
         case 'C':
         wideChar: {
            uint16_t wc = static_cast<uint16_t>(arg(TakeNext(nextarg)));
            if constexpr (kWide) {
               charBuffer[0] = static_cast<utf16_t>(wc);
               size = 1;
            } else {
               mbstate_t state;
               memset(&state, 0, sizeof state);
               size_t n = wcrtomb(charBuffer, static_cast<wchar_t>(wc), &state);
               if (n == static_cast<size_t>(-1)) {
                  goto fail;
               }
               size = static_cast<int64_t>(n);
            }
            cp = charBuffer;
            c.sign = 0;
            break;
         }
         case 'D':
            c.flags |= LONGINT;
            [[fallthrough]];
         case 'd':
         case 'i': {
            uint64_t slot = arg(TakeNext(nextarg));
            int64_t v;
            // Plain and `l` sizes first: both are 32 bits, and they are most conversions.
            if ((c.flags & (kInteger64 | SHORTINT | CHARINT)) == 0) {
               v = static_cast<int32_t>(slot);
            } else if (c.flags & kInteger64) {
               v = static_cast<int64_t>(slot);
            } else if (c.flags & LONGINT) {
               v = static_cast<int32_t>(slot);
            } else if (c.flags & SHORTINT) {
               v = static_cast<int16_t>(slot);
            } else if (c.flags & CHARINT) {
               v = static_cast<int8_t>(slot);
            } else {
               v = static_cast<int32_t>(slot);
            }
            if (v < 0) {
               uval = 0 - static_cast<uint64_t>(v);
               c.sign = '-';
            } else {
               uval = static_cast<uint64_t>(v);
            }
            base = 10;
            goto number;
         }
         case 'U':
            c.flags |= LONGINT;
            [[fallthrough]];
         case 'u':
            base = 10;
            goto unsignedArg;
         case 'O':
            c.flags |= LONGINT;
            [[fallthrough]];
         case 'o':
            base = 8;
            goto unsignedArg;
         case 'X':
            xdigs = kDigits + 16;
            [[fallthrough]];
         case 'x':
            base = 16;
            c.flags &= ~GROUPING;
         unsignedArg: {
            uint64_t slot = arg(TakeNext(nextarg));
            if ((c.flags & (kInteger64 | SHORTINT | CHARINT)) == 0) {
               uval = static_cast<uint32_t>(slot);
            } else if (c.flags & kInteger64) {
               uval = slot;
            } else if (c.flags & LONGINT) {
               uval = static_cast<uint32_t>(slot);
            } else if (c.flags & SHORTINT) {
               uval = static_cast<uint16_t>(slot);
            } else if (c.flags & CHARINT) {
               uval = static_cast<uint8_t>(slot);
            } else {
               uval = static_cast<uint32_t>(slot);
            }
            if (base == 16 && (c.flags & ALT) && uval != 0) {
               c.ox[1] = ch;
            }
            c.sign = 0;
            goto number;
         }
         case 'p':
            uval = arg(TakeNext(nextarg));
            base = 16;
            xdigs = kDigits + 16;
            c.sign = 0;
            goto number;
         number: {
            if ((dprec = c.prec) >= 0) {
               c.flags &= ~ZEROPAD;
            }
            CharT *end = intBuffer + kIntBufferSize;
            CharT *start = end;
            if (uval != 0 || c.prec != 0 || ((c.flags & ALT) && base == 8)) {
               // Decimal without separators and hexadecimal, the common cases, in line: the
               // routine below comes to the same digits through the same steps.
               if (base == 10 && !(c.flags & GROUPING)) {
                  start = DecimalText64<CharT>(uval, end);
               } else if (base == 16) {
                  start = HexText<CharT>(uval, end, xdigs);
               } else {
                  char sep = '\0';
                  const char *grp = nullptr;
                  bool group = (c.flags & GROUPING) != 0;
                  if (group) {
                     LocaleGrouping(&loc, &sep, &grp);
                  }
                  start = UnsignedToText64<CharT>(uval, end, base, (c.flags & ALT) != 0, xdigs,
                                                  group,
                                                  static_cast<CharT>(static_cast<unsigned char>(sep)),
                                                  grp);
               }
            }
            size = end - start;
            if (size > kIntBufferSize) {
               abort();
            }
            cp = start;
            break;
         }
         case 'S':
         wideString: {
            if constexpr (kWide) {
               cp = reinterpret_cast<const CharT *>(arg(TakeNext(nextarg)));
               if (cp == nullptr) {
                  cp = kNull;
               }
            } else {
               const utf16_t *ws = reinterpret_cast<const utf16_t *>(arg(TakeNext(nextarg)));
               if (ws == nullptr) {
                  cp = kNull;
               } else {
                  cp = static_cast<const CharT *>(HoldConverted(
                     s, WideToUtf8String(ws, c.prec >= 0 ? static_cast<ptrdiff_t>(c.prec) : -1)));
                  if (cp == nullptr) {
                     goto fail;
                  }
               }
            }
            size = StringLength(cp, c.prec);
            c.sign = 0;
            break;
         }
         case 's':
            if (c.flags & LONGINT) {
               goto wideString;
            }
            if constexpr (kWide) {
               const char *ns = reinterpret_cast<const char *>(arg(TakeNext(nextarg)));
               if (ns == nullptr) {
                  cp = kNull;
               } else {
                  cp = static_cast<const CharT *>(HoldConverted(
                     s, Utf8ToWideString(ns, c.prec >= 0 ? static_cast<ptrdiff_t>(c.prec) : -1)));
                  if (cp == nullptr) {
                     goto fail;
                  }
               }
            } else {
               cp = reinterpret_cast<const CharT *>(arg(TakeNext(nextarg)));
               if (cp == nullptr) {
                  cp = kNull;
               }
            }
            size = StringLength(cp, c.prec);
            c.sign = 0;
            break;
         case 'e':
         case 'E':
         case 'f':
         case 'F':
         case 'g':
         case 'G':
            if (!OutputFloating(&o, c, ch, arg(TakeNext(nextarg)), &loc, s)) {
               goto fail;
            }
            continue;
         case 'n': {
            void *p = reinterpret_cast<void *>(arg(TakeNext(nextarg)));
            if (c.flags & kInteger64) {
               *static_cast<int64_t *>(p) = o.total;
            } else if (c.flags & LONGINT) {
               *static_cast<int32_t *>(p) = static_cast<int32_t>(o.total);
            } else if (c.flags & SHORTINT) {
               *static_cast<int16_t *>(p) = static_cast<int16_t>(o.total);
            } else if (c.flags & CHARINT) {
               *static_cast<int8_t *>(p) = static_cast<int8_t>(o.total);
            } else {
               *static_cast<int32_t *>(p) = static_cast<int32_t>(o.total);
            }
            continue;
         }
         case 0:
            goto done;
         default:
            charBuffer[0] = ch;
            cp = charBuffer;
            size = 1;
            c.sign = 0;
            break;
         }

         if (!OutputField(&o, c, cp, size, dprec)) {
            goto fail;
         }
      }
   }

done:
   if (!OutputFlush(&o)) {
      goto fail;
   }
   if (o.capacity != 0) {
      *o.next = 0;
   }
   ScratchFree(&s);
   if (o.growing) {
      *buffer = o.buffer;
   }
   return static_cast<int>(o.total);

fail:
   ScratchFree(&s);
   if (o.growing) {
      free(o.buffer);
   }
   return -1;
}

} // namespace bsdfmt
