#include "user/dictionary_core.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "misc/panic.h"
#include "user/msg.h"

namespace {

// What lookups that add nothing point to; no entry is ever made for these values.
const DictionaryValue dictionaryZero = {.int64Value = 0};
const DictionaryValue dictionaryOne = {.int64Value = 1};
const DictionaryValue dictionaryMinusOne = {.int64Value = -1};

enum DictionaryNumberStatus { NumberOk, NumberOutOfRange, NumberInvalid };

void DictionaryReadValue(DictionaryValueType type, const void *from, DictionaryValue *to)
{
   *to = dictionaryZero;
   if (from == nullptr) {
      return;
   }
   switch (type) {
   case DictionaryTypeBool:
      to->boolValue = *static_cast<const bool *>(from);
      break;
   case DictionaryTypeInt:
   case DictionaryTypeTristate:
      to->intValue = *static_cast<const int32_t *>(from);
      break;
   case DictionaryTypeDouble:
      to->doubleValue = *static_cast<const double *>(from);
      break;
   case DictionaryTypeInt64:
      to->int64Value = *static_cast<const int64_t *>(from);
      break;
   default:
      to->text = *static_cast<char *const *>(from);
   }
}

DictionaryNumberStatus DictionaryEndStatus(const char *text, const char *end)
{
   if (end == text || errno == EINVAL) {
      return NumberInvalid;
   }
   return *end == '\0' ? NumberOk : NumberInvalid;
}

// A 32-bit strtol, and on overflow a 32-bit strtoul, so that 0x80000000 to 0xFFFFFFFF
// read as their bit pattern; like strtoul, a '-' negates the magnitude.
DictionaryNumberStatus DictionaryParseInt32(const char *text, int32_t *value)
{
   errno = 0;
   char *end;
   long long number = strtoll(text, &end, 0);
   if (end != text && (errno == ERANGE || number < INT32_MIN || number > INT32_MAX)) {
      errno = 0;
      const char *digits = text + strspn(text, " \t\n\v\f\r");
      bool negative = *digits == '-';
      digits += *digits == '-' || *digits == '+';
      unsigned long long magnitude = strtoull(digits, &end, 0);
      if (errno == ERANGE || magnitude > UINT32_MAX) {
         return NumberOutOfRange;
      }
      number = static_cast<int32_t>(negative ? 0u - static_cast<uint32_t>(magnitude)
                                             : static_cast<uint32_t>(magnitude));
   }
   DictionaryNumberStatus status = DictionaryEndStatus(text, end);
   if (status == NumberOk) {
      *value = static_cast<int32_t>(number);
   }
   return status;
}

// strtoll or strtod: ERANGE is out of range, and the whole text must be the number.
template <typename Number, typename Convert>
DictionaryNumberStatus DictionaryParseNumber(const char *text, Convert convert, Number *value)
{
   errno = 0;
   char *end;
   Number number = convert(text, &end);
   if (end != text && errno == ERANGE) {
      return NumberOutOfRange;
   }
   DictionaryNumberStatus status = DictionaryEndStatus(text, end);
   if (status == NumberOk) {
      *value = number;
   }
   return status;
}

const char *DictionaryTristateWord(int32_t value)
{
   return value == 1 ? "TRUE" : value == 0 ? "FALSE" : "default";
}

// Text that has become a number leaves no copy in memory; a plain memset before free may
// be dropped by the compiler.
void DictionaryWipeAndFree(char *text)
{
   int savedErrno = errno;
   for (volatile char *p = text; *p != '\0'; p++) {
      *p = '\0';
   }
   free(text);
   errno = savedErrno;
}

} // namespace

Dictionary *Dictionary_Create()
{
   auto *dictionary = static_cast<Dictionary *>(SafeCalloc(1, sizeof(Dictionary)));
   dictionary->head.Prev = dictionary->head.Next = &dictionary->head;
   std::atomic<HashTable *> slot{nullptr};
   dictionary->table = HashTable_AllocOnce(&slot, 64, HASH_STRING_KEY, nullptr);
   return dictionary;
}

void Dictionary_Free(Dictionary *dictionary)
{
   if (dictionary == nullptr) {
      return;
   }
   for (DictionaryEntry *entry = dictionary->head.Next; entry != &dictionary->head;) {
      DictionaryEntry *next = entry->Next;
      if (entry->Type == DictionaryTypeAny || entry->Type == DictionaryTypeString) {
         free(entry->Value.text);
      }
      free(entry->Name);
      free(entry);
      entry = next;
   }
   HashTable_Free(dictionary->table);
   free(dictionary);
}

DictionaryEntry *DictionaryAddEntry(Dictionary *dictionary, char *name, const void *value,
                                    DictionaryValueType type, bool fromDefault, bool copy)
{
   auto *entry = static_cast<DictionaryEntry *>(SafeCalloc(1, sizeof(DictionaryEntry)));
   entry->Name = copy ? SafeStrdup(name) : name;
   entry->Type = type;
   entry->FromDefault = fromDefault;
   if (type < DictionaryTypeAny || type > DictionaryTypeInt64) {
      Panic("NOT_REACHED %s:%d\n", "lib/user/dictionary_core", 835);
   }
   DictionaryReadValue(type, value, &entry->Value);
   if (copy && (type == DictionaryTypeAny || type == DictionaryTypeString)) {
      entry->Value.text = SafeStrdup(entry->Value.text);
   }
   entry->Prev = dictionary->head.Prev;
   entry->Next = &dictionary->head;
   dictionary->head.Prev->Next = entry;
   dictionary->head.Prev = entry;
   HashTable_Insert(dictionary->table, entry->Name, entry);
   dictionary->numEntries++;
   return entry;
}

void DictionaryConvertEntry(DictionaryEntry *entry, DictionaryValueType type,
                            const void *defaultValue, MsgList **messages)
{
   char *text = entry->Value.text;
   entry->Type = type;
   // The text pointer shares the value's storage: a bad text without a default must not
   // leave the pointer's bits behind as a number.
   entry->Value = dictionaryZero;
   DictionaryParseValue(entry->Name, text, type, defaultValue, &entry->Value, messages);
   if (type != DictionaryTypeString && text != nullptr) {
      DictionaryWipeAndFree(text);
   }
}

void DictionaryParseValue(const char *name, const char *text, DictionaryValueType type,
                          const void *defaultValue, DictionaryValue *value,
                          MsgList **messages)
{
   if (type <= DictionaryTypeAny || type > DictionaryTypeInt64) {
      Panic("NOT_REACHED %s:%d\n", "lib/user/dictionary_core", 361);
   }
   if (type == DictionaryTypeString) {
      value->text = const_cast<char *>(text);
      return;
   }
   // A number that fails keeps what the target held; a word that fails, the parser's answer.
   DictionaryValue parsed = *value;
   const char *number = text != nullptr ? text : "";
   const char *message = nullptr;
   bool invalid = false;
   DictionaryNumberStatus status;
   switch (type) {
   case DictionaryTypeBool:
      parsed.boolValue = DictionaryParseBool(text, &invalid);
      message = invalid ? "@&!*@*@(msg.dictionary.notBoolean)Value \"%s\" for variable \"%s\" "
                          "is not a valid boolean value. Using value \"%s\".\n"
                        : nullptr;
      break;
   case DictionaryTypeTristate:
      parsed.tristateValue = DictionaryParseTristate(text, &invalid);
      message = invalid ? "@&!*@*@(msg.dictionary.notTristate)Value \"%s\" for variable \"%s\" "
                          "is not a valid tristate value. Using value \"%s\".\n"
                        : nullptr;
      break;
   case DictionaryTypeInt:
      status = DictionaryParseInt32(number, &parsed.intValue);
      message = status == NumberOk ? nullptr
                : status == NumberOutOfRange
                   ? "@&!*@*@(msg.dictionary.integerOutOfRange)Value \"%s\" for variable "
                     "\"%s\" is out of range. Using value \"%d\".\n"
                   : "@&!*@*@(msg.dictionary.notInteger)Value \"%s\" for variable \"%s\" is "
                     "not a valid integer value. Using value \"%d\".\n";
      break;
   case DictionaryTypeInt64:
      status = DictionaryParseNumber(
         number, [](const char *t, char **e) -> int64_t { return strtoll(t, e, 0); },
         &parsed.int64Value);
      message = status == NumberOk ? nullptr
                : status == NumberOutOfRange
                   ? "@&!*@*@(msg.dictionary.integer64OutOfRange)Value \"%s\" for variable "
                     "\"%s\" is out of range. Using value \"%I64d\".\n"
                   : "@&!*@*@(msg.dictionary.notInteger64)Value \"%s\" for variable \"%s\" "
                     "is not a valid integer value. Using value \"%I64d\".\n";
      break;
   default:
      status = DictionaryParseNumber(number, strtod, &parsed.doubleValue);
      message = status == NumberOk ? nullptr
                : status == NumberOutOfRange
                   ? "@&!*@*@(msg.dictionary.doubleOutOfRange)Value \"%s\" for variable "
                     "\"%s\" is out of range. Using value \"%f\".\n"
                   : "@&!*@*@(msg.dictionary.notFloat)Value \"%s\" for variable \"%s\" is "
                     "not a valid floating point value. Using value \"%f\".\n";
   }
   if (message != nullptr && defaultValue != nullptr) {
      DictionaryReadValue(type, defaultValue, &parsed);
   }
   *value = parsed;
   if (message == nullptr) {
      return;
   }
   switch (type) {
   case DictionaryTypeBool:
      MsgList_Append(messages, message, text, name, value->boolValue ? "TRUE" : "FALSE");
      break;
   case DictionaryTypeTristate:
      MsgList_Append(messages, message, text, name, DictionaryTristateWord(value->tristateValue));
      break;
   case DictionaryTypeInt:
      MsgList_Append(messages, message, text, name, value->intValue);
      break;
   case DictionaryTypeInt64:
      MsgList_Append(messages, message, text, name, value->int64Value);
      break;
   default:
      MsgList_Append(messages, message, text, name, value->doubleValue);
   }
}

const DictionaryValue *DictionaryGet(Dictionary *dictionary, const void *defaultValue,
                                     DictionaryValueType type, const char *name)
{
   type &= 0xFFF;
   void *found = nullptr;
   if (HashTable_Lookup(dictionary->table, name, &found)) {
      auto *entry = static_cast<DictionaryEntry *>(found);
      if (entry->Type == DictionaryTypeAny && type != DictionaryTypeAny) {
         DictionaryConvertEntry(entry, type, defaultValue, nullptr);
      }
      return &entry->Value;
   }
   if (type > DictionaryTypeInt64) {
      Panic("NOT_REACHED %s:%d\n", "lib/user/dictionary_core", 1322);
   }
   DictionaryValue wanted;
   DictionaryReadValue(type, defaultValue, &wanted);
   switch (type) {
   case DictionaryTypeBool:
      return wanted.boolValue ? &dictionaryOne : &dictionaryZero;
   case DictionaryTypeInt:
   case DictionaryTypeTristate:
      if (wanted.intValue == 0 || wanted.intValue == -1) {
         return wanted.intValue == 0 ? &dictionaryZero : &dictionaryMinusOne;
      }
      break;
   case DictionaryTypeDouble:
      if (wanted.doubleValue == 0.0) {  // either sign; NaN never compares equal
         return &dictionaryZero;
      }
      break;
   default:  // text and 64-bit integers share the test: all bits zero
      if (wanted.int64Value == 0) {
         return &dictionaryZero;
      }
   }
   return &DictionaryAddEntry(dictionary, const_cast<char *>(name), defaultValue, type, true,
                              true)
              ->Value;
}

bool DictionaryContains(const Dictionary *dictionary, const char *name)
{
   return HashTable_Lookup(dictionary->table, name, nullptr);
}

bool DictionaryParseBool(const char *text, bool *invalid)
{
   if (invalid != nullptr) {
      *invalid = false;
   }
   if (text != nullptr) {
      for (const char *word : {"", "true", "t", "yes", "y", "on", "1"}) {
         if (strcasecmp(text, word) == 0) {
            return true;
         }
      }
      for (const char *word : {"false", "f", "no", "n", "off", "0"}) {
         if (strcasecmp(text, word) == 0) {
            return false;
         }
      }
   }
   if (invalid != nullptr) {
      *invalid = true;
   }
   return false;
}

int32_t DictionaryParseTristate(const char *text, bool *invalid)
{
   bool notBool;
   bool value = DictionaryParseBool(text, &notBool);
   if (!notBool || text == nullptr) {
      if (invalid != nullptr) {
         *invalid = notBool;
      }
      return value ? 1 : 0;
   }
   for (const char *word : {"default", "dontcare", "auto"}) {
      if (strcasecmp(text, word) == 0) {
         if (invalid != nullptr) {
            *invalid = false;
         }
         return -1;
      }
   }
   if (invalid != nullptr) {
      *invalid = true;
   }
   return 0;
}
