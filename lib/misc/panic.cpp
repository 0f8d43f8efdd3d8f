#include "misc/panic.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

[[noreturn]] void Panic(const char *format, ...)
{
   va_list args;
   va_start(args, format);
   vfprintf(stderr, format, args);
   va_end(args);
   fflush(stderr);
   std::_Exit(3);
}
