// Linked into the test programs whose children panic: the panic report ends in a message
// box, which would wait for a click that never comes in an unattended run.

#include "user/msg.h"

static const bool quiet = (msgPlatform.messageBox = [](MsgOwnerWindow, const char *,
                                                      const char *, unsigned) { return 1; },
                           true);
