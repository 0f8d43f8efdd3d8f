#include "misc/dynbuf.h"

#include <cstdlib>
#include <cstring>

void DynBuf_Init(DynBuf *buffer)
{
   buffer->data = nullptr;
   buffer->size = 0;
   buffer->allocated = 0;
}

void DynBuf_Destroy(DynBuf *buffer)
{
   free(buffer->data);
   DynBuf_Init(buffer);
}

bool DynBuf_Enlarge(DynBuf *buffer, size_t minimum)
{
   if (minimum <= buffer->allocated) {
      return true;
   }
   size_t grown = buffer->allocated < 128 ? 128 : buffer->allocated;
   while (grown < minimum) {
      grown = grown * 2 < grown ? minimum : grown * 2;
   }
   char *data = static_cast<char *>(realloc(buffer->data, grown));
   if (data == nullptr) {
      return false;
   }
   buffer->data = data;
   buffer->allocated = grown;
   return true;
}

bool DynBuf_Append(DynBuf *buffer, const void *bytes, size_t size)
{
   if (buffer->size + size < size || !DynBuf_Enlarge(buffer, buffer->size + size)) {
      return false;
   }
   if (size != 0) {
      memcpy(buffer->data + buffer->size, bytes, size);
   }
   buffer->size += size;
   return true;
}

char *DynBuf_Detach(DynBuf *buffer)
{
   char *data = buffer->data;
   DynBuf_Init(buffer);
   return data;
}
