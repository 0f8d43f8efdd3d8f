#pragma once
// One owning guard per kind of system resource. Each closes what it holds on every path
// out of the scope, so early returns never leak a key, a token or a block.
#include <windows.h>
#include <lm.h>
#include <msi.h>

#include <cstdio>

#include "misc/uniqueResource.h"

using UniqueMsiHandle = UniqueResource<MSIHANDLE, &MsiCloseHandle>;
using UniqueNetApiBuffer = UniqueResource<LPVOID, &NetApiBufferFree>;
using UniqueFile = UniqueResource<FILE *, &fclose>;

// A COM interface pointer, released once.
template <typename Interface>
class ComRef
{
public:
   ComRef() = default;
   ComRef(const ComRef &) = delete;
   ComRef &operator=(const ComRef &) = delete;
   ComRef(ComRef &&other) noexcept : ptr_(std::exchange(other.ptr_, nullptr)) {}
   ComRef &operator=(ComRef &&other) noexcept
   {
      if (this != &other) {
         reset();
         ptr_ = std::exchange(other.ptr_, nullptr);
      }
      return *this;
   }
   ~ComRef() { reset(); }

   Interface *get() const { return ptr_; }
   Interface *operator->() const { return ptr_; }
   explicit operator bool() const { return ptr_ != nullptr; }

   Interface **put()
   {
      reset();
      return &ptr_;
   }
   void **putVoid() { return reinterpret_cast<void **>(put()); }

   void reset()
   {
      if (ptr_ != nullptr) {
         std::exchange(ptr_, nullptr)->Release();
      }
   }

private:
   Interface *ptr_ = nullptr;
};
