#include "user/preference.h"

#include "misc/log.h"
#include "misc/panic.h"

char *PreferenceGet(const char *name)
{
   Log("PREF early PreferenceGet(%s), using default\n", name);
   return nullptr;
}

bool Preference_GetBool(bool defaultValue, const char *name)
{
   PreferenceGet(name);
   return defaultValue;
}

int32_t Preference_GetInt32(int32_t defaultValue, const char *name)
{
   PreferenceGet(name);
   return defaultValue;
}

int64_t Preference_GetInt64(int64_t defaultValue, const char *name)
{
   PreferenceGet(name);
   return defaultValue;
}

char *Preference_GetString(const char *defaultValue, const char *name)
{
   char *value = PreferenceGet(name);
   return value != nullptr ? value : SafeStrdup(defaultValue);
}
