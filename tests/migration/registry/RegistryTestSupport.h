#pragma once
// What the registry engine's tests share beyond the scenario harness's registry helpers.
#include <windows.h>

#include <string>
#include <vector>

#include "MsiScenario.h"

// The values of the key `path` below HKLM in DumpTree's form, without the key's name:
// "Name = REG_DWORD 1".
std::vector<std::string> ValueLines(const std::wstring &path);

// The handles this process holds, for telling that a call closed all it opened. The platform
// hands out the smallest free value, so a test process's few dozen lie in the first 511.
std::vector<HANDLE> OpenHandles();
