// The dictionary's conversions of a setting's text against the C library's: a 64-bit
// integer as strtoll reads it, a 32-bit one as a 32-bit strtol and then strtoul would
// (magnitudes up to 0xFFFFFFFF, a '-' negating), a double as strtod. A text they refuse,
// with a character left behind or no number at all, keeps the default 7 and leaves the
// one message of its kind. A tristate agrees with the boolean wherever that is valid.

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "user/dictionary_core.h"
#include "user/msg.h"

namespace {

// `verdict` is what the C library made of the text ("", "range" or "invalid") and `read`
// the value it read.
void Expect(const char *text, DictionaryValueType type, const char *verdict,
            const char *rangeKey, const char *invalidKey, DictionaryValue read)
{
   DictionaryValue value = {}, fallback;
   fallback.int64Value = 7;
   fallback.doubleValue = type == DictionaryTypeDouble ? 7 : fallback.doubleValue;
   MsgList *messages = nullptr;
   DictionaryParseValue("v", text, type, &fallback, &value, &messages);
   std::string key = messages != nullptr ? messages->id : "";
   MsgList_Free(messages);
   DictionaryValue want = *verdict == '\0' ? read : fallback;
   bool same = type == DictionaryTypeInt     ? value.intValue == want.intValue
               : type == DictionaryTypeInt64 ? value.int64Value == want.int64Value
               : memcmp(&value.doubleValue, &want.doubleValue, sizeof(double)) == 0 ||
                    (std::isnan(value.doubleValue) && std::isnan(want.doubleValue));
   if (!same || key != (*verdict == '\0' ? "" : *verdict == 'r' ? rangeKey : invalidKey)) {
      __builtin_trap();
   }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   std::string input(reinterpret_cast<const char *>(data), size);
   const char *text = input.c_str();
   char *end;
   auto verdict = [&](bool outOfRange) {
      return outOfRange ? "range" : end == text || *end != '\0' ? "invalid" : "";
   };
   DictionaryValue read;
   errno = 0;
   read.int64Value = strtoll(text, &end, 0);
   bool overflow = end != text && errno == ERANGE;
   Expect(text, DictionaryTypeInt64, verdict(overflow), "msg.dictionary.integer64OutOfRange",
          "msg.dictionary.notInteger64", read);
   overflow |= end != text && (read.int64Value > int64_t{UINT32_MAX} ||
                               read.int64Value < -int64_t{UINT32_MAX});
   read.intValue = static_cast<int32_t>(static_cast<uint32_t>(read.int64Value));
   Expect(text, DictionaryTypeInt, verdict(overflow), "msg.dictionary.integerOutOfRange",
          "msg.dictionary.notInteger", read);
   errno = 0;
   read.doubleValue = strtod(text, &end);
   Expect(text, DictionaryTypeDouble, verdict(end != text && errno == ERANGE),
          "msg.dictionary.doubleOutOfRange", "msg.dictionary.notFloat", read);

   bool notBool, notTristate;
   bool flag = DictionaryParseBool(text, &notBool);
   int32_t tristate = DictionaryParseTristate(text, &notTristate);
   if (!notBool && (notTristate || tristate != (flag ? 1 : 0))) {
      __builtin_trap();
   }
   return 0;
}
