#pragma once
// Named, ranked locks that can be identified in a dump: a recursive and an exclusive kind,
// each over one native lock. Singletons are created on first use without any lock held.

#include <atomic>
#include <cstdint>

#include "misc/platform.h"

struct MXUserHeader {
   char *name;
   uint32_t signature;  // kind and process salt; 0 once destroyed
   uint32_t rank;
   void (*dumpFunc)(MXUserHeader *header);
   void (*statsFunc)(MXUserHeader *header);  // null while statistics are off
   MXUserHeader *next;
   MXUserHeader *prev;
   uint64_t serialNumber;
};

struct MXUserExclLock {
   MXUserHeader header;
   PlatformMutex nativeLock;
   // Written only by the holder; read without the lock by a thread that checks whether it
   // holds the lock itself, which only it can have recorded.
   std::atomic<int32_t> lockCount;
   std::atomic<uint32_t> owner;  // thread id of the holder, all ones when free
   void *acquisitionStats;
   void *heldStats;
};

struct MXUserRecLock {
   MXUserHeader header;
   PlatformMutex nativeLock;
   std::atomic<int32_t> lockCount;
   std::atomic<uint32_t> owner;
   void *acquisitionStats;
   void *heldStats;
   std::atomic<uint32_t> refCount;
   void *externalLock;
};

struct MXUserRecLockStorage {
   const char *name;
   std::atomic<MXUserRecLock *> lock;
   uint32_t rank;
   std::atomic<uint32_t> activeCount;
};

MXUserRecLock *MXUser_CreateRecLock(const char *name, uint32_t rank);
MXUserExclLock *MXUser_CreateExclLock(const char *name, uint32_t rank);
MXUserRecLock *MXUser_CreateSingletonRecLock(std::atomic<MXUserRecLock *> *slot,
                                             const char *name, uint32_t rank);
MXUserExclLock *MXUser_CreateSingletonExclLock(std::atomic<MXUserExclLock *> *slot,
                                               const char *name, uint32_t rank);
MXUserRecLock *MXUser_GetStorageRecLock(MXUserRecLockStorage *storage);

void MXUser_AcquireRecLock(MXUserRecLock *lock);
void MXUser_ReleaseRecLock(MXUserRecLock *lock);
void MXUser_AcquireExclLock(MXUserExclLock *lock);
void MXUser_ReleaseExclLock(MXUserExclLock *lock);
void MXUserCondDestroyRecLock(MXUserRecLock *lock);
void MXUser_DestroyExclLock(MXUserExclLock *lock);

void MXUserDumpRecLock(MXUserHeader *header);
void MXUserDumpExclLock(MXUserHeader *header);
void MXUserNotifyPanic();
bool MXUser_InPanic();

// Walks the list of all locks under its internal lock; for diagnostics.
void MXUser_ForEachLock(void (*visit)(MXUserHeader *header, void *context), void *context);

// What lock creation asks of the platform and the settings. Tests replace entries to make
// a native lock fail or to pick a statistics mode; nothing else changes them.
struct MXUserPlatform {
   bool (*initLock)(PlatformMutex *mutex, uint32_t spinCount);
   int (*statsMode)();
};
extern MXUserPlatform mxUserPlatform;
// The next serial number; 0 means the counter went round.
extern std::atomic<uint64_t> mxUserNextSerialNumber;
