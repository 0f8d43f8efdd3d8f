#include "associations/UserPreferences.h"

#include "associations/ProgIdIdentity.h"
#include "config/XmlAccess.h"
#include "log/MigrationLog.h"

namespace {

HRESULT DomSelectNodes(IXMLDOMNode *node, BSTR query, IXMLDOMNodeList **list)
{
   return node->selectNodes(query, list);
}

HRESULT DomListLength(IXMLDOMNodeList *list, long *length)
{
   return list->get_length(length);
}

HRESULT DomListItem(IXMLDOMNodeList *list, long index, IXMLDOMNode **item)
{
   return list->get_item(index, item);
}

// Grammar and all, as log filters in the field know them.
constexpr ListMessages RecentServerMessages = {
   "There has no RecentServer elements in section.",
   "Don't know how many RecentServer elements in section.",
   "Failed to get %d element in RecentServer section",
};
constexpr ListMessages AppExtensionInfoMessages = {
   "There has no AppExtensionInfo elements in section.",
   "Don't know how many AppExtensionInfo elements in section.",
   "Failed to get %d element in AppExtensionInfo section",
};
constexpr ListMessages ExtensionMessages = {
   "There has no Extension elements in section.",
   "Don't know how many Extension elements in section.",
   "Failed to get %d element in Extension section",
};

// A query string for one DOM call; one that can't be allocated breaks the walk.
UniqueBstr Query(const wchar_t *text)
{
   return AllocateBstr(text, associationPlatform.SysAllocString);
}

// Hands each direct child of `parent` named `name` to `readItem`, in document order. False
// when the list or its length can't be had; an item that can't be read is logged and
// passed over.
template <typename ReadItem>
bool ForEachChild(IXMLDOMNode *parent, const wchar_t *name, const ListMessages &messages, ReadItem readItem)
{
   ComRef<IXMLDOMNodeList> list;
   HRESULT hr = associationPlatform.SelectNodes(parent, Query(name).get(), list.put());
   if (FAILED(hr) || !list) {
      LogMessage(LogLevelWarning, messages.noElements);
      return false;
   }

   long length = 0;
   if (FAILED(associationPlatform.GetListLength(list.get(), &length))) {
      LogMessage(LogLevelError, messages.unknownCount);
      return false;
   }

   for (long index = 0; index < length; ++index) {
      ComRef<IXMLDOMNode> item;
      hr = associationPlatform.GetListItem(list.get(), index, item.put());
      if (FAILED(hr) || !item) {
         LogMessage(LogLevelError, messages.itemFailed, static_cast<int>(index));
         continue;
      }
      readItem(item.get());
   }
   return true;
}

} // namespace

AssociationPlatformCalls associationPlatform = {
   &::CoInitialize, &::CoUninitialize, &::SysAllocString, DomSelectNodes, DomListLength, DomListItem,
};

bool LoadUserPreferences(FileAssociationMap &map, const std::wstring &path)
{
   try {
      const ComRef<IXMLDOMDocument> document = LoadXmlDocument(path);
      if (!document) {
         LogMessage(LogLevelError, "Failed to load user prefs %S.", path.c_str());
         return false;
      }

      ComRef<IXMLDOMElement> root;
      if (FAILED(document->get_documentElement(root.put())) || !root) {
         LogMessage(LogLevelErrorWithCode, "Invalid XML: Missing root element.");
         return false;
      }
      BSTR tagName = nullptr;
      root->get_tagName(&tagName);
      if (!IsRootElementName(TakeBstr(tagName), L"Root")) {
         LogMessage(LogLevelErrorWithCode, "Invalid XML: Missing root 'Root'.");
         return false;
      }

      // Only here does a list that can't be read fail the file; further down it costs the
      // one server or application.
      return ForEachChild(root.get(), L"RecentServer", RecentServerMessages, [&map](IXMLDOMNode *server) {
         const std::wstring serverGuid = GetNodeAttribute(server, L"serverGuid");
         if (!serverGuid.empty()) {
            ReadFileRedirection(map, server, serverGuid);
         }
      });
   } catch (const _com_error &error) {
      LogMessage(LogLevelErrorWithCode, "Final Error when loading XML file: %S", ComErrorText(error));
      return false;
   }
}

void ReadFileRedirection(FileAssociationMap &map, IXMLDOMNode *serverNode, const std::wstring &serverGuid)
{
   // Only the first FileRedirection of a server counts; a server without one is no error.
   ComRef<IXMLDOMNode> redirection;
   if (FAILED(serverNode->selectSingleNode(Query(L"FileRedirection").get(), redirection.put())) || !redirection) {
      return;
   }
   ReadAppExtensionInfo(map, redirection.get(), serverGuid);
}

void ReadAppExtensionInfo(FileAssociationMap &map, IXMLDOMNode *redirectionNode, const std::wstring &serverGuid)
{
   // An application without AppId goes on down: its extensions get the empty ProgId.
   ForEachChild(redirectionNode, L"AppExtensionInfo", AppExtensionInfoMessages, [&](IXMLDOMNode *app) {
      ReadExtensions(map, app, serverGuid, GetNodeAttribute(app, L"AppId"));
   });
}

void ReadExtensions(FileAssociationMap &map, IXMLDOMNode *appNode, const std::wstring &serverGuid,
                    const std::wstring &appId)
{
   ForEachChild(appNode, L"Extension", ExtensionMessages, [&](IXMLDOMNode *extension) {
      const std::wstring name = GetNodeAttribute(extension, L"Name");
      const std::wstring displayName = GetNodeAttribute(extension, L"Display-name");
      const std::wstring progId = ComputeProgId(serverGuid, appId, displayName);
      LogMessage(LogLevelInfo, "Add progId %S for %S, guid %S, appId %S", progId.c_str(), name.c_str(),
                 serverGuid.c_str(), appId.c_str());
      map[name].insert(progId);
   });
}
