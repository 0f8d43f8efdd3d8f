// File rules and the preference file against Wine's real file system and profile list.
#include <windows.h>
#include <sddl.h>
#include <userenv.h>

#include <gtest/gtest.h>

#include "HandleGuards.h"
#include "LogCapture.h"
#include "MsiScenario.h"
#include "files/FileMigration.h"
#include "users/UserContext.h"

namespace {

using Lines = std::vector<std::string>;
using scenario::PathExists;

bool refuseOwner = false;
std::wstring ownerCall; // "path owner group what" of the last owner change asked for

std::wstring SidText(PSID sid)
{
   wchar_t *text = nullptr;
   ConvertSidToStringSidW(sid, &text);
   UniqueLocalMemory owned(text);
   return text ? text : L"-";
}

// Owner and group as the source's descriptor holds them, in the form ownerCall records.
std::wstring OwnerAndGroupOf(const std::wstring &path)
{
   PSID owner = nullptr, group = nullptr;
   PSECURITY_DESCRIPTOR descriptor = nullptr;
   GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, 3, &owner, &group, nullptr, nullptr, &descriptor);
   UniqueLocalMemory owned(descriptor);
   return SidText(owner) + L" " + SidText(group);
}

DWORD WINAPI RecordingSetNamedSecurityInfoW(LPWSTR path, SE_OBJECT_TYPE type, SECURITY_INFORMATION what, PSID owner,
                                            PSID group, PACL dacl, PACL sacl)
{
   ownerCall = std::wstring(path) + L" " + SidText(owner) + L" " + SidText(group) + L" " + std::to_wstring(what);
   return refuseOwner ? ERROR_ACCESS_DENIED : SetNamedSecurityInfoW(path, type, what, owner, group, dacl, sacl);
}

class FileMigrationTest : public testing::Test
{
protected:
   void SetUp() override
   {
      work_ = scenario::TempDirectory() + L"vtr-files";
      scenario::RemoveTree(work_);
      saved_ = filePlatform;
      filePlatform.SetNamedSecurityInfoW = RecordingSetNamedSecurityInfoW;
   }
   void TearDown() override
   {
      filePlatform = saved_;
      scenario::RemoveTree(work_);
   }

   // `text` with %D for the work folder.
   std::string At(const std::string &text) const { return Replace(text, "%D", scenario::Narrow(work_)); }
   std::wstring At(const std::wstring &text) const { return scenario::Widen(At(scenario::Narrow(text))); }
   static std::string Replace(std::string text, const std::string &from, const std::string &to)
   {
      for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
         text.replace(at, from.size(), to);
      }
      return text;
   }
   Lines ShortEntries(const LogCapture &capture) const
   {
      Lines entries = capture.Entries();
      for (std::string &entry : entries) {
         entry = scenario::WithoutSystemText(entry);
      }
      return entries;
   }

   std::wstring work_;
   FilePlatformCalls saved_{};
};

TEST_F(FileMigrationTest, CopyFileWithOwner)
{
   struct Case {
      const char *what;
      const wchar_t *source, *dest; // %D is the work folder, which holds src.cfg ("old") and mine.cfg ("mine")
      bool ownerRefused, copied;
      Lines log;
      const wchar_t *absent; // what must not exist afterwards
   } const cases[] = {
      {"a new folder tree", L"%D\\src.cfg", L"%D\\new\\a\\b\\dst.cfg", false, true, {}, L"%D\\new\\a\\b\\dst.cfg\\"},
      {"an existing file stays", L"%D\\src.cfg", L"%D\\mine.cfg", false, false,
       {"ERRO Failed to migrate file %D\\src.cfg to %D\\mine.cfg.Last Error: (code: 80)"}, nullptr},
      {"a missing source creates nothing", L"%D\\none.cfg", L"%D\\gone\\dst.cfg", false, false,
       {"ERRO Failed to get %D\\none.cfg file SD, error = 0x00000002."}, L"%D\\gone"},
      {"a bare file name has no parent", L"%D\\src.cfg", L"dst.cfg", false, false,
       {"ERRO Failed to read parent folder of dst.cfg"}, L"dst.cfg"},
      {"a file in the way of a folder", L"%D\\src.cfg", L"%D\\src.cfg\\x\\dst.cfg", false, false,
       {"ERRO Failed to create directory: %D\\src.cfg\\x, Error: 0x00000003\nLast Error: (code: 3)",
        "ERRO Failed to create parent folder of %D\\src.cfg\\x\\dst.cfg"}, nullptr},
      {"a refused owner takes the copy away", L"%D\\src.cfg", L"%D\\refused.cfg", true, false,
       {"ERRO Failed to set file owner, error = 0x00000005"}, L"%D\\refused.cfg"},
   };
   for (const Case &c : cases) {
      SCOPED_TRACE(c.what);
      ASSERT_TRUE(scenario::WriteFileAt(At(std::wstring(L"%D\\src.cfg")), "old"));
      ASSERT_TRUE(scenario::WriteFileAt(At(std::wstring(L"%D\\mine.cfg")), "mine"));
      refuseOwner = c.ownerRefused;
      ownerCall.clear();
      LogCapture capture;
      EXPECT_EQ(CopyFileWithOwner(At(c.source), At(c.dest)), c.copied);
      Lines expected;
      for (const std::string &line : c.log) {
         expected.push_back(At(line));
      }
      EXPECT_EQ(ShortEntries(capture), expected);
      EXPECT_EQ(scenario::ReadFileBytes(At(std::wstring(L"%D\\mine.cfg"))), "mine");
      if (c.copied) {
         EXPECT_EQ(scenario::ReadFileBytes(At(c.dest)), "old");
         // Wine keeps every file's owner as it was, so what can be seen is that the copy
         // was given the source's owner and group.
         EXPECT_EQ(ownerCall, At(c.dest) + L" " + OwnerAndGroupOf(At(c.source)) + L" 3");
      }
      EXPECT_FALSE(c.absent && PathExists(At(c.absent)));
      scenario::RemoveTree(work_);
   }
}

TEST_F(FileMigrationTest, PreferenceFileInEveryProfile)
{
   const std::string old = "\\AppData\\Roaming\\Eldrix\\Eldrix Vantora Glint Client";
   const std::string neu = "\\AppData\\Roaming\\Corvane\\Corvane Vantora Client";
   struct Profile {
      std::string name;
      std::vector<std::pair<std::string, std::string>> files; // below the profile: path, content
      const char *copied;                                      // the new prefs.txt afterwards, or null
   } const profiles[] = {
      {"system", {{"\\Desktop\\x", ""}}, nullptr},
      {"fresh", {{"\\AppData\\Roaming\\x", ""}}, nullptr},
      {"empty", {{old + "\\x", ""}}, nullptr},
      {"moves", {{old + "\\prefs.txt", "moves"}}, "moves"},
      {"again", {{old + "\\prefs.txt", "again"}, {neu + "\\prefs.txt", "stale"}}, "again"},
   };
   std::vector<std::wstring> paths;
   for (const Profile &p : profiles) {
      paths.push_back(work_ + L"\\" + scenario::Widen(p.name));
      for (const auto &[file, content] : p.files) {
         ASSERT_TRUE(scenario::WriteFileAt(paths.back() + scenario::Widen(file), content));
      }
   }
   LogCapture capture;
   MigratePreferenceFiles(paths);

   Lines expected;
   for (const std::string &line : Lines{
           "WARN Roaming path not found for user: %D\\system",
           "INFO \nUser Profile: %D\\fresh",
           "INFO   [Missing] Src Path: %D\\fresh" + old,
           "INFO \nUser Profile: %D\\empty",
           "INFO   [Found] Src Path: %D\\empty" + old,
           "WARN prefs.txt not found at: %D\\empty" + old + "\\prefs.txt",
           "INFO \nUser Profile: %D\\moves",
           "INFO   [Found] Src Path: %D\\moves" + old,
           "WARN Destination path %D\\moves" + neu + " not found, attempting to create.",
           "INFO Created destination path: %D\\moves" + neu,
           "INFO [Success] Copied prefs.txt from %D\\moves" + old + "\\prefs.txt to %D\\moves" + neu + "\\prefs.txt",
           "INFO \nUser Profile: %D\\again",
           "INFO   [Found] Src Path: %D\\again" + old,
           "INFO [Success] Copied prefs.txt from %D\\again" + old + "\\prefs.txt to %D\\again" + neu + "\\prefs.txt",
        }) {
      expected.push_back(At(line));
   }
   EXPECT_EQ(capture.Entries(), expected);
   for (size_t i = 0; i < paths.size(); ++i) {
      const std::wstring copy = paths[i] + scenario::Widen(neu) + L"\\prefs.txt";
      EXPECT_EQ(PathExists(copy) ? scenario::ReadFileBytes(copy) : "(none)",
                profiles[i].copied ? profiles[i].copied : "(none)")
         << profiles[i].name;
      EXPECT_EQ(PathExists(paths[i] + scenario::Widen(neu)), profiles[i].copied != nullptr) << profiles[i].name;
   }
}

TEST_F(FileMigrationTest, ProfileListWithTheCurrentUserOnceByExactText)
{
   const std::wstring list = scenario::ProfileListPath;
   const std::wstring current = list + L"\\" + scenario::CurrentUserSid();
   const std::optional<scenario::RegValue> original = scenario::ReadValue(HKEY_LOCAL_MACHINE, current, L"ProfileImagePath");
   ASSERT_TRUE(original.has_value()) << "the prefix lists its user";
   scenario::WriteDword(HKEY_LOCAL_MACHINE, list + L"\\S-1-5-21-6-6-6-3001", L"ProfileImagePath", 1);
   const std::wstring env = L"%SystemDrive%\\users\\vtr-pref";
   const BYTE *bytes = reinterpret_cast<const BYTE *>(env.c_str());
   scenario::WriteValue(HKEY_LOCAL_MACHINE, list + L"\\S-1-5-21-6-6-6-3002",
                        {L"ProfileImagePath", REG_EXPAND_SZ, {bytes, bytes + (env.size() + 1) * 2}});
   wchar_t profile[MAX_PATH] = {};
   DWORD length = MAX_PATH;
   UniqueHandle token;
   OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put());
   GetUserProfileDirectoryW(token.get(), profile, &length);
   std::wstring upper = profile;
   CharUpperW(upper.data());

   struct Case {
      std::wstring listed; // the current user's ProfileImagePath during the walk
      std::vector<std::wstring> profiles;
      Lines tail; // the log after the two entries of the test
   } const cases[] = {
      {profile, {profile, L"C:\\users\\vtr-pref"}, {"INFO Current logged-in user profile path: %P"}},
      // Another letter case is another profile: the current user comes twice.
      {upper, {upper, L"C:\\users\\vtr-pref", profile},
       {"INFO Current logged-in user profile path: %P", "INFO Added current user to profile list: %P"}},
   };
   for (const Case &c : cases) {
      const BYTE *text = reinterpret_cast<const BYTE *>(c.listed.c_str());
      scenario::WriteValue(HKEY_LOCAL_MACHINE, current,
                           {L"ProfileImagePath", REG_SZ, {text, text + (c.listed.size() + 1) * 2}});
      LogCapture capture;
      std::vector<std::wstring> profiles;
      EnumerateProfilePaths(profiles);
      scenario::WriteValue(HKEY_LOCAL_MACHINE, current, *original);
      EXPECT_EQ(profiles, c.profiles);
      Lines expected = {"INFO Found user profile path: " + scenario::Narrow(c.listed),
                        "ERRO Failed to read ProfileImagePath for: " + scenario::Narrow(ProfileListKeyPath) +
                           "S-1-5-21-6-6-6-3001. Error code: 0",
                        "INFO Found user profile path: C:\\users\\vtr-pref"};
      for (const std::string &line : c.tail) {
         expected.push_back(Replace(line, "%P", scenario::Narrow(profile)));
      }
      EXPECT_EQ(capture.Entries(), expected);
   }
   scenario::DeleteTree(HKEY_LOCAL_MACHINE, list + L"\\S-1-5-21-6-6-6-3001");
   scenario::DeleteTree(HKEY_LOCAL_MACHINE, list + L"\\S-1-5-21-6-6-6-3002");
}

} // namespace
