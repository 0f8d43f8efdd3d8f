// A thread's messages posted at once through the callback table, with their log lines; the
// default post as a message box (through the platform seam, never shown); translations,
// system errors and the console defaults.

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "misc/errText.h"
#include "misc/log.h"
#include "string/str.h"
#include "user/dictionary_core.h"
#include "user/msg.h"
#if defined(_WIN32)
#include "misc/win32u.h"
#endif

namespace {

std::vector<std::string> trace;

std::vector<std::string> RingTail(size_t count)
{
   std::vector<std::string> texts;
   Log_ForEachRingRecord([](const LogHeader *, const char *text, size_t length, void *to) {
      static_cast<std::vector<std::string> *>(to)->emplace_back(text, length);
   }, &texts);
   return std::vector<std::string>(texts.end() - count, texts.end());
}

TEST(Msg, PostShowsTheWholeListInOrder)
{
   MsgCallbacks mine = {};
   mine.post = [](int type, const char *id, const char *text) {
      trace.push_back("post " + std::to_string(type) + " " + id + " " + text);
   };
   mine.onPost = [](int, MsgList *list) { trace.push_back(std::string("first ") + list->id); };
   mine.beforePost = [](int, MsgList *) { trace.push_back("before"); };
   Msg_SetThreadCallbacks(&mine);
   Msg_Append("@&!*@*@(t.one)One %d", 1);
   Msg_Append("plain 100%");
   EXPECT_TRUE(Msg_HasPending());
   Msg_Post(MSG_WARNING, "@&!*@*@(t.last)Last %s\n", "x");
   EXPECT_FALSE(Msg_HasPending());
   EXPECT_EQ(trace, std::vector<std::string>({"first t.one", "before",
                                              "post 2 t.last One 1\nplain 100%\nLast x\n"}));
   EXPECT_EQ(RingTail(8), std::vector<std::string>({
      "Msg_Post: Warning\n", "[t.one] One 1\n", "[msg.literal] plain 100%\n",
      "[t.last] Last x\n", "----------------------------------------\n",
      "PREF early PreferenceGet(answer.t.last), using default\n",
      "PREF early PreferenceGet(msg.autoAnswer), using default\n",
      "PREF early PreferenceGet(msg.noOK), using default\n"}));
   mine = {};
   Msg_SetThreadCallbacks(&mine);
}

TEST(Msg, DefaultPostIsTheMessageBox)
{
#if defined(_WIN32)
   EXPECT_EQ(msgPlatform.messageBox, &Win32U_MessageBox);
#endif
   msgPlatform.messageBox = [](MsgOwnerWindow owner, const char *text, const char *caption,
                               unsigned style) {
      trace.push_back(std::string(caption) + "|" + text + "|" + (owner ? "owner" : "none") +
                      "|" + std::to_string(style));
      return 1;
   };
   trace.clear();
   Msg_Append("@&!*@*@(t.what)Copying %s", "a.txt");
   Msg_Post(MSG_ERROR, "@&!*@*@(t.err)Failed: %d", 5);
   EXPECT_EQ(trace, std::vector<std::string>({"Corvane Vantora Error|Copying a.txt\nFailed: 5\n|none|0"}));
   EXPECT_EQ(RingTail(1)[0], "PREF early PreferenceGet(msg.autoAnswer), using default\n");
}

TEST(Msg, TranslationsAndSystemErrors)
{
   Dictionary *d = Dictionary_Create();
   for (auto [name, text] : {std::pair{"t.greet", "Hallo %s"},
                             {"msg.msg.systemErrorWindows", "Fehler %d (0x%x) [%s]"}}) {
      DictionaryAddEntry(d, const_cast<char *>(name), &text, DictionaryTypeAny, false, true);
   }
   MsgFmt_SetErrorStringTest(
      [](const char *text, int32_t *code) { *code = 10; return strcmp(text, "access denied") == 0; });
   msgPlatform.systemErrorText = [](int32_t) -> char * { return nullptr; };
   MsgList *list = nullptr;
   MsgList_Append(&list, "@&!*@*@(t.greet)Hello %s", "@&!*@*@(button.ok)_O__K");
   MsgList_Append(&list->next, "@&!*@*@(t.err)Cannot: %s", "access denied");
   MsgFmt_SetErrorStringTest(ErrText_IsKnown);
   for (Dictionary *translations : {d, static_cast<Dictionary *>(nullptr)}) {
      DynBuf text;
      DynBuf_Init(&text);
      MsgFormatList(list, translations, &text);
      EXPECT_STREQ(text.data, translations != nullptr
                                 ? "Hallo O_K\nCannot: Fehler 10 (0xa) [access denied]\n"
                                 : "Hello O_K\nCannot: access denied\n");
      DynBuf_Destroy(&text);
   }
   char key[128];
   EXPECT_STREQ(MsgLocalize("@&!*@*@(t.greet)Hi", d, key), "Hallo %s");
   EXPECT_STREQ(key, "t.greet");
   MsgList_Free(list);
   Dictionary_Free(d);
}

std::deque<std::string> input;
std::string output;

TEST(Msg, ConsoleDefaults)
{
   MsgCallbacks defaults;
   Msg_GetCallbacks(&defaults);
   msgPlatform.writeOut = [](const char *text) { output += text; };
   msgPlatform.readLine = [](char *buffer, int size) -> char * {
      if (input.empty()) {
         return nullptr;
      }
      Str_Snprintf(buffer, size, "%s", input.front().c_str());
      input.pop_front();
      return buffer;
   };
   const char *const buttons[] = {"@&!*@*@(button.yes)_Yes", "@&!*@*@(button.no)_No"};
   const std::string head = "\n\nCorvane Vantora ";
   const std::string ask = "Select a number from 0-1: ";
   const struct {
      std::function<int()> call;
      std::deque<std::string> lines;
      int answer;
      std::string shown;
   } rows[] = {
      {[&] { return defaults.question(buttons, 2, 0, "q", "Go on?"); }, {"x\n", "2\n", "1 \n"}, 1, head + "Question:\nGo on?\n0) Yes\n1) No\n" + ask + ask + ask},
      {[&] { return int{defaults.hint("h", "Tip")}; }, {}, 0, head + "Hint:\nTip\n0) OK\n1) Cancel\n" + ask},
      {[&] { return int{defaults.progress("p", "Copying", 42, false)}; }, {}, 1, "\rCopying (42%)" + std::string(66, ' ')},
   };
   for (const auto &r : rows) {
      input = r.lines;
      output.clear();
      EXPECT_EQ(r.call(), r.answer);
      EXPECT_EQ(output, r.shown);
   }
}

} // namespace
