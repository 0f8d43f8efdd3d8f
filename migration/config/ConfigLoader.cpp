#include "config/ConfigLoader.h"

#include "config/XmlAccess.h"
#include "log/MigrationLog.h"

namespace {

constexpr wchar_t RootElementName[] = L"VantoraMigration";

// The warnings of each list, oddities kept: the sub-key list shares the first two with the
// value list word for word, and only the macro list says "number".
constexpr ListMessages MacroMessages = {
   "There has no Macro elements in section.",
   "Don't know how many Macro elements in section.",
   "Failed to get number %d element in Macro section",
};
constexpr ListMessages RegistryKeyMessages = {
   "There has no RegistryKey elements in section.",
   "Don't know how many RegistryKey elements in section.",
   "Failed to get %d element in RegistryKey section",
};
constexpr ListMessages RegistrySubKeyMessages = {
   "There has no Value elements in section.",
   "Don't know how many Value elements in section.",
   "Failed to get %d element in RegistrySubKey section",
};
constexpr ListMessages RegistryValueMessages = {
   "There has no Value elements in section.",
   "Don't know how many Value elements in section.",
   "Failed to get %d element in Value section",
};
constexpr ListMessages ConfigFileMessages = {
   "There has no ConfigFile elements in section.",
   "Don't know how many ConfigFile elements in section.",
   "Failed to get %d element in ConfigFile section",
};

// The one reading pattern of every list: the direct children of `parent` named
// `elementName`, each made into a record by `readRecord` and appended once complete, so a
// list never holds half a record when an exception passes.
template <typename Record, typename ReadRecord>
void LoadElementList(IXMLDOMNode *parent, const wchar_t *elementName, const ListMessages &messages,
                     std::vector<Record> &list, ReadRecord readRecord)
{
   ComRef<IXMLDOMNodeList> elements;
   if (parent != nullptr) {
      UniqueBstr query = AllocateBstr(elementName);
      if (FAILED(parent->selectNodes(query.get(), elements.put()))) {
         elements.reset();
      }
   }
   if (!elements) {
      LogMessage(LogLevelWarning, messages.noElements);
      return;
   }

   long length = 0;
   if (FAILED(elements->get_length(&length))) {
      LogMessage(LogLevelWarning, messages.unknownCount);
      return;
   }

   for (long index = 0; index < length; ++index) {
      ComRef<IXMLDOMNode> element;
      if (FAILED(elements->get_item(index, element.put())) || !element) {
         LogMessage(LogLevelWarning, messages.itemFailed, static_cast<int>(index));
         continue;
      }
      Record record;
      readRecord(element.get(), record);
      list.push_back(std::move(record));
   }
}

// A RegistryKey and a RegistrySubKey element carry the same key description; the key only
// adds its Root in front.
void ReadKeyRule(IXMLDOMNode *element, RegistrySubKeyRule &rule)
{
   rule.SourcePath = GetNodeAttribute(element, L"SourcePath");
   rule.DestPath = GetNodeAttribute(element, L"DestPath");
   rule.Action = GetNodeAttribute(element, L"Action");
   LoadRegistryValueList(element, rule.Values);
   LoadRegistrySubKeyList(element, rule.SubKeys);
}

// The first element `name` directly below `root`, or null when there is none.
ComRef<IXMLDOMNode> SelectSection(IXMLDOMElement *root, const wchar_t *name)
{
   UniqueBstr query = AllocateBstr(name);
   ComRef<IXMLDOMNode> section;
   if (FAILED(root->selectSingleNode(query.get(), section.put()))) {
      section.reset();
   }
   return section;
}

} // namespace

void LoadMacroList(IXMLDOMNode *section, MacroTable &table)
{
   LoadElementList(section, L"Macro", MacroMessages, table, [](IXMLDOMNode *element, MacroEntry &macro) {
      macro.Name = GetNodeAttribute(element, L"Name");
      macro.Variable = GetNodeAttribute(element, L"Variable");
      macro.Value = GetNodeAttribute(element, L"Value");
   });
}

void LoadRegistryKeyList(IXMLDOMNode *section, std::vector<RegistryKeyRule> &list)
{
   LoadElementList(section, L"RegistryKey", RegistryKeyMessages, list,
                   [](IXMLDOMNode *element, RegistryKeyRule &rule) {
                      rule.Root = GetNodeAttribute(element, L"Root");
                      ReadKeyRule(element, rule.Key);
                   });
}

void LoadRegistrySubKeyList(IXMLDOMNode *node, std::vector<RegistrySubKeyRule> &list)
{
   LoadElementList(node, L"RegistrySubKey", RegistrySubKeyMessages, list, ReadKeyRule);
}

void LoadRegistryValueList(IXMLDOMNode *node, std::vector<RegistryValueRule> &list)
{
   LoadElementList(node, L"Value", RegistryValueMessages, list, [](IXMLDOMNode *element, RegistryValueRule &rule) {
      rule.OldName = GetNodeAttribute(element, L"OldName");
      rule.NewName = GetNodeAttribute(element, L"NewName");
      rule.Type = GetNodeAttribute(element, L"Type");
      rule.Action = GetNodeAttribute(element, L"Action");
      rule.NewValue = GetNodeAttribute(element, L"NewValue");
   });
}

void LoadConfigFileList(IXMLDOMNode *section, std::vector<ConfigFileRule> &list)
{
   LoadElementList(section, L"ConfigFile", ConfigFileMessages, list, [](IXMLDOMNode *element, ConfigFileRule &rule) {
      rule.FileType = GetNodeAttribute(element, L"FileType");
      rule.SourcePath = GetNodeAttribute(element, L"SourcePath");
      rule.DestPath = GetNodeAttribute(element, L"DestPath");
      rule.Action = GetNodeAttribute(element, L"Action");
   });
}

ComRef<IXMLDOMElement> GetMigrationRoot(IXMLDOMDocument *document)
{
   ComRef<IXMLDOMElement> root;
   if (FAILED(document->get_documentElement(root.put())) || !root) {
      LogMessage(LogLevelErrorWithCode, "Invalid XML: Missing root element");
      return ComRef<IXMLDOMElement>();
   }

   // Lenient here only: sections are found by exact-case queries, and the write-back's
   // path even names the root exactly.
   BSTR tagName = nullptr;
   root->get_tagName(&tagName);
   if (!IsRootElementName(TakeBstr(tagName), RootElementName)) {
      LogMessage(LogLevelErrorWithCode, "Invalid XML: Missing root 'VantoraMigration'");
      return ComRef<IXMLDOMElement>();
   }
   return root;
}

void LoadMacroSection(IXMLDOMElement *root, MacroTable &table)
{
   if (ComRef<IXMLDOMNode> section = SelectSection(root, L"MigrationVars")) {
      LogMessage(LogLevelInfo, "Load MigrationVars section.");
      LoadMacroList(section.get(), table);
   }
}

bool ParseMigrationDocument(const std::wstring &path, MigrationConfig &config)
{
   try {
      ComRef<IXMLDOMDocument> document = LoadXmlDocument(path);
      if (!document) {
         LogMessage(LogLevelError, "Failed to load document %S.", path.c_str());
         return false;
      }

      const ComRef<IXMLDOMElement> root = GetMigrationRoot(document.get());
      if (!root) {
         return false;
      }

      LoadMacroSection(root.get(), config.Macros);
      if (ComRef<IXMLDOMNode> section = SelectSection(root.get(), L"ServiceMigration")) {
         LogMessage(LogLevelInfo, "Load ServiceMigration section.");
         LoadRegistryKeyList(section.get(), config.ServiceKeys);
      }
      if (ComRef<IXMLDOMNode> section = SelectSection(root.get(), L"UsersMigration")) {
         LogMessage(LogLevelInfo, "Load UsersMigration section.");
         LoadRegistryKeyList(section.get(), config.UserKeys);
      }
      if (ComRef<IXMLDOMNode> section = SelectSection(root.get(), L"FileMigration")) {
         LogMessage(LogLevelInfo, "Load FileMigration section.");
         LoadConfigFileList(section.get(), config.ConfigFiles);
      }
      return true;
   } catch (const _com_error &error) {
      // The format's %s reads the wide text as narrow, so the line keeps only its first
      // character. Known and left so: the line's text is what admins search for.
      LogMessage(LogLevelErrorWithCode, "Final Error when loading XML file: %s", ComErrorText(error));
      return false;
   }
}

bool LoadMigrationDocument(const std::wstring &path, MigrationConfig &config)
{
   ComApartment apartment;
   if (!ApartmentReady(apartment)) {
      return false;
   }
   return ParseMigrationDocument(path, config);
}
