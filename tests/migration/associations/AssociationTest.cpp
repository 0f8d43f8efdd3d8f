// The preference reader and the association rewrite on Wine's MSXML and registry; a key below
// HKLM stands in for the user's classes hive, and fakes in associationPlatform fail what Wine's
// MSXML never does. The whole install: tests/e2e/AssociationScenarioTest.cpp.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "LogCapture.h"
#include "associations/AssociationRewrite.h"
#include "associations/ProgIdIdentity.h"

namespace {

using Lines = std::vector<std::string>;
using namespace scenario;

const std::wstring Root = L"Software\\VtrAssocClasses", Doc = TempDirectory() + L"vtr-prefs.xml", Long(249, L'x');
const std::wstring A = ComputeProgId(L"s1", L"a1", L"Doc"), OpenKey = Root + L"\\" + A + L"\\shell\\open";
// %A is s1/a1 with Doc, %B without; %C is s1/a2, %D s2/a1.
const std::vector<std::pair<std::string, std::wstring>> Ids = {{"%A", A}, {"%V", L"Vantora" + A.substr(6)}, {"%L", Long},
   {"%B", ComputeProgId(L"s1", L"a1", L"")}, {"%C", ComputeProgId(L"s1", L"a2", L"Doc")}, {"%D", ComputeProgId(L"s2", L"a1", L"Doc")}};

std::string Attr(const char *name, const char *value) { return value ? std::string(" ") + name + "='" + value + "'" : ""; }
std::string Ext(const char *name, const char *display = nullptr) { return "<Extension" + Attr("Name", name) + Attr("Display-name", display) + "/>"; }
std::string App(const char *id, const std::string &exts) { return "<AppExtensionInfo" + Attr("AppId", id) + ">" + exts + "</AppExtensionInfo>"; }
std::string Server(const char *guid, const std::string &apps) { return "<RecentServer" + Attr("serverGuid", guid) + "><FileRedirection>" + apps + "</FileRedirection></RecentServer>"; }
const std::string Base = "<Root>" + Server("s1", App("a1", Ext("doc", "Doc") + Ext("pdf")) + App("a2", Ext("pdf", "Doc"))) +
                         Server("s2", App("a1", Ext("pdf", "Doc"))) + "</Root>";

enum Call { None, Init, Alloc, Select, Length, Item };
struct Fault { Call call = None; std::wstring query = L""; long index = 0; } fault;
std::map<IXMLDOMNodeList *, std::wstring> madeBy; // the query behind each list handed out

// The call after `index` matching ones fails; for an item, item `index` of a matching list.
bool Fails(Call call, const std::wstring &query, long item = -1)
{
   return fault.call == call && fault.query == query && (call == Item ? item == fault.index : fault.index-- == 0);
}

const AssociationPlatformCalls Fakes = {[](LPVOID r) { return fault.call == Init ? E_FAIL : CoInitialize(r); }, CoUninitialize,
   [](const OLECHAR *s) { return Fails(Alloc, s) ? nullptr : SysAllocString(s); },
   [](IXMLDOMNode *node, BSTR q, IXMLDOMNodeList **list) {
      const HRESULT hr = Fails(Select, q) ? E_FAIL : node->selectNodes(q, list);
      return madeBy[*list] = q, hr;
   },
   [](IXMLDOMNodeList *list, long *n) { return Fails(Length, madeBy[list]) ? E_FAIL : list->get_length(n); },
   [](IXMLDOMNodeList *list, long i, IXMLDOMNode **n) { return Fails(Item, madeBy[list], i) ? E_FAIL : list->get_item(i, n); }};

// The .doc association of %A, `friendly` its FriendlyAppName (none: no shell\open key).
void Seed(const std::optional<RegValue> &friendly = TextValue(L"FriendlyAppName", L"Eldrix A"))
{
   ASSERT_TRUE(SetPrivilege(SE_SECURITY_NAME, true)); // the key copy reads the audit settings too
   DeleteTree(HKEY_LOCAL_MACHINE, Root);
   ASSERT_TRUE(WriteValue(HKEY_LOCAL_MACHINE, Root + L"\\.doc\\OpenWithProgIds", TextValue(A, L"old")) &&
               (!friendly || WriteValue(HKEY_LOCAL_MACHINE, OpenKey, *friendly)));
}

// The rewrite of `doc` with `with` failing: its result, and its log before and from the first
// "Migrate registry" line, an extension's progid lines (a hash set's) sorted.
std::tuple<bool, Lines, Lines> Rewrite(const std::string &doc, const Fault &with = {})
{
   WriteFileBytes(Doc, doc);
   fault = with;
   associationPlatform = Fakes;
   LogCapture capture;
   HKEY classes = nullptr;
   RegOpenKeyExW(HKEY_LOCAL_MACHINE, Root.c_str(), 0, KEY_ALL_ACCESS, &classes);
   const bool ok = MigrateFileAssociations({}, nullptr, classes, L"", Doc);
   RegCloseKey(classes);
   Lines lines = capture.Lines(Doc);
   for (auto at = lines.begin(); at != lines.end(); ++at) {
      std::sort(at, std::find_if(at, lines.end(), [](auto &line) { return line.rfind("INFO  config progid", 0) != 0; }));
   }
   const auto split = std::find_if(lines.begin(), lines.end(), [](auto &line) { return line.rfind("INFO Migrate", 0) == 0; });
   return {ok, Lines(lines.begin(), split), Lines(split, lines.end())};
}

TEST(LoadUserPreferences, DocumentsGiveTheTableOrNothing)
{
   const std::string AddA = "INFO Add progId %A for doc, guid s1, appId a1", AddB = "INFO Add progId %B for pdf, guid s1, appId a1",
                     AddD = "INFO Add progId %D for pdf, guid s2, appId a1", Doc = "INFO config extension doc", Pdf = "INFO config extension pdf";
   const struct { std::string doc; Fault fault; bool ok; Lines lines; } cases[] = {
      {"<Root>", {}, false, {"ERRO Failed to load XML file.Last Error: ", "ERRO Failed to load user prefs {path}."}},
      {"<Roots/>", {}, false, {"ERRO Invalid XML: Missing root 'Root'.Last Error: "}},
      {"<rOOT><recentserver serverGuid='s1'/>" + Server("", App("a1", Ext("pdf"))) + "<RecentServer/>" + Server("s4", "") + "</rOOT>", {}, true, {}},
      // A missing AppId gives the empty ProgId, a missing Name the empty key; s2's second FileRedirection isn't read.
      {"<Root>" + Server("s1", App(nullptr, Ext("txt")) + App("a1", Ext(nullptr, "Doc") + Ext("TXT") + Ext("txt"))) + Server("s1", App("a1", Ext("txt"))) +
          "<RecentServer serverGuid='s2'><FileRedirection/><FileRedirection>" + App("a1", Ext("xls")) + "</FileRedirection></RecentServer></Root>",
       {}, true, {"INFO Add progId  for txt, guid s1, appId ", "INFO Add progId %A for , guid s1, appId a1", "INFO Add progId %B for TXT, guid s1, appId a1",
          "INFO Add progId %B for txt, guid s1, appId a1", "INFO Add progId %B for txt, guid s1, appId a1", "INFO config extension ",
          "INFO  config progid %A", "INFO config extension TXT", "INFO  config progid %B", "INFO config extension txt", "INFO  config progid ",
          "INFO  config progid %B"}},
      {Base, {Init}, false, {"ERRO COM initialization failed with 80004005!.Last Error: "}},
      {Base, {Select, L"RecentServer"}, false, {"WARN There has no RecentServer elements in section."}},
      {Base, {Length, L"RecentServer"}, false, {"ERRO Don't know how many RecentServer elements in section."}},
      {Base, {Alloc, L"Extension", 1}, false, {AddA, AddB, "ERRO Final Error when loading XML file: Out of memory.Last Error: "}},
      {Base, {Length, L"AppExtensionInfo"}, true, {"ERRO Don't know how many AppExtensionInfo elements in section.", AddD, Pdf, "INFO  config progid %D"}},
      {Base, {Select, L"Extension", 1}, true, {AddA, AddB, "WARN There has no Extension elements in section.", AddD, Doc, "INFO  config progid %A",
          Pdf, "INFO  config progid %D", "INFO  config progid %B"}},
      {Base, {Item, L"Extension", 1}, true, {AddA, "ERRO Failed to get 1 element in Extension section", "INFO Add progId %C for pdf, guid s1, appId a2",
          AddD, Doc, "INFO  config progid %A", Pdf, "INFO  config progid %C", "INFO  config progid %D"}},
   };
   for (const auto &c : cases) {
      Seed();
      const Lines before = DumpTree(HKEY_LOCAL_MACHINE, Root);
      const auto [ok, read, rewritten] = Rewrite(c.doc, c.fault);
      EXPECT_EQ(ok, c.ok) << c.doc;
      EXPECT_EQ(read, FillLines(c.lines, Ids)) << c.doc;
      EXPECT_TRUE(ok || DumpTree(HKEY_LOCAL_MACHINE, Root) == before) << c.doc;
   }
}

// Read as 2n + 1 characters (the terminator and zeros behind the text), stored back at that
// length, the replacement's difference added, with a terminator; the value renamed always.
TEST(MigrateFriendlyAppName, StoredBackAtTwiceTheLengthPlusOne)
{
   const std::string Unread = "ERRO Failed to read FriendlyAppName value.";
   const struct { std::optional<RegValue> value; std::string line; std::wstring stored; size_t bytes; } cases[] = {
      {TextValue(L"FriendlyAppName", L"Eldrix A"), "INFO FriendlyAppName: Eldrix A is changed to Corvane A", L"Corvane A", 38},
      {TextValue(L"FriendlyAppName", L"Eldrix Client Eldrix"), "INFO FriendlyAppName: Eldrix Client Eldrix is changed to Corvane Client Eldrix",
       L"Corvane Client Eldrix", 86},
      {TextValue(L"FriendlyAppName", L"Eldrix" + Long), "INFO FriendlyAppName: Eldrix%L is changed to Corvane%L", L"Corvane" + Long, 1026},
      {TextValue(L"FriendlyAppName", L"Eldrix" + Long + L"x"), Unread, L"", 0},
      {RegValue{L"FriendlyAppName", REG_SZ, {}}, Unread, L"", 0},
      {std::nullopt, "ERRO Failed to migrate registry value FriendlyAppName.", L"", 0},
   };
   for (const auto &c : cases) {
      Seed(c.value);
      const Lines lines = std::get<2>(Rewrite("<Root>" + Server("s1", App("a1", Ext("doc", "Doc"))) + "</Root>"));
      EXPECT_EQ(lines.at(2), Fill(c.line, Ids));
      EXPECT_EQ(lines.back(), Fill("ERRO Value %A is changed to %V.", Ids));
      std::vector<BYTE> stored = TextValue(L"", c.stored).data;
      stored.resize(c.bytes);
      const auto data = ReadValue(HKEY_LOCAL_MACHINE, OpenKey, L"FriendlyAppName");
      EXPECT_EQ(data ? data->data : std::vector<BYTE>(), c.bytes || !c.value ? stored : c.value->data) << c.bytes;
      EXPECT_EQ(DumpTree(HKEY_LOCAL_MACHINE, Root + L"\\.doc\\OpenWithProgIds"), FillLines({"OpenWithProgIds", "OpenWithProgIds: %V = type 1 hex:"}, Ids));
   }
}

} // namespace
