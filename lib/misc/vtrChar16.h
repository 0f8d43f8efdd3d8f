#pragma once
// The support library's 16-bit code unit. On Windows it is the platform's wchar_t, so that
// wide strings pass to the system unchanged; elsewhere wchar_t is 32 bits wide and the
// library uses char16_t. No code may assume that wchar_t is 16 bits.
#if defined(_WIN32)
typedef wchar_t utf16_t;
#else
typedef char16_t utf16_t;
#endif
static_assert(sizeof(utf16_t) == 2, "utf16_t must be a 16-bit code unit");
