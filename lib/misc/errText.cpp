#include "misc/errText.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "misc/hashTable.h"
#include "misc/platform.h"
#include "string/str.h"

#if defined(_WIN32)
#include "misc/win32u.h"
#endif

namespace {

char *ErrTextSystemMessage(uint32_t code)
{
#if defined(_WIN32)
   return Win32U_FormatMessage(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                               nullptr, code, 1033, nullptr);
#else
   char scratch[256];
   const char *text = strerror_r(static_cast<int>(code), scratch, sizeof scratch);
   return text != nullptr ? strdup(text) : nullptr;
#endif
}

std::atomic<HashTable *> textsByCode{nullptr};
std::atomic<HashTable *> codesByText{nullptr};

HashTable *ErrTextTable(std::atomic<HashTable *> *slot)
{
   return HashTable_AllocOnce(slot, 2048, HASH_INT_KEY | HASH_FLAG_ATOMIC, nullptr);
}

// System messages end in a sentence stop and a line break, which a log line has already.
void ErrTextTrim(char *text)
{
   static const char kIdeographicStop[] = "\xE3\x80\x82";
   size_t length = strlen(text);
   for (;;) {
      if (length > 0 && strchr("\n\r.", text[length - 1]) != nullptr) {
         length--;
      } else if (length >= 3 && memcmp(text + length - 3, kIdeographicStop, 3) == 0) {
         length -= 3;
      } else {
         break;
      }
   }
   text[length] = '\0';
}

void *ErrTextKey(uint32_t code)
{
   return reinterpret_cast<void *>(static_cast<uintptr_t>(code));
}

} // namespace

ErrTextPlatform errTextPlatform = {ErrTextSystemMessage};

const char *ErrText_Of(uint32_t code)
{
   uint32_t savedError = Platform_GetLastError();
   int savedErrno = errno;
   HashTable *byCode = ErrTextTable(&textsByCode);
   void *found = nullptr;
   if (!HashTable_Lookup(byCode, ErrTextKey(code), &found)) {
      char *text = errTextPlatform.systemMessage(code);
      if (text != nullptr) {
         ErrTextTrim(text);
      } else {
         text = Str_SafeAsprintf(nullptr, "Unknown error %d (0x%x)", code, code);
      }
      // A thread that lost the race keeps the first text; the pointer handed out must stay.
      found = HashTable_LookupOrInsert(byCode, ErrTextKey(code), text);
      if (found != text) {
         free(text);
      } else {
         HashTable_Insert(ErrTextTable(&codesByText), text, ErrTextKey(code));
      }
   }
   errno = savedErrno;
   Platform_SetLastError(savedError);
   return static_cast<const char *>(found);
}

const char *ErrText_Last()
{
   return ErrText_Of(Platform_GetLastError());
}

bool ErrText_IsKnown(const char *text, int32_t *code)
{
   void *found = nullptr;
   if (text == nullptr || !HashTable_Lookup(ErrTextTable(&codesByText), text, &found)) {
      return false;
   }
   *code = static_cast<int32_t>(reinterpret_cast<uintptr_t>(found));
   return true;
}
