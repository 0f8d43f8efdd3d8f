// The write-back of resolved macros against a real installer session and Wine's MSXML 6.0:
// what the saved file's macro section holds afterwards, the result, and every log line.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "HandleGuards.h"
#include "InstallerSession.h"
#include "LogCapture.h"
#include "config/MacroWriteBack.h"

namespace {

using Lines = std::vector<std::string>;

const std::string Long(300, 'x');
const std::string ProgramData = R"(<Macro Name="ProgramData" Value="C:\ProgramData"/>)";
const std::string ProgramDataLine = "INFO Macro: ProgramData Variable:  Value: C:\\ProgramData.";
const std::string Unchanged = "(unchanged)";

struct WriteBackCase {
   const char *label;
   std::string xml;
   bool session;          // false: a handle that is no session
   bool locked;           // another reader keeps others from writing the file
   bool saved;
   std::string section;   // the saved section, from <MigrationVars to its end; Unchanged: the file as it was
   Lines log;
};

const WriteBackCase Cases[] = {
   {"Resolved",
    "<VantoraMigration>\n<MigrationVars>\n  <!-- kept? -->\n"
    "  <Macro Value=\"old\" Variable=\"VTR_SERVER\" Name=\"Url\"/>\n"
    "  <Macro Name=\"Gone\" Variable=\"VTR_UNSET\" Value=\"no fallback\"/>\n"
    "  <Macro Name=\"Long\" Variable=\"VTR_LONG\"/>\n"
    "  <Macro Name=\"Fixed\" Variable=\"\" Value=\"v&amp;&quot;\"/>\n  <Macro/>\n"
    "</MigrationVars>\n<ServiceMigration/></VantoraMigration>\n",
    true, false, true,
    R"(<MigrationVars><Macro Name="Url" Variable="VTR_SERVER" Value="https://new.example"/>)"
    R"(<Macro Name="Gone" Variable="VTR_UNSET"/><Macro Name="Long" Variable="VTR_LONG" Value=")" + Long + R"("/>)"
    R"(<Macro Name="Fixed" Value="v&amp;&quot;"/><Macro Name=""/>)" + ProgramData + "</MigrationVars>",
    {"INFO Load MigrationVars section.", "INFO Get installer property VTR_SERVER.", "INFO Get installer property VTR_UNSET.",
     "ERRO Failed to get installer property VTR_UNSET, error = 0x000000EA.", "INFO Get installer property VTR_LONG.",
     "INFO Global macro table:", "INFO Macro: Url Variable: VTR_SERVER Value: https://new.example.",
     "INFO Macro: Gone Variable: VTR_UNSET Value: .", "INFO Macro: Long Variable: VTR_LONG Value: " + Long + ".",
     "INFO Macro: Fixed Variable:  Value: v&\".", "INFO Macro:  Variable:  Value: .", ProgramDataLine}},
   {"NoSession", R"(<VantoraMigration><MigrationVars><Macro Name="U" Variable="VTR_SERVER"/></MigrationVars></VantoraMigration>)",
    false, false, true, R"(<MigrationVars><Macro Name="U" Variable="VTR_SERVER"/>)" + ProgramData + "</MigrationVars>",
    {"INFO Load MigrationVars section.", "INFO Get installer property VTR_SERVER.",
     "ERRO Failed to get installer property VTR_SERVER, error = 0x00000006.", "INFO Global macro table:",
     "INFO Macro: U Variable: VTR_SERVER Value: .", ProgramDataLine}},
   {"OwnProgramDataStaysFirst",
    R"(<VantoraMigration><MigrationVars><Macro Name="ProgramData" Value="D:\Own"/></MigrationVars></VantoraMigration>)", true,
    false, true, R"(<MigrationVars><Macro Name="ProgramData" Value="D:\Own"/>)" + ProgramData + "</MigrationVars>",
    {"INFO Load MigrationVars section.", "INFO Global macro table:", "INFO Macro: ProgramData Variable:  Value: D:\\Own.",
     ProgramDataLine}},
   {"NoSection", "<VantoraMigration><ServiceMigration/><W><MigrationVars/></W></VantoraMigration>", true, false, true,
    "<MigrationVars/>", {"INFO Global macro table:", ProgramDataLine, "ERRO Can't locate the MigrationVars section."}},
   {"RootInOtherCase", R"(<VANTORAMIGRATION><MigrationVars><Macro Name="A"/></MigrationVars></VANTORAMIGRATION>)", true,
    false, true, R"(<MigrationVars><Macro Name="A"/></MigrationVars>)",
    {"INFO Load MigrationVars section.", "INFO Global macro table:", "INFO Macro: A Variable:  Value: .", ProgramDataLine,
     "ERRO Can't locate the MigrationVars section."}},
   {"NotSaved", "<VantoraMigration><MigrationVars/></VantoraMigration>", true, true, false, Unchanged,
    {"INFO Load MigrationVars section.", "INFO Global macro table:", ProgramDataLine,
     "ERRO Failed to save to XML file {path}."}},
   {"NotWellFormed", "<VantoraMigration><MigrationVars>", true, false, false, Unchanged,
    {"ERRO Failed to load XML file.Last Error: ", "ERRO Failed to load xml file from {path}.Last Error: "}},
   {"WrongRoot", "<Migration><MigrationVars/></Migration>", true, false, false, Unchanged,
    {"ERRO Invalid XML: Missing root 'VantoraMigration'Last Error: "}},
};

class UpdateXmlMacrosTest : public testing::TestWithParam<WriteBackCase>
{
protected:
   static void SetUpTestSuite()
   {
      scenario::PackageChanges changes;
      changes.properties = {{L"VTR_SERVER", L"https://new.example"}, {L"VTR_LONG", scenario::Widen(Long)}};
      session_ = new InstallerSession(changes);
   }
   static void TearDownTestSuite() { delete session_; }
   static InstallerSession *session_;
};

InstallerSession *UpdateXmlMacrosTest::session_ = nullptr;

// The first MigrationVars element of the saved text, as written; empty if there is none.
std::string SectionOf(const std::string &saved)
{
   const size_t begin = saved.find("<MigrationVars");
   if (begin == std::string::npos) {
      return "";
   }
   const std::string empty = "<MigrationVars/>", close = "</MigrationVars>";
   if (saved.compare(begin, empty.size(), empty) == 0) {
      return empty;
   }
   return saved.substr(begin, saved.find(close, begin) + close.size() - begin);
}

TEST_P(UpdateXmlMacrosTest, WritesBack)
{
   const WriteBackCase &c = GetParam();
   LogCapture capture;
   const std::wstring path = capture.Directory() + L"\\vtrMigrateConf.xml";
   FILE *file = _wfopen(path.c_str(), L"wb");
   ASSERT_NE(file, nullptr);
   fputs(c.xml.c_str(), file);
   fclose(file);
   UniqueHandle reader(c.locked ? CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                                              nullptr)
                                : nullptr);

   EXPECT_EQ(UpdateXmlMacros(c.session ? session_->Handle() : 0, path), c.saved);
   reader.reset();

   const std::string saved = scenario::ReadFileBytes(path);
   if (c.section == Unchanged) {
      EXPECT_EQ(saved, c.xml);
   } else {
      EXPECT_EQ(SectionOf(saved), c.section) << saved;
   }
   EXPECT_EQ(capture.Lines(path), c.log);
}

INSTANTIATE_TEST_SUITE_P(Rows, UpdateXmlMacrosTest, testing::ValuesIn(Cases),
                         [](const testing::TestParamInfo<WriteBackCase> &info) { return info.param.label; });

} // namespace
