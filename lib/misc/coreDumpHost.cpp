#include "misc/coreDump.h"

// A host has no dbghelp.dll: nothing is dumped and no stack is walked, and the panic goes
// on with its other channels.
void CoreDump_CoreDump() {}
void CoreDump_Backtrace(const BacktraceOptions *, BacktraceOutputFunc, void *) {}
