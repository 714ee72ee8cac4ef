/// @file
/// The system calls of the library, counted, recorded and made to fail. The test program itself
/// defines the C functions that the platform layer calls and forwards them to the kernel.
#ifndef AOSTORAGE_TESTS_SUPPORT_SYSCALLS_H_
#define AOSTORAGE_TESTS_SUPPORT_SYSCALLS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace aostorage::testing {

/// Kinds of calls; the vectored and the 64-bit forms count as their plain kind.
enum class Call : unsigned {
  kOpen,
  kState,
  kRead,
  kWrite,
  kSync,
  kRename,
  kUnlink,
  kCopy,
  kTruncate
};
inline constexpr std::size_t kCallKinds = 9;
inline constexpr unsigned kAnyCall = (1U << kCallKinds) - 1;
constexpr unsigned Only(Call call) { return 1U << static_cast<unsigned>(call); }

/// One call that wrote, in the order of the calls.
struct RecordedWrite {
  int descriptor;
  std::uint64_t offset;
  std::vector<std::uint8_t> bytes;
};

/// Sees all calls that this thread makes while it lives; at most one at a time lives on a thread.
class Watch {
 public:
  Watch();
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// Calls of a kind so far, the failed ones included.
  std::size_t Count(Call call) const { return counts[static_cast<std::size_t>(call)]; }
  std::size_t Total() const;
  /// Bytes that reads and writes have moved so far.
  std::uint64_t Moved() const { return moved; }
  /// "3 read, 1 write": for messages.
  std::string Text() const;

  /// The `k`-th call (1 is the next) among the kinds of the mask fails with `error`, and so do the
  /// following `more` ones.
  void FailAt(std::size_t k, unsigned kinds, int error, std::size_t more = 0);
  /// The `k`-th call, if it is a read or a write, moves only `bytes` bytes (kAllButOne: one less
  /// than asked) and succeeds; with `forEver` so do all reads and writes that follow.
  static constexpr std::size_t kAllButOne = SIZE_MAX;
  void ShortAt(std::size_t k, std::size_t bytes, bool forEver = false);
  /// Each read or write is first interrupted `times` times in a row.
  void Interrupt(std::size_t times) { interruptions = times; }
  /// Each read or write moves at most `bytes` bytes and succeeds.
  void LimitTransfers(std::size_t bytes) { transferLimit = bytes; }
  bool FaultFired() const { return fired; }

  const std::vector<RecordedWrite>& Writes() const { return writes; }
  /// Keeps no copy of what is written from now on.
  void ForgetWrites() { recording = false; }
  /// The kinds of all calls, in their order.
  const std::vector<Call>& Calls() const { return calls; }
  /// Runs before each call, with the number of calls made before it. Calls made within are not
  /// seen.
  void BeforeEach(std::function<void(Call, std::size_t)> callback) { before = std::move(callback); }

  /// @name For the interposed functions
  /// @{
  static Watch* Current();
  /// Counts the call. @return 0, or the error number with which it has to fail
  int Enter(Call call);
  /// How many of `wanted` bytes the present read or write may move.
  std::size_t Allowed(std::size_t wanted);
  void Record(int descriptor, std::uint64_t offset, const std::uint8_t* bytes, std::size_t count);
  void Move(std::size_t count) { moved += count; }
  bool Records() const { return recording; }
  /// @}

 private:
  std::array<std::size_t, kCallKinds> counts{};
  std::vector<RecordedWrite> writes;
  bool recording = true;
  std::uint64_t moved = 0;
  std::vector<Call> calls;
  std::function<void(Call, std::size_t)> before;
  unsigned failKinds = 0;
  std::size_t callsUntilFault = 0;  // 0: none planned
  std::size_t faultsLeft = 0;
  int failError = 0;
  std::size_t interruptions = 0, interruptionsDone = 0;
  std::size_t transferLimit = SIZE_MAX;
  std::size_t shortCall = 0, shortBytes = 0;
  bool shortForEver = false;
  bool fired = false;
  bool suspended = false;
};

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_SUPPORT_SYSCALLS_H_
