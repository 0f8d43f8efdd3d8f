#pragma once
// Facts about the machine: the operating system's name for people and as a short
// identifier, a high-resolution clock, a precise sleep and a small random number generator.
// The naming rules are portable; the facts they read come through the platform table.

#include <cstdint>

struct HostOsVersion {
   uint32_t major;
   uint32_t minor;
};

struct HostOsName {
   uint32_t family;
   uint32_t version;
   char identifier[128];
   char name[512];
};

typedef void (*HostOsNamingFunc)(const HostOsVersion *version, HostOsName *result);

struct HostOsTableEntry {
   uint32_t major;
   uint32_t minor;
   HostOsNamingFunc name;
};
extern const HostOsTableEntry hostOsTable[];  // ends in a row of zeros

// Names the version by its row of the table; false when no row has it.
bool Hostinfo_NameOs(const HostOsVersion *version, HostOsName *result);

// What the last naming also left behind, for the whole process.
struct HostOsTexts {
   char wordSize[1024];           // "64" or "32"
   char build[1024];
   char version[1024];            // major.minor
   char buildWithRevision[1024];
   char fullName[1024];
};
const HostOsTexts *Hostinfo_OsTexts();

// Nanoseconds since an arbitrary start.
uint64_t Hostinfo_SystemTimerNS();
void Hostinfo_SleepUs(uint64_t microseconds);

// Counter ticks to nanoseconds in fixed point: the multiplier in the low 32 bits and the
// shift above them, or 0 for a frequency that cannot be put so.
uint64_t HostinfoTimerScale(uint64_t frequency);
uint64_t HostinfoTicksToNS(uint64_t ticks, uint64_t scale);

// TT800. The state isn't guarded: its users do that.
struct RandomState;
RandomState *Random_QuickSeed(uint32_t seed);
uint32_t Random_Quick(RandomState *state);

// The platform's answers that the module builds on. Tests replace entries to play other
// machines; nothing else changes them.
struct HostinfoPlatform {
   bool (*isServer)();
   uint32_t (*wordSize)();  // 64 or 32
   uint32_t (*build)();     // CurrentBuild, 0 when it can't be read
   uint32_t (*revision)();  // UBR, 0 when absent
   uint32_t (*productType)(const HostOsVersion *version);  // 0 when unknown
   bool (*hasServicePack1)();
   uint64_t (*counterFrequency)();  // 0 when there is none
   uint64_t (*counter)();
   void (*sleep)(uint32_t milliseconds);
};
extern HostinfoPlatform hostinfoPlatform;
