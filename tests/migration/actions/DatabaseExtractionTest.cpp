// Taking the document out of a real session's Binary table under Wine: the platform calls in
// their order (each handle closed by name), the retry of the delete, the log and the file
// left behind, one row per case. A file held open and a directory in the way are real; what
// Wine can't do on demand comes in through the extraction's table of platform calls.
#include <windows.h>
#include <msiquery.h>

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "HandleGuards.h"
#include "InstallerSession.h"
#include "LogCapture.h"
#include "actions/CustomActions.h"
#include "actions/DatabaseExtraction.h"

namespace {

using Lines = std::vector<std::string>;

// Line ends of both kinds and a byte that isn't text: the copy must be exact.
const char Document[] = "<VantoraMigration>\r\n<MigrationVars/>\n</VantoraMigration>\x01";

// What a case changes of the platform; everything else is the real call.
struct Script {
   bool noDatabase = false;
   UINT executeResult = ERROR_SUCCESS;
   bool noTempPath = false;
   int deleteWorksAtCall = 0; // before this call a delete fails as if the file were shared
   bool emptyStream = false;
   UINT readResult = ERROR_SUCCESS;
   HANDLE holder = nullptr;   // a real handle on the old copy
   int releaseAfterSleeps = 0; // 0: never
};

const ExtractionPlatform Real = extractionPlatform;
Script script;
std::string calls;
std::map<MSIHANDLE, std::string> handleNames;
std::wstring lastQuery;
int deletes = 0;
int sleeps = 0;

void Call(const std::string &name)
{
   calls += (calls.empty() ? "" : " ") + name;
}

MSIHANDLE WINAPI GetDatabase(MSIHANDLE install)
{
   Call("database");
   const MSIHANDLE database = script.noDatabase ? 0 : Real.MsiGetActiveDatabase(install);
   handleNames[database] = "database";
   return database;
}

UINT WINAPI OpenView(MSIHANDLE database, LPCWSTR query, MSIHANDLE *view)
{
   Call("view");
   lastQuery = query;
   const UINT status = Real.MsiDatabaseOpenViewW(database, query, view);
   handleNames[*view] = "view";
   return status;
}

UINT WINAPI Execute(MSIHANDLE view, MSIHANDLE parameters)
{
   Call("execute");
   return script.executeResult != ERROR_SUCCESS ? script.executeResult : Real.MsiViewExecute(view, parameters);
}

UINT WINAPI Fetch(MSIHANDLE view, MSIHANDLE *record)
{
   Call("fetch");
   const UINT status = Real.MsiViewFetch(view, record);
   handleNames[*record] = "record";
   return status;
}

DWORD WINAPI TempPath(DWORD size, LPWSTR buffer)
{
   Call("temp");
   if (script.noTempPath) {
      SetLastError(ERROR_ENVVAR_NOT_FOUND);
      return 0;
   }
   return Real.GetTempPathW(size, buffer);
}

DWORD WINAPI Attributes(LPCWSTR path)
{
   Call("attributes");
   return Real.GetFileAttributesW(path);
}

BOOL WINAPI Delete(LPCWSTR path)
{
   Call("delete");
   if (++deletes < script.deleteWorksAtCall) {
      SetLastError(ERROR_SHARING_VIOLATION);
      return FALSE;
   }
   return Real.DeleteFileW(path);
}

void WINAPI Wait(DWORD milliseconds)
{
   Call("sleep:" + std::to_string(milliseconds));
   if (++sleeps == script.releaseAfterSleeps) {
      CloseHandle(script.holder);
      script.holder = nullptr;
   }
   Real.Sleep(milliseconds);
}

UINT WINAPI DataSize(MSIHANDLE record, UINT field)
{
   Call("size:" + std::to_string(field));
   return script.emptyStream ? 0 : Real.MsiRecordDataSize(record, field);
}

UINT WINAPI ReadStream(MSIHANDLE record, UINT field, char *buffer, DWORD *size)
{
   Call("read:" + std::to_string(field));
   return script.readResult != ERROR_SUCCESS ? script.readResult : Real.MsiRecordReadStream(record, field, buffer, size);
}

UINT WINAPI Close(MSIHANDLE handle)
{
   Call("close:" + handleNames[handle]);
   return Real.MsiCloseHandle(handle);
}

enum class Before { Nothing, OldCopy, Directory, HeldOpen };

constexpr const char *Gone = nullptr;
constexpr const char Folder[] = "<directory>";

const std::string Found = "database view execute fetch temp attributes";
const std::string Read = "size:1 read:1 close:record close:view";
const std::string Closed = "close:record close:view";
std::string Retried(int waits)
{
   std::string text = "delete";
   for (int i = 0; i < waits; ++i) {
      text += " sleep:100 delete";
   }
   return text;
}

const Lines Extracted = {"INFO Extract file to {path}", "INFO vtrMigrateConf.xml extracted to {path}"};

struct ExtractCase {
   const char *label;
   Before before;
   Script script;
   std::wstring fileName;
   std::string calls;
   Lines log; // between the trace lines
   const char *left; // the target afterwards: contents, Gone or Folder
   bool extracted;
};

const ExtractCase ExtractCases[] = {
   {"Fresh", Before::Nothing, {}, L"", Found + " " + Read, Extracted, Document, true},
   {"OldCopyReplaced", Before::OldCopy, {}, L"", Found + " delete " + Read, Extracted, Document, true},
   {"HeldForAWhile", Before::HeldOpen, {.releaseAfterSleeps = 2}, L"", Found + " " + Retried(2) + " " + Read,
    Extracted, Document, true},
   {"HeldForGood", Before::HeldOpen, {}, L"", Found + " " + Retried(5) + " " + Closed,
    {"ERRO Can't delete old configuration file, abort..."}, "old", false},
   {"DeleteWorksAtFifthCall", Before::OldCopy, {.deleteWorksAtCall = 5}, L"", Found + " " + Retried(4) + " " + Read,
    Extracted, Document, true},
   {"DeleteWorksAtSixthCall", Before::OldCopy, {.deleteWorksAtCall = 6}, L"", Found + " " + Retried(5) + " " + Closed,
    {"ERRO Can't delete old configuration file, abort..."}, Gone, false},
   {"DirectoryInTheWay", Before::Directory, {}, L"", Found + " " + Closed,
    {"INFO Extract file to {path}", "ERRO Failed to open temporary fileLast Error: "}, Folder, false},
   {"NoDatabase", Before::Nothing, {.noDatabase = true}, L"", "database",
    {"ERRO Failed to open current database.Last Error: "}, Gone, false},
   {"ApostropheBreaksTheQuery", Before::Nothing, {}, L"vtr'MigrateConf.xml", "database view",
    {"ERRO Failed to open view, result = 1615Last Error: "}, Gone, false},
   {"ExecuteFails", Before::Nothing, {.executeResult = ERROR_FUNCTION_FAILED}, L"", "database view execute close:view",
    {"ERRO Failed to execute view, result = 1627Last Error: "}, Gone, false},
   {"NameNotInTable", Before::Nothing, {}, L"absent.xml", "database view execute fetch close:view",
    {"ERRO Failed to fetch record, result = 259Last Error: "}, Gone, false},
   {"NoTempPath", Before::Nothing, {.noTempPath = true}, L"", "database view execute fetch temp " + Closed,
    {"ERRO Failed to locate temporary pathLast Error: "}, Gone, false},
   {"ReadFails", Before::OldCopy, {.readResult = ERROR_INVALID_PARAMETER}, L"", Found + " delete " + Read,
    {"INFO Extract file to {path}", "ERRO Failed to read data stream from record, result=0x00000057Last Error: "}, "",
    false},
   {"EmptyStream", Before::Nothing, {.emptyStream = true}, L"", Found + " " + Read, Extracted, "", true},
};

class ExtractFileFromTableTest : public testing::TestWithParam<ExtractCase>
{
protected:
   static void SetUpTestSuite()
   {
      scenario::PackageChanges changes;
      changes.configXml = std::string(Document, sizeof(Document) - 1);
      session_ = new InstallerSession(changes);
   }
   static void TearDownTestSuite() { delete session_; }

   void SetUp() override
   {
      script = GetParam().script;
      calls.clear();
      handleNames.clear();
      lastQuery.clear();
      deletes = sleeps = 0;
      extractionPlatform = {&GetDatabase, &OpenView, &Execute,  &Fetch,    &TempPath, &Attributes,
                            &Delete,      &Wait,     &DataSize, &ReadStream, &Close};
   }
   void TearDown() override
   {
      extractionPlatform = Real;
      if (script.holder != nullptr) {
         CloseHandle(script.holder);
      }
      for (const auto &[handle, name] : handleNames) {
         if (name == "database") {
            MsiCloseHandle(handle);
         }
      }
   }

   static InstallerSession *session_;
};

InstallerSession *ExtractFileFromTableTest::session_ = nullptr;

void WriteBytes(const std::wstring &path, const std::string &bytes)
{
   FILE *file = _wfopen(path.c_str(), L"wb");
   ASSERT_NE(file, nullptr);
   fwrite(bytes.data(), 1, bytes.size(), file);
   fclose(file);
}

TEST_P(ExtractFileFromTableTest, Extracts)
{
   const ExtractCase &c = GetParam();
   LogCapture capture;
   const std::wstring fileName = c.fileName.empty() ? L"vtrMigrateConf.xml" : c.fileName;
   const std::wstring target = capture.Directory() + L"\\" + fileName;
   if (c.before == Before::Directory) {
      ASSERT_TRUE(CreateDirectoryW(target.c_str(), nullptr));
   } else if (c.before != Before::Nothing) {
      WriteBytes(target, "old");
   }
   if (c.before == Before::HeldOpen) {
      script.holder = CreateFileW(target.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, 0, nullptr);
      ASSERT_NE(script.holder, INVALID_HANDLE_VALUE);
   }

   const std::wstring result = ExtractFileFromTable(session_->Handle(), L"Binary", fileName);

   EXPECT_EQ(result, c.extracted ? target : L"");
   EXPECT_EQ(calls, c.calls);
   if (c.calls.find("view") != std::string::npos) {
      EXPECT_EQ(lastQuery, L"SELECT Data FROM Binary WHERE Name='" + fileName + L"'");
   }
   Lines expected = {"INFO Enter function: ExtractFileFromTable."};
   expected.insert(expected.end(), c.log.begin(), c.log.end());
   expected.push_back("INFO Leave function: ExtractFileFromTable.");
   EXPECT_EQ(capture.Lines(target), expected);

   const DWORD attributes = GetFileAttributesW(target.c_str());
   if (c.left == Gone) {
      EXPECT_EQ(attributes, INVALID_FILE_ATTRIBUTES);
   } else if (c.left == Folder) {
      EXPECT_NE(attributes & FILE_ATTRIBUTE_DIRECTORY, 0u);
      RemoveDirectoryW(target.c_str());
   } else {
      EXPECT_EQ(scenario::ReadFileBytes(target), c.left);
   }
}

INSTANTIATE_TEST_SUITE_P(Rows, ExtractFileFromTableTest, testing::ValuesIn(ExtractCases),
                         [](const testing::TestParamInfo<ExtractCase> &info) { return info.param.label; });

// The action's own result for each way the sequence can end, on sessions of real packages.
TEST(ExtractMigrConfig, ResultCodes)
{
   // A marker left by another test would make the action stand down.
   RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, NewVendorKeyPath.c_str(), MigrationDoneValueName.c_str());
   const std::string good = "<VantoraMigration><MigrationVars/></VantoraMigration>";
   const struct {
      const char *label;
      std::string document;
      bool noDatabase;
      bool sessionHandle; // false: a plain database handle, on which no property can be set
      UINT code;
      Lines errors;
      bool published;
   } cases[] = {
      {"published", good, false, true, 0, {}, true},
      {"not extracted", good, true, true, 2, {"ERRO Failed to open current database.Last Error: ",
                                              "ERRO Installer can't extract configuration file from database."}, false},
      {"not well-formed", "<VantoraMigration>", false, true, 15609,
       {"ERRO Failed to load XML file.Last Error: ", "ERRO Failed to load xml file from {path}.Last Error: ",
        "ERRO Failed to update XML macros section."}, false},
      {"property not set", good, false, false, 1603, {"ERRO Failed to Set installer Property, result = 0x00000006"},
       false},
   };
   for (const auto &c : cases) {
      SCOPED_TRACE(c.label);
      scenario::PackageChanges changes;
      changes.configXml = c.document;
      InstallerSession session(changes);
      LogCapture capture;
      static UniqueMsiHandle database;
      database.reset(MsiGetActiveDatabase(session.Handle()));
      if (c.noDatabase) {
         extractionPlatform.MsiGetActiveDatabase = [](MSIHANDLE) -> MSIHANDLE { return 0; };
      } else if (!c.sessionHandle) {
         extractionPlatform.MsiGetActiveDatabase = [](MSIHANDLE) { return database.get(); };
      }

      const UINT code = ExtractMigrConfig(c.sessionHandle ? session.Handle() : database.get());
      extractionPlatform = Real;
      database.reset();

      const std::wstring target = capture.Directory() + L"\\vtrMigrateConf.xml";
      EXPECT_EQ(code, c.code);
      Lines errors;
      for (const std::string &line : capture.Lines(target)) {
         if (line.rfind("ERRO", 0) == 0) {
            errors.push_back(line);
         }
      }
      EXPECT_EQ(errors, c.errors);
      EXPECT_EQ(session.Property(L"MigrateConfigFilepath"), c.published ? target : L"");
      EXPECT_EQ(GetFileAttributesW(target.c_str()) != INVALID_FILE_ATTRIBUTES, !c.noDatabase) << "extracted copy";
   }
}

} // namespace
