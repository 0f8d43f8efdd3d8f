#pragma once
// A chained hash table with a fixed number of buckets, keyed by strings or by pointer-sized
// values. An atomic table is created and grown without a lock: any number of threads may
// look up and insert at once. Entries leave only when the whole table is cleared.

#include <atomic>
#include <cstdint>

enum {
   HASH_STRING_KEY = 0,
   HASH_ISTRING_KEY = 1,  // without regard to case
   HASH_INT_KEY = 2,      // the key is the pointer-sized value itself
   HASH_FLAG_ATOMIC = 0x100,
   HASH_FLAG_COPYKEY = 0x10000,
};

typedef void (*HashTableFreeEntryFn)(void *clientData);

struct HashTableEntry {
   std::atomic<HashTableEntry *> next;
   const void *keyStr;
   std::atomic<void *> clientData;
};

struct HashTable {
   uint32_t numEntries;
   uint32_t numBits;
   int keyType;
   bool atomic;
   bool copyKey;
   HashTableFreeEntryFn freeEntryFn;
   std::atomic<HashTableEntry *> *buckets;
   std::atomic<uint32_t> numElements;  // only ever a hint, see HashTableLookupOrInsert
};

HashTable *HashTable_AllocOnce(std::atomic<HashTable *> *slot, uint32_t numEntries, int flags,
                               HashTableFreeEntryFn freeEntryFn);
bool HashTable_Insert(HashTable *table, const void *key, void *value);
bool HashTable_Lookup(const HashTable *table, const void *key, void **value);
void *HashTable_LookupOrInsert(HashTable *table, const void *key, void *value);
bool HashTable_ReplaceIfEqual(HashTable *table, const void *key, void *oldValue,
                              void *newValue);
void HashTable_Clear(HashTable *table);
// Clears the table and frees it; for a table that nobody can reach any more.
void HashTable_Free(HashTable *table);
