#include "misc/mxuser.h"

#include <cmath>
#include <cstdarg>
#include <cstdlib>

#include "misc/log.h"
#include "misc/panic.h"
#include "string/str.h"

MXUserPlatform mxUserPlatform = {
   Platform_MutexInit,
   [] { return 0; },  // statistics are off in this system
};
std::atomic<uint64_t> mxUserNextSerialNumber{1};

namespace {

constexpr uint32_t kSpinCount = 0x80000400;  // 0x400 spins; wait object made at once
constexpr uint32_t kFree = 0xFFFFFFFF;
constexpr uint32_t kKindRecursive = 2;
constexpr uint32_t kKindExclusive = 4;

std::atomic<uint32_t> signatureSalt{0};
std::atomic<bool> inPanic{false};
int dumpAndPanicCount = 0;  // unsynchronised: only a hint of a panic storm

struct MXUserEventStats {
   const char *typeName;
   uint64_t count;
   uint64_t minimum;
   uint64_t maximum;
   uint64_t sum;
   double sumSquares;
};

struct MXUserAcquisitionStats {
   double contentionRatioFloor;
   uint64_t contentionCountFloor;
   uint64_t contentionDurationFloor;
   uint64_t attempts;
   uint64_t successes;
   uint64_t successContended;
   uint64_t successContendedTime;
   uint64_t totalContentionTime;
   MXUserEventStats data;
};

struct MXUserHeldStats {
   MXUserEventStats data;
};

// The list of all locks and the bare native lock that guards it. The guard has no header
// so that it never appears in the list it guards.
struct MXUserListLock {
   PlatformMutex nativeLock;
   int32_t lockCount;
   uint32_t owner;
};
std::atomic<MXUserListLock *> listLock{nullptr};
MXUserHeader *listHead = nullptr;

MXUserListLock *MXUserGetListLock()
{
   MXUserListLock *lock = listLock.load();
   if (lock != nullptr) {
      return lock;
   }
   auto *fresh = static_cast<MXUserListLock *>(SafeCalloc(1, sizeof(MXUserListLock)));
   if (!mxUserPlatform.initLock(&fresh->nativeLock, kSpinCount) && Platform_GetLastError() != 0) {
      free(fresh);
      return nullptr;
   }
   fresh->owner = kFree;
   MXUserListLock *expected = nullptr;
   if (!listLock.compare_exchange_strong(expected, fresh)) {
      Platform_MutexDestroy(&fresh->nativeLock);
      free(fresh);
      return expected;
   }
   return fresh;
}

void MXUserAddToList(MXUserHeader *header)
{
   MXUserListLock *lock = MXUserGetListLock();
   if (lock == nullptr) {
      return;
   }
   Platform_MutexLock(&lock->nativeLock);
   if (listHead == nullptr) {
      header->next = header->prev = header;
      listHead = header;
   } else {
      header->next = listHead->next;
      header->prev = listHead;
      listHead->next->prev = header;
      listHead->next = header;
   }
   Platform_MutexUnlock(&lock->nativeLock);
}

void MXUserRemoveFromList(MXUserHeader *header)
{
   MXUserListLock *lock = MXUserGetListLock();
   if (lock == nullptr || header->next == nullptr) {
      return;
   }
   Platform_MutexLock(&lock->nativeLock);
   if (header->next == header) {
      listHead = nullptr;
   } else {
      header->prev->next = header->next;
      header->next->prev = header->prev;
      if (listHead == header) {
         listHead = header->prev;
      }
   }
   header->next = header->prev = nullptr;
   Platform_MutexUnlock(&lock->nativeLock);
}

uint32_t MXUserGetSignature(uint32_t kind)
{
   uint32_t salt = signatureSalt.load();
   if (salt == 0) {
      uint32_t fresh = Platform_TickCount();
      uint32_t expected = 0;
      signatureSalt.compare_exchange_strong(expected, fresh == 0 ? 1 : fresh);
      salt = signatureSalt.load();
   }
   return (salt & 0xFFFFFFF) | (kind << 28);
}

uint64_t MXUserAllocSerialNumber()
{
   uint64_t serial = mxUserNextSerialNumber.fetch_add(1);
   if (serial == 0) {
      Panic("%s: too many locks!\n", "MXUserAllocSerialNumber");
   }
   return serial;
}

void MXUserEventLine(const MXUserHeader *header, const MXUserEventStats *stats)
{
   if (stats->count == 0) {
      return;
   }
   uint64_t mean = stats->sum / stats->count;
   double sd = 0;
   if (stats->count > 1) {
      double m = static_cast<double>(mean);
      double n = static_cast<double>(stats->count);
      double variance = (stats->sumSquares - m * n * m) / (n - 1);
      if (variance > 0) {
         // Newton's iteration, as the figures have always been computed.
         double x = variance;
         double previous;
         do {
            previous = x;
            x = (x + variance / x) / 2;
         } while (std::fabs(x - previous) > 1e-10);
         sd = x;
      }
   }
   Log("MXUser: e l=%I64u t=%s c=%I64u min=%I64u max=%I64u mean=%I64u sd=%I64u\n",
       header->serialNumber, stats->typeName, stats->count, stats->minimum, stats->maximum,
       mean, static_cast<uint64_t>(sd + 0.5));
}

template <typename Lock>
void MXUserStatsAction(MXUserHeader *header)
{
   auto *lock = reinterpret_cast<Lock *>(header);
   if (auto *acquisition = static_cast<MXUserAcquisitionStats *>(lock->acquisitionStats)) {
      MXUserEventLine(header, &acquisition->data);
      if (acquisition->attempts != 0) {
         Log("MXUser: ce l=%I64u a=%I64u s=%I64u sc=%I64u sct=%I64u t=%I64u\n",
             header->serialNumber, acquisition->attempts, acquisition->successes,
             acquisition->successContended, acquisition->successContendedTime,
             acquisition->totalContentionTime);
      }
   }
   if (auto *held = static_cast<MXUserHeldStats *>(lock->heldStats)) {
      MXUserEventLine(header, &held->data);
   }
}

template <typename Lock>
void MXUserSetStats(Lock *lock, const char *creator)
{
   int mode = mxUserPlatform.statsMode();
   free(lock->acquisitionStats);
   free(lock->heldStats);
   lock->acquisitionStats = lock->heldStats = nullptr;
   lock->header.statsFunc = nullptr;
   switch (mode) {
   case 0:
      return;
   case 2: {
      auto *held = static_cast<MXUserHeldStats *>(SafeCalloc(1, sizeof(MXUserHeldStats)));
      held->data = {"h", 0, ~0ull, 0, 0, 0};
      lock->heldStats = held;
   }
      [[fallthrough]];
   case 1: {
      auto *acquisition =
         static_cast<MXUserAcquisitionStats *>(SafeCalloc(1, sizeof(MXUserAcquisitionStats)));
      acquisition->data = {"a", 0, ~0ull, 0, 0, 0};
      lock->acquisitionStats = acquisition;
      lock->header.statsFunc = MXUserStatsAction<Lock>;
      return;
   }
   default:
      Panic("%s: unknown stats mode: %d!\n", creator, mode);
   }
}

template <typename Lock>
Lock *MXUserCreate(const char *name, uint32_t rank, uint32_t kind, const char *creator,
                   void (*dump)(MXUserHeader *), void *caller)
{
   auto *lock = static_cast<Lock *>(SafeCalloc(1, sizeof(Lock)));
   char *ownName = name != nullptr
                      ? SafeStrdup(name)
                      : Str_SafeAsprintf(nullptr, kind == kKindRecursive ? "R-%p" : "X-%p",
                                         caller);
   if (!mxUserPlatform.initLock(&lock->nativeLock, kSpinCount) && Platform_GetLastError() != 0) {
      Panic("%s: native lock initialization routine failed\n", creator);
   }
   lock->owner = kFree;
   lock->lockCount = 0;
   lock->header.signature = MXUserGetSignature(kind);
   lock->header.name = ownName;
   lock->header.rank = rank;
   lock->header.serialNumber = MXUserAllocSerialNumber();
   lock->header.dumpFunc = dump;
   MXUserSetStats(lock, creator);
   MXUserAddToList(&lock->header);
   return lock;
}

[[noreturn]] void MXUserDumpAndPanic(MXUserHeader *header, const char *format, ...)
{
   if (++dumpAndPanicCount > 5) {
      MXUserNotifyPanic();
   }
   header->dumpFunc(header);
   char message[1024];
   va_list args;
   va_start(args, format);
   Str_Vsnprintf(message, sizeof message, format, args);
   va_end(args);
   Panic("%s", message);
}

// Dumps go straight to the standard error stream: they are written on the way into a
// panic, when nothing else may be left to carry them.
void MXUserDumpLine(const char *format, ...)
{
   char line[256];
   va_list args;
   va_start(args, format);
   Str_Vsnprintf(line, sizeof line, format, args);
   va_end(args);
   panicPlatform.writeStderr(line);
}

template <typename Lock>
void MXUserAcquire(Lock *lock)
{
   uint32_t self = Platform_ThreadId();
   // Only this thread can have stored its own id, so the test needs no lock.
   constexpr auto relaxed = std::memory_order_relaxed;
   if (lock->lockCount.load(relaxed) > 0 && lock->owner.load(relaxed) == self) {
      lock->lockCount.store(lock->lockCount.load(relaxed) + 1, relaxed);
      return;
   }
   Platform_MutexLock(&lock->nativeLock);
   int32_t count = lock->lockCount.load(relaxed) + 1;
   lock->lockCount.store(count, relaxed);
   if (count == 1) {
      lock->owner.store(self, relaxed);
   }
}

template <typename Lock>
void MXUserRelease(Lock *lock)
{
   constexpr auto relaxed = std::memory_order_relaxed;
   int32_t count = lock->lockCount.load(relaxed);
   lock->lockCount.store(count - 1, relaxed);
   if (count == 1) {
      lock->owner.store(kFree, relaxed);
      Platform_MutexUnlock(&lock->nativeLock);
   }
}

// A held lock can't go: that is a caller's broken invariant, reported with the lock's dump.
template <typename Lock>
void MXUserDestroyNative(Lock *lock, const char *message, const char *function)
{
   if (lock->lockCount > 0) {
      MXUserDumpAndPanic(&lock->header, message, function);
   }
   Platform_MutexDestroy(&lock->nativeLock);
   MXUserRemoveFromList(&lock->header);
}

// The lines every dump has, after its first.
void MXUserDumpHeader(const MXUserHeader *header)
{
   MXUserDumpLine("\tsignature 0x%X\n", header->signature);
   MXUserDumpLine("\tname %s\n", header->name);
   MXUserDumpLine("\trank 0x%X\n", header->rank);
   MXUserDumpLine("\tserial number %I64u\n", header->serialNumber);
}

template <typename Lock>
void MXUserDumpHolder(const Lock *lock)
{
   MXUserDumpLine("\tlock count %d\n", lock->lockCount.load());
   MXUserDumpLine("\taddress of owner data %p\n", static_cast<const void *>(&lock->owner));
}

template <typename Lock>
void MXUserFree(Lock *lock)
{
   lock->header.signature = 0;
   free(lock->header.name);
   free(lock->acquisitionStats);
   free(lock->heldStats);
   free(lock);
}

} // namespace

MXUserRecLock *MXUser_CreateRecLock(const char *name, uint32_t rank)
{
   auto *lock = MXUserCreate<MXUserRecLock>(name, rank, kKindRecursive, "MXUser_CreateRecLock",
                                            MXUserDumpRecLock, __builtin_return_address(0));
   lock->externalLock = nullptr;
   lock->refCount = 1;
   return lock;
}

MXUserExclLock *MXUser_CreateExclLock(const char *name, uint32_t rank)
{
   return MXUserCreate<MXUserExclLock>(name, rank, kKindExclusive, "MXUser_CreateExclLock",
                                       MXUserDumpExclLock, __builtin_return_address(0));
}

namespace {

// Any thread may get here first, with no lock held: the loser of the swap destroys its own
// lock, which also takes it out of the list again.
template <typename Lock>
Lock *MXUserSingleton(std::atomic<Lock *> *slot, const char *name, uint32_t rank,
                      Lock *(*create)(const char *, uint32_t), void (*destroy)(Lock *))
{
   Lock *lock = slot->load();
   if (lock != nullptr) {
      return lock;
   }
   Lock *fresh = create(name, rank);
   if (!slot->compare_exchange_strong(lock, fresh)) {
      destroy(fresh);
      return lock;
   }
   return fresh;
}

} // namespace

MXUserRecLock *MXUser_CreateSingletonRecLock(std::atomic<MXUserRecLock *> *slot,
                                             const char *name, uint32_t rank)
{
   return MXUserSingleton(slot, name, rank, MXUser_CreateRecLock, MXUserCondDestroyRecLock);
}

MXUserExclLock *MXUser_CreateSingletonExclLock(std::atomic<MXUserExclLock *> *slot,
                                               const char *name, uint32_t rank)
{
   return MXUserSingleton(slot, name, rank, MXUser_CreateExclLock, MXUser_DestroyExclLock);
}

MXUserRecLock *MXUser_GetStorageRecLock(MXUserRecLockStorage *storage)
{
   MXUserRecLock *lock = storage->lock.load();
   if (lock != nullptr) {
      return lock;
   }
   storage->activeCount.fetch_add(1);
   lock = MXUser_CreateSingletonRecLock(&storage->lock, storage->name, storage->rank);
   storage->activeCount.fetch_sub(1);
   return lock;
}

void MXUser_AcquireRecLock(MXUserRecLock *lock)
{
   if (lock->externalLock != nullptr) {
      return;  // no hook for external locks is installed in this system
   }
   MXUserAcquire(lock);
}

void MXUser_ReleaseRecLock(MXUserRecLock *lock)
{
   if (lock->externalLock != nullptr) {
      return;
   }
   MXUserRelease(lock);
}

// The owner may re-enter: a self-deadlock is not detected here, by design.
void MXUser_AcquireExclLock(MXUserExclLock *lock) { MXUserAcquire(lock); }
void MXUser_ReleaseExclLock(MXUserExclLock *lock) { MXUserRelease(lock); }

void MXUserCondDestroyRecLock(MXUserRecLock *lock)
{
   if (lock->refCount.fetch_sub(1) != 1) {
      return;
   }
   if (lock->externalLock == nullptr) {
      MXUserDestroyNative(lock, "%s: Destroy of an acquired recursive lock\n",
                          "MXUserCondDestroyRecLock");
   }
   MXUserFree(lock);
}

void MXUser_DestroyExclLock(MXUserExclLock *lock)
{
   MXUserDestroyNative(lock, "%s: Destroy of an acquired exclusive lock\n",
                       "MXUser_DestroyExclLock");
   MXUserFree(lock);
}

void MXUserDumpRecLock(MXUserHeader *header)
{
   auto *lock = reinterpret_cast<MXUserRecLock *>(header);
   MXUserDumpLine("%s: Recursive lock @ %p\n", "MXUserDumpRecLock", lock);
   MXUserDumpHeader(header);
   MXUserDumpLine("\treference count %u\n", lock->refCount.load());
   if (lock->externalLock != nullptr) {
      MXUserDumpLine("\texternalLock %p\n", lock->externalLock);
   } else {
      MXUserDumpHolder(lock);
   }
}

void MXUserDumpExclLock(MXUserHeader *header)
{
   auto *lock = reinterpret_cast<MXUserExclLock *>(header);
   MXUserDumpLine("%s: Exclusive lock @ %p\n", "MXUserDumpExclLock", lock);
   MXUserDumpHeader(header);
   MXUserDumpHolder(lock);
}

void MXUserNotifyPanic()
{
   inPanic.store(true);  // no panic hook is installed in this system
}

bool MXUser_InPanic() { return inPanic.load(); }

void MXUser_ForEachLock(void (*visit)(MXUserHeader *header, void *context), void *context)
{
   MXUserListLock *lock = MXUserGetListLock();
   if (lock == nullptr) {
      return;
   }
   Platform_MutexLock(&lock->nativeLock);
   if (MXUserHeader *item = listHead) {
      do {
         visit(item, context);
         item = item->next;
      } while (item != listHead);
   }
   Platform_MutexUnlock(&lock->nativeLock);
}
