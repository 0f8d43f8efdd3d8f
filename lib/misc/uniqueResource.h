#pragma once
// An owning guard for one system resource, closed once on every path out of its scope. Each
// kind of resource gets its own alias with its own close call.

#include <cstdlib>
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

using UniqueMallocBlock = UniqueResource<void *, &std::free>;

#if defined(_WIN32)
#include <windows.h>

using UniqueHkey = UniqueResource<HKEY, &RegCloseKey>;
using UniqueHandle = UniqueResource<HANDLE, &CloseHandle>;
using UniqueLocalMemory = UniqueResource<HLOCAL, &LocalFree>;
#endif
