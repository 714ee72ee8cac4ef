// Loader and facade while the k-th allocation or the k-th system call fails, k = 1, 2, 3 ... until
// a run is clean: nothing crashes, leaks or stays open, and the file stays sound.
#include <cerrno>

#include "access/access_fixture.h"
#include "support/allocations.h"
#include "support/check_file.h"

namespace aostorage::testing {
namespace {

class AccessFaults : public AccessTest {
 protected:
  /// One of everything, with no regard to failures; the storage is not the facade's.
  void Live(aoStorage& storage) {
    CPathLoader loader;
    loader.GetStreamByPath(&storage, "f/x/y", 1, 1);
    loader.OwnStorage(aoStorage::Open(path.c_str(), kReadFlags, 0));
    loader.GetStreamByPath(&storage, "f/a", 0, 0);
    loader.DeleteStreamByPath(&storage, "f/x");
    loader.GetStreamByPath(&storage, "f/sub", 0, 0);

    facade.Open(path.c_str(), kWriting);
    facade.OpenOrCreateGenericStream("12345678", 1, kFolderKind);
    facade.WriteGenericChildStream("child", data.data(), 9, 1, 1);
    facade.OpenGenericStreams("f", "a");
    CCompStgFile copy(facade);
    copy.WriteGenericChildOpenedStream(data.data(), 9, 0);
    copy.ReadTagSeekBack(out.data(), 9);
    copy.OpenNextStream();
    facade.OpenGenericStream("f");
    aoStream* child = nullptr;
    for (int i = 0; i < 2; ++i) facade.GetNextChildStreamName(child);
    if (child != nullptr) child->Release();
    facade.RemoveGenericChildStream("f", "b");
    facade.RemoveGenericStream("12345678");
    facade.OpenNextGenericStream();
    copy = facade;
  }
  /// @param run  runs what it is given under the k-th fault; false when the fault was not met
  template <class Fault>
  void Sweep(Fault run) {
    const auto descriptors = OpenDescriptors();
    bool fired = true;
    for (std::size_t k = 1; fired; ++k) {
      SCOPED_TRACE(k);
      WriteFile(path, start);
      const Storage storage = Open();
      fired = run(k, [&] { Live(*storage); });
      EXPECT_EQ(Users(*storage, "f"), 0);
      facade.Close();
      EXPECT_EQ(OpenDescriptors(), descriptors + 1);
      EXPECT_EQ("", CheckFile(path, Rules::kAfterFault));
      EXPECT_TRUE(fired || Image().streams.size() == 4) << "a clean run does it all";
      ASSERT_LT(k, 2000U);
    }
  }

  const Bytes data = Pattern(9, 3);
  Bytes out = Bytes(9);
};

TEST_F(AccessFaults, OfMemory) {
  Sweep([](std::size_t k, const auto& live) {
    const FailAllocation fault(k);
    live();
    return fault.Fired();
  });
}

TEST_F(AccessFaults, OfTheSystem) {
  Sweep([](std::size_t k, const auto& live) {
    Watch watch;
    watch.FailAt(k, kAnyCall, EIO);
    live();
    return watch.FaultFired();
  });
}

}  // namespace
}  // namespace aostorage::testing
