#pragma once
// Bounded and allocating string formatting. A bounded call never leaves an unterminated
// buffer nor one that ends inside a UTF-8 character; a Safe call stops the process rather
// than return a cut or missing string. Allocated results belong to the caller (free()).

#include <cstdarg>
#include <cstddef>

#include "misc/vtrChar16.h"
#include "string/bsd_vsnprintf.h"

int Str_Vsnprintf(char *buffer, size_t size, const char *format, va_list ap);
int Str_Snprintf(char *buffer, size_t size, const char *format, ...);
int Str_Sprintf(char *buffer, size_t size, const char *format, ...);
char *Str_Strcpy(char *destination, const char *source, size_t size);
char *Str_Strcat(char *destination, const char *source, size_t size);

char *Str_Vasprintf(size_t *length, const char *format, va_list ap);
char *Str_Asprintf(size_t *length, const char *format, ...);
char *Str_SafeVasprintf(size_t *length, const char *format, va_list ap);
char *Str_SafeAsprintf(size_t *length, const char *format, ...);

utf16_t *StrVaswprintfInternal(size_t *length, const utf16_t *format, va_list ap,
                               bool mustSucceed);
utf16_t *Str_SafeAswprintf(size_t *length, const utf16_t *format, ...);
