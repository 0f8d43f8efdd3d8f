#include "actions/DatabaseExtraction.h"

// Extraction from the installer database is not built yet: nothing can be extracted.
std::wstring ExtractFileFromTable(MSIHANDLE, const std::wstring &, const std::wstring &)
{
   return std::wstring();
}
