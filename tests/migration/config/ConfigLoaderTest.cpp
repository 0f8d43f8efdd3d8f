// The document readers against Wine's MSXML 6.0: files on disk, the resulting records and the
// exact log lines.
#include <gtest/gtest.h>

#include <windows.h>
#include <objbase.h>

#include <thread>
#include <tuple>

#include "ConfigDump.h"
#include "LogCapture.h"
#include "MsiScenario.h"
#include "actions/CustomActions.h"
#include "config/ConfigLoader.h"
#include "config/XmlAccess.h"

namespace {

using scenario::Narrow;

// `xml` null leaves the file out.
std::wstring Write(const LogCapture &capture, const char *xml)
{
   const std::wstring path = capture.Directory() + L"\\vtrMigrateConf.xml";
   if (xml != nullptr) {
      EXPECT_TRUE(scenario::WriteFileBytes(path, xml));
   }
   return path;
}

using Lines = std::vector<std::string>;
const Lines NotLoaded = {"ERRO Failed to load XML file.Last Error: ", "ERRO Failed to load document {path}."};
const Lines WrongRoot = {"ERRO Invalid XML: Missing root 'VantoraMigration'Last Error: "};
const Lines MacrosOnly = {"INFO Load MigrationVars section."};

const struct {
   const char *xml;
   bool loaded;
   const wchar_t *dump;
   Lines log;
} Documents[] = {
   {R"(<VantoraMigration><FileMigration><ConfigFile Action="a" DestPath="d" SourcePath="s" FileType="t"/></FileMigration>
       <UsersMigration><RegistryKey Action="a" DestPath="d" SourcePath="s" Root="HKCU"><Value NewValue="1" Action="a"
       Type="REG_DWORD" NewName="n" OldName="o"/></RegistryKey><RegistryKey Root="HKUC"/></UsersMigration>
       <ServiceMigration><RegistryKey Root="HKLM"/></ServiceMigration><MigrationVars><Macro Value="v" Variable="P" Name="N"/>
       <Macro Variable="Q"/></MigrationVars></VantoraMigration>)", true,
    L"M N|P|v\nM |Q|\nSK HKLM|||\nUK HKCU|s|d|a\n  V o|n|REG_DWORD|a|1\nUK HKUC|||\nF t|s|d|a\n",
    {"INFO Load MigrationVars section.", "INFO Load ServiceMigration section.", "INFO Load UsersMigration section.",
     "INFO Load FileMigration section."}},
   {R"(<VANTORAMIGRATION><MigrationVars><Macro Name="A"/></MigrationVars></VANTORAMIGRATION>)", true, L"M A||\n", MacrosOnly},
   {"<?xml version=\"1.0\"?><VantoraMigration>text<!-- c --></VantoraMigration>", true, L"", {}},
   {R"(<VantoraMigration><migrationvars><Macro/></migrationvars><W><MigrationVars/></W></VantoraMigration>)", true, L"", {}},
   {R"(<VantoraMigration><MigrationVars><Macro Name="1"/></MigrationVars><MigrationVars><Macro/></MigrationVars></VantoraMigration>)",
    true, L"M 1||\n", MacrosOnly},
   {R"(<VantoraMigration><UsersMigration><RegistryKey SourcePath="k0"><RegistrySubKey SourcePath="k1" DestPath="d" Action="a">
       <Value OldName="v1"/><RegistrySubKey SourcePath="k2"><Value OldName="v2"/><RegistrySubKey SourcePath="k3"><Value
       OldName="v3"/></RegistrySubKey><Value OldName="v2b"/></RegistrySubKey></RegistrySubKey><Value OldName="v0"/>
       </RegistryKey></UsersMigration></VantoraMigration>)", true,
    L"UK |k0||\n  V v0||||\n  S k1|d|a\n    V v1||||\n    S k2||\n      V v2||||\n      V v2b||||\n      S k3||\n"
    L"        V v3||||\n", {"INFO Load UsersMigration section."}},
   {R"(<VantoraMigration><ServiceMigration><RegistryKey SourcePath="k"><G><Value/><RegistrySubKey/></G></RegistryKey>
       <G><RegistryKey/></G></ServiceMigration></VantoraMigration>)", true, L"SK |k||\n", {"INFO Load ServiceMigration section."}},
   {R"(<VantoraMigration><FileMigration><ConfigFile sourcepath="s" FileType="t"/></FileMigration></VantoraMigration>)", true,
    L"F t|||\n", {"INFO Load FileMigration section."}},
   {R"(<VantoraMigration><MigrationVars><Macro Name="A">t<Value>c</Value></Macro></MigrationVars></VantoraMigration>)", true, L"M A||\n", MacrosOnly},
   {R"(<VantoraMigration><MigrationVars><Macro Name="Grüße" Value=" &amp;&#x20AC; "/></MigrationVars></VantoraMigration>)",
    true, L"M Grüße|| &\u20AC \n", MacrosOnly},
   {R"(<!DOCTYPE VantoraMigration SYSTEM "absent.dtd"><VantoraMigration><MigrationVars/></VantoraMigration>)", true, L"", MacrosOnly},
   {"<VantoraMigration><MigrationVars><Macro Name=\"A\"/></VantoraMigration>", false, L"", NotLoaded},
   {"", false, L"", NotLoaded},
   {nullptr, false, L"", NotLoaded},
   {"<Migration><MigrationVars/></Migration>", false, L"", WrongRoot},
   {"<VantoraMıgration/>", false, L"", WrongRoot}, // upper-cases to the name, but only A to Z fold
   {"<VantoraMigrationX/>", false, L"", WrongRoot},
   {R"(<n:VantoraMigration xmlns:n="urn:x"/>)", false, L"", WrongRoot},
};

TEST(LoadMigrationDocument, Documents)
{
   for (const auto &c : Documents) {
      SCOPED_TRACE(c.xml ? c.xml : "(no file)");
      LogCapture capture;
      const std::wstring path = Write(capture, c.xml);
      MigrationConfig config;
      EXPECT_EQ(LoadMigrationDocument(path, config), c.loaded);
      EXPECT_EQ(DumpConfig(config), c.dump);
      EXPECT_EQ(capture.Lines(path), c.log);
   }
}

TEST(LoadMigrationDocument, BracketsComOnItsOwn)
{
   LogCapture capture;
   const std::wstring path = Write(capture, "<VantoraMigration/>");
   MigrationConfig config;
   bool inMta = true, fresh = false, nested = false;
   HRESULT afterFresh = E_FAIL, afterNested = E_FAIL;
   std::thread([&] {
      fresh = LoadMigrationDocument(path, config);
      afterFresh = CoInitialize(nullptr); // S_OK: nothing left initialised
      nested = LoadMigrationDocument(path, config);
      afterNested = CoInitialize(nullptr); // S_FALSE: the caller's initialisation survives
      CoUninitialize();
      CoUninitialize();
      CoInitializeEx(nullptr, COINIT_MULTITHREADED);
      inMta = LoadMigrationDocument(path, config);
      CoUninitialize();
   }).join();
   EXPECT_EQ(std::tuple(fresh, nested, afterFresh, afterNested, inMta), std::tuple(true, true, S_OK, S_FALSE, false));
   EXPECT_EQ(capture.Lines(path), Lines{"ERRO COM initialization failed with 80010106!.Last Error: "});
}

// Attributes by exact name are the documents' rows; these are the nodes without any.
TEST(XmlAccess, NodesWithoutAttributesGiveEmptyText)
{
   LogCapture capture;
   ComApartment apartment;
   ComRef<IXMLDOMDocument> document = LoadXmlDocument(Write(capture, R"(<R N="n"/>)"));
   ASSERT_TRUE(document);
   EXPECT_EQ(GetNodeAttribute(nullptr, L"N"), L"");
   EXPECT_EQ(GetNodeAttribute(document.get(), L"N"), L""); // a document has no attribute map
   EXPECT_TRUE(capture.Entries().empty());
}

// A list that can't be queried says so in the reader's own words, oddities kept: log filters
// in the field match them.
TEST(LoadElementLists, UnqueryableSectionWarnsInEachReadersWords)
{
   const std::pair<void (*)(), const char *> rows[] = {
      {[] { MacroTable t; LoadMacroList(nullptr, t); }, "WARN There has no Macro elements in section."},
      {[] { std::vector<RegistryKeyRule> l; LoadRegistryKeyList(nullptr, l); }, "WARN There has no RegistryKey elements in section."},
      {[] { std::vector<RegistrySubKeyRule> l; LoadRegistrySubKeyList(nullptr, l); }, "WARN There has no Value elements in section."},
      {[] { std::vector<RegistryValueRule> l; LoadRegistryValueList(nullptr, l); }, "WARN There has no Value elements in section."},
      {[] { std::vector<ConfigFileRule> l; LoadConfigFileList(nullptr, l); }, "WARN There has no ConfigFile elements in section."},
   };
   for (const auto &[load, warning] : rows) {
      LogCapture capture;
      load();
      EXPECT_EQ(capture.Entries(), Lines{warning});
   }
}

TEST(ComErrorText, Texts)
{
   const struct {
      uint32_t hr;
      const wchar_t *text; // null: the system's text for the code
   } cases[] = {
      {0x8007000E, nullptr},
      {0x80070057, nullptr},
      {0x80040201, L"IDispatch error #1"},
      {0x8004FFFF, L"IDispatch error #65023"},
      {0x80040200, L"Unknown error 0x80040200"},
      {0x8004F200, L"IDispatch error #61440"},
      {0x80050000, L"Unknown error 0x80050000"},
      {0xA0040201, L"Unknown error 0xA0040201"},
   };
   for (const auto &c : cases) {
      const _com_error error(static_cast<HRESULT>(c.hr));
      const wchar_t *text = ComErrorText(error);
      ASSERT_NE(text, nullptr);
      EXPECT_EQ(ComErrorText(error), text) << "built once";
      if (c.text != nullptr) {
         EXPECT_EQ(std::wstring(text), c.text) << std::hex << c.hr;
         continue;
      }
      wchar_t system[512] = {};
      FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, c.hr, 0, system, 512, nullptr);
      EXPECT_EQ(std::wstring(text) + L"\r\n", system) << std::hex << c.hr;
   }
}

// A marker from an earlier migration skips the load, whatever the document holds.
TEST(LoadMigrationConfiguration, MarkerSkipsBrokenDocumentIsFileInvalidAndAGoodOneListsItsMacros)
{
   const std::string parsing = "INFO Parsing migration config file {path}.";
   const char *good = R"(<VantoraMigration><MigrationVars><Macro Name="DIR" Variable="INSTALLDIR" Value="C:\Corvane\"/><Macro Name="E"/>
                        </MigrationVars><FileMigration/></VantoraMigration>)";
   const struct {
      bool marked;
      const char *xml;
      UINT code;
      const wchar_t *dump;
      Lines log;  // between the enter and leave lines
   } rows[] = {
      {true, good, 0, L"", {"INFO The previous migration done, pass migration services."}},
      {false, "<VantoraMigration>", 1006, L"", {parsing, NotLoaded[0], NotLoaded[1], "ERRO Installer can't load configuration file."}},
      {false, good, 0, L"M DIR|INSTALLDIR|C:\\Corvane\\\nM E||\n", {parsing, "INFO Load MigrationVars section.", "INFO Load FileMigration section.",
       "INFO Global macro table write to XML:", "INFO Macro: DIR Variable: INSTALLDIR Value: C:\\Corvane\\.", "INFO Macro: E Variable:  Value: ."}},
   };
   for (const auto &r : rows) {
      RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, NewVendorKeyPath.c_str(), MigrationDoneValueName.c_str());
      ASSERT_TRUE(!r.marked || scenario::WriteDword(HKEY_LOCAL_MACHINE, NewVendorKeyPath, MigrationDoneValueName, 1));
      LogCapture capture;
      MigrationConfig config;
      const std::wstring path = Write(capture, r.xml);
      EXPECT_EQ(LoadMigrationConfiguration(0, config, path), r.code);
      EXPECT_EQ(DumpConfig(config), r.dump);
      Lines expected = {"INFO Enter function: LoadMigrationConfiguration."};
      expected.insert(expected.end(), r.log.begin(), r.log.end());
      expected.push_back("INFO Leave function: LoadMigrationConfiguration.");
      EXPECT_EQ(capture.Lines(path), expected);
   }
}

} // namespace
