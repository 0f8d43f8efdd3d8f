// The log's filters, mask and cut at whole characters, the ring and its replay to the
// outputs, the standard error side and the last error it keeps.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "misc/log.h"
#include "misc/platform.h"
#include "misc/vthread.h"

namespace {

struct Record {
   std::string level, thread, time, text;
   int continuation;
};

std::vector<Record> Ring()
{
   std::vector<Record> records;
   Log_ForEachRingRecord([](const LogHeader *h, const char *text, size_t length, void *to) {
      static_cast<std::vector<Record> *>(to)->push_back(
         {h->levelRow->name, h->threadName, h->time, std::string(text, length), h->continuation});
   }, &records);
   return records;
}

std::string e2(int n) { std::string s; while (n-- > 0) s += "\xC3\xA9"; return s; }

TEST(Log, FiltersMaskAndCut)
{
   logPlatform.utcTime = [](LogUtcTime *t) { *t = {2024, 2, 29, 23, 59, 58, 7}; };
   const struct {
      uint32_t word;
      std::string text, want;  // "-": nothing logged
   } rows[] = {
      {5, "a", "a\n"}, {5, "", "\n"}, {3, "b\n", "b\n"},
      {5, "qzx QZX qZx", "*** *** ***\n"}, {5, "qzqzx qz", "qz*** qz\n"},
      {6, "verbose", "-"}, {26, "beyond the table", "-"},
      {0 | 7 << LOG_MODULE_SHIFT, "audit", "audit\n"},
      {5 | 1 << LOG_MODULE_SHIFT, "module 1", "-"},
      {5 | 315 << LOG_MODULE_SHIFT, "module 315", "module 315\n"},
      {5, std::string(318, 'x'), std::string(318, 'x') + "\n"},
      {5, std::string(400, 'y'), std::string(400, 'y') + "\n"},
      {5, "ab" + e2(20000), "ab" + e2(16381) + "\n"},
      {5, "ab" + e2(16382), "ab" + e2(16381) + "\n"},
   };
   for (const auto &r : rows) {
      Log("sentinel\n");
      LogAt(r.word, "%s", r.text.c_str());
      std::string got = Ring().back().text;
      EXPECT_EQ(got == "sentinel\n" ? "-" : got, r.want) << r.word << " " << r.text.size();
   }
   Record last = Ring().back();
   EXPECT_EQ(last.level + " " + last.thread + " " + last.time,
             std::string("info ") + VThread_CurName() + " 2024-02-29T23:59:58.007Z");
}

TEST(Log, CutAtWholeCharacters)
{
   const struct { std::string text; size_t size; std::string want; } rows[] = {
      {"abcdef", 5, "abc\n"}, {"ab\xC3\xA9x", 5, "ab\n"}, {"abc\xC3\xA9", 5, "ab\n"},
      {"\xE2\x82\xAC", 3, "\n"}, {"a\xF0\x9F\x98\x80", 6, "a\n"}, {"ab", 2, "\n"},
   };
   for (const auto &r : rows) {
      std::string buffer = r.text + std::string(8, '\0');
      size_t length = LogCutAtWholeCharacter(buffer.data(), r.size);
      EXPECT_EQ(buffer.substr(0, length + 1), r.want + '\0') << r.text;
   }
}

TEST(Log, RingKeepsTheNewestRecords)
{
   Log("first\n");
   for (int i = 0; i < 450; i++) {  // each record takes at least 148 bytes
      Log("%d\n", i);
   }
   std::vector<Record> ring = Ring();
   int expected = 450 - static_cast<int>(ring.size());
   EXPECT_GT(expected, 0);
   for (const Record &r : ring) {
      EXPECT_EQ(r.text, std::to_string(expected++) + "\n");
   }
   // A record that would take the ring's last free byte (of 65536) makes room first.
   const auto freeBytes = [] {
      size_t used = 0;
      for (const Record &r : Ring()) used += 2 + sizeof(LogHeader) + r.text.size();
      return 65536 - used;
   };
   while (freeBytes() < sizeof(LogHeader) + 3) {
      Log("f\n");
   }
   const size_t records = Ring().size();
   Log("%s\n", std::string(freeBytes() - sizeof(LogHeader) - 3, 'x').c_str());
   EXPECT_EQ(Ring().size(), records);
}

std::vector<std::string> seen;

void Write(LogOutput *output, const LogHeader *header, size_t length, const char *text)
{
   if (output->path != nullptr && seen.empty()) {
      Log("from the output\n");  // nested: kept in the ring, not sent back to the outputs
   }
   seen.push_back(std::string(output->path != nullptr ? "file " : "line ") +
                  std::to_string(header->continuation) + " " + std::string(text, length));
}

TEST(Log, OutputsTakeTheRingFirstThenEachMessage)
{
   auto notify = [](LogOutput *o) { seen.push_back(o->path != nullptr ? "file!" : "line!"); };
   LogOutput file = {kLogFileOutputKind, true, 5, Write, notify, "C:\\vtr.log"};
   LogOutput lines = {0, false, 3, Write, notify, nullptr};
   Log("before\n");
   ASSERT_TRUE(Log_AttachOutput(&lines));
   ASSERT_TRUE(Log_AttachOutput(&file));
   Warning("a\nb\n");
   Log("c\n");
   std::vector<std::string> tail(seen.end() - 6, seen.end());
   EXPECT_EQ(tail, std::vector<std::string>({"file 0 before\n", "file 0 from the output\n",
                                             "file 0 a\nb\n", "line 0 a\n", "line 1 b\n",
                                             "file 0 c\n"}));
   EXPECT_TRUE(Ring().empty());
   EXPECT_STREQ(LogGetFilePath(), "C:\\vtr.log");
   seen.clear();
   LogNotifyPanic();
   EXPECT_EQ(seen, std::vector<std::string>({"line!", "file!"}));
   Log_DetachOutput(&file);
   Log_DetachOutput(&lines);
   EXPECT_EQ(LogGetFilePath(), nullptr);
}

std::string stderrSide;

TEST(Log, KeepsTheLastErrorAndWritesStderrByLevel)
{
   logPlatform.writeStderr = [](const char *text) { stderrSide += text; };
   logPlatform.debugOutput = [](const char *text) { stderrSide += "[debugger]" + std::string(text); };
   Log_SetLevels(0, 5, 3);
   Platform_SetLastError(1234);
   Log("info\n");
   Warning("warn\n");
   EXPECT_EQ(Platform_GetLastError(), 1234u);
   EXPECT_EQ(stderrSide, "warn\n[debugger]warn\n");
   Log_SetLevels(0, 5, -1);
}

} // namespace
