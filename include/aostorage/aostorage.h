/// @file
/// The whole public interface of aostorage: include this one header.
#ifndef AOSTORAGE_AOSTORAGE_H_
#define AOSTORAGE_AOSTORAGE_H_

#include <aostorage/compound_file.h>
#include <aostorage/error.h>
#include <aostorage/export.h>
#include <aostorage/hash_words.h>
#include <aostorage/inspect.h>
#include <aostorage/memory_stream.h>
#include <aostorage/path_loader.h>
#include <aostorage/storage.h>
#include <aostorage/stream.h>
#include <aostorage/stream_file.h>
#include <aostorage/types.h>

#endif  // AOSTORAGE_AOSTORAGE_H_
