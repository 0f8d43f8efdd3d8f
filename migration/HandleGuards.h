#pragma once
// One owning guard per kind of system resource. Each closes what it holds on every path
// out of the scope, so early returns never leak a key, a token or a block.
#include <windows.h>
#include <lm.h>
#include <msi.h>

#include <cstdlib>
#include <cstdio>
#include <utility>

template <typename T, auto Close>
class UniqueResource
{
public:
   UniqueResource() = default;
   explicit UniqueResource(T value) : value_(value) {}
   UniqueResource(const UniqueResource &) = delete;
   UniqueResource &operator=(const UniqueResource &) = delete;
   UniqueResource(UniqueResource &&other) noexcept : value_(other.release()) {}
   UniqueResource &operator=(UniqueResource &&other) noexcept
   {
      if (this != &other) {
         reset(other.release());
      }
      return *this;
   }
   ~UniqueResource() { reset(); }

   T get() const { return value_; }
   explicit operator bool() const { return value_ != T{}; }

   // For out-parameters of the platform's open calls: drops what is held first.
   T *put()
   {
      reset();
      return &value_;
   }

   T release() { return std::exchange(value_, T{}); }

   void reset(T value = T{})
   {
      T old = std::exchange(value_, value);
      if (old != T{}) {
         Close(old);
      }
   }

private:
   T value_{};
};

using UniqueHkey = UniqueResource<HKEY, &RegCloseKey>;
using UniqueHandle = UniqueResource<HANDLE, &CloseHandle>;
using UniqueLocalMemory = UniqueResource<HLOCAL, &LocalFree>;
using UniqueMsiHandle = UniqueResource<MSIHANDLE, &MsiCloseHandle>;
using UniqueNetApiBuffer = UniqueResource<LPVOID, &NetApiBufferFree>;
using UniqueMallocBlock = UniqueResource<void *, &std::free>;
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
