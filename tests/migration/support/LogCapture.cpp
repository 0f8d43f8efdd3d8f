#include "LogCapture.h"

#include <windows.h>

#include <cstdio>

#include "MsiScenario.h"

namespace {

std::wstring GetEnv(const wchar_t *name)
{
   wchar_t value[MAX_PATH] = {};
   DWORD length = GetEnvironmentVariableW(name, value, MAX_PATH);
   return std::wstring(value, length < MAX_PATH ? length : 0);
}

} // namespace

LogCapture::LogCapture() : savedTmp_(GetEnv(L"TMP")), savedTemp_(GetEnv(L"TEMP"))
{
   static unsigned serial = 0;
   wchar_t base[MAX_PATH];
   GetTempPathW(MAX_PATH, base);
   directory_ = std::wstring(base) + L"vtrlog-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                std::to_wstring(++serial);
   scenario::RemoveTree(directory_);
   CreateDirectoryW(directory_.c_str(), nullptr);
   // GetTempPath reads TMP first, then TEMP; both are set so either lookup finds the directory.
   SetEnvironmentVariableW(L"TMP", (directory_ + L"\\").c_str());
   SetEnvironmentVariableW(L"TEMP", (directory_ + L"\\").c_str());
}

LogCapture::~LogCapture()
{
   SetEnvironmentVariableW(L"TMP", savedTmp_.empty() ? nullptr : savedTmp_.c_str());
   SetEnvironmentVariableW(L"TEMP", savedTemp_.empty() ? nullptr : savedTemp_.c_str());
   scenario::RemoveTree(directory_);
}

std::string LogCapture::Contents() const
{
   return scenario::ReadFileBytes(directory_ + L"\\MigrVantora.log");
}

std::vector<std::string> LogCapture::Entries() const
{
   return scenario::SplitLogEntries(Contents());
}
