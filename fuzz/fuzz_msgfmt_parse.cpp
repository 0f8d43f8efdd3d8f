// MsgFmt_Parse on any text. What it accepts, written again from the pieces it reported
// (literals with each '%' doubled, every specifier with its position), parses into the same
// pieces; each specifier splits with MsgFmt_ParseSpec or is refused, and one that splits
// ends in its conversion letter. A format without specifiers formats as the engine prints
// it.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "misc/msgfmt.h"
#include "string/str.h"

namespace {

typedef std::vector<std::pair<std::string, std::string>> Pieces;  // (position, text)

int Parse(const std::string &format, Pieces *pieces)
{
   return MsgFmt_Parse(
      [](void *to, const char *text, size_t length) {
         static_cast<Pieces *>(to)->emplace_back("", std::string(text, length));
         return 0;
      },
      [](void *to, const char *pos, size_t posLength, const char *type, size_t typeLength) {
         static_cast<Pieces *>(to)->emplace_back(std::string(pos, posLength),
                                                 std::string(type, typeLength));
         return 0;
      },
      pieces, format.c_str());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   std::string format(reinterpret_cast<const char *>(data), size);
   format.resize(format.find('\0') != std::string::npos ? format.find('\0') : size);
   Pieces pieces, reparsed;
   int status = Parse(format, &pieces);
   if (status != 0 && status != -2) {
      __builtin_trap();
   }
   std::string again, literal;
   bool hasSpecifier = false;
   for (const auto &[pos, text] : pieces) {
      if (pos.empty()) {
         literal += text;
         for (char c : text) {
            again += c == '%' ? "%%" : std::string(1, c);
         }
         continue;
      }
      hasSpecifier = true;
      again += "%" + pos + "$" + text;
      int position, flags, width, precision;
      char length, conversion;
      int split = MsgFmt_ParseSpec(pos.data(), pos.size(), text.data(), text.size(), &position,
                                   &flags, &width, &precision, &length, &conversion);
      if ((split != 0 && split != -2) || (split == 0 && conversion != text.back())) {
         __builtin_trap();
      }
   }
   if (status == 0 && (Parse(again, &reparsed) != 0 || reparsed != pieces)) {
      __builtin_trap();
   }
   if (status == 0 && !hasSpecifier) {
      char *formatted = MsgFmt_Format(format.c_str(), nullptr, 0, nullptr);
      char *printed = Str_Asprintf(nullptr, format.c_str());
      if (formatted == nullptr || printed == nullptr || literal != formatted || literal != printed) {
         __builtin_trap();
      }
      free(formatted);
      free(printed);
   }
   return 0;
}
