// The log's cut at a whole character, on any bytes and any buffer size: the text ends in a
// newline and a terminator inside the buffer and is otherwise a prefix of the input; valid
// UTF-8 stays valid and loses at most the character cut and the one before it. Then the
// text up to its first NUL through Log to an attached output, which must get it whole with
// its one newline.
//
// Byte 0 picks the buffer size.

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "misc/codeset.h"
#include "misc/log.h"

namespace {

[[noreturn]] void Fail() { __builtin_trap(); }

std::string received;

void CheckCut(const char *text, size_t textLength, const char *cut, size_t length, size_t size)
{
   if (length == 0 || length > size - 1 || cut[length - 1] != '\n' || cut[length] != '\0' ||
       memcmp(cut, text, length - 1) != 0) {
      Fail();
   }
   if (CodeSet_Validate(text, textLength, "UTF-8") &&
       (!CodeSet_Validate(cut, length - 1, "UTF-8") || length + 7 < size)) {
      Fail();
   }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   if (size < 2) {
      return 0;
   }
   const char *text = reinterpret_cast<const char *>(data + 1);
   size_t textLength = size - 1;
   size_t bufferSize = 2 + data[0] % textLength;
   std::vector<char> buffer(text, text + textLength);
   buffer.push_back('\0');
   CheckCut(text, textLength, buffer.data(), LogCutAtWholeCharacter(buffer.data(), bufferSize),
            bufferSize);

   std::string line(text, strnlen(text, textLength));
   bool masked = false;
   for (size_t i = 0; i + 3 <= line.size(); i++) {
      masked |= strncasecmp(&line[i], "qzx", 3) == 0;
   }
   if (masked) {
      return 0;
   }
   static LogOutput output = {0, true, 5, [](LogOutput *, const LogHeader *, size_t length,
                                             const char *message) { received.assign(message, length); },
                              nullptr, nullptr};
   static bool attached = Log_AttachOutput(&output);
   (void)attached;
   Log("%s", line.c_str());
   if (received != (!line.empty() && line.back() == '\n' ? line : line + "\n")) {
      Fail();
   }
   return 0;
}
