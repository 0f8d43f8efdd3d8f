// Setting texts converted to each type with the message a bad one leaves, late typing, and
// the shared constants behind lookups that add nothing.

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "string/str.h"
#include "user/dictionary_core.h"
#include "user/msg.h"

namespace {

std::string Shown(DictionaryValueType type, const DictionaryValue *value)
{
   char *text = type == DictionaryTypeDouble   ? Str_Asprintf(nullptr, "%g", value->doubleValue)
                : type == DictionaryTypeInt64  ? Str_Asprintf(nullptr, "%I64d", value->int64Value)
                : type == DictionaryTypeBool   ? Str_Asprintf(nullptr, "%d", value->boolValue)
                : type == DictionaryTypeString ? Str_Asprintf(nullptr, "%s", value->text)
                                               : Str_Asprintf(nullptr, "%d", value->intValue);
   std::string shown = text;
   free(text);
   return shown;
}

// The value stored and the key of the message left, "value|key". The target holds 99 (or
// 9.5) before; a default is 7 (7.5, true, -1 undecided).
std::string Parse(DictionaryValueType type, const char *text, bool withDefault,
                  std::string *message = nullptr)
{
   DictionaryValue value, fallback;
   value.int64Value = 99;
   fallback.int64Value = type == DictionaryTypeTristate ? -1 : type == DictionaryTypeBool ? 1 : 7;
   if (type == DictionaryTypeDouble) {
      value.doubleValue = 9.5;
      fallback.doubleValue = 7.5;
   }
   MsgList *messages = nullptr;
   DictionaryParseValue("n", text, type, withDefault ? &fallback : nullptr, &value, &messages);
   std::string result = Shown(type, &value) + "|" + (messages != nullptr ? messages->id : "");
   if (message != nullptr) {
      DynBuf formatted;
      DynBuf_Init(&formatted);
      MsgFormatList(messages, nullptr, &formatted);
      *message = formatted.data;
      DynBuf_Destroy(&formatted);
   }
   MsgList_Free(messages);
   return result;
}

TEST(Dictionary, ParseValue)
{
   const int Int = DictionaryTypeInt, I64 = DictionaryTypeInt64, Dbl = DictionaryTypeDouble,
             Bool = DictionaryTypeBool, Tri = DictionaryTypeTristate;
   const struct { int type; const char *text; bool withDefault; const char *want; } rows[] = {
      {Int, "0x10", true, "16|"}, {Int, " 010", true, "8|"}, {Int, "4294967295", true, "-1|"},
      {Int, "-2147483648", false, "-2147483648|"}, {Int, "-4294967295", false, "1|"},
      {Int, "4294967296", true, "7|msg.dictionary.integerOutOfRange"},
      {Int, "12abc", true, "7|msg.dictionary.notInteger"},
      {Int, "12abc", false, "99|msg.dictionary.notInteger"},
      {Int, "", true, "7|msg.dictionary.notInteger"},
      {I64, "-9223372036854775808", true, "-9223372036854775808|"},
      {I64, "9223372036854775808", true, "7|msg.dictionary.integer64OutOfRange"},
      {I64, "0x", false, "99|msg.dictionary.notInteger64"},
      {Dbl, "2.5", true, "2.5|"}, {Dbl, "1e999", true, "7.5|msg.dictionary.doubleOutOfRange"},
      {Dbl, "1.5x", false, "9.5|msg.dictionary.notFloat"},
      {Bool, "", false, "1|"}, {Bool, "oFF", true, "0|"}, {Bool, "1", false, "1|"},
      {Bool, "maybe", true, "1|msg.dictionary.notBoolean"},
      {Bool, "maybe", false, "0|msg.dictionary.notBoolean"}, {Bool, nullptr, false, "0|msg.dictionary.notBoolean"},
      {Tri, "AUTO", false, "-1|"}, {Tri, "Yes", true, "1|"}, {Tri, "dontcare", true, "-1|"},
      {Tri, "maybe", true, "-1|msg.dictionary.notTristate"},
      {Tri, "maybe", false, "0|msg.dictionary.notTristate"},
   };
   for (const auto &r : rows) {
      EXPECT_EQ(Parse(r.type, r.text, r.withDefault), r.want) << r.type << " " << r.text;
   }
   std::string message;
   Parse(Int, "12abc", true, &message);
   EXPECT_EQ(message, "Value \"12abc\" for variable \"n\" is not a valid integer value. Using value \"7\".\n");
   Parse(Tri, "maybe", true, &message);
   EXPECT_EQ(message, "Value \"maybe\" for variable \"n\" is not a valid tristate value. Using value \"default\".\n");
}

TEST(Dictionary, LookupsAddOnlyDefaultsThatAreNotZero)
{
   Dictionary *d = Dictionary_Create();
   const struct {
      DictionaryValueType type;
      DictionaryValue fallback;
      const char *want;  // the value, and whether the lookup added an entry
   } rows[] = {
      {DictionaryTypeInt, {.intValue = 5}, "5 added"}, {DictionaryTypeInt, {.intValue = 0}, "0"},
      {DictionaryTypeInt, {.intValue = -1}, "-1"}, {DictionaryTypeTristate, {.intValue = 1}, "1 added"},
      {DictionaryTypeBool, {.boolValue = true}, "1"}, {DictionaryTypeDouble, {.doubleValue = -0.0}, "0"},
      {DictionaryTypeDouble, {.doubleValue = NAN}, "nan added"},
      {DictionaryTypeString, {.text = nullptr}, "(null)"},
      {DictionaryTypeString, {.text = const_cast<char *>("s")}, "s added"},
      {DictionaryTypeInt64, {.int64Value = int64_t{1} << 40}, "1099511627776 added"},
   };
   for (const auto &r : rows) {
      std::string name = "k" + std::to_string(&r - rows);
      const DictionaryValue *got = DictionaryGet(d, &r.fallback, r.type, name.c_str());
      EXPECT_EQ(Shown(r.type, got) + (DictionaryContains(d, name.c_str()) ? " added" : ""), r.want);
   }

   char *answer = const_cast<char *>("42");
   DictionaryEntry *entry = DictionaryAddEntry(d, const_cast<char *>("n"), &answer,
                                               DictionaryTypeAny, false, true);
   EXPECT_STREQ(DictionaryGet(d, nullptr, DictionaryTypeAny, "n")->text, "42");
   EXPECT_EQ(DictionaryGet(d, nullptr, DictionaryTypeInt | 0x7000, "n")->intValue, 42);
   EXPECT_EQ(entry->Type, DictionaryTypeInt);
   EXPECT_EQ(DictionaryGet(d, nullptr, DictionaryTypeString, "n"), &entry->Value);
   EXPECT_EQ(entry->Value.intValue, 42);
   std::string order;
   for (DictionaryEntry *e = d->head.Next; e != &d->head; e = e->Next) {
      order += std::string(e->Name) + (e->FromDefault ? "* " : " ");
   }
   EXPECT_EQ(order + std::to_string(d->numEntries), "k0* k3* k6* k8* k9* n 6");
   Dictionary_Free(d);
}

} // namespace
