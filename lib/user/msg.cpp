#include "user/msg.h"

// Not built yet: nothing is collected and nothing is shown.
bool Msg_HasPending() { return false; }
void Msg_CallPrePostHook() {}
void Msg_Append(const char *, ...) {}
void Msg_Post(int, const char *, ...) {}
