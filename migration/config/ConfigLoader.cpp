#include "config/ConfigLoader.h"

// Placeholder until the document loader lands: no document can be read.
bool LoadMigrationDocument(const std::wstring &, MigrationConfig &)
{
   return false;
}
