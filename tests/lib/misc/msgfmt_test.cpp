// Formats parsed into typed arguments and formatted again by position, with every error
// text of the parse.

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "misc/errText.h"
#include "misc/msgfmt.h"

namespace {

// "types|text": the argument types, then `format` (or `reformat`) formatted from them; or
// the parse error; "<null>" when the formatting fails.
std::string Parsed(const char *format, const char *reformat, ...)
{
   va_list args;
   va_start(args, reformat);
   MsgFmtArg *parsed = nullptr;
   int count = 0;
   char *error = nullptr;
   bool ok = MsgFmt_GetArgs(format, args, &parsed, &count, &error);
   va_end(args);
   if (!ok) {
      std::string text = error;
      free(error);
      return text;
   }
   std::string types;
   for (int i = 0; i < count; i++) {
      types += std::to_string(parsed[i].type);
   }
   size_t length = 0;
   char *text = MsgFmt_Format(reformat != nullptr ? reformat : format, parsed, count, &length);
   std::string result = types + "|" + (text != nullptr ? std::string(text, length) : "<null>");
   free(text);
   MsgFmt_FreeArgs(parsed, count);
   return result;
}

const utf16_t *U(const char16_t *text) { return reinterpret_cast<const utf16_t *>(text); }

TEST(MsgFmt, ParseAndFormatByPosition)
{
   const struct { std::string got, want; } rows[] = {
      {Parsed("%1$s %2$d", nullptr, "a", 5), "61|a 5"},
      {Parsed("%2$d %1$s", nullptr, "a", 5), "61|5 a"},
      {Parsed("100%% %s%%", nullptr, "x"), "6|100% x%"},
      {Parsed("%s|%5.2s|%-4d|%05.1f|%#x|%I64d|%c|%hhd", nullptr, "abc", "xyz", 7, 2.5, 255, int64_t{1} << 40, 'q', 300), "66151211|abc|   xy|7   |002.5|0xff|1099511627776|q|44"},
      {Parsed("%zu %lu %ls %S %p %Lg", nullptr, size_t{1}, 2u, U(u"\u00e9"), U(u"w"), nullptr, 1.0), "MsgFmtGetArg1: %Lg not supported, pos \"6\", type \"Lg\""},
      {Parsed("%zu %lu %.1ls %S %p", nullptr, size_t{1}, 2u, U(u"ab"), U(u"\u00e9"), nullptr), "21774|1 2 a \xC3\xA9 0"},
      {Parsed("%s %s %F", nullptr, (const char *)nullptr, "@&!*@*@(k)shown", -INFINITY), "665|(null) shown -INF"},
      // A text the error layer handed out becomes a system error; an equal copy stays a string.
      {Parsed("%s %s", nullptr, ErrText_Of(5), std::string(ErrText_Of(5)).c_str()), "96|" + std::string(ErrText_Of(5)) + " " + ErrText_Of(5)},
      {Parsed("%lld", nullptr, int64_t{1} << 40), "2|1099511627776"},
      {Parsed("%0$d", nullptr, 1), "MsgFmt_GetArgs: error in format string"},
      {Parsed("%1$s %d", nullptr), "MsgFmt_GetArgs: error in format string"},
      {Parsed("%2$s", nullptr), "MsgFmt_GetArgs: gap in arguments at position 1"},
      {Parsed("%d %1$d", nullptr), "MsgFmt_GetArgs: error in format string"},
      {Parsed("%1$d %1$s", nullptr), "MsgFmtGetArg1: incompatible specifiers for argument 1, old type 1, new type 6, pos \"1\", type \"s\""},
      {Parsed("%*d", nullptr), "MsgFmt_GetArgs: error in format string"},
      {Parsed("a %n", nullptr), "MsgFmtGetArg1: %n not supported, pos \"1\", type \"n\""},
      {Parsed("%5-d", nullptr), "MsgFmtGetArg1: bad specifier, status -2, pos \"1\", type \"5-d\""},
      {Parsed("%99999999999$d", nullptr), "MsgFmtGetArg1: bad specifier, status -2, pos \"99999999999\", type \"d\""},
      {Parsed("end %", nullptr), "MsgFmt_GetArgs: error in format string"},
      {Parsed("%s", "%d", "a"), "6|<null>"},
      {Parsed("%s", "%2$s", "a"), "6|<null>"},
   };
   for (const auto &r : rows) {
      EXPECT_EQ(r.got, r.want);
   }
}

} // namespace
