// The host links ICU: its entry points are taken as they are.
#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>

#include "misc/codeset.h"

namespace {

template <typename F>
F As(auto function)
{
   return reinterpret_cast<F>(function);
}

const CodeSetIcu icuCalls = {
   As<decltype(CodeSetIcu::open)>(ucnv_open),
   As<decltype(CodeSetIcu::close)>(ucnv_close),
   As<decltype(CodeSetIcu::setToUCallBack)>(ucnv_setToUCallBack),
   As<decltype(CodeSetIcu::setFromUCallBack)>(ucnv_setFromUCallBack),
   As<decltype(CodeSetIcu::convertEx)>(ucnv_convertEx),
   As<decltype(CodeSetIcu::toUChars)>(ucnv_toUChars),
   {As<CodeSetIcuCallback>(UCNV_TO_U_CALLBACK_STOP),
    As<CodeSetIcuCallback>(UCNV_TO_U_CALLBACK_SUBSTITUTE),
    As<CodeSetIcuCallback>(UCNV_TO_U_CALLBACK_SKIP)},
   {As<CodeSetIcuCallback>(UCNV_FROM_U_CALLBACK_STOP),
    As<CodeSetIcuCallback>(UCNV_FROM_U_CALLBACK_SUBSTITUTE),
    As<CodeSetIcuCallback>(UCNV_FROM_U_CALLBACK_SKIP)},
};

} // namespace

const CodeSetIcu *CodeSetGetIcu()
{
   return &icuCalls;
}
