#pragma once
// The support library's settings. This module never sets up a preference store, so every
// read says so in the log and answers with the caller's default.

#include <cstdint>

// The raw setting, or null when there is none; a caller that gets text frees it.
char *PreferenceGet(const char *name);

bool Preference_GetBool(bool defaultValue, const char *name);
int32_t Preference_GetInt32(int32_t defaultValue, const char *name);
int64_t Preference_GetInt64(int64_t defaultValue, const char *name);
// A copy of the setting or of `defaultValue` (null stays null), for the caller to free.
char *Preference_GetString(const char *defaultValue, const char *name);
