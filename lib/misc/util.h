#pragma once
// Expands $NAME references in a file name from the environment, with $PID and $USER as
// fall-backs. An undefined name stays as written. Null, with a log line, on failure.
char *Util_ExpandString(const char *name);
