// The k-th allocation of an operation fails, k = 1, 2, 3 ... until a run is clean: the operation
// gives its failure result, and what the library remembers says the same as the file.
#include <functional>

#include "folder/storage_fixture.h"
#include "support/allocations.h"

namespace aostorage::testing {
namespace {

class AllocationFaults : public StorageFileTest {
 protected:
  static constexpr int kChildren = 40;

  void SetUp() override {
    storage = Create();
    folder.reset(storage->CreateStream("f", kFolderKind, kWriteFlags));
    for (int i = 0; i < kChildren; ++i) ASSERT_EQ(folder->SetEntry(Name(i).c_str(), i), 1);
    ASSERT_TRUE(Got(storage->CreateStream("root", kWriteFlags)));
    before = File();
  }
  static std::string Name(int i) { return "a child with a long name, number " + std::to_string(i); }
  void Reopen() {
    folder.reset();
    storage.reset();
    storage = OpenBytes(before);
    folder.reset(storage->OpenStream("f", kWriteFlags));
    ASSERT_TRUE(folder);
  }
  void ExpectAllChildren(std::size_t from) {
    for (int i = static_cast<int>(from); i < kChildren; ++i)
      ASSERT_EQ(folder->GetEntry(Name(i).c_str(), -1), i);
  }

  Storage storage;
  Stream folder;
  Bytes before;
  const std::string firstName = Name(0);  // made before any allocation fails
};

TEST_F(AllocationFaults, LeaveNothingHalfRemembered) {
  struct Row {
    const char* what;
    std::function<bool()> run;  // true when it says that it was done
    int firstChild;             // those before may be gone
  };
  const Row rows[] = {
      {"entry that is not there", [&] { return folder->GetEntry("none", 7) != 7; }, 0},
      {"new entry", [&] { return folder->SetEntry("new", 1) == 1; }, 0},
      {"child", [&] { return Got(folder->CreateStream("new", kPlainKind, kWriteFlags)); }, 0},
      {"folder", [&] { return Got(folder->CreateStream("new", kFolderKind, kWriteFlags)); }, 0},
      {"removal",
       [&] {
         Stream child(folder->OpenStream(firstName.c_str(), kWriteFlags));
         return child && Remove(child);
       },
       1},
      {"rename of a root stream",
       [&] {
         const Stream stream(storage->OpenStream("root", kWriteFlags));
         return stream && stream->Rename("another name, long enough for the heap");
       },
       0},
      {"walk",
       [&] {
         std::uint32_t cookie = 0;
         for (Stream child(folder->OpenStreamFirst(cookie, kReadFlags)); child;)
           child.reset(folder->OpenStreamNext(cookie, kReadFlags));
         return true;
       },
       0},
  };
  for (const Row& row : rows) {
    bool fired = true;
    for (std::size_t k = 1; fired; ++k) {
      SCOPED_TRACE(std::string(row.what) + ", allocation " + std::to_string(k));
      Reopen();
      {
        const FailAllocation fault(k);
        row.run();
        fired = fault.Fired();
      }
      ExpectAllChildren(static_cast<std::size_t>(row.firstChild));
      // What comes next is neither lost nor takes the place of another.
      ASSERT_EQ(folder->SetEntry("later", 77), 1);
      const auto names = NamesIn(*folder);
      ASSERT_TRUE(Got(storage->OpenStream("root", kReadFlags)) !=
                  Got(storage->OpenStream("another name, long enough for the heap", kReadFlags)));
      folder.reset();
      storage = Open();
      folder.reset(storage->OpenStream("f", kWriteFlags));
      ExpectAllChildren(static_cast<std::size_t>(row.firstChild));
      ASSERT_EQ(folder->GetEntry("later", 0), 77);
      ASSERT_EQ(NamesIn(*folder), names);
      ASSERT_LT(k, 2000U);
    }
  }
}

}  // namespace
}  // namespace aostorage::testing
