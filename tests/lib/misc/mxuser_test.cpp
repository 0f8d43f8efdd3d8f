// Lock recursion and re-entry of both kinds, mutual exclusion, singleton races and the header
// fields.

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "misc/mxuser.h"

namespace {

// Each step acquires (1) or releases (-1), then shows the count and the owner: either kind
// of lock lets its owner re-enter, and is free again only after as many releases.
template <typename Lock>
void Walk(Lock *lock, void (*acquire)(Lock *), void (*release)(Lock *))
{
   const uint32_t self = Platform_ThreadId();
   const struct { int step; int32_t lockCount; uint32_t owner; } steps[] = {
      {1, 1, self}, {1, 2, self}, {1, 3, self}, {-1, 2, self}, {-1, 1, self}, {-1, 0, ~0u},
   };
   for (const auto &s : steps) {
      (s.step > 0 ? acquire : release)(lock);
      EXPECT_EQ(lock->lockCount.load(), s.lockCount);
      EXPECT_EQ(lock->owner.load(), s.owner);
   }
}

// After the walks, other threads take the lock in turn and never together (a lock left held
// hangs here).
TEST(MXUser, RecursionThenMutualExclusion)
{
   MXUserExclLock *excl = MXUser_CreateExclLock("excl", 1);
   Walk(excl, MXUser_AcquireExclLock, MXUser_ReleaseExclLock);
   MXUser_DestroyExclLock(excl);
   MXUserRecLock *lock = MXUser_CreateRecLock("rec", 7);
   Walk(lock, MXUser_AcquireRecLock, MXUser_ReleaseRecLock);
   ASSERT_FALSE(HasFailure()) << "a lock the walk left miscounted would hang the threads";
   int counter = 0;
   std::vector<std::thread> threads;
   for (int t = 0; t < 4; t++) {
      threads.emplace_back([&] {
         for (int i = 0; i < 10000; i++) {
            MXUser_AcquireRecLock(lock);
            counter++;
            MXUser_ReleaseRecLock(lock);
         }
      });
   }
   for (auto &t : threads) {
      t.join();
   }
   EXPECT_EQ(counter, 40000);
   MXUserCondDestroyRecLock(lock);
}

TEST(MXUser, HeaderFields)
{
   MXUserRecLock *a = MXUser_CreateRecLock(nullptr, 0xFF000002);
   MXUserExclLock *b = MXUser_CreateExclLock(nullptr, 2);
   EXPECT_EQ(std::string(a->header.name, 2) + std::string(b->header.name, 2), "R-X-");
   EXPECT_EQ(a->header.signature ^ b->header.signature, (2u ^ 4u) << 28);  // one salt
   EXPECT_EQ(b->header.serialNumber, a->header.serialNumber + 1);
   EXPECT_EQ(a->header.rank, 0xFF000002u);
   EXPECT_EQ(a->refCount.load(), 1u);
   MXUserCondDestroyRecLock(a);
   MXUser_DestroyExclLock(b);
}

int CountNamed(const char *name)
{
   std::pair<const char *, int> search{name, 0};
   MXUser_ForEachLock(
      [](MXUserHeader *header, void *context) {
         auto *s = static_cast<std::pair<const char *, int> *>(context);
         s->second += strcmp(header->name, s->first) == 0;
      },
      &search);
   return search.second;
}

TEST(MXUser, SingletonRacesLeaveOneLock)
{
   std::atomic<MXUserRecLock *> recSlot{nullptr};
   std::atomic<MXUserExclLock *> exclSlot{nullptr};
   MXUserRecLockStorage storage{"stored", {nullptr}, 9, {0}};
   std::vector<std::thread> threads;
   std::vector<MXUserRecLock *> recs(8);
   std::vector<MXUserExclLock *> excls(8);
   std::vector<MXUserRecLock *> stored(8);
   for (int i = 0; i < 8; i++) {
      threads.emplace_back([&, i] {
         recs[i] = MXUser_CreateSingletonRecLock(&recSlot, "singleRec", 3);
         excls[i] = MXUser_CreateSingletonExclLock(&exclSlot, "singleExcl", 3);
         stored[i] = MXUser_GetStorageRecLock(&storage);
      });
   }
   for (auto &t : threads) {
      t.join();
   }
   EXPECT_EQ(std::set<MXUserRecLock *>(recs.begin(), recs.end()).size(), 1u);
   EXPECT_EQ(std::set<MXUserExclLock *>(excls.begin(), excls.end()).size(), 1u);
   EXPECT_EQ(std::set<MXUserRecLock *>(stored.begin(), stored.end()).size(), 1u);
   EXPECT_EQ(recs[0], recSlot.load());
   EXPECT_EQ(storage.activeCount.load(), 0u);
   // The losers' locks are out of the list again.
   EXPECT_EQ(CountNamed("singleRec"), 1);
   EXPECT_EQ(CountNamed("singleExcl"), 1);
   EXPECT_EQ(CountNamed("stored"), 1);
}

} // namespace
