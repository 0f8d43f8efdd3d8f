#include <windows.h>

#include <gtest/gtest.h>

#include <regex>
#include <stdexcept>
#include <string>

#include "LogCapture.h"
#include "log/MigrationLog.h"

namespace {

using Lines = std::vector<std::string>;

TEST(MigrationLog, LowThreeBitsOfTheLevelChooseItsName)
{
   const struct {
      uint32_t level;
      const char *name;
   } rows[] = {{0, "UNKN"},       {1, "ERRO"},       {2, "WARN"},       {3, "UNKN"},       {4, "INFO"},
               {5, "UNKN"},       {6, "UNKN"},       {7, "UNKN"},       {0x8, "UNKN"},     {0x10000, "UNKN"},
               {0x10001, "ERRO"}, {0x10002, "WARN"}, {0x10004, "INFO"}, {0xFFFFFFF9u, "ERRO"}};
   for (const auto &r : rows) {
      EXPECT_STREQ(GetLevelName(r.level), r.name) << r.level;
   }
}

TEST(MigrationLog, LineHasTimestampIdsLevelMessageAndCrlf)
{
   LogCapture capture;
   LogMessage(LogLevelWarning, "Enter function: %s.", "ExtractMigrConfig");

   const std::string expected = "^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} <" + std::to_string(GetCurrentProcessId()) + "> \\[" +
                                std::to_string(GetCurrentThreadId()) + "\\] WARN Enter function: ExtractMigrConfig\\.\r\n$";
   EXPECT_TRUE(std::regex_match(capture.Contents(), std::regex(expected))) << capture.Contents();
}

// The entry one call writes, with the timestamp and ids cut off.
template <typename... Args>
std::string Logged(uint32_t level, const char *format, Args... args)
{
   LogCapture capture;
   LogMessage(level, format, args...);
   const Lines entries = capture.Entries();
   return entries.size() == 1 ? entries[0] : "<" + std::to_string(entries.size()) + " entries>";
}

TEST(MigrationLog, ConversionsMatchTheRuntimeAndWideTextArrivesAsUtf8)
{
   // Names and paths in any alphabet must survive: the runtime's own %S gives up on them.
   const struct {
      std::string got;
      std::string want;
   } rows[] = {
      {Logged(4, "Parsing migration config file %S.", L"C:\\Temp\\vtrMigrateConf.xml"), "INFO Parsing migration config file C:\\Temp\\vtrMigrateConf.xml."},
      {Logged(4, "Domain - %ws, Name - %ls", L"CORP", L"\u0410"), "INFO Domain - CORP, Name - \xd0\x90"},
      {Logged(4, "[%S]|%-6S|%.2S|", L"", L"ab", L"abcdef"), "INFO []|ab    |ab|"},
      {Logged(4, "User %S, %S macro table:", L"J\u00fcrgen", L"\u674e\u96f7"), "INFO User J\xc3\xbcrgen, \xe6\x9d\x8e\xe9\x9b\xb7 macro table:"},
      {Logged(4, "%.1S|%*S|", L"\u00e9\u00e8", 3, L"\u00e9"), "INFO \xc3\xa9| \xc3\xa9|"},
      {Logged(4, "[%hS]", "narrow"), "INFO [narrow]"},
      {Logged(4, "0x%08X %d %u %x %I64u %% %c", 5u, -7, 0xFFFFFFFFu, 255, ~0ull, 'x'), "INFO 0x00000005 -7 4294967295 ff 18446744073709551615 % x"},
      {Logged(4, "[%5s|%-5s|%.2s|%*d|%-*.*s]", "ab", "cd", "efgh", 4, 42, 6, 2, "xyz"), "INFO [   ab|cd   |ef|  42|xy    ]"},
      // A wide text under a lower-case %s is read as narrow: it ends after its first character.
      {Logged(4, "Final Error when loading XML file: %s", reinterpret_cast<const char *>(L"Out of memory")), "INFO Final Error when loading XML file: O"},
      // The message is cut at 4095 characters: a shorter cut loses the first row's last one.
      {Logged(4, "%s", std::string(4095, 'x').c_str()), "INFO " + std::string(4095, 'x')},
      {Logged(4, "%s", std::string(4096, 'x').c_str()), "INFO " + std::string(4095, 'x')},
      {Logged(4, "%s", std::string(5000, 'x').c_str()), "INFO " + std::string(4095, 'x')},
   };
   for (const auto &r : rows) {
      EXPECT_EQ(r.got, r.want);
   }
}

// The last error is read before the logger touches the system, so the first call's file
// operations never leak into what the second one reports; a code the system has no text for
// still ends the line; the flag alone keeps the level's name.
TEST(MigrationLog, LastErrorTextAndCode)
{
   const struct {
      uint32_t level;
      DWORD error;
      const char *message;
      const char *head;
   } rows[] = {
      {LogLevelErrorWithCode, ERROR_FILE_NOT_FOUND, "first", "ERRO firstLast Error: "},
      {LogLevelErrorWithCode, ERROR_INVALID_HANDLE, "second", "ERRO secondLast Error: "},
      {LogFlagLastError | LogLevelInfo, ERROR_ACCESS_DENIED, "third", "INFO thirdLast Error: "},
      {LogLevelErrorWithCode, 0x20004711, "fourth", "ERRO fourthLast Error: "},
   };
   LogCapture capture;
   Lines expected;
   for (const auto &r : rows) {
      SetLastError(r.error);
      LogMessage(r.level, r.message);
      // The system's text keeps its line break, so the code stands on a line of its own.
      std::string text = GetSystemErrorText(r.error);
      if (text.size() >= 2 && text.substr(text.size() - 2) == "\r\n") {
         text.replace(text.size() - 2, 2, "\n");
      }
      expected.push_back(r.head + text + " (code: " + std::to_string(r.error) + ")");
   }
   EXPECT_EQ(capture.Entries(), expected);
   EXPECT_EQ(GetSystemErrorText(0x20004711), "unknown error");
   // The file is written in text mode: the text's own CR LF gains a second CR.
   EXPECT_NE(capture.Contents().find("\r\r\n (code: 5)\r\n"), std::string::npos) << capture.Contents();
}

TEST(MigrationLog, AppendsToAnExistingFileThatOthersMayHoldOpen)
{
   LogCapture capture;
   AppendLogLine("earlier run\n");
   HANDLE other = CreateFileW((capture.Directory() + L"\\MigrVantora.log").c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, 0, nullptr);
   ASSERT_NE(other, INVALID_HANDLE_VALUE);
   LogMessage(LogLevelInfo, "later run");
   CloseHandle(other);
   EXPECT_EQ(capture.Contents().rfind("earlier run\r\n", 0), 0u);
   EXPECT_EQ(capture.Entries(), Lines{"INFO later run"});
}

TEST(MigrationLog, UnwritableTemporaryDirectoryIsSilent)
{
   LogCapture capture;
   const std::wstring missing = capture.Directory() + L"\\does-not-exist\\";
   SetEnvironmentVariableW(L"TMP", missing.c_str());
   SetEnvironmentVariableW(L"TEMP", missing.c_str());
   LogMessage(LogLevelError, "lost");
   EXPECT_EQ(GetFileAttributesW((missing + L"MigrVantora.log").c_str()), INVALID_FILE_ATTRIBUTES);
}

// Between two lines of a traced call, its log in A, the temporary directory it began with, is
// renamed or deleted, or the temporary directory becomes B, missing or not; before it leaves,
// the temporary directory is A again.
enum class LogStep { RenameToB, DeleteInA, TempToB };

TEST(MigrationLog, TracedCallWritesEachLineAtOnceWhereverTheTemporaryDirectoryIs)
{
   const std::string enter = "INFO Enter function: X.", leave = "INFO Leave function: X.";
   const struct { bool bExists; LogStep step; Lines inA, inB; } cases[] = {
      {true, LogStep::RenameToB, {"INFO after"}, {enter, "INFO first", "INFO second", leave}},
      {false, LogStep::DeleteInA, {"INFO after"}, {}},
      {true, LogStep::TempToB, {enter, "INFO first", leave, "INFO after"}, {"INFO second"}},
      {false, LogStep::TempToB, {enter, "INFO first", leave, "INFO after"}, {}},
   };
   for (size_t row = 0; row < std::size(cases); ++row) {
      const auto &c = cases[row];
      LogCapture capture;
      const std::wstring a = capture.Directory() + L"\\", b = a + L"b\\";
      const std::wstring logA = a + L"MigrVantora.log", logB = b + L"MigrVantora.log";
      EXPECT_TRUE(!c.bExists || CreateDirectoryW(b.c_str(), nullptr)) << row;
      {
         FunctionTrace trace("X");
         LogMessage(LogLevelInfo, "first");
         // In the file before the call returned.
         EXPECT_EQ(capture.Entries(), (Lines{enter, "INFO first"})) << row;
         EXPECT_TRUE(c.step != LogStep::RenameToB || MoveFileW(logA.c_str(), logB.c_str())) << row;
         EXPECT_TRUE(c.step != LogStep::DeleteInA || DeleteFileW(logA.c_str())) << row;
         // GetTempPath reads TMP first.
         SetEnvironmentVariableW(L"TMP", (c.step == LogStep::TempToB ? b : a).c_str());
         LogMessage(LogLevelInfo, "second");
         SetEnvironmentVariableW(L"TMP", a.c_str());
      }
      LogMessage(LogLevelInfo, "after");
      EXPECT_EQ(capture.Entries(), c.inA) << row;
      EXPECT_EQ(scenario::SplitLogEntries(scenario::ReadFileBytes(logB)), c.inB) << row;
      // Closed once the outermost traced call is left.
      EXPECT_TRUE(scenario::FileIsFree(logA)) << row;
   }
}

TEST(FunctionTrace, LeaveLineWrittenWhenAnExceptionPasses)
{
   LogCapture capture;
   EXPECT_THROW({ FunctionTrace trace("ExtractFileFromTable"); LogMessage(LogLevelInfo, "inside"); throw std::runtime_error("boom"); }, std::runtime_error);
   EXPECT_EQ(capture.Entries(), (Lines{"INFO Enter function: ExtractFileFromTable.", "INFO inside", "INFO Leave function: ExtractFileFromTable."}));
}

} // namespace
