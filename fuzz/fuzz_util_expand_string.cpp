// Util_ExpandString on arbitrary names, against a model written from the rules: chunks of
// "$name" and of text up to the next '$', at most 100; a set variable's value, PID and USER
// as fall-backs, and any other name kept as written (cut to 99 bytes).

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <strings.h>
#include <unistd.h>

#include "misc/util.h"

namespace {

bool Model(const std::string &name, std::string *out)
{
   if (name.empty() || (name[0] != '~' && name.find('$') == std::string::npos)) {
      *out = name;
      return true;
   }
   int chunks = 0;
   out->clear();
   for (size_t i = 0; i < name.size();) {
      if (++chunks > 100) {
         return false;
      }
      size_t end = i + 1;
      if (name[i] == '$') {
         while (end < name.size() && (isalnum(static_cast<unsigned char>(name[end])) ||
                                      name[end] == '_')) {
            end++;
         }
      } else {
         end = name.find('$', end);
         end = end == std::string::npos ? name.size() : end;
      }
      std::string chunk = name.substr(i, end - i);
      std::string variable = chunk.substr(1, 99);
      const char *value = getenv(variable.c_str());
      if (chunk.size() <= 1 || chunk[0] != '$') {
         *out += chunk;
      } else if (value != nullptr) {
         *out += value;
      } else if (strcasecmp(variable.c_str(), "PID") == 0) {
         *out += std::to_string(getpid());
      } else if (strcasecmp(variable.c_str(), "USER") == 0) {
         *out += '?';  // the account name is not the model's business (see below)
      } else {
         *out += chunk.substr(0, 99);
      }
      i = end;
   }
   return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   static bool once = (setenv("A", "value-of-a", 1), setenv("B_2", "", 1), unsetenv("USER"), true);
   (void)once;
   std::string name(reinterpret_cast<const char *>(data), size);
   name = name.c_str();
   std::string want;
   bool expected = Model(name, &want);
   char *got = Util_ExpandString(name.c_str());
   if ((got != nullptr) != expected) {
      __builtin_trap();
   }
   bool hasUser = strcasestr(name.c_str(), "$user") != nullptr;
   if (got != nullptr && !hasUser && want != got) {
      __builtin_trap();
   }
   free(got);
   return 0;
}
