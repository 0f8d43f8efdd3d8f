#pragma once
// Reads vtrMigrateConf.xml into a MigrationConfig. Only an unreadable document, a wrong root
// or a COM failure fail the load; below the root whatever is missing is simply empty.
#include <string>
#include <vector>

#include "config/MigrationConfig.h"
#include "config/XmlAccess.h"

// Reads the document at `path` into `config` (created empty by the caller), inside its own
// CoInitialize bracket. On false `config` may hold what was read before the failure.
bool LoadMigrationDocument(const std::wstring &path, MigrationConfig &config);

// The same without the COM bracket: the caller's thread must already be initialised.
bool ParseMigrationDocument(const std::wstring &path, MigrationConfig &config);

// The document's root element if its name is VantoraMigration in any ASCII case; null after
// the line that says what is wrong.
ComRef<IXMLDOMElement> GetMigrationRoot(IXMLDOMDocument *document);

// Appends the Macro rows of the first MigrationVars directly below `root`; none if it isn't there.
void LoadMacroSection(IXMLDOMElement *root, MacroTable &table);

// Each appends the direct children of `node` of one element name, in document order; an
// element that can't be fetched is logged and passed over. A null node is a list that can't
// be queried. A COM failure leaves as _com_error.
void LoadMacroList(IXMLDOMNode *section, MacroTable &table);
void LoadRegistryKeyList(IXMLDOMNode *section, std::vector<RegistryKeyRule> &list);
void LoadRegistrySubKeyList(IXMLDOMNode *node, std::vector<RegistrySubKeyRule> &list);
void LoadRegistryValueList(IXMLDOMNode *node, std::vector<RegistryValueRule> &list);
void LoadConfigFileList(IXMLDOMNode *section, std::vector<ConfigFileRule> &list);
