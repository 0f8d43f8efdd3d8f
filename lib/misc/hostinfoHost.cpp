// A host that is no Windows answers as a 64-bit workstation that reads no build, so that
// the portable rules can be run and tested on it.
#include "misc/hostinfo.h"

#include <time.h>
#include <unistd.h>

namespace {

bool HostinfoIsServer() { return false; }
uint32_t HostinfoWordSize() { return sizeof(void *) * 8; }
uint32_t HostinfoNoNumber() { return 0; }
uint32_t HostinfoProductType(const HostOsVersion *) { return 0; }
bool HostinfoHasServicePack1() { return false; }
uint64_t HostinfoCounterFrequency() { return 1000000000; }

uint64_t HostinfoCounter()
{
   timespec now;
   clock_gettime(CLOCK_MONOTONIC, &now);
   return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

void HostinfoSleep(uint32_t milliseconds) { usleep(static_cast<useconds_t>(milliseconds) * 1000); }

} // namespace

HostinfoPlatform hostinfoPlatform = {
   HostinfoIsServer,         HostinfoWordSize, HostinfoNoNumber,
   HostinfoNoNumber,         HostinfoProductType, HostinfoHasServicePack1,
   HostinfoCounterFrequency, HostinfoCounter,  HostinfoSleep,
};
