#pragma once
#include <windows.h>
#include <msi.h>

#include <string>

// Writes the named stream of `table` to the temporary directory; the file's path, or empty.
std::wstring ExtractFileFromTable(MSIHANDLE hInstall, const std::wstring &table, const std::wstring &fileName);

// Every platform call the extraction makes goes through this table, which holds the real
// calls. Tests put their own in, to watch the order of the calls and the handles closed, and
// to produce what Wine can't on demand: a delete that only goes through late, a temporary
// path that can't be found, a stream of no bytes.
struct ExtractionPlatform {
   MSIHANDLE(WINAPI *MsiGetActiveDatabase)(MSIHANDLE install);
   UINT(WINAPI *MsiDatabaseOpenViewW)(MSIHANDLE database, LPCWSTR query, MSIHANDLE *view);
   UINT(WINAPI *MsiViewExecute)(MSIHANDLE view, MSIHANDLE parameters);
   UINT(WINAPI *MsiViewFetch)(MSIHANDLE view, MSIHANDLE *record);
   DWORD(WINAPI *GetTempPathW)(DWORD size, LPWSTR buffer);
   DWORD(WINAPI *GetFileAttributesW)(LPCWSTR path);
   BOOL(WINAPI *DeleteFileW)(LPCWSTR path);
   void(WINAPI *Sleep)(DWORD milliseconds);
   UINT(WINAPI *MsiRecordDataSize)(MSIHANDLE record, UINT field);
   UINT(WINAPI *MsiRecordReadStream)(MSIHANDLE record, UINT field, char *buffer, DWORD *size);
   UINT(WINAPI *MsiCloseHandle)(MSIHANDLE handle);
};

extern ExtractionPlatform extractionPlatform;
