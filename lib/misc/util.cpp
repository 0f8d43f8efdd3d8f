#include "misc/util.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "misc/log.h"
#include "misc/panic.h"
#include "misc/platform.h"
#include "string/str.h"
#include "unicode/unicode.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <pwd.h>
#include <unistd.h>
#endif

namespace {

constexpr int kMaxChunks = 100;

struct Chunk {
   const char *start;
   size_t length;
   char *value;  // owned replacement text, or null to keep the chunk
};

// The current user's name as UTF-8, or null.
char *UtilUserName()
{
#if defined(_WIN32)
   wchar_t name[100];
   DWORD size = 100;
   if (!GetUserNameW(name, &size)) {
      return nullptr;
   }
   return UnicodeAllocStrict(name, -1, STRING_ENCODING_UTF16_LE);
#else
   passwd entry;
   passwd *found = nullptr;
   char scratch[1024];
   if (getpwuid_r(geteuid(), &entry, scratch, sizeof scratch, &found) != 0 || found == nullptr) {
      return nullptr;
   }
   return UnicodeAllocStrict(found->pw_name, -1, STRING_ENCODING_UTF8);
#endif
}

bool UtilIsNameChar(char c)
{
   return isalnum(static_cast<unsigned char>(c)) || c == '_';
}

// The replacement of one $NAME chunk, or null to keep the chunk as it stands.
char *UtilExpandVariable(const Chunk &chunk, const char *name, bool *failed)
{
   char variable[100];
   Str_Snprintf(variable, sizeof variable, "%.*s", static_cast<int>(chunk.length - 1),
                chunk.start + 1);
   const char *value = GetEnvCached(variable);
   char *text = nullptr;
   if (value != nullptr) {
      text = strdup(value);
   } else if (strcasecmp(variable, "PID") == 0) {
      text = Str_Asprintf(nullptr, "%u", Platform_ProcessId());
   } else if (strcasecmp(variable, "USER") == 0) {
      text = UtilUserName();
      if (text == nullptr) {
         text = strdup("unknown");
      }
   } else {
      Log("Environment variable '%s' not defined in '%s'.\n", variable, name);
      // Kept with its '$', cut to 99 bytes.
      text = Str_Asprintf(nullptr, "%.*s", static_cast<int>(chunk.length < 99 ? chunk.length : 99),
                          chunk.start);
   }
   *failed = text == nullptr;
   return text;
}

} // namespace

char *Util_ExpandString(const char *name)
{
   char *copy = strdup(name);
   if (copy == nullptr) {
      return nullptr;
   }
   if (copy[0] != '~' && strchr(copy, '$') == nullptr) {
      return copy;
   }
   Chunk chunks[kMaxChunks];
   int count = 0;
   for (const char *p = copy; *p != '\0';) {
      if (count == kMaxChunks) {
         Log("%s: Filename \"%s\" has too many chunks.\n", "Util_ExpandString", name);
         free(copy);
         return nullptr;
      }
      const char *end = p + 1;
      if (*p == '$') {
         while (UtilIsNameChar(*end)) {
            end++;
         }
      } else {
         while (*end != '\0' && *end != '$') {
            end++;
         }
      }
      chunks[count++] = {p, static_cast<size_t>(end - p), nullptr};
      p = end;
   }
   bool failed = false;
   size_t total = 0;
   for (int i = 0; i < count && !failed; i++) {
      if (chunks[i].start[0] == '$' && chunks[i].length > 1) {
         chunks[i].value = UtilExpandVariable(chunks[i], name, &failed);
      }
      total += chunks[i].value != nullptr ? strlen(chunks[i].value) : chunks[i].length;
   }
   char *result = nullptr;
   if (failed) {
      Log("%s: Cannot allocate memory to expand $ in \"%s\".\n", "Util_ExpandString", name);
   } else if ((result = static_cast<char *>(malloc(total + 1))) == nullptr) {
      Log("%s: Cannot allocate memory for the expansion of \"%s\".\n", "Util_ExpandString",
          name);
   } else {
      char *q = result;
      for (int i = 0; i < count; i++) {
         const char *text = chunks[i].value != nullptr ? chunks[i].value : chunks[i].start;
         size_t length = chunks[i].value != nullptr ? strlen(text) : chunks[i].length;
         memcpy(q, text, length);
         q += length;
      }
      *q = '\0';
   }
   for (int i = 0; i < count; i++) {
      free(chunks[i].value);
   }
   free(copy);
   return result;
}
