// The ProgramData row against a stand-in for HKEY_LOCAL_MACHINE: the process's machine root
// is pointed at a scratch key, so each case brings its own Shell Folders.
#include <windows.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "HandleGuards.h"
#include "LogCapture.h"
#include "macros/GlobalMacros.h"

namespace {

using Lines = std::vector<std::string>;

constexpr wchar_t ScratchMachine[] = L"Software\\vtr-test\\machine";
constexpr wchar_t ShellFolders[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";

struct Stored {
   DWORD type;
   std::wstring text; // stored with its terminator
};

const std::string NoKey =
   "WARN Can't open local machine key "
   "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders, error = 0x00000002.";
const std::wstring Chars259(259, L'p');
const std::wstring Chars260(260, L'p');

const struct {
   const char *label;
   bool key;
   std::optional<Stored> value; // Common AppData, if there
   std::optional<std::wstring> row; // the ProgramData row's Value, if a row is added
   Lines log;
} Cases[] = {
   {"NoShellFolders", false, std::nullopt, std::nullopt, {NoKey}},
   {"Text", true, Stored{REG_SZ, L"D:\\Data"}, L"D:\\Data", {}},
   {"ExpandableLeftAsItIs", true, Stored{REG_EXPAND_SZ, L"%ALLUSERSPROFILE%\\x"}, L"%ALLUSERSPROFILE%\\x", {}},
   {"WrongType", true, Stored{REG_DWORD, L"ab"}, L"", {"ERRO Can't read value of Common AppData, result = 0x00000000."}},
   {"NoValue", true, std::nullopt, L"", {"ERRO Can't read value of Common AppData, result = 0x00000002."}},
   {"LongestThatFits", true, Stored{REG_SZ, Chars259}, Chars259, {}},
   {"OneTooLong", true, Stored{REG_SZ, Chars260}, L"", {"ERRO Can't read value of Common AppData, result = 0x000000EA."}},
};

TEST(AppendProgramDataMacro, ShellFolders)
{
   for (const auto &c : Cases) {
      SCOPED_TRACE(c.label);
      RegDeleteTreeW(HKEY_CURRENT_USER, ScratchMachine);
      UniqueHkey machine;
      ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, ScratchMachine, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                machine.put(), nullptr),
                ERROR_SUCCESS);
      if (c.key) {
         UniqueHkey folders;
         ASSERT_EQ(RegCreateKeyExW(machine.get(), ShellFolders, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, folders.put(),
                                   nullptr),
                   ERROR_SUCCESS);
         if (c.value) {
            const DWORD size = static_cast<DWORD>((c.value->text.size() + 1) * sizeof(wchar_t));
            RegSetValueExW(folders.get(), L"Common AppData", 0, c.value->type,
                           reinterpret_cast<const BYTE *>(c.value->text.c_str()), size);
         }
      }
      MacroTable table{{L"ProgramData", L"", L"the document's own"}};
      LogCapture capture;

      ASSERT_EQ(RegOverridePredefKey(HKEY_LOCAL_MACHINE, machine.get()), ERROR_SUCCESS);
      AppendProgramDataMacro(table);
      RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);

      ASSERT_EQ(table.size(), c.row ? 2u : 1u);
      EXPECT_EQ(table[0].Value, L"the document's own");
      if (c.row) {
         EXPECT_EQ(table[1].Name, L"ProgramData");
         EXPECT_EQ(table[1].Variable, L"");
         EXPECT_EQ(table[1].Value, *c.row);
      }
      EXPECT_EQ(capture.Entries(), c.log);
   }
   RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\vtr-test");
}

} // namespace
