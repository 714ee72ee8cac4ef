// From files to open storages: what makes a file a storage, and what is read when one is opened.
#ifndef AOSTORAGE_STORAGE_STORAGE_FILE_H_
#define AOSTORAGE_STORAGE_STORAGE_FILE_H_

#include <cstdint>
#include <memory>
#include <string>

#include "platform/file.h"
#include "storage/storage_core.h"

namespace aostorage::detail {

using StoragePointer = std::shared_ptr<StorageCore>;

// Each gives null with the reason noted when it fails.

// The storage in an open file. With `withMap` the directory is read into the name map; where it
// breaks off the map ends too, and the reason is noted as for a failure.
StoragePointer OpenStorageIn(const std::string& fileName, File file, std::uint32_t defaultBlockSize,
                             bool withMap);
// Writes header and directory of a new storage into an empty file.
StoragePointer CreateStorageIn(const std::string& fileName, File file,
                               std::uint32_t defaultBlockSize);

// The storage at a path. kStreamWrite in `flags` opens the file for writing too.
StoragePointer OpenStorage(const std::string& fileName, std::uint32_t flags,
                           std::uint32_t defaultBlockSize, bool withMap);
// Makes a new storage, or empties the file that stands at the path. A file that this call made and
// that cannot be made a storage is taken away again.
StoragePointer CreateStorage(const std::string& fileName, std::uint32_t defaultBlockSize);
// Never empties a file: whoever made one in the meantime keeps it.
StoragePointer OpenOrCreateStorage(const std::string& fileName, std::uint32_t flags,
                                   std::uint32_t defaultBlockSize);

}  // namespace aostorage::detail

#endif  // AOSTORAGE_STORAGE_STORAGE_FILE_H_
