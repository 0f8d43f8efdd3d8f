#include "RegistryTestSupport.h"

std::vector<std::string> ValueLines(const std::wstring &path)
{
   const std::vector<std::string> tree = scenario::DumpTree(HKEY_LOCAL_MACHINE, path);
   std::vector<std::string> values;
   for (const std::string &line : tree) {
      if (line.rfind(tree[0] + ": ", 0) == 0) {
         values.push_back(line.substr(tree[0].size() + 2));
      }
   }
   return values;
}

std::vector<HANDLE> OpenHandles()
{
   std::vector<HANDLE> handles;
   for (uintptr_t value = 4; value < 0x800; value += 4) {
      DWORD flags;
      if (GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags)) {
         handles.push_back(reinterpret_cast<HANDLE>(value));
      }
   }
   return handles;
}
