// MsgFmt_Parse on any text. What it accepts, written again from the pieces it reported
// (literals with each '%' doubled, every specifier with its position), parses into the same
// pieces; each specifier splits with MsgFmt_ParseSpec or is refused, and one that splits
// ends in its conversion letter. A format without specifiers formats as the engine prints
// it.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "misc/msgfmt.h"
#include "string/str.h"

namespace {

[[noreturn]] void Fail() { __builtin_trap(); }

struct Piece {
   std::string pos, text;  // pos empty for a literal
   bool operator==(const Piece &) const = default;
};

std::vector<Piece> Pieces(const std::string &format, int *status)
{
   std::vector<Piece> pieces;
   *status = MsgFmt_Parse(
      [](void *to, const char *text, size_t length) {
         static_cast<std::vector<Piece> *>(to)->push_back({"", std::string(text, length)});
         return 0;
      },
      [](void *to, const char *pos, size_t posLength, const char *type, size_t typeLength) {
         static_cast<std::vector<Piece> *>(to)->push_back(
            {std::string(pos, posLength), std::string(type, typeLength)});
         return 0;
      },
      &pieces, format.c_str());
   return pieces;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
   std::string format(reinterpret_cast<const char *>(data), size);
   format.resize(format.find('\0') != std::string::npos ? format.find('\0') : size);
   int status;
   std::vector<Piece> pieces = Pieces(format, &status);
   if (status != 0) {
      if (status != -2) {
         Fail();
      }
      return 0;
   }
   std::string again, literal;
   bool hasSpecifier = false;
   for (const Piece &p : pieces) {
      if (p.pos.empty()) {
         literal += p.text;
         for (char c : p.text) {
            again += c == '%' ? "%%" : std::string(1, c);
         }
         continue;
      }
      hasSpecifier = true;
      again += "%" + p.pos + "$" + p.text;
      int position, flags, width, precision;
      char length, conversion;
      int split = MsgFmt_ParseSpec(p.pos.data(), p.pos.size(), p.text.data(), p.text.size(),
                                   &position, &flags, &width, &precision, &length, &conversion);
      if ((split != 0 && split != -2) || (split == 0 && conversion != p.text.back())) {
         Fail();
      }
   }
   int againStatus;
   if (Pieces(again, &againStatus) != pieces || againStatus != 0) {
      Fail();
   }
   if (!hasSpecifier) {
      char *formatted = MsgFmt_Format(format.c_str(), nullptr, 0, nullptr);
      char *printed = Str_Asprintf(nullptr, format.c_str());
      if (formatted == nullptr || printed == nullptr || literal != formatted || literal != printed) {
         Fail();
      }
      free(formatted);
      free(printed);
   }
   return 0;
}
