#include "config/MacroWriteBack.h"

// The write-back of resolved macros is not built yet; reaching it reports failure.
bool UpdateXmlMacros(MSIHANDLE, const std::wstring &)
{
   return false;
}
