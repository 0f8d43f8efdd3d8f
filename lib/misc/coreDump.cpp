#include "misc/coreDump.h"

// Not built yet: no dump is written and no stack is walked.
void CoreDump_CoreDump() {}
void CoreDump_Backtrace(const BacktraceOptions *, BacktraceOutputFunc, void *) {}
