// Key types, insertion and replacement rules, clearing, and lock-free insertion from
// several threads (run under ThreadSanitizer by the tsan preset).

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "misc/hashTable.h"

namespace {

struct Table {
   std::atomic<HashTable *> slot{nullptr};
   HashTable *table;
   Table(uint32_t buckets, int flags, HashTableFreeEntryFn freeFn = nullptr)
      : table(HashTable_AllocOnce(&slot, buckets, flags, freeFn))
   {
   }
   ~Table() { HashTable_Free(table); }
};

void *V(intptr_t v) { return reinterpret_cast<void *>(v); }

TEST(HashTable, KeysCompareByTheirType)
{
   static const char abc[] = "abc";
   static const char abcCopy[] = "abc";
   const struct { int flags; const void *first; const void *second; bool sameKey; } rows[] = {
      {HASH_STRING_KEY, "abc", "abc", true},
      {HASH_STRING_KEY, "abc", "ABC", false},
      {HASH_STRING_KEY, "abc", "abcd", false},
      {HASH_ISTRING_KEY, "ABC", "abc", true},
      {HASH_ISTRING_KEY, "abc", "abd", false},
      {HASH_ISTRING_KEY | HASH_FLAG_COPYKEY, "Mixed", "mIXED", true},
      {HASH_INT_KEY, abc, abcCopy, false},  // equal text, different addresses
      {HASH_INT_KEY, V(1) , V(1), true},
      {HASH_INT_KEY, V(0x100000001), V(1), false},
   };
   for (const auto &r : rows) {
      for (uint32_t buckets : {1u, 16u, 2048u}) {
         Table t(buckets, r.flags);
         EXPECT_TRUE(HashTable_Insert(t.table, r.first, V(1)));
         EXPECT_EQ(HashTable_Insert(t.table, r.second, V(2)), !r.sameKey) << r.flags;
         void *value = nullptr;
         EXPECT_TRUE(HashTable_Lookup(t.table, r.second, &value));
         EXPECT_EQ(value, r.sameKey ? V(1) : V(2));
      }
   }
}

std::vector<intptr_t> freed;

TEST(HashTable, ExistingKeysAndTablesStay)
{
   freed.clear();
   Table t(16, HASH_STRING_KEY | HASH_FLAG_COPYKEY, [](void *v) {
      freed.push_back(reinterpret_cast<intptr_t>(v));
   });
   std::string key = "k";
   EXPECT_TRUE(HashTable_Insert(t.table, key.c_str(), V(1)));
   EXPECT_NE(t.table->buckets[11].load(), nullptr) << "all of the hash folded into the index";
   key = "x";  // the table holds its own copy
   EXPECT_FALSE(HashTable_Lookup(t.table, "x", nullptr));
   EXPECT_FALSE(HashTable_Insert(t.table, "k", V(2)));
   EXPECT_EQ(HashTable_LookupOrInsert(t.table, "k", V(3)), V(1));
   EXPECT_EQ(HashTable_LookupOrInsert(t.table, "n", V(4)), V(4));
   EXPECT_FALSE(HashTable_ReplaceIfEqual(t.table, "k", V(9), V(5)));
   EXPECT_FALSE(HashTable_ReplaceIfEqual(t.table, "absent", V(1), V(5)));
   EXPECT_TRUE(HashTable_ReplaceIfEqual(t.table, "k", V(1), V(5)));
   EXPECT_EQ(freed, std::vector<intptr_t>({1}));
   EXPECT_EQ(t.table->numElements.load(), 2u);
   HashTable_Clear(t.table);
   EXPECT_EQ(t.table->numElements.load(), 0u);
   EXPECT_FALSE(HashTable_Lookup(t.table, "k", nullptr));
   EXPECT_EQ(freed.size(), 3u);
   // Zero buckets is kept as all bits; a slot already filled keeps its first table.
   Table none(0, HASH_STRING_KEY), u(128, HASH_STRING_KEY);
   EXPECT_EQ(none.table->numBits, 0xFFFFFFFFu);
   EXPECT_EQ(HashTable_AllocOnce(&u.slot, 4, HASH_INT_KEY, nullptr), u.table);
   EXPECT_EQ(u.table->numBits, 7u);
}

// Each thread inserts the same keys with its own value: every key must end with exactly one
// entry, and every thread must have been told the winner's value.
TEST(HashTable, ConcurrentInsertionFromSeveralThreads)
{
   constexpr int kThreads = 4;
   constexpr intptr_t kKeys = 4000;
   for (int flags : {HASH_INT_KEY | HASH_FLAG_ATOMIC,
                     HASH_STRING_KEY | HASH_FLAG_ATOMIC | HASH_FLAG_COPYKEY}) {
      std::atomic<HashTable *> slot{nullptr};
      std::vector<std::string> names;
      for (intptr_t k = 0; k < kKeys; k++) {
         names.push_back("key" + std::to_string(k));
      }
      auto key = [&](intptr_t k) -> const void * {
         return (flags & 7) == HASH_INT_KEY ? V(k + 1) : names[k].c_str();
      };
      std::vector<std::vector<void *>> seen(kThreads, std::vector<void *>(kKeys));
      std::vector<std::thread> threads;
      for (int t = 0; t < kThreads; t++) {
         threads.emplace_back([&, t] {
            HashTable *table = HashTable_AllocOnce(&slot, 64, flags, nullptr);
            for (intptr_t k = 0; k < kKeys; k++) {
               intptr_t i = (k * 7 + t * 1000) % kKeys;  // threads meet on different keys
               seen[t][i] = HashTable_LookupOrInsert(table, key(i), V(t + 1));
            }
         });
      }
      for (auto &t : threads) {
         t.join();
      }
      HashTable *table = slot.load();
      size_t entries = 0;
      for (uint32_t b = 0; b < table->numEntries; b++) {
         for (HashTableEntry *e = table->buckets[b].load(); e != nullptr; e = e->next.load()) {
            entries++;
         }
      }
      EXPECT_EQ(entries, static_cast<size_t>(kKeys));
      for (intptr_t k = 0; k < kKeys; k++) {
         void *value = nullptr;
         ASSERT_TRUE(HashTable_Lookup(table, key(k), &value));
         for (int t = 0; t < kThreads; t++) {
            ASSERT_EQ(seen[t][k], value) << "key " << k << " thread " << t;
         }
      }
      HashTable_Free(table);
   }
}

} // namespace
