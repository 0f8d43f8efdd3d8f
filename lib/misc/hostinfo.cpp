#include "misc/hostinfo.h"

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "misc/panic.h"
#include "string/str.h"

namespace {

HostOsTexts osTexts;

struct HostOsEdition {
   std::initializer_list<uint32_t> types;
   const char *name;
   bool server;
};

// The edition's name and kind; the rows are temporaries, so nothing of them is kept.
bool HostOsFindEdition(std::initializer_list<HostOsEdition> editions, uint32_t type,
                       const char **name, bool *server)
{
   for (const HostOsEdition &edition : editions) {
      for (uint32_t t : edition.types) {
         if (t == type) {
            *name = edition.name;
            *server = edition.server;
            return true;
         }
      }
   }
   return false;
}

const char *HostOsBits(uint32_t wordSize)
{
   return wordSize == 64 ? ", 64-bit" : ", 32-bit";
}

// The texts every rule leaves behind, and the full name with its build.
void HostOsFinish(const HostOsVersion *version, HostOsName *result, uint32_t wordSize,
                  uint32_t build, const char *buildText)
{
   Str_Sprintf(osTexts.wordSize, sizeof osTexts.wordSize, "%u", wordSize);
   Str_Sprintf(osTexts.build, sizeof osTexts.build, "%u", build);
   Str_Sprintf(osTexts.version, sizeof osTexts.version, "%d.%d", version->major,
               version->minor);
   Str_Sprintf(osTexts.buildWithRevision, sizeof osTexts.buildWithRevision, "%s", buildText);
   Str_Sprintf(osTexts.fullName, sizeof osTexts.fullName, "%s", result->name);
}

void HostOsWindows7(const HostOsVersion *version, HostOsName *result)
{
   bool server = hostinfoPlatform.isServer();
   uint32_t wordSize = hostinfoPlatform.wordSize();
   result->family = 9;
   result->version = server ? 21 : 20;
   Str_Strcpy(result->identifier, wordSize == 64 ? "windows7-64" : "windows7",
              sizeof result->identifier);
   const char *name = "Windows 7";
   bool serverEdition = false;
   HostOsFindEdition(
      {
         {{1}, "Windows 7 Ultimate", false},
         {{2}, "Windows 7 Home Basic", false},
         {{3}, "Windows 7 Home Premium", false},
         {{4}, "Windows 7 Enterprise", false},
         {{6, 16}, "Windows 7 Professional", false},
         {{11}, "Windows 7 Starter", false},
         {{7, 13, 36, 40}, "Windows Server 2008 R2 Standard Edition", true},
         {{8, 12, 37, 39}, "Windows Server 2008 R2 Datacenter Edition", true},
         {{10, 14, 38, 41}, "Windows Server 2008 R2 Enterprise Edition", true},
         {{17, 29}, "Windows Web Server 2008 R2 Edition", true},
         {{33}, "Windows Server 2008 R2 Foundation Edition", true},
      },
      hostinfoPlatform.productType(version), &name, &serverEdition);
   if (serverEdition) {
      Str_Strcpy(result->identifier, "windows7srv-64", sizeof result->identifier);
   }
   uint32_t build = hostinfoPlatform.build();
   Str_Sprintf(result->name, sizeof result->name, "%s%s %s(Build %u)", name,
               HostOsBits(wordSize), hostinfoPlatform.hasServicePack1() ? "Service Pack 1 " : "",
               build);
   HostOsFinish(version, result, wordSize, build, osTexts.build);
}

void HostOsWindows8(const HostOsVersion *version, HostOsName *result)
{
   bool server = hostinfoPlatform.isServer();
   uint32_t wordSize = hostinfoPlatform.wordSize();
   bool point1 = version->minor == 3;  // 8.1 and 2012 R2
   const char *serverNext = point1 ? " R2" : "";
   const char *clientNext = point1 ? ".1" : "";
   result->family = 10;
   result->version = server ? 23 : 22;
   char name[256];
   if (server) {
      Str_Strcpy(result->identifier, "windows8srv-64", sizeof result->identifier);
      Str_Sprintf(name, sizeof name, "Windows Server%s 2012", serverNext);
   } else {
      Str_Strcpy(result->identifier, wordSize == 64 ? "windows8-64" : "windows8",
                 sizeof result->identifier);
      Str_Sprintf(name, sizeof name, "Windows 8%s", clientNext);
   }
   // `server` here says which insertion the edition's name takes.
   const char *edition = nullptr;
   bool serverEdition = false;
   if (HostOsFindEdition(
      {
         {{4}, "Windows 8%s Enterprise", false},
         {{6, 16, 48}, "Windows 8%s Pro", false},
         {{7, 13, 36, 40}, "Windows Server 2012%s Standard Edition", true},
         {{8, 12, 37, 39}, "Windows Server 2012%s Datacenter Edition", true},
         {{9, 50}, "Windows Server 2012%s Essentials Edition", true},
         {{10, 14, 38, 41}, "Windows Server 2012%s Enterprise Edition", true},
         {{20, 21, 22, 23}, "Windows Server 2012%s Storage Server", true},
         {{33}, "Windows Server 2012%s Foundation Edition", true},
         {{76}, "Windows MultiPoint Server 2012%s Standard", false},
         {{77}, "Windows MultiPoint Server 2012%s Premium", false},
      },
      hostinfoPlatform.productType(version), &edition, &serverEdition)) {
      Str_Sprintf(name, sizeof name, edition, serverEdition ? serverNext : clientNext);
   }
   uint32_t build = hostinfoPlatform.build();
   Str_Sprintf(result->name, sizeof result->name, "%s%s (Build %u)", name,
               HostOsBits(wordSize), build);
   HostOsFinish(version, result, wordSize, build, osTexts.build);
}

// The workstation editions of Windows 10 and 11 share their product types.
const char *HostOsClientEdition(uint32_t type)
{
   const char *edition = "";
   bool unused = false;
   HostOsFindEdition(
      {
         {{4, 27, 70, 72, 84, 125, 126, 129, 130}, " Enterprise", false},
         {{48, 49}, " Pro", false},
         {{98, 99, 100, 101}, " Home", false},
         {{121, 122}, " Education", false},
         {{123}, " IoT Core", false},
         {{161, 162}, " Pro for Workstations", false},
      },
      type, &edition, &unused);
   return edition;
}

struct HostOsServerRelease {
   uint32_t firstBuild;
   uint32_t lastBuild;
   const char *name;
   const char *identifier;
};

// The first two rows belong to the Windows 10 rule, the last two to the Windows 11 rule.
const HostOsServerRelease kServerReleases[] = {
   {14393, 17762, "Windows Server 2016", "windows9srv-64"},
   {17763, 19042, "Windows Server 2019", "windows2019srv-64"},
   {20348, 24999, "Windows Server 2022", "windows2019srvNext-64"},
   {25000, UINT32_MAX, "Windows Server 2025", "windows2022srvNext-64"},
};

void HostOsWindows10Or11Rule(const HostOsVersion *version, HostOsName *result, bool is11,
                             uint32_t build, uint32_t revision, bool server)
{
   // A server is always 64-bit here.
   uint32_t wordSize = server ? 64 : hostinfoPlatform.wordSize();
   result->family = is11 ? 12 : 11;
   result->version = (is11 ? 26 : 24) + (server ? 1 : 0);
   char name[256];
   if (server) {
      Str_Strcpy(name, "Windows Unknown", sizeof name);
      Str_Strcpy(result->identifier, "windowsUnknown-64", sizeof result->identifier);
      for (int i = is11 ? 2 : 0, end = i + 2; i < end; i++) {
         if (build >= kServerReleases[i].firstBuild && build <= kServerReleases[i].lastBuild) {
            Str_Strcpy(name, kServerReleases[i].name, sizeof name);
            Str_Strcpy(result->identifier, kServerReleases[i].identifier,
                       sizeof result->identifier);
         }
      }
   } else {
      Str_Sprintf(name, sizeof name, "Windows %s%s", is11 ? "11" : "10",
                  HostOsClientEdition(hostinfoPlatform.productType(version)));
      Str_Sprintf(result->identifier, sizeof result->identifier, "%s%s",
                  is11 ? "windows11" : "windows9", wordSize == 64 ? "-64" : "");
   }
   Str_Sprintf(result->name, sizeof result->name, "%s%s (Build %u.%u)", name,
               HostOsBits(wordSize), build, revision);
   char buildText[32];
   Str_Sprintf(buildText, sizeof buildText, "%u.%u", build, revision);
   HostOsFinish(version, result, wordSize, build, buildText);
}

void HostOsWindows10Or11(const HostOsVersion *version, HostOsName *result)
{
   uint32_t build = hostinfoPlatform.build();
   uint32_t revision = hostinfoPlatform.revision();
   bool server = hostinfoPlatform.isServer();
   bool is11 = build >= (server ? 20348u : 22000u);
   HostOsWindows10Or11Rule(version, result, is11, build, revision, server);
}

void HostOsWindows11(const HostOsVersion *version, HostOsName *result)
{
   HostOsWindows10Or11Rule(version, result, true, hostinfoPlatform.build(),
                           hostinfoPlatform.revision(), hostinfoPlatform.isServer());
}

// The published starting words of TT800.
const uint32_t kTT800Start[25] = {
   0x95f24dab, 0x0b685215, 0xe76ccae7, 0xaf3ec239, 0x715fad23, 0x24a590ad, 0x69e4b5ef,
   0xbf456141, 0x96bc1b7b, 0xa7bdf825, 0xc1de75b7, 0x8858a9c9, 0x2da87693, 0xb657f9dd,
   0xffdc8a9f, 0x8121da71, 0x8b823ecb, 0x885d05f5, 0x4e20cd47, 0x5a9ad5d9, 0x512c0c03,
   0xea857ccd, 0x4cc1d30f, 0x8891a8a1, 0xa6b7aadb,
};

std::atomic<uint64_t> timerScale{0};

} // namespace

const HostOsTableEntry hostOsTable[] = {
   {6, 1, HostOsWindows7},
   {6, 2, HostOsWindows8},
   {6, 3, HostOsWindows8},
   {6, 4, HostOsWindows10Or11},
   {10, 0, HostOsWindows10Or11},
   {11, 0, HostOsWindows11},
   {0, 0, nullptr},
};

bool Hostinfo_NameOs(const HostOsVersion *version, HostOsName *result)
{
   for (const HostOsTableEntry *row = hostOsTable; row->name != nullptr; row++) {
      if (row->major == version->major && row->minor == version->minor) {
         *result = {};
         row->name(version, result);
         return true;
      }
   }
   return false;
}

const HostOsTexts *Hostinfo_OsTexts() { return &osTexts; }

uint64_t HostinfoTimerScale(uint64_t frequency)
{
   if (frequency == 0) {
      return 0;
   }
   // The largest shift whose multiplier still fits 32 bits keeps the most precision; the
   // rounding step needs a shift of at least 1.
   for (uint32_t shift = 63; shift >= 1; shift--) {
      unsigned __int128 multiplier =
         ((static_cast<unsigned __int128>(1000000000) << shift) + frequency / 2) / frequency;
      if (multiplier != 0 && multiplier <= 0xFFFFFFFFu) {
         return static_cast<uint64_t>(multiplier) | (static_cast<uint64_t>(shift) << 32);
      }
   }
   return 0;
}

uint64_t HostinfoTicksToNS(uint64_t ticks, uint64_t scale)
{
   uint32_t multiplier = static_cast<uint32_t>(scale);
   uint32_t shift = static_cast<uint32_t>(scale >> 32);
   unsigned __int128 product = static_cast<unsigned __int128>(ticks) * multiplier;
   return static_cast<uint64_t>((product >> shift) + ((product >> (shift - 1)) & 1));
}

uint64_t Hostinfo_SystemTimerNS()
{
   uint64_t scale = timerScale.load(std::memory_order_relaxed);
   if (scale == 0) {
      scale = HostinfoTimerScale(hostinfoPlatform.counterFrequency());
      if (scale == 0) {
         Panic("VERIFY %s:%d\n", "lib/misc/hostinfo", __LINE__);
      }
      // A race only does the same work twice.
      timerScale.exchange(scale);
   }
   return HostinfoTicksToNS(hostinfoPlatform.counter(), scale);
}

void Hostinfo_SleepUs(uint64_t microseconds)
{
   uint64_t target = Hostinfo_SystemTimerNS() + microseconds * 1000;
   for (uint64_t now = Hostinfo_SystemTimerNS(); now < target; now = Hostinfo_SystemTimerNS()) {
      uint64_t milliseconds = (target - now + 999999) / 1000000;
      hostinfoPlatform.sleep(static_cast<uint32_t>(milliseconds));
   }
}

struct RandomState {
   uint32_t words[25];
   int i;
   int j;
};

RandomState *Random_QuickSeed(uint32_t seed)
{
   auto *state = static_cast<RandomState *>(SafeMalloc(sizeof(RandomState)));
   for (int k = 0; k < 25; k++) {
      state->words[k] = kTT800Start[k] ^ seed;
   }
   state->i = 24;
   state->j = 6;
   return state;
}

uint32_t Random_Quick(RandomState *state)
{
   static const uint32_t kMatrix[2] = {0, 0x8ebfd028};
   state->i = state->i == 24 ? 0 : state->i + 1;
   state->j = state->j == 24 ? 0 : state->j + 1;
   uint32_t old = state->words[state->i];
   uint32_t y = state->words[state->j] ^ (old >> 1) ^ kMatrix[old & 1];
   state->words[state->i] = y;
   y ^= (y << 7) & 0x2b5b2500;
   y ^= (y << 15) & 0xdb8b0000;
   y ^= y >> 16;
   return y;
}
