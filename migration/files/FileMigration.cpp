#include "files/FileMigration.h"

#include <shlwapi.h>

#include "HandleGuards.h"
#include "log/MigrationLog.h"

FileCopyPlatformCalls fileCopyPlatform = {&::SetNamedSecurityInfoW};

namespace {

constexpr SECURITY_INFORMATION OwnerAndGroup = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION;

// The folder part of `path`, or false when it has none. The shell's cut also reports
// success for a bare file name, leaving nothing: such a name has no parent folder, and
// copying it would write into whatever directory the installer happens to run in.
bool ParentFolder(const std::wstring &path, std::wstring &parent)
{
   std::vector<wchar_t> buffer(path.begin(), path.end());
   buffer.push_back(L'\0');
   if (path.find(L'\\') == std::wstring::npos || !PathRemoveFileSpecW(buffer.data())) {
      return false;
   }
   parent = buffer.data();
   return true;
}

} // namespace

bool DirectoryExists(const std::wstring &path)
{
   const DWORD attributes = GetFileAttributesW(path.c_str());
   return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool CreateDirectoryPath(const std::wstring &path)
{
   // The text behind the last backslash is a file name, never a directory.
   for (size_t found = path.find(L'\\'); found != std::wstring::npos; found = path.find(L'\\', found + 1)) {
      const std::wstring directory = path.substr(0, found);
      // Any existing object counts, a file too; the copy after us reports that.
      if (directory.empty() || GetFileAttributesW(directory.c_str()) != INVALID_FILE_ATTRIBUTES ||
          CreateDirectoryW(directory.c_str(), nullptr)) {
         continue;
      }
      const DWORD error = GetLastError();
      // Another process made it in the meantime.
      if (error == ERROR_ALREADY_EXISTS) {
         continue;
      }
      LogMessage(LogLevelErrorWithCode, "Failed to create directory: %s, Error: 0x%08X\n",
                 NarrowLogText(directory).c_str(), error);
      return false;
   }
   return true;
}

bool CopyFileWithOwner(const std::wstring &sourcePath, const std::wstring &destPath)
{
   PSID owner = nullptr;
   PSID group = nullptr;
   PSECURITY_DESCRIPTOR descriptor = nullptr;
   const DWORD status = GetNamedSecurityInfoW(sourcePath.c_str(), SE_FILE_OBJECT, OwnerAndGroup, &owner, &group,
                                              nullptr, nullptr, &descriptor);
   // The driver logs a false result again with the thread's last error, so each failure
   // below leaves its own cause there, also where the platform reports only by result.
   if (status != ERROR_SUCCESS) {
      LogMessage(LogLevelError, "Failed to get %S file SD, error = 0x%08X.", sourcePath.c_str(), status);
      SetLastError(status);
      return false;
   }
   UniqueLocalMemory ownedDescriptor(descriptor);

   std::wstring parent;
   if (!ParentFolder(destPath, parent)) {
      LogMessage(LogLevelError, "Failed to read parent folder of %S", destPath.c_str());
      SetLastError(ERROR_BAD_PATHNAME);
      return false;
   }
   if (!DirectoryExists(parent) && !CreateDirectoryPath(parent + L"\\")) {
      LogMessage(LogLevelError, "Failed to create parent folder of %S", destPath.c_str());
      return false;
   }
   // Never over an existing file: a second run reports every file that the first copied.
   if (!CopyFileW(sourcePath.c_str(), destPath.c_str(), TRUE)) {
      LogMessage(LogLevelErrorWithCode, "Failed to migrate file %S to %S.", sourcePath.c_str(), destPath.c_str());
      return false;
   }
   const DWORD ownerStatus = fileCopyPlatform.SetNamedSecurityInfoW(const_cast<wchar_t *>(destPath.c_str()),
                                                                SE_FILE_OBJECT, OwnerAndGroup, owner, group,
                                                                nullptr, nullptr);
   if (ownerStatus != ERROR_SUCCESS) {
      // No copy stays behind that belongs to someone other than the source's owner.
      LogMessage(LogLevelError, "Failed to set file owner, error = 0x%08X", ownerStatus);
      DeleteFileW(destPath.c_str());
      SetLastError(ownerStatus);
      return false;
   }
   return true;
}
