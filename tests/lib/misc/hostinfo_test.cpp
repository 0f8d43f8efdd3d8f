// The operating-system name table against the machines it must tell apart, the clock's
// fixed-point conversion, and TT800 against its published batch form.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "misc/hostinfo.h"

namespace {

struct Machine {
   bool server;
   uint32_t wordSize, build, revision, productType;
   bool servicePack1;
};
Machine machine;

void PlayMachine()
{
   hostinfoPlatform.isServer = [] { return machine.server; };
   hostinfoPlatform.wordSize = [] { return machine.wordSize; };
   hostinfoPlatform.build = [] { return machine.build; };
   hostinfoPlatform.revision = [] { return machine.revision; };
   hostinfoPlatform.productType = [](const HostOsVersion *) { return machine.productType; };
   hostinfoPlatform.hasServicePack1 = [] { return machine.servicePack1; };
}

TEST(Hostinfo, NamesEachMachine)
{
   PlayMachine();
   const struct {
      uint32_t major, minor;
      Machine m;
      uint32_t family, version;
      const char *identifier, *name;
   } rows[] = {
      {6, 1, {false, 64, 7601, 0, 48, true}, 9, 20, "windows7-64", "Windows 7, 64-bit Service Pack 1 (Build 7601)"},
      {6, 1, {false, 32, 7600, 0, 16, false}, 9, 20, "windows7", "Windows 7 Professional, 32-bit (Build 7600)"},
      {6, 1, {true, 64, 7601, 0, 40, false}, 9, 21, "windows7srv-64", "Windows Server 2008 R2 Standard Edition, 64-bit (Build 7601)"},
      {6, 2, {false, 64, 9200, 0, 0, false}, 10, 22, "windows8-64", "Windows 8, 64-bit (Build 9200)"},
      {6, 3, {false, 32, 9600, 0, 48, false}, 10, 22, "windows8", "Windows 8.1 Pro, 32-bit (Build 9600)"},
      {6, 3, {true, 64, 9600, 0, 0, false}, 10, 23, "windows8srv-64", "Windows Server R2 2012, 64-bit (Build 9600)"},
      {6, 3, {true, 64, 9600, 0, 39, false}, 10, 23, "windows8srv-64", "Windows Server 2012 R2 Datacenter Edition, 64-bit (Build 9600)"},
      {6, 3, {true, 64, 9600, 0, 77, false}, 10, 23, "windows8srv-64", "Windows MultiPoint Server 2012.1 Premium, 64-bit (Build 9600)"},
      {10, 0, {false, 64, 21999, 9, 48, false}, 11, 24, "windows9-64", "Windows 10 Pro, 64-bit (Build 21999.9)"},
      {10, 0, {false, 64, 22000, 1, 4, false}, 12, 26, "windows11-64", "Windows 11 Enterprise, 64-bit (Build 22000.1)"},
      {10, 0, {false, 32, 0, 0, 0, false}, 11, 24, "windows9", "Windows 10, 32-bit (Build 0.0)"},
      {10, 0, {true, 32, 14392, 0, 0, false}, 11, 25, "windowsUnknown-64", "Windows Unknown, 64-bit (Build 14392.0)"},
      {10, 0, {true, 64, 14393, 0, 0, false}, 11, 25, "windows9srv-64", "Windows Server 2016, 64-bit (Build 14393.0)"},
      {10, 0, {true, 64, 19042, 0, 0, false}, 11, 25, "windows2019srv-64", "Windows Server 2019, 64-bit (Build 19042.0)"},
      {10, 0, {true, 64, 19043, 0, 0, false}, 11, 25, "windowsUnknown-64", "Windows Unknown, 64-bit (Build 19043.0)"},
      {10, 0, {true, 64, 20348, 5, 0, false}, 12, 27, "windows2019srvNext-64", "Windows Server 2022, 64-bit (Build 20348.5)"},
      {10, 0, {true, 64, 25000, 0, 0, false}, 12, 27, "windows2022srvNext-64", "Windows Server 2025, 64-bit (Build 25000.0)"},
      {11, 0, {true, 64, 17763, 0, 0, false}, 12, 27, "windowsUnknown-64", "Windows Unknown, 64-bit (Build 17763.0)"},
      {6, 4, {false, 64, 26100, 2, 162, false}, 12, 26, "windows11-64", "Windows 11 Pro for Workstations, 64-bit (Build 26100.2)"},
   };
   for (const auto &r : rows) {
      machine = r.m;
      HostOsVersion version = {r.major, r.minor};
      HostOsName name;
      ASSERT_TRUE(Hostinfo_NameOs(&version, &name)) << r.name;
      EXPECT_EQ(name.family, r.family) << r.name;
      EXPECT_EQ(name.version, r.version) << r.name;
      EXPECT_STREQ(name.identifier, r.identifier);
      EXPECT_STREQ(name.name, r.name);
      EXPECT_STREQ(Hostinfo_OsTexts()->fullName, r.name);
      EXPECT_EQ(Hostinfo_OsTexts()->version, std::to_string(r.major) + "." + std::to_string(r.minor));
   }
   HostOsName name;
   for (HostOsVersion unknown : {HostOsVersion{6, 0}, {5, 1}, {0, 0}, {10, 1}}) {
      EXPECT_FALSE(Hostinfo_NameOs(&unknown, &name)) << unknown.major << "." << unknown.minor;
   }
}

TEST(Hostinfo, TicksToNanoseconds)
{
   const struct { uint64_t frequency, ticks, ns; } rows[] = {
      {10000000, 12345, 1234500},
      {3579545, 3579545, 1000000000},
      {4000000000, 5, 1},        // 1.25
      {2000000000, 5, 3},        // 2.5: the bit shifted out rounds up
      {UINT64_MAX, UINT64_MAX, 1000000000},
   };
   for (const auto &r : rows) {
      uint64_t scale = HostinfoTimerScale(r.frequency);
      ASSERT_NE(scale, 0u) << r.frequency;
      EXPECT_EQ(HostinfoTicksToNS(r.ticks, scale), r.ns) << r.frequency << " " << r.ticks;
   }
   EXPECT_EQ(HostinfoTimerScale(0), 0u);
}

// Outputs 1, 2, 25, 26 and 60 of each seed, worked out with TT800 in the batch form its
// authors printed (25 words made at a time), after the 25 starting words it hands out first.
TEST(Hostinfo, RandomFollowsTheBatchForm)
{
   const struct { uint32_t seed; uint32_t want[5]; } rows[] = {
      {0, {0x33c2a07e, 0x55ee93b7, 0x71662621, 0x31d03419, 0x025c4061}},
      {1, {0x7c353ba0, 0x1a190869, 0x71662620, 0x8dd56009, 0x462d1d0f}},
      {0xDEADBEEF, {0x7656545a, 0x107a6793, 0xe41328bb, 0x70e6b847, 0x30e8e156}},
   };
   for (const auto &r : rows) {
      RandomState *state = Random_QuickSeed(r.seed);
      std::vector<uint32_t> got;
      for (int i = 1; i <= 60; i++) {
         uint32_t value = Random_Quick(state);
         if (i == 1 || i == 2 || i == 25 || i == 26 || i == 60) {
            got.push_back(value);
         }
      }
      free(state);
      EXPECT_EQ(got, std::vector<uint32_t>(r.want, r.want + 5)) << r.seed;
   }
}

} // namespace
