// The dictionary's conversions of a setting's text against the C library's: a 64-bit
// integer as strtoll reads it, a 32-bit one as a 32-bit strtol and then strtoul would
// (magnitudes up to 0xFFFFFFFF, a '-' negating), a double as strtod. A text they refuse,
// with a character left behind or no number at all, keeps the default and leaves the one
// message of its kind. A tristate agrees with the boolean wherever that is valid.

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "user/dictionary_core.h"
#include "user/msg.h"

namespace {

[[noreturn]] void Fail() { __builtin_trap(); }

// The message key left (empty for none) and the value stored, with 7 as the default.
std::string Parse(const char *text, DictionaryValueType type, DictionaryValue *value)
{
   DictionaryValue fallback;
   fallback.int64Value = 7;
   if (type == DictionaryTypeDouble) {
      fallback.doubleValue = 7;
   }
   MsgList *messages = nullptr;
   DictionaryParseValue("v", text, type, &fallback, value, &messages);
   std::string id = messages != nullptr ? messages->id : "";
   MsgList_Free(messages);
   return id;
}

// What the C library makes of the text: "" for a number, else the kind of failure.
const char *Verdict(const char *text, const char *end, bool outOfRange)
{
   return outOfRange ? "range" : end == text || *end != '\0' ? "invalid" : "";
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   std::string input(reinterpret_cast<const char *>(data), size);
   const char *text = input.c_str();
   char *end;
   DictionaryValue value;

   errno = 0;
   long long wide = strtoll(text, &end, 0);
   std::string verdict = Verdict(text, end, end != text && errno == ERANGE);
   std::string id = Parse(text, DictionaryTypeInt64, &value);
   if (id != (verdict == "" ? "" : verdict == "range" ? "msg.dictionary.integer64OutOfRange"
                                                      : "msg.dictionary.notInteger64") ||
       value.int64Value != (verdict == "" ? wide : 7)) {
      Fail();
   }

   bool beyond32 = verdict == "range" ||
                   (end != text && (wide > int64_t{UINT32_MAX} || wide < -int64_t{UINT32_MAX}));
   verdict = Verdict(text, end, beyond32);
   int32_t narrow = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(wide)));
   id = Parse(text, DictionaryTypeInt, &value);
   if (id != (verdict == "" ? "" : verdict == "range" ? "msg.dictionary.integerOutOfRange"
                                                      : "msg.dictionary.notInteger") ||
       value.intValue != (verdict == "" ? narrow : 7)) {
      Fail();
   }

   errno = 0;
   double real = strtod(text, &end);
   verdict = Verdict(text, end, end != text && errno == ERANGE);
   id = Parse(text, DictionaryTypeDouble, &value);
   double want = verdict == "" ? real : 7;
   if (id != (verdict == "" ? "" : verdict == "range" ? "msg.dictionary.doubleOutOfRange"
                                                      : "msg.dictionary.notFloat") ||
       (memcmp(&value.doubleValue, &want, sizeof want) != 0 &&
        !(std::isnan(want) && std::isnan(value.doubleValue)))) {
      Fail();
   }

   bool notBool, notTristate;
   bool flag = DictionaryParseBool(text, &notBool);
   int32_t tristate = DictionaryParseTristate(text, &notTristate);
   if (!notBool && (notTristate || tristate != (flag ? 1 : 0))) {
      Fail();
   }
   return 0;
}
