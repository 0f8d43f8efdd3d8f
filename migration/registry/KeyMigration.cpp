#include "registry/KeyMigration.h"

#include "HandleGuards.h"
#include "log/MigrationLog.h"
#include "registry/ValueMigration.h"

PSECURITY_DESCRIPTOR defaultKeySecurityDescriptor = nullptr;

namespace {

constexpr DWORD KeyNameBufferChars = 256;
constexpr SECURITY_INFORMATION AllSecurityInformation = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION |
                                                        DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION;
// Access for a key created as a path segment: enough to work below it, no more.
constexpr REGSAM SegmentCreateAccess = STANDARD_RIGHTS_READ | KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY |
                                       KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY;
// The destination handle the walk writes through. KEY_QUERY_VALUE is in it because
// SkipIfExists asks the destination whether a value is there; without query access that
// question always fails and the value would be overwritten.
constexpr REGSAM DestinationAccess = STANDARD_RIGHTS_READ | KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY;

// Clears the process-wide default descriptor when a rule ends, also by an exception, so
// that no later rule can see a freed block.
class DefaultDescriptorScope
{
public:
   explicit DefaultDescriptorScope(PSECURITY_DESCRIPTOR descriptor) : owned_(descriptor)
   {
      defaultKeySecurityDescriptor = descriptor;
   }
   ~DefaultDescriptorScope() { defaultKeySecurityDescriptor = nullptr; }
   DefaultDescriptorScope(const DefaultDescriptorScope &) = delete;
   DefaultDescriptorScope &operator=(const DefaultDescriptorScope &) = delete;

private:
   UniqueLocalMemory owned_;
};

bool KeyExists(HKEY root, const std::wstring &path)
{
   UniqueHkey key;
   return RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, key.put()) == ERROR_SUCCESS;
}

const RegistrySubKeyRule *FindSubKeyRule(const std::vector<RegistrySubKeyRule> &rules, const wchar_t *name,
                                         DWORD nameLength)
{
   // Exact and case-sensitive, so a rule only ever names a direct child as enumerated.
   for (const RegistrySubKeyRule &rule : rules) {
      if (rule.SourcePath.size() == nameLength && rule.SourcePath.compare(0, nameLength, name, nameLength) == 0) {
         return &rule;
      }
   }
   return nullptr;
}

std::vector<std::wstring> SplitPathSegments(std::wstring path)
{
   if (!path.empty() && path.back() == L'\\') {
      path.pop_back();
   }
   std::vector<std::wstring> segments;
   size_t start = 0;
   for (size_t found; (found = path.find(L'\\', start)) != std::wstring::npos; start = found + 1) {
      segments.push_back(path.substr(start, found - start));
   }
   segments.push_back(path.substr(start));
   return segments;
}

} // namespace

PSECURITY_DESCRIPTOR GetKeySecurityDescriptor(HKEY rootKey, const std::wstring &path)
{
   UniqueHkey key;
   if (RegOpenKeyExW(rootKey, path.c_str(), 0, KEY_READ | ACCESS_SYSTEM_SECURITY, key.put()) != ERROR_SUCCESS ||
       !key) {
      LogMessage(LogLevelWarning, "Source path %S doesn't exist.", path.c_str());
      return nullptr;
   }

   DWORD size = 0;
   const LONG sizing = RegGetKeySecurity(key.get(), AllSecurityInformation, nullptr, &size);
   if (sizing != ERROR_INSUFFICIENT_BUFFER) {
      LogMessage(LogLevelError, "Can't get key security size %S, error=%d.", path.c_str(), static_cast<int>(sizing));
      return nullptr;
   }

   UniqueLocalMemory block(LocalAlloc(LPTR, size));
   if (!block) {
      return nullptr;
   }
   if (RegGetKeySecurity(key.get(), AllSecurityInformation, block.get(), &size) != ERROR_SUCCESS) {
      // The number in this line has always been the sizing call's expected result, not
      // this call's; log readers and their tools match on it.
      LogMessage(LogLevelError, "Can't get key security %S, error=%d.", path.c_str(),
                 static_cast<int>(ERROR_INSUFFICIENT_BUFFER));
      return nullptr;
   }
   return block.release();
}

bool EnsureDestinationKey(HKEY sourceRoot, const std::wstring &sourcePath, HKEY destRoot, const std::wstring &destPath)
{
   if (KeyExists(destRoot, destPath)) {
      // An existing key keeps its own descriptor.
      LogMessage(LogLevelInfo, "The destination key %S exists, ignore and continue.", destPath.c_str());
      return true;
   }
   if (defaultKeySecurityDescriptor == nullptr) {
      LogMessage(LogLevelError,
                 "Program error detected, the default security descriptor is not set before migrating registry keys.");
      return false;
   }

   const std::vector<std::wstring> segments = SplitPathSegments(destPath);
   std::wstring builtPath;
   for (size_t i = 0; i < segments.size(); ++i) {
      if (!builtPath.empty()) {
         builtPath += L'\\';
      }
      builtPath += segments[i];
      if (KeyExists(destRoot, builtPath)) {
         continue;
      }

      // The leaf carries its source's security; the segments in front of it have no source
      // and get the old vendor's. A source whose descriptor can't be read still gets its
      // leaf created, with the platform's default security.
      const bool leaf = i + 1 == segments.size();
      UniqueLocalMemory sourceDescriptor;
      if (leaf) {
         sourceDescriptor.reset(GetKeySecurityDescriptor(sourceRoot, sourcePath));
      }
      SECURITY_ATTRIBUTES attributes{};
      attributes.nLength = sizeof(attributes);
      attributes.lpSecurityDescriptor = leaf ? sourceDescriptor.get() : defaultKeySecurityDescriptor;
      attributes.bInheritHandle = FALSE;

      UniqueHkey created;
      const LONG result = RegCreateKeyExW(destRoot, builtPath.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                          SegmentCreateAccess, &attributes, created.put(), nullptr);
      if (result != ERROR_SUCCESS) {
         LogMessage(LogLevelError, "Failed to create key: %S, error=%d.", builtPath.c_str(), static_cast<int>(result));
         return false;
      }
   }
   return true;
}

void MigrateKeyTree(HKEY sourceParent, HKEY destParent, const std::wstring &sourcePath, const std::wstring &destPath,
                    const std::wstring &action, const std::vector<RegistrySubKeyRule> &subKeyRules,
                    const std::vector<RegistryValueRule> &valueRules)
{
   UniqueHkey source;
   if (RegOpenKeyExW(sourceParent, sourcePath.c_str(), 0, KEY_READ, source.put()) != ERROR_SUCCESS) {
      // The machine simply doesn't have this key: nothing to carry over, nothing created.
      LogMessage(LogLevelWarning, "Failed to open source registry key %S, ignore...", sourcePath.c_str());
      return;
   }

   if (!EnsureDestinationKey(sourceParent, sourcePath, destParent, destPath)) {
      LogMessage(LogLevelError, "Failed to create destination registry key %S.", destPath.c_str());
      return;
   }

   UniqueHkey destination;
   if (RegCreateKeyExW(destParent, destPath.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, DestinationAccess, nullptr,
                       destination.put(), nullptr) != ERROR_SUCCESS) {
      LogMessage(LogLevelError, "Failed to open destinition registry key %S, ignore...", destPath.c_str());
      return;
   }

   // A key exists and holds its values before any of its children is visited.
   MigrateKeyValues(source.get(), destination.get(), valueRules, action);

   static const std::vector<RegistrySubKeyRule> noSubKeyRules;
   static const std::vector<RegistryValueRule> noValueRules;
   wchar_t name[KeyNameBufferChars];
   // The source is only read during the walk, so increasing indices stay stable. Any
   // failure of the enumeration, a name too long included, ends it quietly.
   for (DWORD index = 0;; ++index) {
      DWORD nameLength = KeyNameBufferChars;
      if (RegEnumKeyExW(source.get(), index, name, &nameLength, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
         break;
      }
      const RegistrySubKeyRule *rule = FindSubKeyRule(subKeyRules, name, nameLength);
      if (rule != nullptr) {
         MigrateKeyTree(source.get(), destination.get(), rule->SourcePath, rule->DestPath, rule->Action, rule->SubKeys,
                        rule->Values);
      } else {
         // A child that no rule names goes across under its own name, with the action of
         // the key around it.
         const std::wstring childName(name, nameLength);
         MigrateKeyTree(source.get(), destination.get(), childName, childName, action, noSubKeyRules, noValueRules);
      }
   }
}

void MigrateRegistryKeyRule(HKEY rootKey, const std::wstring &securityPrefix, const RegistryKeyRule &rule)
{
   PSECURITY_DESCRIPTOR descriptor = nullptr;
   if (rootKey == HKEY_CLASSES_ROOT) {
      descriptor = GetKeySecurityDescriptor(HKEY_LOCAL_MACHINE, L"Software\\Classes");
   } else if (securityPrefix.empty()) {
      descriptor = GetKeySecurityDescriptor(rootKey, L"Software\\Classes");
   } else {
      descriptor = GetKeySecurityDescriptor(rootKey, securityPrefix);
   }
   if (descriptor == nullptr) {
      LogMessage(LogLevelError, "Can't retrieve default security descriptor, abort.");
      return;
   }

   DefaultDescriptorScope scope(descriptor);
   const RegistrySubKeyRule &key = rule.Key;
   MigrateKeyTree(rootKey, rootKey, key.SourcePath, key.DestPath, key.Action, key.SubKeys, key.Values);
}
