#pragma once
#include <string>

#include "config/MigrationConfig.h"

// Reads the document at `path` into `config` (created empty by the caller).
bool LoadMigrationDocument(const std::wstring &path, MigrationConfig &config);
