#pragma once
// What the document readers share of MSXML 6.0: opening a document, reading one attribute,
// strings across the COM boundary, and the one exception type of the XML code.
#include <windows.h>
#include <msxml2.h>
#include <oleauto.h>

#include <string>

#include "HandleGuards.h"

// <comdef.h> has a _com_error of its own, tied to _bstr_t, whose support library mingw doesn't
// ship; ours takes its place, and the two can't live in one translation unit.
#ifdef _INC_COMDEF
#error "XmlAccess.h defines _com_error; don't include <comdef.h> beside it"
#endif

// MSXML 6.0's document class. The mingw headers only know the older versions.
inline constexpr CLSID DomDocument60Class = {
   0x88d96a05, 0xf192, 0x11d4, {0xa6, 0x5f, 0x00, 0x40, 0x96, 0x32, 0x51, 0xe5}};

using UniqueBstr = UniqueResource<BSTR, &SysFreeString>;

// The failure of a COM call in the XML code. The text is only looked up when someone asks
// for it (ComErrorText), and then once.
class _com_error
{
public:
   explicit _com_error(HRESULT hr) noexcept : hr_(hr) {}
   // A copy asks for its own text; the system block belongs to one object.
   _com_error(const _com_error &other) noexcept : hr_(other.hr_) {}
   _com_error &operator=(const _com_error &other) noexcept
   {
      if (this != &other) {
         hr_ = other.hr_;
         text_.reset();
      }
      return *this;
   }
   ~_com_error() = default;

   HRESULT Error() const noexcept { return hr_; }

private:
   friend const wchar_t *ComErrorText(const _com_error &error);

   HRESULT hr_;
   mutable UniqueLocalMemory text_;
};

// Raises _com_error. Every BSTR that can't be allocated ends here with E_OUTOFMEMORY.
[[noreturn]] void RaiseComError(HRESULT hr);

// The system's text for the error without its closing line break, or "IDispatch error #n" /
// "Unknown error 0x..." when the system has none. Null only when even that block can't be had.
// The text lives as long as the error object.
const wchar_t *ComErrorText(const _com_error &error);

// A BSTR copy of `text` for one DOM call. `allocate` is SysAllocString, or a test's stand-in.
UniqueBstr AllocateBstr(const std::wstring &text, decltype(&::SysAllocString) allocate = &::SysAllocString);
// Takes over a BSTR the DOM handed out and frees it; null gives the empty string.
std::wstring TakeBstr(BSTR text);

// CoInitialize(NULL) for one document's work, matched by CoUninitialize only if it took.
// The two calls are the system's unless a module's test seam hands in its own.
class ComApartment
{
public:
   explicit ComApartment(decltype(&::CoInitialize) initialize = &::CoInitialize,
                         decltype(&::CoUninitialize) uninitialize = &::CoUninitialize)
      : uninitialize_(uninitialize), result_(initialize(nullptr))
   {
   }
   ~ComApartment()
   {
      if (SUCCEEDED(result_)) {
         uninitialize_();
      }
   }
   ComApartment(const ComApartment &) = delete;
   ComApartment &operator=(const ComApartment &) = delete;

   // S_FALSE (already initialised on this thread) counts as success too.
   HRESULT Result() const { return result_; }

private:
   decltype(&::CoUninitialize) uninitialize_;
   HRESULT result_;
};

// False after logging that COM couldn't be entered on this thread.
bool ApartmentReady(const ComApartment &apartment);

// A VT_BSTR variant that borrows `text`: it must not be cleared, and lives no longer than `text`.
VARIANT BorrowBstrVariant(const UniqueBstr &text);

// What a document reader logs when a list of elements, or one item of it, can't be read. Log
// filters in the field match these texts.
struct ListMessages {
   const char *noElements;
   const char *unknownCount;
   const char *itemFailed; // takes the zero-based index
};

// Root element names compare with only the ASCII letters folded: "ROOT" is "Root", while a
// letter that merely upper-cases to one of ours is another name.
bool IsRootElementName(const std::wstring &name, const std::wstring &expected);

// Loads the file without validation and without fetching anything external. Null means the
// failure has already been logged.
ComRef<IXMLDOMDocument> LoadXmlDocument(const std::wstring &path);

// The text of the attribute named exactly `attributeName`; empty for a null node, a node
// without attributes, a missing attribute or an empty one alike.
std::wstring GetNodeAttribute(IXMLDOMNode *node, const std::wstring &attributeName);
