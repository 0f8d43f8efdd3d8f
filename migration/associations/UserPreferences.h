#pragma once
// The client's per-user preference document, as far as it tells which file extensions the
// user redirected to which published application of which server: read into the ProgIds
// that the client registered for each extension. Nothing here writes anywhere.
#include <windows.h>
#include <msxml2.h>

#include <map>
#include <string>
#include <unordered_set>

// Every ProgId once, compared exactly.
using ProgIdSet = std::unordered_set<std::wstring>;
// Extension (without its dot, as the document spells it, the empty one included) to its
// ProgIds. Keys order unit by unit and the shorter first on a tie, so "TXT" and "txt" are
// two entries; this order is the order of all registry work for the file.
using FileAssociationMap = std::map<std::wstring, ProgIdSet>;

// The COM and DOM calls of the association code that Wine never fails on demand: a
// CoInitialize that fails, a query string that can't be allocated, a list that can't be
// had, a list without a length, an item that can't be read. Tests replace entries; the
// product never changes the table.
struct AssociationPlatformCalls {
   decltype(&::CoInitialize) CoInitialize;
   decltype(&::CoUninitialize) CoUninitialize;
   decltype(&::SysAllocString) SysAllocString;
   HRESULT (*SelectNodes)(IXMLDOMNode *node, BSTR query, IXMLDOMNodeList **list);
   HRESULT (*GetListLength)(IXMLDOMNodeList *list, long *length);
   HRESULT (*GetListItem)(IXMLDOMNodeList *list, long index, IXMLDOMNode **item);
};
extern AssociationPlatformCalls associationPlatform;

// True when the document was walked to its end, elements that couldn't be read skipped.
// False when it can't be loaded, has another root, has no readable server list, or a COM
// error broke the walk: `map` may then hold a part and must not be used. Runs inside the
// caller's COM apartment.
bool LoadUserPreferences(FileAssociationMap &map, const std::wstring &path);
void ReadFileRedirection(FileAssociationMap &map, IXMLDOMNode *serverNode, const std::wstring &serverGuid);
void ReadAppExtensionInfo(FileAssociationMap &map, IXMLDOMNode *redirectionNode, const std::wstring &serverGuid);
void ReadExtensions(FileAssociationMap &map, IXMLDOMNode *appNode, const std::wstring &serverGuid,
                    const std::wstring &appId);
