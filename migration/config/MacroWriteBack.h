#pragma once
#include <windows.h>
#include <msi.h>

#include <string>

// Replaces the macro section of the extracted document with resolved values.
bool UpdateXmlMacros(MSIHANDLE hInstall, const std::wstring &path);
