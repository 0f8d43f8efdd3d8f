// The write-back of resolved macros against a real installer session and Wine's MSXML: the
// saved section, the result and the log but for the table's echo. The machine root is pointed
// at a scratch key for the call, so that each case brings its own Shell Folders.
#include <windows.h>

#include <gtest/gtest.h>

#include "HandleGuards.h"
#include "LogCapture.h"
#include "config/MacroWriteBack.h"

namespace {

const std::string Long(300, 'x');
const std::wstring Chars259(259, L'p'), Chars260(260, L'p');
const std::string Empty = "<VantoraMigration><MigrationVars/></VantoraMigration>";
const char ProgramData[] = "<Macro Name=\"ProgramData\" Value=\"C:\\PD\"/></MigrationVars>";
const std::string ReadFailed = "ERRO Can't read value of Common AppData, result = 0x";
const std::string Loaded = "INFO Load MigrationVars section.", Echoed = "INFO Global macro table:";

const struct {
   const char *label;
   std::string xml;
   bool session, locked; // a session handle; the file held by a reader that lets nobody write
   DWORD type;           // of Common AppData; REG_NONE: no Shell Folders key
   std::wstring stored;
   std::string section; // what the saved file holds from <MigrationVars on; empty: the file as it was
   std::vector<std::string> log; // without the "Macro:" lines, which the section shows
} Cases[] = {
   {"Resolved", "<VantoraMigration><MigrationVars><!-- c --><Macro Name='Long' Variable='VTR_LONG' Value='old'/><Macro Value='v&amp;'/></MigrationVars>"
    "</VantoraMigration>", true, false, REG_SZ, L"C:\\PD", "<MigrationVars><Macro Name=\"Long\" Variable=\"VTR_LONG\" Value=\"" + Long +
    "\"/><Macro Name=\"\" Value=\"v&amp;\"/>" + ProgramData, {Loaded, "INFO Get installer property VTR_LONG.", Echoed}},
   {"NoSession", "<VantoraMigration><MigrationVars><Macro Name='U' Variable='P'/></MigrationVars></VantoraMigration>", false,
    false, REG_SZ, L"C:\\PD", "<MigrationVars><Macro Name=\"U\" Variable=\"P\"/>" + std::string(ProgramData),
    {Loaded, "INFO Get installer property P.", "ERRO Failed to get installer property P, error = 0x00000006.", Echoed}},
   {"OwnProgramDataStaysFirst", "<VantoraMigration><MigrationVars><Macro Name='ProgramData' Value='D:'/></MigrationVars></VantoraMigration>", true,
    false, REG_SZ, L"C:\\PD", "<MigrationVars><Macro Name=\"ProgramData\" Value=\"D:\"/>" + std::string(ProgramData), {Loaded, Echoed}},
   {"NotSaved", Empty, true, true, REG_SZ, L"C:\\PD", "", {Loaded, Echoed, "ERRO Failed to save to XML file {path}."}},
   {"NoShellFolders", Empty, true, false, REG_NONE, L"", "<MigrationVars/>", {Loaded, "WARN Can't open local machine key SOFTWARE\\"
    "Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders, error = 0x00000002.", Echoed}},
   {"ExpandableLeftAsItIs", Empty, true, false, REG_EXPAND_SZ, L"%A%", "<MigrationVars><Macro Name=\"ProgramData\" Value=\"%A%\"/>", {Loaded, Echoed}},
   {"WrongType", Empty, true, false, REG_DWORD, L"ab", "<MigrationVars><Macro Name=\"ProgramData\"/>", {Loaded, ReadFailed + "00000000.", Echoed}},
   {"LongestThatFits", Empty, true, false, REG_SZ, Chars259, "<Macro Name=\"ProgramData\" Value=\"" + std::string(259, 'p') + "\"/>", {Loaded, Echoed}},
   {"OneTooLong", Empty, true, false, REG_SZ, Chars260, "<MigrationVars><Macro Name=\"ProgramData\"/>", {Loaded, ReadFailed + "000000EA.", Echoed}},
};

TEST(UpdateXmlMacros, Rows)
{
   const UniqueMsiHandle session(OpenSession({.properties = {{L"VTR_LONG", scenario::Widen(Long)}}}));
   const wchar_t scratch[] = L"Software\\vtr-test-machine";
   for (const auto &c : Cases) {
      SCOPED_TRACE(c.label);
      RegDeleteTreeW(HKEY_CURRENT_USER, scratch);
      UniqueHkey machine;
      RegCreateKeyExW(HKEY_CURRENT_USER, scratch, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, machine.put(), nullptr);
      EXPECT_TRUE(c.type == REG_NONE || scenario::WriteValue(machine.get(), L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders",
                                                             scenario::TextValue(L"Common AppData", c.stored, c.type)));
      LogCapture capture;
      const std::wstring path = capture.Directory() + L"\\vtrMigrateConf.xml";
      scenario::WriteFileBytes(path, c.xml);
      UniqueHandle reader(c.locked ? CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr) : nullptr);

      ASSERT_EQ(RegOverridePredefKey(HKEY_LOCAL_MACHINE, machine.get()), ERROR_SUCCESS);
      EXPECT_EQ(UpdateXmlMacros(c.session ? session.get() : 0, path), c.section != "");
      RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
      reader.reset();

      const std::string saved = scenario::ReadFileBytes(path);
      EXPECT_TRUE(c.section.empty() ? saved == c.xml : saved.find(c.section) != std::string::npos) << saved;
      std::vector<std::string> log = capture.Lines(path);
      std::erase_if(log, [](const std::string &line) { return line.rfind("INFO Macro: ", 0) == 0; });
      EXPECT_EQ(log, c.log);
   }
   RegDeleteTreeW(HKEY_CURRENT_USER, scratch);
}

} // namespace
