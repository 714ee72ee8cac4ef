// Directories of the operating system, as the library needs them.
#ifndef AOSTORAGE_PLATFORM_DIRECTORY_SCAN_H_
#define AOSTORAGE_PLATFORM_DIRECTORY_SCAN_H_

namespace aostorage::detail {

// Deletes the regular files in a directory whose names have no dot, and the directory itself if
// nothing is left in it. What cannot be deleted is passed over; nothing is reported. The path may
// be a symbolic link to a directory (which keeps the directory itself from being deleted); links
// inside are neither followed nor deleted. Does nothing when the path leads to no directory.
void RemoveDirectoryOfFiles(const char* path) noexcept;

}  // namespace aostorage::detail

#endif  // AOSTORAGE_PLATFORM_DIRECTORY_SCAN_H_
