// Puts every storage that the tests open, or that the library opens for them, into mapping mode:
// the linker leads the calls here, by the names that the compilers of this platform give them.
#include <cstdlib>

#include <aostorage/aostorage.h>

namespace {

aostorage::aoStorage* Mapped(aostorage::aoStorage* storage) {
  if (storage == nullptr) return storage;
  // What the call left as the reason stays: a directory that breaks off is told by it alone.
  if (!storage->UseMapping(true)) std::abort();
  return storage;
}

}  // namespace

#define AOSTORAGE_WRAP(name)                                                                 \
  extern "C" aostorage::aoStorage* __real_##name(const char*, std::uint32_t, std::uint32_t); \
  extern "C" aostorage::aoStorage* __wrap_##name(const char* path, std::uint32_t flags,      \
                                                 std::uint32_t reserve);                     \
  extern "C" aostorage::aoStorage* __wrap_##name(const char* path, std::uint32_t flags,      \
                                                 std::uint32_t reserve) {                    \
    return Mapped(__real_##name(path, flags, reserve));                                      \
  }

AOSTORAGE_WRAP(_ZN9aostorage9aoStorage4OpenEPKcjj)
AOSTORAGE_WRAP(_ZN9aostorage9aoStorage6CreateEPKcjj)
AOSTORAGE_WRAP(_ZN9aostorage9aoStorage8OpenFastEPKcjj)
AOSTORAGE_WRAP(_ZN9aostorage9aoStorage12OpenOrCreateEPKcjj)
