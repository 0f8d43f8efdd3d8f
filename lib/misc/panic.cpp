#include "misc/panic.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "string/str.h"

[[noreturn]] void Panic(const char *format, ...)
{
   // Formatted by our own engine so that the message means the same (%S, I64, UTF-8 trim)
   // as everywhere else in the library; a message too long for the buffer arrives cut.
   char message[1024];
   va_list args;
   va_start(args, format);
   Str_Vsnprintf(message, sizeof message, format, args);
   va_end(args);
   fputs(message, stderr);
   fflush(stderr);
   std::_Exit(3);
}
