// Taking the document out of a real session's Binary table: the platform calls in order (so
// also which handles are closed), the delete's retries, the log and the file left behind. A
// held file and a directory in the way are real; the rest comes in through the extraction's table.
#include <windows.h>
#include <msiquery.h>

#include <gtest/gtest.h>

#include "HandleGuards.h"
#include "LogCapture.h"
#include "actions/DatabaseExtraction.h"

namespace {

using Lines = std::vector<std::string>;

// Both kinds of line end and a byte that isn't text: the copy must be exact.
const char Document[] = "<VantoraMigration>\r\n<MigrationVars/>\n</VantoraMigration>\x01";

struct Script {
   bool noDatabase = false, noTempPath = false, emptyStream = false;
   UINT executeResult = 0, readResult = 0;
   int deleteWorksAtCall = 0;  // earlier deletes fail as if the file were shared
   int releaseAfterSleeps = 0; // when the held file is let go; 0: never
};

const ExtractionPlatform Real = extractionPlatform;
Script script;
HANDLE holder = nullptr;
std::string calls;
int deletes = 0, sleeps = 0;

void Call(const std::string &name)
{
   calls += (calls.empty() ? "" : " ") + name;
}

void Release()
{
   CloseHandle(std::exchange(holder, nullptr));
}

// Each call is written down, then made for real unless the row's script says otherwise.
const ExtractionPlatform Recording = {
   [](MSIHANDLE install) -> MSIHANDLE { Call("database"); return script.noDatabase ? 0 : Real.MsiGetActiveDatabase(install); },
   [](MSIHANDLE db, LPCWSTR query, MSIHANDLE *view) { Call("view:" + scenario::Narrow(query)); return Real.MsiDatabaseOpenViewW(db, query, view); },
   [](MSIHANDLE view, MSIHANDLE none) { Call("execute"); return script.executeResult != 0 ? script.executeResult : Real.MsiViewExecute(view, none); },
   [](MSIHANDLE view, MSIHANDLE *record) { Call("fetch"); return Real.MsiViewFetch(view, record); },
   [](DWORD size, LPWSTR buffer) { Call("temp"); return script.noTempPath ? 0 : Real.GetTempPathW(size, buffer); },
   [](LPCWSTR path) { Call("attributes"); return Real.GetFileAttributesW(path); },
   [](LPCWSTR path) { Call("delete"); return ++deletes < script.deleteWorksAtCall ? FALSE : Real.DeleteFileW(path); },
   [](DWORD ms) { Call("sleep:" + std::to_string(ms)); if (++sleeps == script.releaseAfterSleeps) { Release(); } Real.Sleep(ms); },
   [](MSIHANDLE record, UINT field) { Call("size:" + std::to_string(field)); return script.emptyStream ? 0 : Real.MsiRecordDataSize(record, field); },
   [](MSIHANDLE record, UINT field, char *data, DWORD *size) {
      Call("read:" + std::to_string(field));
      return script.readResult != 0 ? script.readResult : Real.MsiRecordReadStream(record, field, data, size);
   },
   [](MSIHANDLE handle) { Call("close"); return Real.MsiCloseHandle(handle); },
};

enum class Before { Nothing, OldCopy, Directory, Held };
const char *const Gone = nullptr;
const char Folder[] = "<directory>";
const std::string Queried = "database view:SELECT Data FROM Binary WHERE Name='vtrMigrateConf.xml' execute";
const std::string Found = Queried + " fetch temp attributes";
// Two closes are the record's and the view's; the session's database handle stays open.
const std::string Read = "size:1 read:1 close close", Closed = "close close";
std::string Deletes(int count) // `count` delete calls, 100 ms apart
{
   return count == 1 ? "delete" : Deletes(count - 1) + " sleep:100 delete";
}
const Lines Extracted = {"INFO Extract file to {path}", "INFO vtrMigrateConf.xml extracted to {path}"};
const Lines NotDeleted = {"ERRO Can't delete old configuration file, abort..."};
const std::string Opened = Extracted[0];

const struct {
   const char *label;
   Before before;
   Script script;
   std::string calls;
   Lines log;        // between the trace lines
   const char *left; // the target afterwards: its bytes, Gone or Folder
   std::wstring fileName = L"vtrMigrateConf.xml";
} Cases[] = {
   {"Fresh", Before::Nothing, {}, Found + " " + Read, Extracted, Document},
   {"OldCopyReplaced", Before::OldCopy, {}, Found + " delete " + Read, Extracted, Document},
   {"HeldForAWhile", Before::Held, {.releaseAfterSleeps = 2}, Found + " " + Deletes(3) + " " + Read, Extracted, Document},
   {"HeldForGood", Before::Held, {}, Found + " " + Deletes(6) + " " + Closed, NotDeleted, "old"},
   {"DeletedAtFifthCall", Before::OldCopy, {.deleteWorksAtCall = 5}, Found + " " + Deletes(5) + " " + Read, Extracted, Document},
   {"DeletedAtSixthCall", Before::OldCopy, {.deleteWorksAtCall = 6}, Found + " " + Deletes(6) + " " + Closed, NotDeleted, Gone},
   {"DirectoryInTheWay", Before::Directory, {}, Found + " " + Closed, {Opened, "ERRO Failed to open temporary fileLast Error: "}, Folder},
   {"EmptyStream", Before::Nothing, {.emptyStream = true}, Found + " " + Read, Extracted, ""},
   {"ReadFails", Before::OldCopy, {.readResult = 87}, Found + " delete " + Read,
    {Opened, "ERRO Failed to read data stream from record, result=0x00000057Last Error: "}, ""},
   {"NoTempPath", Before::Nothing, {.noTempPath = true}, Queried + " fetch temp " + Closed, {"ERRO Failed to locate temporary pathLast Error: "}, Gone},
   {"ExecuteFails", Before::Nothing, {.executeResult = 1627}, Queried + " close", {"ERRO Failed to execute view, result = 1627Last Error: "}, Gone},
   {"NameNotInTable", Before::Nothing, {}, "database view:SELECT Data FROM Binary WHERE Name='absent' execute fetch close",
    {"ERRO Failed to fetch record, result = 259Last Error: "}, Gone, L"absent"},
   {"ApostropheBreaksTheQuery", Before::Nothing, {}, "database view:SELECT Data FROM Binary WHERE Name='a'b'",
    {"ERRO Failed to open view, result = 1615Last Error: "}, Gone, L"a'b"},
   {"NoDatabase", Before::Nothing, {.noDatabase = true}, "database", {"ERRO Failed to open current database.Last Error: "}, Gone},
};

TEST(ExtractFileFromTable, Rows)
{
   const UniqueMsiHandle session(OpenSession({.configXml = std::string(Document, sizeof(Document) - 1)}));
   for (const auto &c : Cases) {
      SCOPED_TRACE(c.label);
      LogCapture capture;
      const std::wstring target = capture.Directory() + L"\\" + c.fileName;
      if (c.before == Before::Directory) {
         CreateDirectoryW(target.c_str(), nullptr);
      } else if (c.before != Before::Nothing) {
         scenario::WriteFileBytes(target, "old");
      }
      // Shared for reading and writing but not for deleting, as a virus scanner holds a file.
      if (c.before == Before::Held) {
         holder = CreateFileW(target.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                              nullptr);
      }
      script = c.script;
      calls.clear();
      deletes = sleeps = 0;
      extractionPlatform = Recording;
      const std::wstring result = ExtractFileFromTable(session.get(), L"Binary", c.fileName);
      extractionPlatform = Real;
      Release();

      EXPECT_EQ(result, c.log == Extracted ? target : L"");
      EXPECT_EQ(calls, c.calls);
      Lines log = {"INFO Enter function: ExtractFileFromTable."};
      log.insert(log.end(), c.log.begin(), c.log.end());
      log.push_back("INFO Leave function: ExtractFileFromTable.");
      EXPECT_EQ(capture.Lines(target), log);
      if (c.left == Folder) {
         EXPECT_TRUE(RemoveDirectoryW(target.c_str())) << "still a directory";
      } else {
         EXPECT_EQ(GetFileAttributesW(target.c_str()) != INVALID_FILE_ATTRIBUTES, c.left != Gone);
         EXPECT_EQ(scenario::ReadFileBytes(target), c.left == Gone ? "" : c.left);
      }
   }
}

} // namespace
