#include "ConfigDump.h"

namespace {

void DumpKey(std::wstring &out, const RegistrySubKeyRule &key, const std::wstring &indent)
{
   for (const RegistryValueRule &v : key.Values) {
      out += indent + L"V " + v.OldName + L"|" + v.NewName + L"|" + v.Type + L"|" + v.Action + L"|" + v.NewValue + L"\n";
   }
   for (const RegistrySubKeyRule &sub : key.SubKeys) {
      out += indent + L"S " + sub.SourcePath + L"|" + sub.DestPath + L"|" + sub.Action + L"\n";
      DumpKey(out, sub, indent + L"  ");
   }
}

} // namespace

std::wstring DumpConfig(const MigrationConfig &config)
{
   std::wstring out;
   for (const MacroEntry &m : config.Macros) {
      out += L"M " + m.Name + L"|" + m.Variable + L"|" + m.Value + L"\n";
   }
   for (const auto &[tag, rules] : {std::pair(L"SK ", &config.ServiceKeys), std::pair(L"UK ", &config.UserKeys)}) {
      for (const RegistryKeyRule &r : *rules) {
         out += tag + r.Root + L"|" + r.Key.SourcePath + L"|" + r.Key.DestPath + L"|" + r.Key.Action + L"\n";
         DumpKey(out, r.Key, L"  ");
      }
   }
   for (const ConfigFileRule &f : config.ConfigFiles) {
      out += L"F " + f.FileType + L"|" + f.SourcePath + L"|" + f.DestPath + L"|" + f.Action + L"\n";
   }
   return out;
}
