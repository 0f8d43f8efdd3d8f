#include "config/XmlAccess.h"

#include <cwchar>

#include "log/MigrationLog.h"

namespace {

// Room for the fallback texts, in bytes and in characters.
constexpr SIZE_T FallbackTextBytes = 64;
constexpr size_t FallbackTextChars = 32;

// Codes of this facility from 0x200 on are the ones an IDispatch implementation made up.
constexpr uint32_t DispatchCodeFirst = 0x80040200;
constexpr uint32_t DispatchCodeLast = 0x8004FFFF;

} // namespace

void RaiseComError(HRESULT hr)
{
   throw _com_error(hr);
}

const wchar_t *ComErrorText(const _com_error &error)
{
   if (error.text_) {
      return static_cast<const wchar_t *>(error.text_.get());
   }

   wchar_t *text = nullptr;
   const DWORD length =
      FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                     nullptr, static_cast<DWORD>(error.hr_), MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
                     reinterpret_cast<wchar_t *>(&text), 0, nullptr);
   if (length != 0 && text != nullptr) {
      error.text_.reset(text);
      // The system's texts end in a line break, which a log line doesn't want in its middle.
      size_t size = wcslen(text);
      if (size >= 2 && text[size - 1] == L'\n') {
         text[--size] = L'\0';
         if (text[size - 1] == L'\r') {
            text[--size] = L'\0';
         }
      }
      return text;
   }

   error.text_.reset(LocalAlloc(LMEM_FIXED, FallbackTextBytes));
   if (!error.text_) {
      return nullptr;
   }
   wchar_t *fallback = static_cast<wchar_t *>(error.text_.get());
   const uint32_t code = static_cast<uint32_t>(error.hr_);
   if (code >= DispatchCodeFirst && code <= DispatchCodeLast && (code & 0xFFFF) != 0x0200) {
      swprintf(fallback, FallbackTextChars, L"IDispatch error #%d", static_cast<int>((code & 0xFFFF) - 0x200));
   } else {
      swprintf(fallback, FallbackTextChars, L"Unknown error 0x%0lX", static_cast<unsigned long>(code));
   }
   return fallback;
}

UniqueBstr AllocateBstr(const std::wstring &text, decltype(&::SysAllocString) allocate)
{
   UniqueBstr copy(allocate(text.c_str()));
   if (!copy) {
      RaiseComError(E_OUTOFMEMORY);
   }
   return copy;
}

std::wstring TakeBstr(BSTR text)
{
   UniqueBstr owned(text);
   if (!owned) {
      return std::wstring();
   }
   return std::wstring(owned.get(), SysStringLen(owned.get()));
}

bool ApartmentReady(const ComApartment &apartment)
{
   if (FAILED(apartment.Result())) {
      LogMessage(LogLevelErrorWithCode, "COM initialization failed with %08X!.",
                 static_cast<unsigned>(apartment.Result()));
      return false;
   }
   return true;
}

VARIANT BorrowBstrVariant(const UniqueBstr &text)
{
   VARIANT variant;
   VariantInit(&variant);
   variant.vt = VT_BSTR;
   variant.bstrVal = text.get();
   return variant;
}

bool IsRootElementName(const std::wstring &name, const std::wstring &expected)
{
   const auto fold = [](wchar_t c) { return (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - L'a' + L'A') : c; };
   if (name.size() != expected.size()) {
      return false;
   }
   for (size_t i = 0; i < name.size(); ++i) {
      if (fold(name[i]) != fold(expected[i])) {
         return false;
      }
   }
   return true;
}

ComRef<IXMLDOMDocument> LoadXmlDocument(const std::wstring &path)
{
   ComRef<IXMLDOMDocument> document;
   HRESULT hr = CoCreateInstance(DomDocument60Class, nullptr, CLSCTX_INPROC_SERVER, IID_IXMLDOMDocument,
                                 document.putVoid());
   if (FAILED(hr)) {
      LogMessage(LogLevelErrorWithCode, "Failed to create XML DOM instance.");
      return ComRef<IXMLDOMDocument>();
   }

   // Synchronous, and nothing outside the file is read: a DTD naming a file that isn't
   // there must not stop the load.
   document->put_async(VARIANT_FALSE);
   document->put_validateOnParse(VARIANT_FALSE);
   document->put_resolveExternals(VARIANT_FALSE);

   UniqueBstr source = AllocateBstr(path);
   VARIANT_BOOL loaded = VARIANT_FALSE;
   hr = document->load(BorrowBstrVariant(source), &loaded);
   if (FAILED(hr) || !loaded) {
      LogMessage(LogLevelErrorWithCode, "Failed to load XML file.");
      return ComRef<IXMLDOMDocument>();
   }
   return document;
}

std::wstring GetNodeAttribute(IXMLDOMNode *node, const std::wstring &attributeName)
{
   if (node == nullptr) {
      return std::wstring();
   }

   ComRef<IXMLDOMNamedNodeMap> attributes;
   if (FAILED(node->get_attributes(attributes.put())) || !attributes) {
      return std::wstring();
   }

   UniqueBstr name = AllocateBstr(attributeName);
   ComRef<IXMLDOMNode> attribute;
   if (FAILED(attributes->getNamedItem(name.get(), attribute.put())) || !attribute) {
      return std::wstring();
   }

   BSTR text = nullptr;
   attribute->get_text(&text);
   return TakeBstr(text);
}
