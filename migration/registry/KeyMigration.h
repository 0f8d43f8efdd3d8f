#pragma once
#include <windows.h>

#include <string>

#include "config/MigrationConfig.h"

// Copies the rule's key tree below `rootKey`; `securityPrefix` locates the descriptor that
// intermediate keys receive. Reports through the log only.
void MigrateRegistryKeyRule(HKEY rootKey, const std::wstring &securityPrefix, const RegistryKeyRule &rule);
