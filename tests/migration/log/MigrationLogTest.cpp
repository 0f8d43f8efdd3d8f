#include <windows.h>

#include <gtest/gtest.h>

#include <regex>
#include <stdexcept>
#include <string>

#include "LogCapture.h"
#include "log/MigrationLog.h"

namespace {

struct LevelCase {
   uint32_t level;
   const char *name;
};

class LevelNameTest : public ::testing::TestWithParam<LevelCase> {};

TEST_P(LevelNameTest, LowThreeBitsChooseTheName)
{
   EXPECT_STREQ(GetLevelName(GetParam().level), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(AllLevels, LevelNameTest,
                         ::testing::Values(LevelCase{0, "UNKN"}, LevelCase{1, "ERRO"}, LevelCase{2, "WARN"},
                                           LevelCase{3, "UNKN"}, LevelCase{4, "INFO"}, LevelCase{5, "UNKN"},
                                           LevelCase{6, "UNKN"}, LevelCase{7, "UNKN"},
                                           LevelCase{0x10001, "ERRO"}, LevelCase{0x10002, "WARN"},
                                           LevelCase{0x10004, "INFO"}, LevelCase{0x10000, "UNKN"},
                                           LevelCase{0xFFFFFFF9u, "ERRO"}, LevelCase{0x8, "UNKN"}));

TEST(MigrationLog, LineHasTimestampIdsLevelMessageAndCrlf)
{
   LogCapture capture;
   LogMessage(LogLevelInfo, "Enter function: %s.", "ExtractMigrConfig");

   const std::string expected = "^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} <" +
                                std::to_string(GetCurrentProcessId()) + "> \\[" +
                                std::to_string(GetCurrentThreadId()) +
                                "\\] INFO Enter function: ExtractMigrConfig\\.\r\n$";
   EXPECT_TRUE(std::regex_match(capture.Contents(), std::regex(expected))) << capture.Contents();
}

TEST(MigrationLog, EachLevelWritesItsName)
{
   LogCapture capture;
   for (uint32_t level : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u}) {
      LogMessage(level, "level %u", level);
   }
   const std::vector<std::string> expected = {"UNKN level 0", "ERRO level 1", "WARN level 2", "UNKN level 3",
                                              "INFO level 4", "UNKN level 5", "UNKN level 6", "UNKN level 7"};
   EXPECT_EQ(capture.Entries(), expected);
}

TEST(MigrationLog, LastErrorTextKeepsItsLineBreakBeforeTheCode)
{
   LogCapture capture;
   SetLastError(ERROR_ACCESS_DENIED);
   LogMessage(LogLevelErrorWithCode, "Error when enabling backup privilege.");

   const std::string contents = capture.Contents();
   const std::string head = "ERRO Error when enabling backup privilege.Last Error: ";
   ASSERT_NE(contents.find(head), std::string::npos) << contents;
   // The system's own text, line break and all, then the code on a line of its own. The
   // file is written in text mode, so the text's own CR LF gains a second CR.
   std::string systemText = GetSystemErrorText(5);
   ASSERT_GE(systemText.size(), 2u);
   ASSERT_EQ(systemText.substr(systemText.size() - 2), "\r\n");
   systemText.insert(systemText.size() - 1, "\r");
   EXPECT_NE(contents.find(head + systemText + " (code: 5)\r\n"), std::string::npos) << contents;
   EXPECT_EQ(contents.substr(contents.size() - 12), " (code: 5)\r\n");
}

TEST(MigrationLog, LastErrorIsReadBeforeTheLoggerTouchesTheSystem)
{
   LogCapture capture;
   SetLastError(ERROR_FILE_NOT_FOUND);
   LogMessage(LogLevelErrorWithCode, "first");
   // The first call's own file operations must not leak into what the second one reports.
   SetLastError(ERROR_INVALID_HANDLE);
   LogMessage(LogLevelErrorWithCode, "second");
   const auto entries = capture.Entries();
   ASSERT_EQ(entries.size(), 2u);
   EXPECT_NE(entries[0].find("(code: 2)"), std::string::npos) << entries[0];
   EXPECT_NE(entries[1].find("(code: 6)"), std::string::npos) << entries[1];
}

TEST(MigrationLog, CodeWithoutSystemTextStillEndsWithTheCode)
{
   LogCapture capture;
   SetLastError(0x20004711);
   LogMessage(LogLevelErrorWithCode, "odd");
   const std::string contents = capture.Contents();
   EXPECT_NE(contents.find("ERRO oddLast Error: "), std::string::npos) << contents;
   EXPECT_EQ(contents.substr(contents.size() - 20), " (code: 536889105)\r\n") << contents;
}

TEST(MigrationLog, FlagWithoutErrorLevelAddsTheCodeButKeepsTheName)
{
   LogCapture capture;
   SetLastError(5);
   LogMessage(LogFlagLastError | LogLevelInfo, "info");
   const auto entries = capture.Entries();
   ASSERT_EQ(entries.size(), 1u);
   EXPECT_EQ(entries[0].rfind("INFO infoLast Error: ", 0), 0u) << entries[0];
}

TEST(MigrationLog, MessageIsCutAt4095Characters)
{
   struct Case {
      size_t length;
      size_t written;
   } cases[] = {{4094, 4094}, {4095, 4095}, {4096, 4095}, {5000, 4095}};
   for (const Case &c : cases) {
      LogCapture capture;
      const std::string message(c.length, 'x');
      LogMessage(LogLevelInfo, "%s", message.c_str());
      const auto entries = capture.Entries();
      ASSERT_EQ(entries.size(), 1u);
      EXPECT_EQ(entries[0], "INFO " + std::string(c.written, 'x')) << "length " << c.length;
   }
}

TEST(MigrationLog, WideArgumentsArriveAsUtf8)
{
   // Names and paths in any alphabet must survive: the runtime's own %S gives up on them.
   struct Case {
      const char *format;
      const wchar_t *argument;
      const char *expected;
   } cases[] = {
      {"Parsing migration config file %S.", L"C:\\Temp\\vtrMigrateConf.xml",
       "INFO Parsing migration config file C:\\Temp\\vtrMigrateConf.xml."},
      {"Domain - %ws, Name - %ws", L"CORP", "INFO Domain - CORP, Name - CORP"},
      {"[%S]", L"", "INFO []"},
      {"%-6S|", L"ab", "INFO ab    |"},
      {"%.2S", L"abcdef", "INFO ab"},
      {"User %S macro table:", L"J\u00fcrgen", "INFO User J\xc3\xbcrgen macro table:"},
      {"User %S macro table:", L"\u674e\u96f7", "INFO User \xe6\x9d\x8e\xe9\x9b\xb7 macro table:"},
      {"Domain - %ws, Name - %ws", L"\u0410", "INFO Domain - \xd0\x90, Name - \xd0\x90"},
      {"%ls|%.1S|", L"\u00e9\u00e8", "INFO \xc3\xa9\xc3\xa8|\xc3\xa9|"},
      {"[%hS]", reinterpret_cast<const wchar_t *>("narrow"), "INFO [narrow]"},
   };
   for (const Case &c : cases) {
      LogCapture capture;
      LogMessage(LogLevelInfo, c.format, c.argument, c.argument);
      const auto entries = capture.Entries();
      ASSERT_EQ(entries.size(), 1u) << c.format;
      EXPECT_EQ(entries[0], c.expected);
   }
}

TEST(MigrationLog, NarrowConversionsMatchTheRuntime)
{
   LogCapture capture;
   LogMessage(LogLevelInfo, "0x%08X %d %u %x %I64u %% %c", 5u, -7, 0xFFFFFFFFu, 255, ~0ull, 'x');
   LogMessage(LogLevelInfo, "[%5s|%-5s|%.2s|%*d|%-*.*s]", "ab", "cd", "efgh", 4, 42, 6, 2, "xyz");
   // A wide text under a lower-case %s is read as narrow: it ends after its first character.
   LogMessage(LogLevelInfo, "Final Error when loading XML file: %s", reinterpret_cast<const char *>(L"Out of memory"));
   EXPECT_EQ(capture.Entries(), (std::vector<std::string>{"INFO 0x00000005 -7 4294967295 ff 18446744073709551615 % x",
                                                          "INFO [   ab|cd   |ef|  42|xy    ]",
                                                          "INFO Final Error when loading XML file: O"}));
}

TEST(MigrationLog, TwoCallsGiveTwoLinesInOrder)
{
   LogCapture capture;
   LogMessage(LogLevelInfo, "one");
   LogMessage(LogLevelWarning, "two");
   EXPECT_EQ(capture.Entries(), (std::vector<std::string>{"INFO one", "WARN two"}));
}

TEST(MigrationLog, AppendsToAnExistingFile)
{
   LogCapture capture;
   AppendLogLine("earlier run\n");
   LogMessage(LogLevelInfo, "later run");
   const std::string contents = capture.Contents();
   EXPECT_EQ(contents.rfind("earlier run\r\n", 0), 0u);
   EXPECT_NE(contents.find("INFO later run\r\n"), std::string::npos);
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

TEST(MigrationLog, FileStaysOpenableByOthersBetweenLines)
{
   LogCapture capture;
   LogMessage(LogLevelInfo, "first");
   // Another writer holding the file open must not stop our next line.
   HANDLE other = CreateFileW((capture.Directory() + L"\\MigrVantora.log").c_str(), GENERIC_READ | GENERIC_WRITE,
                              FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
   ASSERT_NE(other, INVALID_HANDLE_VALUE);
   LogMessage(LogLevelInfo, "second");
   CloseHandle(other);
   EXPECT_EQ(capture.Entries(), (std::vector<std::string>{"INFO first", "INFO second"}));
}

// Between two lines of a traced call, its log in A, the temporary directory it began with, is
// renamed or deleted, or the temporary directory becomes B, missing or not; before it leaves,
// the temporary directory is A again.
enum class LogStep { RenameToB, DeleteInA, TempToB };

TEST(MigrationLog, TracedCallWritesEachLineAtOnceWhereverTheTemporaryDirectoryIs)
{
   const std::string enter = "INFO Enter function: X.", leave = "INFO Leave function: X.";
   const struct { bool bExists; LogStep step; std::vector<std::string> inA, inB; } cases[] = {
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
         EXPECT_EQ(capture.Entries(), (std::vector<std::string>{enter, "INFO first"})) << row;
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

void ThrowInsideTrace()
{
   FunctionTrace trace("ExtractFileFromTable");
   LogMessage(LogLevelInfo, "inside");
   throw std::runtime_error("boom");
}

TEST(FunctionTrace, EnterAndLeaveAroundTheScope)
{
   LogCapture capture;
   {
      FunctionTrace trace("MigrateVantoraSvc");
      LogMessage(LogLevelInfo, "work");
   }
   EXPECT_EQ(capture.Entries(), (std::vector<std::string>{"INFO Enter function: MigrateVantoraSvc.", "INFO work",
                                                          "INFO Leave function: MigrateVantoraSvc."}));
}

TEST(FunctionTrace, LeaveLineWrittenWhenAnExceptionPasses)
{
   LogCapture capture;
   EXPECT_THROW(ThrowInsideTrace(), std::runtime_error);
   EXPECT_EQ(capture.Entries(), (std::vector<std::string>{"INFO Enter function: ExtractFileFromTable.", "INFO inside",
                                                          "INFO Leave function: ExtractFileFromTable."}));
}

} // namespace
