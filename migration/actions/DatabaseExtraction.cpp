#include "actions/DatabaseExtraction.h"

#include <msiquery.h>
#include <share.h>

#include <memory>

#include "HandleGuards.h"
#include "log/MigrationLog.h"

ExtractionPlatform extractionPlatform = {
   &::MsiGetActiveDatabase, &::MsiDatabaseOpenViewW, &::MsiViewExecute, &::MsiViewFetch,
   &::GetTempPathW,         &::GetFileAttributesW,   &::DeleteFileW,    &::Sleep,
   &::MsiRecordDataSize,    &::MsiRecordReadStream,  &::MsiCloseHandle,
};

namespace {

constexpr DWORD TempPathChars = 260;
constexpr UINT DataField = 1;
// Up to this many waits between delete attempts, each of this length: an antivirus scan or
// an indexer holding the old copy usually lets go within half a second.
constexpr int DeleteRetries = 5;
constexpr DWORD DeleteRetryMilliseconds = 100;

UINT CloseExtractionHandle(MSIHANDLE handle)
{
   return extractionPlatform.MsiCloseHandle(handle);
}

using ExtractionHandle = UniqueResource<MSIHANDLE, &CloseExtractionHandle>;

// Removes an earlier run's copy at `path`. A directory there is left alone: opening the
// target then fails and says so.
bool ClearTarget(const std::wstring &path)
{
   const DWORD attributes = extractionPlatform.GetFileAttributesW(path.c_str());
   if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      return true;
   }
   int tries = 0;
   while (!extractionPlatform.DeleteFileW(path.c_str())) {
      if (tries >= DeleteRetries) {
         return false;
      }
      extractionPlatform.Sleep(DeleteRetryMilliseconds);
      ++tries;
   }
   // A delete that goes through only at the last attempt still ends the extraction, though
   // the file is gone: whoever held it may be about to write it again.
   return tries < DeleteRetries;
}

} // namespace

std::wstring ExtractFileFromTable(MSIHANDLE hInstall, const std::wstring &table, const std::wstring &fileName)
{
   FunctionTrace trace("ExtractFileFromTable");

   // Plain concatenation, nothing quoted: the table must be laid out like Binary, and a name
   // with an apostrophe makes a query the database refuses.
   const std::wstring query = L"SELECT Data FROM " + table + L" WHERE Name='" + fileName + L"'";

   // The session's own database handle: it stays open until the session ends.
   const MSIHANDLE database = extractionPlatform.MsiGetActiveDatabase(hInstall);
   if (database == 0) {
      LogMessage(LogLevelErrorWithCode, "Failed to open current database.");
      return std::wstring();
   }

   ExtractionHandle view;
   UINT status = extractionPlatform.MsiDatabaseOpenViewW(database, query.c_str(), view.put());
   if (status != ERROR_SUCCESS) {
      LogMessage(LogLevelErrorWithCode, "Failed to open view, result = %u", status);
      return std::wstring();
   }
   status = extractionPlatform.MsiViewExecute(view.get(), 0);
   if (status != ERROR_SUCCESS) {
      LogMessage(LogLevelErrorWithCode, "Failed to execute view, result = %u", status);
      return std::wstring();
   }
   // Name is the table's key: the first record is the only one.
   ExtractionHandle record;
   status = extractionPlatform.MsiViewFetch(view.get(), record.put());
   if (status != ERROR_SUCCESS) {
      LogMessage(LogLevelErrorWithCode, "Failed to fetch record, result = %u", status);
      return std::wstring();
   }

   wchar_t tempPath[TempPathChars] = {};
   if (extractionPlatform.GetTempPathW(TempPathChars, tempPath) == 0) {
      LogMessage(LogLevelErrorWithCode, "Failed to locate temporary path");
      return std::wstring();
   }
   // No unique part in the name: every run writes the same path, the deferred actions find
   // it through the property, and an old copy never lingers beside a new one.
   const std::wstring target = tempPath + fileName;
   if (!ClearTarget(target)) {
      LogMessage(LogLevelError, "Can't delete old configuration file, abort...");
      return std::wstring();
   }

   LogMessage(LogLevelInfo, "Extract file to %S", target.c_str());
   UniqueFile file(_wfsopen(target.c_str(), L"wb", _SH_DENYNO));
   if (!file) {
      LogMessage(LogLevelErrorWithCode, "Failed to open temporary file");
      return std::wstring();
   }

   // The document is small: one buffer, one read, one write.
   DWORD size = extractionPlatform.MsiRecordDataSize(record.get(), DataField);
   std::unique_ptr<char[]> data(new char[size]);
   status = extractionPlatform.MsiRecordReadStream(record.get(), DataField, data.get(), &size);
   if (status != ERROR_SUCCESS) {
      LogMessage(LogLevelErrorWithCode, "Failed to read data stream from record, result=0x%08X", status);
      return std::wstring();
   }
   // A short write shows up when the document is loaded, with its own line.
   fwrite(data.get(), 1, size, file.get());
   file.reset();

   LogMessage(LogLevelInfo, "%S extracted to %S", fileName.c_str(), target.c_str());
   return target;
}
