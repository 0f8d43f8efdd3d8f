#pragma once
// A typed store of named settings. Values arrive as text and take a type the first time
// someone asks for them in one; a bad text gives way to the default, with a message. The
// store never fails to give a value. Callers that share a dictionary lock it themselves.

#include <cstdint>

#include "misc/hashTable.h"

struct MsgList;

typedef int32_t DictionaryValueType;
enum : DictionaryValueType {
   DictionaryTypeAny = 0,  // text, not typed yet
   DictionaryTypeString = 1,
   DictionaryTypeBool = 2,
   DictionaryTypeInt = 3,
   DictionaryTypeDouble = 4,
   DictionaryTypeTristate = 5,  // 1 true, 0 false, -1 undecided
   DictionaryTypeInt64 = 6,
};

union DictionaryValue {
   char *text;  // owned
   bool boolValue;
   int32_t intValue;
   double doubleValue;
   int32_t tristateValue;
   int64_t int64Value;
};

struct DictionaryEntry {
   DictionaryEntry *Prev;
   DictionaryEntry *Next;
   DictionaryValue Value;
   char *Name;  // owned
   DictionaryValueType Type;
   bool FromDefault;  // added by a lookup from its default
};

struct Dictionary {
   DictionaryEntry head;  // Prev and Next link the entries in the order of insertion
   HashTable *table;      // Name to entry; the entries belong to the list
   int32_t numEntries;
};

Dictionary *Dictionary_Create();
void Dictionary_Free(Dictionary *dictionary);

// `value` points to a value of the form of `type`: for text, to the char pointer. With
// `copy` the name and text are duplicated; without it the dictionary takes them over.
DictionaryEntry *DictionaryAddEntry(Dictionary *dictionary, char *name, const void *value,
                                    DictionaryValueType type, bool fromDefault, bool copy);
void DictionaryConvertEntry(DictionaryEntry *entry, DictionaryValueType type,
                            const void *defaultValue, MsgList **messages);
// Converts `text` into `*value`. A bad text leaves the default (if given) and appends one
// message to `messages` (if given).
void DictionaryParseValue(const char *name, const char *text, DictionaryValueType type,
                          const void *defaultValue, DictionaryValue *value,
                          MsgList **messages);
// Always a valid pointer; an entry once typed keeps its type whatever `type` asks. A zero,
// false, null or -1 default gives a shared constant and adds nothing. Do not write
// through the result.
const DictionaryValue *DictionaryGet(Dictionary *dictionary, const void *defaultValue,
                                     DictionaryValueType type, const char *name);
bool DictionaryContains(const Dictionary *dictionary, const char *name);

// The empty text is true. `invalid` may be null.
bool DictionaryParseBool(const char *text, bool *invalid);
int32_t DictionaryParseTristate(const char *text, bool *invalid);
