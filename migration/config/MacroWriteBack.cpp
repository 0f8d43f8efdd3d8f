#include "config/MacroWriteBack.h"

#include "actions/CustomActions.h"
#include "config/ConfigLoader.h"
#include "log/MigrationLog.h"
#include "macros/GlobalMacros.h"

namespace {

void SetAttribute(IXMLDOMElement *element, const wchar_t *name, const std::wstring &value)
{
   UniqueBstr attribute = AllocateBstr(name);
   UniqueBstr text = AllocateBstr(value);
   element->setAttribute(attribute.get(), BorrowBstrVariant(text));
}

} // namespace

bool WriteMacroSection(IXMLDOMDocument *document, const MacroTable &table)
{
   // Exact case all the way, unlike the root check of the readers: a root in other case
   // keeps the macros it came with.
   UniqueBstr query = AllocateBstr(L"//VantoraMigration/MigrationVars");
   ComRef<IXMLDOMNode> section;
   if (FAILED(document->selectSingleNode(query.get(), section.put())) || !section) {
      LogMessage(LogLevelError, "Can't locate the MigrationVars section.");
      return false;
   }

   // Every child goes, comments and text included: afterwards the section is the table.
   ComRef<IXMLDOMNode> child;
   while (section->get_firstChild(child.put()) == S_OK && child) {
      // A child that won't go would come back as the first one for ever.
      if (FAILED(section->removeChild(child.get(), nullptr))) {
         break;
      }
   }

   UniqueBstr tagName = AllocateBstr(L"Macro");
   for (const MacroEntry &macro : table) {
      ComRef<IXMLDOMElement> element;
      document->createElement(tagName.get(), element.put());
      if (!element) {
         LogMessage(LogLevelWarning, "Failed to create element for %S.", macro.Name.c_str());
         continue;
      }
      // An empty Variable or Value is left out; the loader reads a missing one as empty.
      SetAttribute(element.get(), L"Name", macro.Name);
      if (!macro.Variable.empty()) {
         SetAttribute(element.get(), L"Variable", macro.Variable);
      }
      if (!macro.Value.empty()) {
         SetAttribute(element.get(), L"Value", macro.Value);
      }
      section->appendChild(element.get(), nullptr);
   }
   return true;
}

bool UpdateXmlMacros(MSIHANDLE hInstall, const std::wstring &path)
{
   // Declared first so that every DOM reference is released before COM is left.
   ComApartment apartment;
   if (!ApartmentReady(apartment)) {
      return false;
   }

   ComRef<IXMLDOMDocument> document = LoadXmlDocument(path);
   if (!document) {
      LogMessage(LogLevelErrorWithCode, "Failed to load xml file from %S.", path.c_str());
      return false;
   }
   const ComRef<IXMLDOMElement> root = GetMigrationRoot(document.get());
   if (!root) {
      return false;
   }

   MacroTable table;
   LoadMacroSection(root.get(), table);
   ResolveGlobalMacros(hInstall, table);
   LogMessage(LogLevelInfo, "Global macro table:");
   LogMacroTable(table);

   // A document without the section is saved all the same: the rest of it is still good.
   WriteMacroSection(document.get(), table);

   UniqueBstr target = AllocateBstr(path);
   const HRESULT saved = document->save(BorrowBstrVariant(target));
   if (FAILED(saved)) {
      LogMessage(LogLevelError, "Failed to save to XML file %S.", path.c_str());
      return false;
   }
   return true;
}
