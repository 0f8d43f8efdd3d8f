#pragma once
// The calling thread's name: the one it was given, or "host-" and its id.
const char *VThread_CurName();
void VThread_SetCurName(const char *name);
