#pragma once
// Messages for a person, collected per thread and posted through callbacks.

bool Msg_HasPending();       // the calling thread has messages not yet posted
void Msg_CallPrePostHook();  // the panic path's hook, called before its post
void Msg_Append(const char *format, ...);
void Msg_Post(int type, const char *format, ...);
