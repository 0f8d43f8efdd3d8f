// The operating-system name table on arbitrary versions and machines. Oracles, worked out
// apart from the rules: a version has a row exactly when the table names it; the rule that
// applies gives the family and version numbers (the server one odd); the name begins with
// "Windows", states the word size a server or the machine has, and ends with its build
// (and revision from Windows 10 on); a server from Windows 10 on is named by its build's
// release; the identifier's "-64" agrees.

#include <cstdint>
#include <cstring>
#include <string>

#include "misc/hostinfo.h"

namespace {

struct Machine {
   bool server, servicePack1;
   uint32_t wordSize, build, revision, productType;
} machine;

bool EndsWith(const std::string &text, const std::string &end)
{
   return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   static const HostOsVersion kVersions[] = {{6, 1}, {6, 2}, {6, 3}, {6, 4}, {10, 0}, {11, 0}, {6, 0}, {10, 1}};
   struct {
      uint8_t pick, flags;
      uint16_t productType;
      uint32_t build, revision;
   } in = {};
   memcpy(&in, data, size < sizeof in ? size : sizeof in);
   HostOsVersion version = in.pick < 8 ? kVersions[in.pick] : HostOsVersion{in.pick / 16u, in.pick % 16u};
   machine = {(in.flags & 1) != 0, (in.flags & 2) != 0, (in.flags & 4) != 0 ? 32u : 64u,
              in.build, in.revision, in.productType};
   hostinfoPlatform.isServer = [] { return machine.server; };
   hostinfoPlatform.wordSize = [] { return machine.wordSize; };
   hostinfoPlatform.build = [] { return machine.build; };
   hostinfoPlatform.revision = [] { return machine.revision; };
   hostinfoPlatform.productType = [](const HostOsVersion *) { return machine.productType; };
   hostinfoPlatform.hasServicePack1 = [] { return machine.servicePack1; };

   // The rule by version and build: 7, 8, 10 or 11.
   int rule = 0;
   if (version.major == 6 && version.minor == 1) {
      rule = 7;
   } else if (version.major == 6 && (version.minor == 2 || version.minor == 3)) {
      rule = 8;
   } else if ((version.major == 6 && version.minor == 4) || (version.major == 10 && version.minor == 0)) {
      rule = machine.build < (machine.server ? 20348u : 22000u) ? 10 : 11;
   } else if (version.major == 11 && version.minor == 0) {
      rule = 11;
   }
   HostOsName name;
   if (Hostinfo_NameOs(&version, &name) != (rule != 0)) {
      __builtin_trap();
   }
   if (rule == 0) {
      return 0;
   }
   const uint32_t family = rule == 7 ? 9 : rule == 8 ? 10 : rule == 10 ? 11 : 12;
   if (name.family != family || name.version != 2 * family + 2 + (machine.server ? 1 : 0)) {
      __builtin_trap();
   }
   const std::string text = name.name;
   const bool sixtyFour = machine.wordSize == 64 || (machine.server && rule >= 10);
   std::string build = " (Build " + std::to_string(machine.build);
   build += rule >= 10 ? "." + std::to_string(machine.revision) + ")" : ")";
   if (text.rfind("Windows", 0) != 0 || !EndsWith(text, build) ||
       text.find(sixtyFour ? ", 64-bit" : ", 32-bit") == std::string::npos) {
      __builtin_trap();
   }
   if (machine.server && rule >= 10) {
      const uint32_t b = machine.build;
      const char *release = rule == 10 ? (b >= 14393 && b < 17763 ? "Windows Server 2016"
                                          : b >= 17763 && b < 19043 ? "Windows Server 2019"
                                                                    : "Windows Unknown")
                                       : (b >= 25000 ? "Windows Server 2025"
                                          : b >= 20348 ? "Windows Server 2022"
                                                       : "Windows Unknown");
      if (text.rfind(std::string(release) + ", 64-bit (Build", 0) != 0) {
         __builtin_trap();
      }
   }
   const std::string identifier = name.identifier;
   const bool serverIdentifier = identifier.find("srv") != std::string::npos;
   if (identifier.rfind("windows", 0) != 0 ||
       (EndsWith(identifier, "-64") != (sixtyFour || serverIdentifier))) {
      __builtin_trap();
   }
   return 0;
}
