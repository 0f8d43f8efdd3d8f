#include "misc/hashTable.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "misc/panic.h"

namespace {

inline uint32_t RotateRight(uint32_t value, unsigned count)
{
   return (value >> count) | (value << (32 - count));
}

inline unsigned char LowerAscii(unsigned char c)
{
   return c >= 'A' && c <= 'Z' ? static_cast<unsigned char>(c + ('a' - 'A')) : c;
}

uint32_t HashTableComputeHash(const HashTable *table, const void *key)
{
   uint32_t h = 0;
   switch (table->keyType) {
   case HASH_STRING_KEY:
      for (auto *p = static_cast<const unsigned char *>(key); *p != 0; p++) {
         h = RotateRight(h ^ *p, 27);
      }
      break;
   case HASH_ISTRING_KEY:
      for (auto *p = static_cast<const unsigned char *>(key); *p != 0; p++) {
         h = RotateRight(h ^ LowerAscii(*p), 27);
      }
      break;
   case HASH_INT_KEY: {
      uint64_t value = reinterpret_cast<uintptr_t>(key);
      h = static_cast<uint32_t>(((value >> 32) ^ value) * 48271);
      break;
   }
   default:
      Panic("NOT_REACHED %s:%d\n", "lib/misc/hashTable", 146);
   }
   // Folding keeps every bit of the hash in play, however few buckets there are. A single
   // bucket has nothing to fold into (the fold would never shrink the value).
   if (table->numBits == 0) {
      return 0;
   }
   uint32_t mask = table->numBits >= 32 ? 0xFFFFFFFF : (1u << table->numBits) - 1;
   while (h > mask) {
      h = (h >> (table->numBits & 31)) ^ (h & mask);
   }
   return h;
}

bool HashTableEqualKeys(const HashTable *table, const void *a, const void *b)
{
   switch (table->keyType) {
   case HASH_STRING_KEY:
      return strcmp(static_cast<const char *>(a), static_cast<const char *>(b)) == 0;
   case HASH_ISTRING_KEY: {
      auto *p = static_cast<const unsigned char *>(a);
      auto *q = static_cast<const unsigned char *>(b);
      while (*p != 0 && LowerAscii(*p) == LowerAscii(*q)) {
         p++;
         q++;
      }
      return LowerAscii(*p) == LowerAscii(*q);
   }
   default:
      return a == b;
   }
}

HashTableEntry *HashTableFindInChain(const HashTable *table, HashTableEntry *entry,
                                     const void *key)
{
   if (table->keyType == HASH_INT_KEY) {
      // The common kind, compared without the per-entry dispatch.
      while (entry != nullptr && entry->keyStr != key) {
         entry = entry->next.load(std::memory_order_acquire);
      }
      return entry;
   }
   for (; entry != nullptr; entry = entry->next.load(std::memory_order_acquire)) {
      if (HashTableEqualKeys(table, entry->keyStr, key)) {
         return entry;
      }
   }
   return nullptr;
}

HashTableEntry *HashTableLookup(const HashTable *table, const void *key)
{
   uint32_t bucket = HashTableComputeHash(table, key);
   return HashTableFindInChain(table, table->buckets[bucket].load(std::memory_order_acquire),
                               key);
}

void HashTableFreeEntry(const HashTable *table, HashTableEntry *entry)
{
   if (table->copyKey) {
      free(const_cast<void *>(entry->keyStr));
   }
   free(entry);
}

// Null when the entry went in; otherwise the entry that holds the key already.
HashTableEntry *HashTableLookupOrInsert(HashTable *table, const void *key, void *value)
{
   uint32_t bucket = HashTableComputeHash(table, key);
   HashTableEntry *made = nullptr;
   HashTableEntry *head = table->buckets[bucket].load(std::memory_order_acquire);
   for (;;) {
      if (HashTableEntry *found = HashTableFindInChain(table, head, key)) {
         if (made != nullptr) {
            HashTableFreeEntry(table, made);
         }
         return found;
      }
      if (made == nullptr) {
         made = new (SafeMalloc(sizeof(HashTableEntry))) HashTableEntry;
         made->keyStr = table->copyKey ? SafeStrdup(static_cast<const char *>(key)) : key;
         made->clientData.store(value, std::memory_order_relaxed);
      }
      made->next.store(head, std::memory_order_relaxed);
      if (!table->atomic) {
         table->buckets[bucket].store(made, std::memory_order_relaxed);
         break;
      }
      // A failed swap leaves the new head in `head`: look again, since it may hold the key.
      if (table->buckets[bucket].compare_exchange_strong(head, made)) {
         break;
      }
   }
   // Not an atomic increment: it may under-count between threads, and nothing depends on it.
   table->numElements.store(table->numElements.load(std::memory_order_relaxed) + 1,
                            std::memory_order_relaxed);
   return nullptr;
}

} // namespace

HashTable *HashTable_AllocOnce(std::atomic<HashTable *> *slot, uint32_t numEntries, int flags,
                               HashTableFreeEntryFn freeEntryFn)
{
   HashTable *table = slot->load();
   if (table != nullptr) {
      return table;
   }
   if ((numEntries & (numEntries - 1)) != 0) {
      Panic("%s only takes powers of 2 \n", "HashTable_Alloc");
   }
   table = static_cast<HashTable *>(SafeCalloc(1, sizeof(HashTable)));
   table->numEntries = numEntries;
   table->numBits = numEntries == 0 ? 0xFFFFFFFF : static_cast<uint32_t>(__builtin_ctz(numEntries));
   table->keyType = flags & 7;
   table->atomic = (flags & HASH_FLAG_ATOMIC) != 0;
   table->copyKey = (flags & HASH_FLAG_COPYKEY) != 0;
   table->freeEntryFn = freeEntryFn;
   table->buckets = static_cast<std::atomic<HashTableEntry *> *>(
      SafeCalloc(numEntries, sizeof(std::atomic<HashTableEntry *>)));
   HashTable *expected = nullptr;
   if (!slot->compare_exchange_strong(expected, table)) {
      HashTable_Free(table);
      return expected;
   }
   return table;
}

bool HashTable_Insert(HashTable *table, const void *key, void *value)
{
   return HashTableLookupOrInsert(table, key, value) == nullptr;
}

bool HashTable_Lookup(const HashTable *table, const void *key, void **value)
{
   HashTableEntry *entry = HashTableLookup(table, key);
   if (entry != nullptr && value != nullptr) {
      *value = entry->clientData.load(std::memory_order_acquire);
   }
   return entry != nullptr;
}

void *HashTable_LookupOrInsert(HashTable *table, const void *key, void *value)
{
   HashTableEntry *entry = HashTableLookupOrInsert(table, key, value);
   return entry == nullptr ? value : entry->clientData.load(std::memory_order_acquire);
}

bool HashTable_ReplaceIfEqual(HashTable *table, const void *key, void *oldValue,
                              void *newValue)
{
   HashTableEntry *entry = HashTableLookup(table, key);
   if (entry == nullptr) {
      return false;
   }
   if (table->atomic) {
      if (!entry->clientData.compare_exchange_strong(oldValue, newValue)) {
         return false;
      }
   } else {
      if (entry->clientData.load(std::memory_order_relaxed) != oldValue) {
         return false;
      }
      entry->clientData.store(newValue, std::memory_order_relaxed);
   }
   if (table->freeEntryFn != nullptr) {
      table->freeEntryFn(oldValue);
   }
   return true;
}

void HashTable_Clear(HashTable *table)
{
   table->numElements.store(0, std::memory_order_relaxed);
   for (uint32_t i = 0; i < table->numEntries; i++) {
      while (HashTableEntry *entry = table->buckets[i].load(std::memory_order_relaxed)) {
         table->buckets[i].store(entry->next.load(std::memory_order_relaxed),
                                 std::memory_order_relaxed);
         if (table->freeEntryFn != nullptr) {
            table->freeEntryFn(entry->clientData.load(std::memory_order_relaxed));
         }
         HashTableFreeEntry(table, entry);
      }
   }
}

void HashTable_Free(HashTable *table)
{
   if (table != nullptr) {
      HashTable_Clear(table);
      free(table->buckets);
      free(table);
   }
}
