#include "registry/KeyMigration.h"

// Placeholder until the registry engine lands: no rule changes the registry.
void MigrateRegistryKeyRule(HKEY, const std::wstring &, const RegistryKeyRule &)
{
}
