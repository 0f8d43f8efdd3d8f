#include "registry/KeyMigration.h"

#include <cstring>

#include "HandleGuards.h"
#include "log/MigrationLog.h"
#include "registry/ValueMigration.h"

PSECURITY_DESCRIPTOR defaultKeySecurityDescriptor = nullptr;

namespace {

constexpr DWORD KeyNameBufferChars = 256;
constexpr DWORD DescriptorBufferBytes = 1024;
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

// Why a descriptor couldn't be had. A leaf's descriptor is read before its creation shows
// whether the key is new, and the reason is logged only if it is.
enum class DescriptorFailure { None, NotOpened, Size, Read, Memory };

// A key's descriptor as RegGetKeySecurity gives it. Owner, group and a handful of ACEs take
// a few hundred bytes, so one read into `bytes` usually does; a bigger one is read again
// into a block of the size the first read reported.
struct KeyDescriptor {
   alignas(8) BYTE bytes[DescriptorBufferBytes];
   UniqueLocalMemory block;
   PSECURITY_DESCRIPTOR data = nullptr;
   DescriptorFailure failure = DescriptorFailure::None;
   LONG status = ERROR_SUCCESS;
};

// `key` null: the key couldn't be opened for its security.
void ReadKeyDescriptor(HKEY key, KeyDescriptor &descriptor)
{
   if (key == nullptr) {
      descriptor.failure = DescriptorFailure::NotOpened;
      return;
   }
   DWORD size = sizeof(descriptor.bytes);
   descriptor.status = RegGetKeySecurity(key, AllSecurityInformation, descriptor.bytes, &size);
   if (descriptor.status == ERROR_SUCCESS) {
      descriptor.data = descriptor.bytes;
      return;
   }
   // Only a buffer that is too small makes it worth a second read: anything else would
   // fail the same way.
   if (descriptor.status != ERROR_INSUFFICIENT_BUFFER) {
      descriptor.failure = DescriptorFailure::Size;
      return;
   }
   descriptor.block.reset(LocalAlloc(LPTR, size));
   if (!descriptor.block) {
      descriptor.failure = DescriptorFailure::Memory;
      return;
   }
   if (RegGetKeySecurity(key, AllSecurityInformation, descriptor.block.get(), &size) != ERROR_SUCCESS) {
      descriptor.failure = DescriptorFailure::Read;
      return;
   }
   descriptor.data = descriptor.block.get();
}

// Copied descriptors that new children of one destination key were created with and that
// the walk's own open of such a child then accepted. A sibling created under the same parent
// with the same bytes ends up with the same descriptor, so the open would be accepted again:
// its creation handle is used instead, which spares an open and a close for nearly every
// key of a tree. Anything not known to be accepted is still opened, and refused, as before.
class AcceptedDescriptors
{
public:
   bool Contains(const KeyDescriptor &descriptor) const
   {
      if (descriptor.data == nullptr) {
         return false;
      }
      const DWORD length = GetSecurityDescriptorLength(descriptor.data);
      for (const std::vector<BYTE> &bytes : accepted_) {
         if (bytes.size() == length && memcmp(bytes.data(), descriptor.data, length) == 0) {
            return true;
         }
      }
      return false;
   }
   void Add(std::vector<BYTE> bytes)
   {
      // Siblings mostly share one descriptor; a parent with many different ones just
      // stops remembering.
      if (!bytes.empty() && accepted_.size() < MaxRemembered) {
         accepted_.push_back(std::move(bytes));
      }
   }

private:
   static constexpr size_t MaxRemembered = 8;
   std::vector<std::vector<BYTE>> accepted_;
};

std::vector<BYTE> DescriptorBytes(const KeyDescriptor &descriptor)
{
   if (descriptor.data == nullptr) {
      return {};
   }
   const BYTE *bytes = static_cast<const BYTE *>(descriptor.data);
   return std::vector<BYTE>(bytes, bytes + GetSecurityDescriptorLength(descriptor.data));
}

void LogDescriptorFailure(const KeyDescriptor &descriptor, const std::wstring &path)
{
   switch (descriptor.failure) {
   case DescriptorFailure::NotOpened:
      LogMessage(LogLevelWarning, "Source path %S doesn't exist.", path.c_str());
      break;
   case DescriptorFailure::Size:
      LogMessage(LogLevelError, "Can't get key security size %S, error=%d.", path.c_str(),
                 static_cast<int>(descriptor.status));
      break;
   case DescriptorFailure::Read:
      // The number in this line has always been the sizing call's expected result, not
      // this call's; log readers and their tools match on it.
      LogMessage(LogLevelError, "Can't get key security %S, error=%d.", path.c_str(),
                 static_cast<int>(ERROR_INSUFFICIENT_BUFFER));
      break;
   case DescriptorFailure::Memory:
   case DescriptorFailure::None:
      break;
   }
}

void LogExistingDestination(const std::wstring &destPath)
{
   // An existing key keeps its own descriptor.
   LogMessage(LogLevelInfo, "The destination key %S exists, ignore and continue.", destPath.c_str());
}

LONG CreateKeyWithDescriptor(HKEY root, const std::wstring &path, PSECURITY_DESCRIPTOR descriptor, HKEY *key,
                             DWORD *disposition)
{
   SECURITY_ATTRIBUTES attributes{};
   attributes.nLength = sizeof(attributes);
   attributes.lpSecurityDescriptor = descriptor;
   attributes.bInheritHandle = FALSE;
   return registryPlatform.RegCreateKeyExW(root, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                           SegmentCreateAccess, &attributes, key, disposition);
}

// A destination of one segment, the walk's every child: created straight away, with the
// source's descriptor, and the disposition tells whether it was there already, where a
// look first would cost a request for every new key.
//
// The creation asks for more than reading (SegmentCreateAccess), so an existing key that it
// opens would have opened for reading too: that is the existing key of the look-first
// order, and the handle has every right the walk writes with. A creation that fails says
// nothing about existence, and the look is made after all. A key that it creates is handed
// on only when a sibling with the same copied descriptor has been accepted: Windows gives the
// creator the access it asked for whatever the new descriptor says, and a copied descriptor
// that denies the installing account must still make the walk's own open of the key fail.
// Otherwise `unverified` receives the new key's descriptor, for the caller to remember once
// its open has been accepted.
bool EnsureSingleSegmentKey(HKEY securitySource, const std::wstring &sourcePath, HKEY destRoot,
                            const std::wstring &destPath, const AcceptedDescriptors *siblings,
                            UniqueHkey &existing, std::vector<BYTE> &unverified)
{
   KeyDescriptor leaf;
   ReadKeyDescriptor(securitySource, leaf);
   UniqueHkey key;
   DWORD disposition = 0;
   const LONG result = CreateKeyWithDescriptor(destRoot, destPath, leaf.data, key.put(), &disposition);
   if (result == ERROR_SUCCESS && disposition == REG_OPENED_EXISTING_KEY) {
      LogExistingDestination(destPath);
      existing = std::move(key);
      return true;
   }
   if (result == ERROR_SUCCESS && siblings != nullptr) {
      if (siblings->Contains(leaf)) {
         existing = std::move(key);
      } else {
         unverified = DescriptorBytes(leaf);
      }
   }
   if (result != ERROR_SUCCESS && KeyExists(destRoot, destPath)) {
      LogExistingDestination(destPath);
      return true;
   }
   // A source whose descriptor can't be read still gets its leaf, with the platform's
   // default security.
   LogDescriptorFailure(leaf, sourcePath);
   if (result != ERROR_SUCCESS) {
      LogMessage(LogLevelError, "Failed to create key: %S, error=%d.", destPath.c_str(), static_cast<int>(result));
      return false;
   }
   return true;
}

// `securitySource` is the source key opened for its security, null when it couldn't be.
// `existing` receives a writable handle when the destination turned out to exist already,
// or was created like a sibling that was accepted; `siblings` and `unverified` as for
// EnsureSingleSegmentKey, unused for a path of several segments.
bool EnsureDestination(HKEY securitySource, const std::wstring &sourcePath, HKEY destRoot,
                       const std::wstring &destPath, const AcceptedDescriptors *siblings, UniqueHkey &existing,
                       std::vector<BYTE> &unverified)
{
   if (defaultKeySecurityDescriptor != nullptr && !destPath.empty() &&
       destPath.find(L'\\') == std::wstring::npos) {
      return EnsureSingleSegmentKey(securitySource, sourcePath, destRoot, destPath, siblings, existing, unverified);
   }
   if (KeyExists(destRoot, destPath)) {
      LogExistingDestination(destPath);
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
      // The whole path was found missing a moment ago; asking again tells nothing new.
      if (builtPath != destPath && KeyExists(destRoot, builtPath)) {
         continue;
      }

      // The leaf carries its source's security; the segments in front of it have no source
      // and get the old vendor's. A source whose descriptor can't be read still gets its
      // leaf created, with the platform's default security.
      const bool leaf = i + 1 == segments.size();
      KeyDescriptor sourceDescriptor;
      if (leaf) {
         ReadKeyDescriptor(securitySource, sourceDescriptor);
         LogDescriptorFailure(sourceDescriptor, sourcePath);
      }
      UniqueHkey created;
      const LONG result = CreateKeyWithDescriptor(
         destRoot, builtPath, leaf ? sourceDescriptor.data : defaultKeySecurityDescriptor, created.put(), nullptr);
      if (result != ERROR_SUCCESS) {
         LogMessage(LogLevelError, "Failed to create key: %S, error=%d.", builtPath.c_str(), static_cast<int>(result));
         return false;
      }
   }
   return true;
}

} // namespace

RegistryPlatformCalls registryPlatform = {&::RegCreateKeyExW};

PSECURITY_DESCRIPTOR GetKeySecurityDescriptor(HKEY rootKey, const std::wstring &path)
{
   UniqueHkey key;
   if (RegOpenKeyExW(rootKey, path.c_str(), 0, KEY_READ | ACCESS_SYSTEM_SECURITY, key.put()) != ERROR_SUCCESS ||
       !key) {
      LogMessage(LogLevelWarning, "Source path %S doesn't exist.", path.c_str());
      return nullptr;
   }
   KeyDescriptor descriptor;
   ReadKeyDescriptor(key.get(), descriptor);
   if (descriptor.data == nullptr) {
      LogDescriptorFailure(descriptor, path);
      return nullptr;
   }
   if (descriptor.block) {
      return descriptor.block.release();
   }
   const DWORD length = GetSecurityDescriptorLength(descriptor.data);
   UniqueLocalMemory block(LocalAlloc(LPTR, length));
   if (!block) {
      return nullptr;
   }
   memcpy(block.get(), descriptor.data, length);
   return block.release();
}

bool EnsureDestinationKey(HKEY sourceRoot, const std::wstring &sourcePath, HKEY destRoot, const std::wstring &destPath)
{
   UniqueHkey source;
   RegOpenKeyExW(sourceRoot, sourcePath.c_str(), 0, KEY_READ | ACCESS_SYSTEM_SECURITY, source.put());
   UniqueHkey existing;
   std::vector<BYTE> unverified;
   return EnsureDestination(source.get(), sourcePath, destRoot, destPath, nullptr, existing, unverified);
}

namespace {

// Whether one of two key paths below the same root is the other or lies below it: a walk
// from one then writes into the tree it reads. Compared as the registry compares names. A
// registry link inside either path escapes this; rules name vendor keys, which have none.
bool PathsNest(const std::wstring &first, const std::wstring &second)
{
   const auto trimmed = [](const std::wstring &path) {
      const size_t end = path.find_last_not_of(L'\\');
      return end == std::wstring::npos ? std::wstring() : path.substr(0, end + 1);
   };
   std::wstring shorter = trimmed(first);
   std::wstring longer = trimmed(second);
   if (shorter.size() > longer.size()) {
      shorter.swap(longer);
   }
   if (shorter.empty()) {
      return true;
   }
   return CompareStringOrdinal(shorter.c_str(), static_cast<int>(shorter.size()), longer.c_str(),
                               static_cast<int>(shorter.size()), TRUE) == CSTR_EQUAL &&
          (longer.size() == shorter.size() || longer[shorter.size()] == L'\\');
}

// `siblings`: what the walk knows about new children of `destParent`; null for a rule's key.
// `sourceStable`: nothing the walk writes lands in the source tree, so a key's counts, read
// once, stand for its whole walk.
void WalkKeyTree(HKEY sourceParent, HKEY destParent, const std::wstring &sourcePath, const std::wstring &destPath,
                 const std::wstring &action, const std::vector<RegistrySubKeyRule> &subKeyRules,
                 const std::vector<RegistryValueRule> &valueRules, AcceptedDescriptors *siblings, bool sourceStable)
{
   // Opened for its security as well, so that a destination that has to be created takes
   // the source's descriptor through this handle rather than through a second open of the
   // same key. A token that may not read audit settings opens it for reading alone, and the
   // descriptor is then missing as it would be on its own.
   UniqueHkey source;
   HKEY securitySource = nullptr;
   if (RegOpenKeyExW(sourceParent, sourcePath.c_str(), 0, KEY_READ | ACCESS_SYSTEM_SECURITY, source.put()) ==
       ERROR_SUCCESS) {
      securitySource = source.get();
   } else if (RegOpenKeyExW(sourceParent, sourcePath.c_str(), 0, KEY_READ, source.put()) != ERROR_SUCCESS) {
      // The machine simply doesn't have this key: nothing to carry over, nothing created.
      LogMessage(LogLevelWarning, "Failed to open source registry key %S, ignore...", sourcePath.c_str());
      return;
   }

   UniqueHkey destination;
   std::vector<BYTE> unverified;
   if (!EnsureDestination(securitySource, sourcePath, destParent, destPath, siblings, destination, unverified)) {
      LogMessage(LogLevelError, "Failed to create destination registry key %S.", destPath.c_str());
      return;
   }
   if (!destination) {
      if (registryPlatform.RegCreateKeyExW(destParent, destPath.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                           DestinationAccess, nullptr, destination.put(), nullptr) != ERROR_SUCCESS) {
         LogMessage(LogLevelError, "Failed to open destinition registry key %S, ignore...", destPath.c_str());
         return;
      }
      if (siblings != nullptr) {
         siblings->Add(std::move(unverified));
      }
   }

   // One request for both counts, where finding the end of the values and of the children
   // takes one each. Unknown counts, or a source the walk may add to, are walked until a
   // call fails.
   DWORD subKeyCount = MAXDWORD;
   DWORD valueCount = MAXDWORD;
   if (sourceStable && RegQueryInfoKeyW(source.get(), nullptr, nullptr, nullptr, &subKeyCount, nullptr, nullptr,
                                        &valueCount, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
      subKeyCount = MAXDWORD;
      valueCount = MAXDWORD;
   }

   // A key exists and holds its values before any of its children is visited.
   MigrateKeyValues(source.get(), destination.get(), valueRules, action, valueCount);

   static const std::vector<RegistrySubKeyRule> noSubKeyRules;
   static const std::vector<RegistryValueRule> noValueRules;
   AcceptedDescriptors children;
   wchar_t name[KeyNameBufferChars];
   // Unless the rule writes into its own source, the walk only reads it, so increasing
   // indices stay stable. Any failure of the enumeration, a name too long included, ends
   // it quietly.
   for (DWORD index = 0; index < subKeyCount; ++index) {
      DWORD nameLength = KeyNameBufferChars;
      if (RegEnumKeyExW(source.get(), index, name, &nameLength, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
         break;
      }
      const RegistrySubKeyRule *rule = FindSubKeyRule(subKeyRules, name, nameLength);
      if (rule != nullptr) {
         WalkKeyTree(source.get(), destination.get(), rule->SourcePath, rule->DestPath, rule->Action, rule->SubKeys,
                     rule->Values, &children, sourceStable);
      } else {
         // A child that no rule names goes across under its own name, with the action of
         // the key around it.
         const std::wstring childName(name, nameLength);
         WalkKeyTree(source.get(), destination.get(), childName, childName, action, noSubKeyRules, noValueRules,
                     &children, sourceStable);
      }
   }
}

} // namespace

void MigrateKeyTree(HKEY sourceParent, HKEY destParent, const std::wstring &sourcePath, const std::wstring &destPath,
                    const std::wstring &action, const std::vector<RegistrySubKeyRule> &subKeyRules,
                    const std::vector<RegistryValueRule> &valueRules)
{
   WalkKeyTree(sourceParent, destParent, sourcePath, destPath, action, subKeyRules, valueRules, nullptr, false);
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
   WalkKeyTree(rootKey, rootKey, key.SourcePath, key.DestPath, key.Action, key.SubKeys, key.Values, nullptr,
               !PathsNest(key.SourcePath, key.DestPath));
}
