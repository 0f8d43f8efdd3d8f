#pragma once
// Brings the extracted document's macro section up to date in the immediate action, so that
// the deferred actions, which can't ask the installer, find resolved values in the file.
#include <windows.h>
#include <msi.h>

#include <string>

#include "config/MigrationConfig.h"
#include "config/XmlAccess.h"

// Reads the section, resolves it against the session and the machine, writes it back and
// saves the document over `path`. True when the save worked, also if the section was missing.
bool UpdateXmlMacros(MSIHANDLE hInstall, const std::wstring &path);

// Replaces every child of //VantoraMigration/MigrationVars (exact case) by one Macro element
// per row, attributes Name, then Variable and Value when not empty. False, after an error
// line, when there is no such section.
bool WriteMacroSection(IXMLDOMDocument *document, const MacroTable &table);
