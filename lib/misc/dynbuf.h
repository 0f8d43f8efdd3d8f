#pragma once
// A growable byte buffer. Growth reports failure instead of panicking, so that the code-set
// conversions can answer by their result.

#include <cstddef>

struct DynBuf {
   char *data;
   size_t size;       // bytes in use
   size_t allocated;  // bytes available
};

void DynBuf_Init(DynBuf *buffer);
void DynBuf_Destroy(DynBuf *buffer);
bool DynBuf_Enlarge(DynBuf *buffer, size_t minimum);  // allocated becomes at least minimum
bool DynBuf_Append(DynBuf *buffer, const void *bytes, size_t size);
// Hands the bytes to the caller (free()) and leaves the buffer empty.
char *DynBuf_Detach(DynBuf *buffer);
