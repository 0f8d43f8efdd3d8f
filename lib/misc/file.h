#pragma once
// The support library's file layer: wrappers around the platform's file calls that retry
// for a while when someone else holds the file, report POSIX errno numbers (and leave the
// platform's error as the last error), rotation of logs and dumps, and the per-user safe
// temporary directory. Paths are UTF-8. Text results belong to the caller (free()).

#include <windows.h>

#include <cstdint>

struct FileData {
   uint64_t lastAccessTime;  // FILETIME values
   uint64_t creationTime;
   uint64_t lastWriteTime;
   uint64_t size;
   uint32_t isDirectory;
   uint32_t mode;  // POSIX permission bits
   uint32_t reserved;
};

// The errno number for a platform error; it also becomes the last error. An error without
// a number is logged against `function` and gives EIO.
int FileMapErrorToErrno(const char *function, DWORD error);

int FileAttributesRetry(const char *path, uint32_t msecs, FileData *data);
int FileCreateDirectoryRetry(const char *path, int mode, uint32_t msecs);
int FileDeletionRetry(const char *path, bool handleLink, uint32_t msecs);
int File_RenameRetry(const char *source, const char *destination);
// INVALID_HANDLE_VALUE on failure, with the errno number in *error.
HANDLE FileBeginSearch(const char *function, const char *path, uint32_t msecs,
                       WIN32_FIND_DATAW *findData, int *error);
// The names in the folder, in the platform's order, without "." and ".."; 0xFFFFFFFF on
// failure. With `names`, an array of the names, all of it the caller's.
uint32_t FileListDirectoryRetry(const char *path, uint32_t msecs, char ***names);

// One step through a folder at a time.
struct FileWalk;
FileWalk *File_WalkDirectoryStart(const char *path);  // null when the path is no folder
bool File_WalkDirectoryNext(FileWalk *walk, char **name);  // false at the end or on failure
// Ends the walk; false when it ended on a failure, which is left as the last error.
bool File_WalkDirectoryEnd(FileWalk *walk);

char *File_FullPath(const char *path);
bool FileIsWritableDir(const char *path);
bool File_IsRemote(const char *path);
bool File_DoesVolumeSupportAcls(const char *path);

// Keeps `count` older copies by number: path-0 is the newest. With `renumber` the numbers
// only rise and no existing copy is touched. The name the file went to, if asked.
void FileRotateByRename(const char *path, uint32_t count, bool renumber, char **newName);
void FileRotateByRenumber(const char *path, const char *base, const char *extension,
                          uint32_t count, char **newName);

char *FileGetTmpDir(bool useSetting);
// A folder that only this account (or the system's) and the administrators can touch.
char *FileGetSafeTmpDir(bool useSetting, bool useSystem);

// A number from the module's generator, seeded with the process id on first use.
uint32_t FileRandomNumber();

// The platform calls that the retries hang on. Tests replace entries to make failures Wine
// cannot make, or to take the waits out; nothing else changes them.
struct FilePlatform {
   BOOL (*deleteFile)(const wchar_t *path);
   BOOL (*createDirectory)(const wchar_t *path, SECURITY_ATTRIBUTES *security);
   BOOL (*getFileAttributesEx)(const wchar_t *path, WIN32_FILE_ATTRIBUTE_DATA *data);
   HANDLE (*findFirstFile)(const wchar_t *path, WIN32_FIND_DATAW *findData);
   void (*sleep)(uint32_t milliseconds);
};
extern FilePlatform filePlatform;
