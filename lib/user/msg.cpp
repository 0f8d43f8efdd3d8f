#include "user/msg.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "misc/hashTable.h"
#include "misc/log.h"
#include "misc/mxuser.h"
#include "misc/panic.h"
#include "misc/platform.h"
#include "misc/productState.h"
#include "string/str.h"
#include "user/dictionary_core.h"
#include "user/preference.h"
#if defined(_WIN32)
#include "misc/win32u.h"
#endif

namespace {

constexpr char kMessagePrefix[] = "@&!*@*@(";
constexpr size_t kKeySize = 128;
constexpr const char *kOkButton = "@&!*@*@(button.ok)OK";

#if defined(_WIN32)
char *MsgSystemErrorText(int32_t code)
{
   return Win32U_FormatMessage(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                               nullptr, static_cast<DWORD>(code), 1024, nullptr);
}
#else
// Without a display the box becomes text on the standard error stream.
int MsgWriteMessageBox(MsgOwnerWindow, const char *text, const char *caption, unsigned)
{
   Platform_WriteStderr(caption);
   Platform_WriteStderr("\n");
   Platform_WriteStderr(text);
   return 1;
}

char *MsgSystemErrorText(int32_t) { return nullptr; }
#endif

void MsgWriteOut(const char *text)
{
   fputs(text, stdout);
   fflush(stdout);
}

char *MsgReadLine(char *buffer, int size) { return fgets(buffer, size, stdin); }

} // namespace

#if defined(_WIN32)
MsgPlatform msgPlatform = {Win32U_MessageBox, MsgSystemErrorText, MsgWriteOut, MsgReadLine};
#else
MsgPlatform msgPlatform = {MsgWriteMessageBox, MsgSystemErrorText, MsgWriteOut, MsgReadLine};
#endif

namespace {

struct MsgThreadState {
   MsgCallbacks callbacks;
   MsgList *head;   // the pending messages
   MsgList **tail;  // the link behind the last of them
};

struct MsgState {
   MsgCallbacks callbacks;
   Dictionary *dictionary;
};

void MsgDefaultPost(int type, const char *id, const char *text);
int MsgDefaultQuestion(const char *const *buttons, int count, int defaultAnswer, const char *id,
                       const char *text);
bool MsgDefaultProgress(const char *id, const char *text, int percent, bool cancelButton);
bool MsgDefaultHint(const char *id, const char *text);

std::atomic<MXUserRecLock *> msgLock{nullptr};
std::atomic<HashTable *> threadStates{nullptr};
MsgState msgState = {
   {MsgDefaultPost, MsgDefaultQuestion, MsgDefaultProgress, MsgDefaultHint, {}, nullptr, {},
    nullptr, nullptr},
   nullptr,
};

bool MsgIsMessageString(const char *text)
{
   return text != nullptr && strncmp(text, kMessagePrefix, sizeof kMessagePrefix - 1) == 0 &&
          strchr(text + sizeof kMessagePrefix - 1, ')') != nullptr;
}

const char *MsgTitle(int type)
{
   switch (type) {
   case MSG_INFO:
   case MSG_INFO_TIMEOUT:
      return "@&!*@*@(msg.msg.info)Information";
   case MSG_WARNING:
      return "@&!*@*@(msg.msg.warning)Warning";
   case MSG_ERROR:
      return "@&!*@*@(msg.msg.error)Error";
   case MSG_CONFIG_EDITOR:
      return "@&!*@*@(msg.msg.configEditor)Configuration editor";
   case MSG_HOME_PAGE_INFO:
      return "@&!*@*@(msg.msg.homePageInfo)Home page information";
   default:
      return "";
   }
}

// Hot keys are marked with an underscore; a doubled one stands for itself.
char *MsgStripUnderscores(const char *text)
{
   char *out = SafeStrdup(text);
   size_t n = 0;
   for (const char *p = text; *p != '\0'; p++) {
      if (*p == '_') {
         if (p[1] != '_') {
            continue;
         }
         p++;
      }
      out[n++] = *p;
   }
   out[n] = '\0';
   return out;
}

void MsgBufferAppend(DynBuf *buffer, const char *bytes, size_t length)
{
   if (!DynBuf_Append(buffer, bytes, length)) {
      Panic("Unrecoverable memory allocation failure, %I64u bytes attempted\n",
            static_cast<uint64_t>(buffer->size + length));
   }
}

// Shows the text on the console and reads the number of a choice until a valid one comes.
int MsgAskOnConsole(const char *title, const char *text, const char *const *buttons, int count)
{
   char *head = Str_SafeAsprintf(nullptr, "\n\n%s %s:\n%s\n", ProductState_GetName(),
                                 MsgLocalize(title, msgState.dictionary, nullptr), text);
   msgPlatform.writeOut(head);
   free(head);
   for (int i = 0; i < count; i++) {
      char *plain = MsgStripUnderscores(MsgLocalize(buttons[i], msgState.dictionary, nullptr));
      char *line = Str_SafeAsprintf(nullptr, "%d) %s\n", i, plain);
      msgPlatform.writeOut(line);
      free(line);
      free(plain);
   }
   char *prompt = Str_SafeAsprintf(
      nullptr,
      MsgLocalize("@&!*@*@(msg.msg.chooseNumber)Select a number from 0-%d: ",
                  msgState.dictionary, nullptr),
      count - 1);
   int answer = -1;
   for (char line[64]; answer < 0;) {
      msgPlatform.writeOut(prompt);
      if (msgPlatform.readLine(line, sizeof line) == nullptr) {
         break;  // no console to answer: nothing chosen
      }
      char *end;
      long number = strtol(line, &end, 10);
      if (end != line && end[strspn(end, " \t\r\n")] == '\0' && number >= 0 && number < count) {
         answer = static_cast<int>(number);
      }
   }
   free(prompt);
   return answer;
}

void MsgDefaultPost(int type, const char *, const char *text)
{
   char *caption = Str_SafeAsprintf(nullptr, "%s %s", ProductState_GetName(),
                                    MsgLocalize(MsgTitle(type), msgState.dictionary, nullptr));
   msgPlatform.messageBox(nullptr, text, caption, 0);
   free(caption);
}

int MsgDefaultQuestion(const char *const *buttons, int count, int, const char *,
                       const char *text)
{
   return MsgAskOnConsole("@&!*@*@(msg.msg.question)Question", text, buttons, count);
}

bool MsgDefaultProgress(const char *, const char *text, int percent, bool)
{
   static char shown[128];
   Str_Snprintf(shown, sizeof shown, "%.*s (%d%%)", 64, text, percent);
   char line[96];
   Str_Snprintf(line, sizeof line, "\r%-*.*s", 79, 79, shown);
   msgPlatform.writeOut(line);
   return true;
}

bool MsgDefaultHint(const char *, const char *text)
{
   const char *const buttons[] = {kOkButton, "@&!*@*@(button.cancel)Cancel"};
   return MsgAskOnConsole("@&!*@*@(msg.msg.hint)Hint", text, buttons, 2) == 0;
}

// Takes msgLock, making it on first use.
MXUserRecLock *MsgLock()
{
   MXUserRecLock *lock = MXUser_CreateSingletonRecLock(&msgLock, "msgLock", 0xFEFFFFFF);
   MXUser_AcquireRecLock(lock);
   return lock;
}

void MsgThreadStateDestroy(void *clientData)
{
   auto *thread = static_cast<MsgThreadState *>(clientData);
   MsgList_Free(thread->head);
   thread->head = nullptr;
   free(thread);
}

// The calling thread's state, made on demand; under msgLock.
MsgThreadState *MsgGetThreadState(bool create)
{
   HashTable *table = HashTable_AllocOnce(&threadStates, 128, HASH_INT_KEY | HASH_FLAG_ATOMIC,
                                          MsgThreadStateDestroy);
   auto *key = reinterpret_cast<const void *>(static_cast<uintptr_t>(Platform_ThreadId()));
   void *found = nullptr;
   if (HashTable_Lookup(table, key, &found) || !create) {
      return static_cast<MsgThreadState *>(found);
   }
   auto *thread = static_cast<MsgThreadState *>(SafeCalloc(1, sizeof(MsgThreadState)));
   thread->tail = &thread->head;
   HashTable_Insert(table, key, thread);
   return thread;
}

MsgCallbacks MsgThreadCallbacks(const MsgThreadState *thread)
{
   MsgCallbacks merged = msgState.callbacks;
   const MsgCallbacks &own = thread->callbacks;
   merged.post = own.post != nullptr ? own.post : merged.post;
   merged.question = own.question != nullptr ? own.question : merged.question;
   merged.progress = own.progress != nullptr ? own.progress : merged.progress;
   merged.hint = own.hint != nullptr ? own.hint : merged.hint;
   merged.beforePost = own.beforePost != nullptr ? own.beforePost : merged.beforePost;
   merged.onPost = own.onPost != nullptr ? own.onPost : merged.onPost;
   return merged;
}

const char *MsgTranslation(Dictionary *dictionary, const char *key)
{
   if (dictionary == nullptr || !DictionaryContains(dictionary, key)) {
      return nullptr;
   }
   return DictionaryGet(dictionary, nullptr, DictionaryTypeString, key)->text;
}

MsgList *MsgListCreate(const char *format, ...)
{
   va_list args;
   va_start(args, format);
   MsgList *node = MsgList_VCreate(format, args);
   va_end(args);
   return node;
}

void MsgAppendV(const char *format, va_list args)
{
   MXUserRecLock *lock = MsgLock();
   MsgThreadState *thread = MsgGetThreadState(true);
   MXUser_ReleaseRecLock(lock);
   // Only this thread appends to its own list, so the nodes need no lock.
   MsgList_VAppend(thread->tail, format, args);
   while (*thread->tail != nullptr) {
      thread->tail = &(*thread->tail)->next;
   }
}

// The whole list's text, built under msgLock since the dictionary is the facility's.
char *MsgFormatListLocked(MsgList *list)
{
   DynBuf buffer;
   DynBuf_Init(&buffer);
   MXUserRecLock *lock = MsgLock();
   MsgFormatList(list, msgState.dictionary, &buffer);
   MXUser_ReleaseRecLock(lock);
   return DynBuf_Detach(&buffer);
}

} // namespace

void Msg_GetCallbacks(MsgCallbacks *callbacks)
{
   MXUserRecLock *lock = MsgLock();
   *callbacks = msgState.callbacks;
   MXUser_ReleaseRecLock(lock);
}

void Msg_SetCallbacks(const MsgCallbacks *callbacks)
{
   MXUserRecLock *lock = MsgLock();
   msgState.callbacks = *callbacks;
   MXUser_ReleaseRecLock(lock);
}

void Msg_SetThreadCallbacks(const MsgCallbacks *callbacks)
{
   MXUserRecLock *lock = MsgLock();
   MsgGetThreadState(true)->callbacks = *callbacks;
   MXUser_ReleaseRecLock(lock);
}

void Msg_SetDictionary(Dictionary *dictionary)
{
   MXUserRecLock *lock = MsgLock();
   msgState.dictionary = dictionary;
   MXUser_ReleaseRecLock(lock);
}

bool Msg_HasPending()
{
   MXUserRecLock *lock = MsgLock();
   MsgThreadState *thread = MsgGetThreadState(false);
   bool pending = thread != nullptr && thread->head != nullptr;
   MXUser_ReleaseRecLock(lock);
   return pending;
}

void Msg_CallPrePostHook()
{
   MXUserRecLock *lock = MsgLock();
   MsgHookFunc hook = msgState.callbacks.prePostHook;
   MXUser_ReleaseRecLock(lock);
   if (hook != nullptr) {
      hook();
   }
}

void Msg_Append(const char *format, ...)
{
   va_list args;
   va_start(args, format);
   MsgAppendV(format, args);
   va_end(args);
}

void Msg_Post(int type, const char *format, ...)
{
   va_list args;
   va_start(args, format);
   MsgAppendV(format, args);
   va_end(args);

   MXUserRecLock *lock = MsgLock();
   MsgThreadState *thread = MsgGetThreadState(true);
   MsgCallbacks callbacks = MsgThreadCallbacks(thread);
   MsgList *list = thread->head;
   thread->head = nullptr;
   thread->tail = &thread->head;
   const MsgList *last = list;
   while (last->next != nullptr) {
      last = last->next;
   }
   char id[kKeySize];
   Str_Snprintf(id, sizeof id, "%s", last->id);
   const char *title = MsgLocalize(MsgTitle(type), msgState.dictionary, nullptr);
   Log("%s:%s%s\n", "Msg_Post", title[0] != '\0' ? " " : "", title);
   MsgList_Log(list);
   Log("----------------------------------------\n");
   MXUser_ReleaseRecLock(lock);

   if (callbacks.onPost != nullptr) {
      callbacks.onPost(type, list);
   }
   if (MsgIsAnswered(id)) {
      MsgList_Free(list);
      return;
   }
   if (type != MSG_ERROR && Preference_GetBool(false, "msg.noOK")) {
      if (!Preference_GetBool(false, "msg.noOKnoWarning")) {
         char *text = MsgFormatListLocked(list);
         Warning("MSG: %s\n", text);
         free(text);
      }
      MsgList_Free(list);
      return;
   }
   if (callbacks.beforePost != nullptr) {
      callbacks.beforePost(type, list);
   }
   if (callbacks.post != nullptr) {
      char *text = MsgFormatListLocked(list);
      callbacks.post(type, id, text);
      free(text);
   }
   MsgList_Free(list);
}

bool MsgIsAnswered(const char *id)
{
   char *setting = Str_SafeAsprintf(nullptr, "answer.%s", id);
   char *answer = Preference_GetString(nullptr, setting);
   free(setting);
   const char *okText = MsgLocalize(kOkButton, msgState.dictionary, nullptr);
   bool answered = false;
   if (answer != nullptr) {
      char *given = MsgStripUnderscores(answer);
      char *ok = MsgStripUnderscores(okText);
      answered = strcasecmp(given, ok) == 0;
      free(given);
      free(ok);
      if (answered) {
         Log("%s: Using config default '%s' as the answer for '%s'\n", "MsgIsAnswered", answer,
             id);
      }
      free(answer);  // any other answer is no answer: the message is shown
   }
   if (!answered && Preference_GetBool(false, "msg.autoAnswer")) {
      Log("%s: Using builtin default '%s' as the answer for '%s'\n", "MsgIsAnswered", okText,
          id);
      answered = true;
   }
   return answered;
}

MsgList *MsgList_VCreate(const char *format, va_list args)
{
   if (!MsgIsMessageString(format)) {
      return MsgListCreate("@&!*@*@(msg.literal)%s", format);
   }
   const char *key = format + sizeof kMessagePrefix - 1;
   const char *close = strchr(key, ')');
   auto *node = static_cast<MsgList *>(SafeCalloc(1, sizeof(MsgList)));
   node->id = SafeStrndup(key, static_cast<size_t>(close - key));
   node->format = SafeStrdup(close + 1);
   char *error = nullptr;
   if (!MsgFmt_GetArgs(node->format, args, &node->args, &node->numArgs, &error)) {
      Panic("%s error: %s\nformat <%s>\n", "MsgList_VAppend", error, format);
   }
   return node;
}

void MsgList_VAppend(MsgList **listHead, const char *format, va_list args)
{
   if (!MsgIsMessageString(format)) {
      MsgList_Append(listHead, "@&!*@*@(msg.literal)%s", format);
      return;
   }
   if (listHead == nullptr) {
      return;
   }
   MsgList *node = MsgList_VCreate(format, args);
   node->next = *listHead;
   *listHead = node;
}

void MsgList_Append(MsgList **listHead, const char *format, ...)
{
   va_list args;
   va_start(args, format);
   MsgList_VAppend(listHead, format, args);
   va_end(args);
}

void MsgList_Log(const MsgList *list)
{
   for (const MsgList *node = list; node != nullptr; node = node->next) {
      size_t length = 0;
      char *text = MsgFmt_Format(node->format, node->args, node->numArgs, &length);
      Log("[%s] %s%s", node->id, text != nullptr ? text : node->format,
          text != nullptr && length > 0 && text[length - 1] == '\n' ? "" : "\n");
      free(text);
   }
}

void MsgList_Free(MsgList *list)
{
   while (list != nullptr) {
      MsgList *next = list->next;
      free(list->id);
      free(list->format);
      MsgFmt_FreeArgs(list->args, list->numArgs);
      free(list);
      list = next;
   }
}

const char *MsgLocalize(const char *message, Dictionary *dictionary, char *keyBuffer)
{
   if (!MsgIsMessageString(message)) {
      return message;
   }
   const char *key = message + sizeof kMessagePrefix - 1;
   const char *close = strchr(key, ')');
   if (dictionary == nullptr && keyBuffer == nullptr) {
      return close + 1;
   }
   char local[kKeySize];
   char *copy = keyBuffer != nullptr ? keyBuffer : local;
   size_t length = static_cast<size_t>(close - key) < kKeySize - 1 ? close - key : kKeySize - 1;
   memcpy(copy, key, length);
   copy[length] = '\0';
   const char *translated = MsgTranslation(dictionary, copy);
   return translated != nullptr ? translated : close + 1;
}

void MsgFormatList(MsgList *list, Dictionary *dictionary, DynBuf *buffer)
{
   for (MsgList *node = list; node != nullptr; node = node->next) {
      const char *translated = MsgTranslation(dictionary, node->id);
      const char *format = translated != nullptr ? translated : node->format;
      for (int i = 0; i < node->numArgs; i++) {
         MsgFmtArg *arg = &node->args[i];
         if (arg->type == MSGFMT_ARG_STRING8 && MsgIsMessageString(arg->v.string8)) {
            char key[kKeySize];
            const char *text = MsgLocalize(arg->v.string8, dictionary, key);
            arg->p.localized =
               strncmp(key, "button.", 7) == 0 ? MsgStripUnderscores(text) : SafeStrdup(text);
         } else if (arg->type == MSGFMT_ARG_ERRNO) {
            arg->p.localized = msgPlatform.systemErrorText(arg->e.code);
            if (arg->p.localized == nullptr && dictionary != nullptr) {
               bool windows = arg->e.platform == kMsgFmtPlatformWindows;
               const char *shape = MsgLocalize(
                  windows ? "@&!*@*@(msg.msg.systemErrorWindows)Error %d (0x%x) [%s]"
                          : "@&!*@*@(msg.msg.systemError)Error %d [%s]",
                  dictionary, nullptr);
               arg->p.localized =
                  windows ? Str_SafeAsprintf(nullptr, shape, arg->e.code, arg->e.code,
                                             arg->v.string8)
                          : Str_SafeAsprintf(nullptr, shape, arg->e.code, arg->v.string8);
            }
         }
      }
      size_t length = 0;
      char *text = MsgFmt_Format(format, node->args, node->numArgs, &length);
      if (text == nullptr) {
         Panic("VERIFY %s:%d\n", "lib/user/msg", __LINE__);
      }
      for (int i = 0; i < node->numArgs; i++) {
         if (node->args[i].type == MSGFMT_ARG_STRING8 || node->args[i].type == MSGFMT_ARG_ERRNO) {
            free(node->args[i].p.localized);
            node->args[i].p.localized = nullptr;
         }
      }
      MsgBufferAppend(buffer, text, length);
      if (length > 0 && text[length - 1] != '\n') {
         MsgBufferAppend(buffer, "\n", 1);
      }
      free(text);
   }
   MsgBufferAppend(buffer, "", 1);
}
