/// @file
/// The mark of what leaves the library; everything else in it is hidden.
#ifndef AOSTORAGE_EXPORT_H_
#define AOSTORAGE_EXPORT_H_

#if defined(_WIN32) && !defined(AOSTORAGE_STATIC)
#if defined(AOSTORAGE_BUILDING)
#define AOSTORAGE_API __declspec(dllexport)
#else
#define AOSTORAGE_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define AOSTORAGE_API __attribute__((visibility("default")))
#else
#define AOSTORAGE_API
#endif

#endif  // AOSTORAGE_EXPORT_H_
