/// @file
/// The life of a file, drawn from a seed: every kind of change that streams at the root and in
/// folders go through, step by step, with what they hold before and after each. Fault injection
/// and crash states run over it.
#ifndef AOSTORAGE_TESTS_SUPPORT_LIFE_H_
#define AOSTORAGE_TESTS_SUPPORT_LIFE_H_

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/check_file.h"
#include "support/handles.h"
#include "support/raw_file.h"

namespace aostorage::testing {

using Values = std::map<std::string, Bytes>;  // path to value of every stream; of a folder none

/// The objects that steps leave open for those that follow.
class Session {
 public:
  explicit Session(std::string storagePath) : path(std::move(storagePath)) {}
  ~Session() { Close(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  const std::string& Path() const { return path; }
  /// The storage, opened if it is not. Null when that fails, or fails in part.
  aoStorage* Opened();
  /// The stream at a path, opened if it is not. Null when that fails.
  aoStream* At(const std::string& streamPath);
  /// The folder around a path.
  aoStream* Around(const std::string& streamPath);
  /// Keeps the object. @return whether there is one
  bool Keep(const std::string& streamPath, aoStream* stream);
  /// Ends the objects on the stream and below it; with `removed` there is no object on it any more.
  void LetGo(const std::string& streamPath, bool removed = false);
  void Renamed(const std::string& from, const std::string& to);
  void Close();

  /// Notes a result that is neither of the two that are documented. @return whether it is success
  template <class Result>
  bool Told(Result got, Result success, Result failure) {
    odd = odd || (got != success && got != failure);
    return got == success;
  }

  bool retrying = false;  ///< places are found by absolute seeks alone
  bool odd = false;

 private:
  std::string path;
  Storage storage;
  std::map<std::string, Stream> held;
};

struct Step {
  std::string label;
  std::string path, other;  ///< the streams that it changes, with all that is below them
  std::function<bool(Session& session)> perform;  ///< see Run
  bool flushing = false;  ///< shortens streams: meanwhile, and if it fails, they may end earlier
  bool begins = false;    ///< may leave streams begun, which are then removed and made again
  bool logs = false;      ///< appends, wherever the stream ends
  bool syncs = false, removes = false;
  bool loses = false;  ///< when it fails, the storage object does not know the stream any more
  bool opens = false;  ///< nothing is open before it

  /// With LastError cleared before. @return whether the result told success
  bool Run(Session& session) const;
  bool Changes(const std::string& streamPath) const;
  /// Whether the stream lies in a folder that the step changes a child of.
  bool ChangesFolderAround(const std::string& streamPath) const;
};

struct Life {
  Bytes start;  ///< the file
  std::vector<Step> steps;
  std::vector<Values> values;  ///< before each step, and behind the last
};

/// Bytes reserved in each block.
inline constexpr std::uint32_t kLifeReserve = 100;
inline constexpr std::size_t kLifeSteps = 500;

/// Up to 12 root and 40 child streams in three levels of folders, in a file whose directory grows
/// every few root streams. No slot of a folder is split.
Life DrawLife(unsigned seed, std::size_t steps = kLifeSteps);
/// Seeds 0 to 19 in full size, else one of the clock and, without sanitizers, 1; see HistorySeeds.
std::vector<unsigned> LifeSeeds();

/// Opens the file with the library and reads all. A stream that is the same before and after must
/// be so; one that changes may stand at any point between the two, or, where the step
/// may leave them shorter, end earlier. The file may break no rule, nor hold any other stream.
/// @return what is wrong, empty if nothing
std::string CheckBetween(const std::string& path, const Values& before, const Values& after,
                         bool shorter = false, Rules rules = Rules::kAfterFault);
/// Of a file that may be damaged where the steps change it: what else differs, and what cannot be
/// read without a rule being named. Where a rule is named, streams may be out of reach in a folder
/// whose own blocks a step rewrites.
std::string CheckOthers(const std::string& path, const Values& before,
                        const std::vector<const Step*>& steps);

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_LIFE_H_
