#pragma once
#include <string>

#include "config/MigrationConfig.h"

// One line per record, every field between bars, children indented below their key:
// M macro, SK service key, UK user key, V value, S sub-key, F file.
std::wstring DumpConfig(const MigrationConfig &config);
