// The log's cut at a whole character, on any bytes and any buffer size (picked by byte 0):
// the text ends in a newline and a terminator inside the buffer and is otherwise a prefix
// of the input; valid UTF-8 stays valid and loses at most the character cut and the one
// before it.

#include <cstdint>
#include <cstring>
#include <vector>

#include "misc/codeset.h"
#include "misc/log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   if (size < 2) {
      return 0;
   }
   const char *text = reinterpret_cast<const char *>(data + 1);
   size_t textLength = size - 1;
   size_t bufferSize = 2 + data[0] % textLength;
   std::vector<char> cut(text, text + textLength);
   cut.push_back('\0');  // the buffer may be as long as the text and one byte more
   size_t length = LogCutAtWholeCharacter(cut.data(), bufferSize);
   if (length == 0 || length > bufferSize - 1 || cut[length - 1] != '\n' || cut[length] != '\0' ||
       memcmp(cut.data(), text, length - 1) != 0) {
      __builtin_trap();
   }
   if (CodeSet_Validate(text, textLength, "UTF-8") &&
       (!CodeSet_Validate(cut.data(), length - 1, "UTF-8") || length + 7 < bufferSize)) {
      __builtin_trap();
   }
   return 0;
}
