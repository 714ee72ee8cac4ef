/// @file
/// CPathLoader: streams reached by slash-separated paths.
#ifndef AOSTORAGE_PATH_LOADER_H_
#define AOSTORAGE_PATH_LOADER_H_

#include <cstdint>
#include <string>
#include <vector>

#include <aostorage/export.h>

namespace aostorage {

class aoStorage;
class aoStream;

/// Opens streams by path and keeps what it opened until it is told to close it.
///
/// A path is names joined by slashes: first a root stream, then a child of the stream before, and
/// so on. A trailing slash changes nothing. A path with an empty name in it (a leading or doubled
/// slash) or with a NUL byte is unusable: the walk fails before it has touched anything.
///
/// Every stream of a walk belongs to the loader, the returned one included, and after a failed walk
/// too: do not release it. Storages and streams handed in as the start of a walk stay the caller's
/// and are released after the loader has closed its streams. A loader, its streams and their
/// storage belong to one thread at a time. Failure is told by the result, its reason by LastError.
class AOSTORAGE_API CPathLoader {
 public:
  CPathLoader();
  /// Does what CloseOpenStorages does.
  ~CPathLoader();
  CPathLoader(const CPathLoader&) = delete;
  CPathLoader& operator=(const CPathLoader&) = delete;

  /// Walks a path from the root of a storage.
  /// @param write   nonzero: the streams are opened with kWriteFlags, else with kReadFlags
  /// @param create  nonzero: names that are missing are created, all of them as folders. Folders
  ///                made on the way stay when a later step fails.
  /// @return the stream of the last name, folder or not, or null: an empty or unusable path, a name
  ///         that is missing, cannot be opened or stands in a plain stream, or a failed write
  aoStream* GetStreamByPath(aoStorage* storage, std::string path, std::int32_t write,
                            std::int32_t create);
  /// As GetStreamByPath, from an open stream on, which need not be one of this loader.
  /// @return as there; `start` itself for the empty path
  aoStream* GetSubStreamByPath(aoStream* start, std::string path, std::int32_t write,
                               std::int32_t create);
  /// Removes the stream at a path, a folder with all its children. In every case closes all that
  /// the loader holds, as CloseOpenStorages does.
  /// @return 1 when the stream was removed, else 0
  int DeleteStreamByPath(aoStorage* storage, std::string path);
  /// Releases all streams of this loader's walks, the last opened first, and then the storage that
  /// it owns. The loader can be used again.
  void CloseOpenStorages();
  /// Hands a storage over: from now on the loader releases it. One that it owned before is released
  /// at once, after all streams, as CloseOpenStorages does. Handing over the same storage again, or
  /// null, does nothing.
  void OwnStorage(aoStorage* storage);

 private:
  /// Cuts the first name and the slash behind it off `path`.
  static std::string GetNextFolder(std::string& path);

  std::vector<aoStream*> walkStreams;  // in the order of opening
  aoStorage* ownedStorage = nullptr;
};

}  // namespace aostorage

#endif  // AOSTORAGE_PATH_LOADER_H_
