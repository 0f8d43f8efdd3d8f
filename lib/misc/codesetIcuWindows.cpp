// Windows ships ICU as the system's icu.dll (from Windows 10 1903 on). It is loaded on first
// use, so that the DLL imports nothing but what every Windows has; where it is missing, the
// ICU path fails as if a converter could not be opened.
#include <windows.h>

#include <atomic>

#include "misc/codeset.h"

namespace {

template <typename F>
bool Resolve(HMODULE module, const char *name, F *function)
{
   *function = reinterpret_cast<F>(reinterpret_cast<void *>(GetProcAddress(module, name)));
   return *function != nullptr;
}

const CodeSetIcu *CodeSetLoadIcu()
{
   static CodeSetIcu icu;
   HMODULE module = LoadLibraryExW(L"icu.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
   if (module == nullptr) {
      return nullptr;
   }
   bool ok = Resolve(module, "ucnv_open", &icu.open) &&
             Resolve(module, "ucnv_close", &icu.close) &&
             Resolve(module, "ucnv_setToUCallBack", &icu.setToUCallBack) &&
             Resolve(module, "ucnv_setFromUCallBack", &icu.setFromUCallBack) &&
             Resolve(module, "ucnv_convertEx", &icu.convertEx) &&
             Resolve(module, "ucnv_toUChars", &icu.toUChars) &&
             Resolve(module, "UCNV_TO_U_CALLBACK_STOP", &icu.toU[0]) &&
             Resolve(module, "UCNV_TO_U_CALLBACK_SUBSTITUTE", &icu.toU[1]) &&
             Resolve(module, "UCNV_TO_U_CALLBACK_SKIP", &icu.toU[2]) &&
             Resolve(module, "UCNV_FROM_U_CALLBACK_STOP", &icu.fromU[0]) &&
             Resolve(module, "UCNV_FROM_U_CALLBACK_SUBSTITUTE", &icu.fromU[1]) &&
             Resolve(module, "UCNV_FROM_U_CALLBACK_SKIP", &icu.fromU[2]);
   return ok ? &icu : nullptr;
}

} // namespace

const CodeSetIcu *CodeSetGetIcu()
{
   // Loading twice on a race gives the same module and the same addresses.
   static std::atomic<int> state{0};  // 0 not tried, 1 loaded, 2 missing
   static const CodeSetIcu *icu = nullptr;
   if (state.load() == 0) {
      icu = CodeSetLoadIcu();
      state.store(icu != nullptr ? 1 : 2);
   }
   return state.load() == 1 ? icu : nullptr;
}
