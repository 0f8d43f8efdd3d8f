#pragma once
// The name under which the client registered a redirected file extension, recomputed from
// the inputs that the user's preference file keeps. Part of the association rewrite: a name
// that comes out different by one bit leaves the user's old association in place.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "misc/vtrChar16.h"

// UTF-16 text. On Windows this is std::wstring, so the migration code passes its strings
// unchanged.
using ProgIdText = std::basic_string<utf16_t>;

struct FreeDeleter {
   void operator()(void *block) const { std::free(block); }
};

// A NUL-terminated UTF-8 copy of a wide text. `size` counts the bytes including the NUL.
struct Utf8Buffer {
   std::unique_ptr<char[], FreeDeleter> bytes;
   size_t size = 0;

   explicit operator bool() const { return bytes != nullptr; }
};

// Converts as WideCharToMultiByte(CP_UTF8, 0, text, -1, ...) does: the text ends at its
// first NUL, and a lone surrogate becomes U+FFFD. Empty result (no `bytes`) on failure.
Utf8Buffer WideToUtf8(const ProgIdText &text);

uint64_t ProgIdHash64(const uint8_t *data, size_t length);

// "Eldrix" + hash(serverGuid + appId) [+ hash(displayName)], each hash in lower-case hex
// without padding; empty when serverGuid or appId is empty.
ProgIdText ComputeProgId(const ProgIdText &serverGuid, const ProgIdText &appId,
                         const ProgIdText &displayName);
