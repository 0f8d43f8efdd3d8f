#pragma once
// Messages for a person. Each has a key that a dictionary can translate and its arguments
// kept apart from its text: "@&!*@*@(key)default text". A thread collects messages and
// posts them all at once through a table of callbacks; the default post shows a message
// box. Text without the key form is shown as it stands.

#include <cstdarg>
#include <cstdint>

#include "misc/dynbuf.h"
#include "misc/msgfmt.h"

#if defined(_WIN32)
#include <windows.h>
typedef HWND MsgOwnerWindow;
#else
typedef void *MsgOwnerWindow;
#endif

struct Dictionary;

struct MsgList {
   MsgList *next;
   char *id;      // the key
   char *format;  // the default text
   MsgFmtArg *args;
   int numArgs;
};

enum {
   MSG_INFO = 0,
   MSG_INFO_TIMEOUT = 1,
   MSG_WARNING = 2,
   MSG_ERROR = 3,
   MSG_CONFIG_EDITOR = 4,
   MSG_HOME_PAGE_INFO = 8,
};

typedef void (*MsgPostFunc)(int type, const char *id, const char *text);
// The index of the chosen button, or -1 when no answer can be had.
typedef int (*MsgQuestionFunc)(const char *const *buttons, int count, int defaultAnswer,
                               const char *id, const char *text);
typedef bool (*MsgProgressFunc)(const char *id, const char *text, int percent,
                                bool cancelButton);
typedef bool (*MsgHintFunc)(const char *id, const char *text);  // true for OK
typedef void (*MsgListFunc)(int type, MsgList *list);
typedef void (*MsgHookFunc)();

// Fourteen slots; a thread's non-empty slot overrides the process's, except the pre-post
// hook. Slots 4 to 6 and 8 to 11 have no use in this system.
struct MsgCallbacks {
   MsgPostFunc post;          // 0
   MsgQuestionFunc question;  // 1
   MsgProgressFunc progress;  // 2
   MsgHintFunc hint;          // 3
   void (*unused4[3])();
   MsgListFunc beforePost;    // 7: with the list, just before the post
   void (*unused8[4])();
   MsgHookFunc prePostHook;   // 12: the panic path's, before its post
   MsgListFunc onPost;        // 13: first of all in Msg_Post
};

void Msg_GetCallbacks(MsgCallbacks *callbacks);
void Msg_SetCallbacks(const MsgCallbacks *callbacks);
void Msg_SetThreadCallbacks(const MsgCallbacks *callbacks);
// Translations, looked up by key; none unless one is set. The caller keeps it alive.
void Msg_SetDictionary(Dictionary *dictionary);

bool Msg_HasPending();       // the calling thread has messages not yet posted
void Msg_CallPrePostHook();  // the panic path's hook, called before its post
void Msg_Append(const char *format, ...);
// Appends, then posts the thread's whole list under the key of this last message.
void Msg_Post(int type, const char *format, ...);

MsgList *MsgList_VCreate(const char *format, va_list args);
// Puts a new node where *listHead points: given the link behind a list's last node, that
// is an append. A null listHead takes nothing.
void MsgList_VAppend(MsgList **listHead, const char *format, va_list args);
void MsgList_Append(MsgList **listHead, const char *format, ...);
void MsgList_Log(const MsgList *list);
void MsgList_Free(MsgList *list);

// The text of a message string: its translation, or the default text. The key goes to
// keyBuffer (128 bytes) if given.
const char *MsgLocalize(const char *message, Dictionary *dictionary, char *keyBuffer);
// The text of every node, in order, each ending in a newline, terminated.
void MsgFormatList(MsgList *list, Dictionary *dictionary, DynBuf *buffer);
// Whether the settings answer the message `id` already, without asking.
bool MsgIsAnswered(const char *id);

// The calls the facility makes to the platform. Tests replace entries so that nothing
// waits on a window or a console; nothing else changes them.
struct MsgPlatform {
   int (*messageBox)(MsgOwnerWindow owner, const char *text, const char *caption,
                     unsigned style);
   char *(*systemErrorText)(int32_t code);  // the system's text for an error code, or null
   void (*writeOut)(const char *text);      // the standard output stream
   char *(*readLine)(char *buffer, int size);  // the standard input stream; null at its end
};
extern MsgPlatform msgPlatform;
