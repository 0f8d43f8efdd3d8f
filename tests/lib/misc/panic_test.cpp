// Every Panic text of the support library, byte for byte from a dying child, and the exit
// codes of a first panic and of a panic during a panic.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <tuple>

#include "misc/codeset.h"
#include "misc/coreDump.h"
#include "misc/hashTable.h"
#include "misc/log.h"
#include "misc/mxuser.h"
#include "misc/panic.h"
#include "misc/platform.h"
#include "unicode/unicode.h"
#include "user/dictionary_core.h"
#include "user/msg.h"
#if defined(_WIN32)
#include "misc/win32u.h"
#endif

namespace {

// Windows builds of GoogleTest have only its simple regular expressions: a pattern may use
// \w and escaped punctuation, nothing more.
std::string Quoted(const std::string &text)
{
   std::string out;
   for (char c : text) {
      if (std::string(".[](){}*+?|^$\\").find(c) != std::string::npos) {
         out += '\\';
      }
      out += c;
   }
   return out;
}

#if defined(_WIN32)
constexpr int kFirstPanicExit = -1;
#else
constexpr int kFirstPanicExit = 255;  // -1 as a POSIX exit status reads
#endif

const size_t kHuge = SIZE_MAX / 4;
#if defined(_WIN32)
const std::string kAllocatorNoise;
#else
const std::string kAllocatorNoise = ".*";  // AddressSanitizer's own line about the refusal
#endif
std::atomic<HashTable *> tableSlot{nullptr};

// The panic report takes the log's and the message facility's locks: made before lock
// creation breaks, as in any process that has logged, so that only the lock under test fails.
void MakeReportLocks()
{
   Log("\n");
   Msg_HasPending();
}

void FailNativeLock()
{
   MakeReportLocks();
   mxUserPlatform.initLock = [](PlatformMutex *, uint32_t) {
      Platform_SetLastError(5);
      return false;
   };
}

void DestroyHeldRecLock()
{
   MXUserRecLock *lock = MXUser_CreateRecLock("held", 5);
   MXUser_AcquireRecLock(lock);
   MXUserCondDestroyRecLock(lock);
}

void DestroyHeldExclLock()
{
   MXUserExclLock *lock = MXUser_CreateExclLock("taken", 0xF0007087);
   MXUser_AcquireExclLock(lock);
   MXUser_DestroyExclLock(lock);
}

std::string DumpOf(const char *function, const char *kind, const char *name,
                   const char *rank, bool recursive)
{
   return Quoted(std::string(function) + ": " + kind + " lock @ ") + "\\w+\n" +
          Quoted("\tsignature 0x") + "\\w+\n" + Quoted(std::string("\tname ") + name + "\n") +
          Quoted(std::string("\trank 0x") + rank + "\n") + "\tserial number \\w+\n" +
          (recursive ? "\treference count 0\n" : "") + "\tlock count 1\n" +
          "\taddress of owner data \\w+\n";
}

// A row's broken lock or converter would break the backtrace and the dump as well, which
// would panic once more; they have their own tests.
void WithoutDbgHelp()
{
#if defined(_WIN32)
   coreDumpPlatform.loadLibrary = [](const wchar_t *) { return HMODULE{}; };
#endif
}

TEST(PanicDeathTest, EveryTextExactly)
{
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   const std::string outOfMemory =
      Quoted("Unrecoverable memory allocation failure, " + std::to_string(kHuge) + " bytes attempted\n");
   const struct {
      std::function<void()> run;
      std::string want;  // a pattern; plain text goes through Quoted
   } rows[] = {
      {[] { SafeMalloc(kHuge); }, kAllocatorNoise + outOfMemory},
      {[] { SafeCalloc(1, kHuge); }, kAllocatorNoise + outOfMemory},
      {[] { FailNativeLock(); MXUser_CreateRecLock("r", 1); }, Quoted("MXUser_CreateRecLock: native lock initialization routine failed\n")},
      {[] { FailNativeLock(); MXUser_CreateExclLock("x", 1); }, Quoted("MXUser_CreateExclLock: native lock initialization routine failed\n")},
      {[] { MakeReportLocks(); mxUserPlatform.statsMode = [] { return 7; }; MXUser_CreateExclLock("x", 1); }, Quoted("MXUser_CreateExclLock: unknown stats mode: 7!\n")},
      {[] { mxUserNextSerialNumber = 0; MXUser_CreateRecLock("r", 1); }, Quoted("MXUserAllocSerialNumber: too many locks!\n")},
      {DestroyHeldRecLock, DumpOf("MXUserDumpRecLock", "Recursive", "held", "5", true) + Quoted("MXUserCondDestroyRecLock: Destroy of an acquired recursive lock\n")},
      {DestroyHeldExclLock, DumpOf("MXUserDumpExclLock", "Exclusive", "taken", "F0007087", false) + Quoted("MXUser_DestroyExclLock: Destroy of an acquired exclusive lock\n")},
      {[] { HashTable_AllocOnce(&tableSlot, 100, HASH_STRING_KEY, nullptr); }, Quoted("HashTable_Alloc only takes powers of 2 \n")},
      {[] { HashTable_Insert(HashTable_AllocOnce(&tableSlot, 16, 3, nullptr), "k", nullptr); }, Quoted("NOT_REACHED lib/misc/hashTable:146\n")},
      {[] { CodeSet_Validate("", 0x80000000u, "UTF-8"); }, Quoted("VERIFY lib/misc/codeset:1673\n")},
      {[] { DynBuf b; DynBuf_Init(&b); dontUseIcu = false; CodeSet_GenericToGeneric("UTF-8", "a", 1, "UTF-16LE", 3, &b); }, Quoted("NOT_IMPLEMENTED lib/misc/codeset:969\n")},
      {[] { Msg_Append("@&!*@*@(k)%*d", 1, 2); }, Quoted("MsgList_VAppend error: MsgFmt_GetArgs: error in format string\nformat <@&!*@*@(k)%*d>\n")},
      {[] { DictionaryAddEntry(Dictionary_Create(), SafeStrdup("n"), nullptr, 7, false, false); }, Quoted("NOT_REACHED lib/user/dictionary_core:835\n")},
      {[] { DictionaryGet(Dictionary_Create(), nullptr, 0x1007, "n"); }, Quoted("NOT_REACHED lib/user/dictionary_core:1322\n")},
      {[] { DictionaryValue v; DictionaryParseValue("n", "1", 0, nullptr, &v, nullptr); }, Quoted("NOT_REACHED lib/user/dictionary_core:361\n")},
      {[] { Unicode_EncodingEnumToName(999); }, Quoted("NOT_REACHED lib/unicode/unicodeSimpleTypes:3197\n")},
      {[] { Unicode_Substr("a\xC0\x80", 0, 1); }, Quoted("Unicode_Substr: invalid UTF8 string @ ") + "\\w+\n"},
      {[] { Unicode_FindSubstrInRange("a", 0, 1, "\xED\xA0\x80", 0, 1); }, Quoted("Unicode_FindSubstrInRange: invalid UTF8 string @ ") + "\\w+\n"},
      {[] { Unicode_FindLastSubstrInRange("\xF4\x90\x80\x80", 0, 1, "a", 0, 1); }, Quoted("Unicode_FindLastSubstrInRange: invalid UTF8 string @ ") + "\\w+\n"},
      {[] { Unicode_AllocWithLength("a\x82\xA0", 3, Unicode_EncodingNameToEnum("Shift_JIS")); }, Quoted("Unicode_AllocWithLength: Couldn't convert invalid buffer [a\\x82\\xa0] from Shift_JIS to Unicode.\n")},
#if defined(_WIN32)
      {[] { Win32U_FormatMessage(FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, 5, 0, nullptr); }, Quoted("VERIFY lib/misc/windowsu:934\n")},
      {[] { Win32U_FormatMessage(FORMAT_MESSAGE_FROM_STRING, "x", 0, 0, nullptr); }, Quoted("VERIFY lib/misc/windowsu:935\n")},
      {[] { static va_list some; Win32U_FormatMessage(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 0, &some); }, Quoted("VERIFY lib/misc/windowsu:936\n")},
      {[] { Win32U_FormatMessage(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, 1031, nullptr); }, Quoted("VERIFY lib/misc/windowsu:938\n")},
      {[] { char b[2]; Win32U_GetTempPath(sizeof b, b); }, Quoted("VERIFY lib/misc/win32u:1598\n")},
      {[] { char b[1]; DWORD n = 1; Win32U_GetUserName(b, &n); }, Quoted("VERIFY lib/misc/win32u:1981\n")},
#endif
   };
   for (const auto &r : rows) {
      EXPECT_EXIT((WithoutDbgHelp(), r.run()), testing::ExitedWithCode(kFirstPanicExit),
                  "^" + r.want + "$");
   }
}

// The debugger channel, watched through the seam: each text shows there too.
void WatchDebugger()
{
   panicPlatform.debugOutput = [](const char *text) {
      Platform_WriteStderr("[debugger]");
      Platform_WriteStderr(text);
   };
}

// Ending the process panics again, `times` times, before the real exit.
template <int times>
void PanicWhileEnding()
{
   panicPlatform.terminate = [](int code) {
      static int calls = 0;
      if (calls < times) {
         const char *texts[] = {"two\n", "three\n", "four\n"};
         Panic("%s", texts[calls++]);
      }
      Platform_TerminateProcess(code);
   };
}

TEST(PanicDeathTest, ExitCodesAndChannels)
{
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   const std::string cut(1023, 'x');
   const struct {
      std::function<void()> setUp;
      const char *format;
      std::string argument;
      int exitCode;
      std::string want;
   } rows[] = {
      {[] {}, "one\n", "", kFirstPanicExit, "one\n"},
      {[] {}, "%s", std::string(2000, 'x'), kFirstPanicExit, cut},
      {WatchDebugger, "one %s\n", "\xC3\xA9", kFirstPanicExit, "one \xC3\xA9\n[debugger]one \xC3\xA9\n"},
      {PanicWhileEnding<1>, "one\n", "", 1, "one\ntwo\nPanic loop\n"},
      {PanicWhileEnding<2>, "one\n", "", 1, "one\ntwo\nPanic loop\nthree\nPanic loop\n"},
      {[] { PanicWhileEnding<1>(); Log_SetLevels(0, 5, 1); }, "one\n", "", 1, "one\nPANIC: one\ntwo\nPANIC: two\nPanic loop\nPanic loop\n"},
#if defined(_WIN32)
      {[] { coreDumpPlatform.commitSetting = []() -> bool { Panic("in dump\n"); }; }, "one\n", "", 1, "one\nin dump\nPanic loop\n"},
#endif
   };
   for (const auto &r : rows) {
      EXPECT_EXIT((r.setUp(), Panic(r.format, r.argument.c_str())), testing::ExitedWithCode(r.exitCode),
                  "^" + Quoted(r.want) + "$");
   }
}

TEST(SafeAllocators, CopiesStopAtTheLimitOrTheTerminator)
{
   for (auto [text, limit, want] : {std::tuple{"abcdef", 3, "abc"}, {"ab", 10, "ab"}}) {
      char *s = SafeStrndup(text, limit);
      EXPECT_STREQ(s, want);
      free(s);
   }
   EXPECT_EQ(SafeStrndup(nullptr, 4), nullptr);
   free(SafeCalloc(0, kHuge));  // a zero count is no failure, whatever the C library gives
}

} // namespace
