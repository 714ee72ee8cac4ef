#include "store.h"

#ifdef HAVE_HDF5

#include <hdf5.h>

#include <utility>

namespace aobench {
namespace {

/// An identifier and the function that gives it back.
class Id {
 public:
  Id() = default;
  Id(hid_t made, herr_t (*closing)(hid_t)) : id(made), close(closing) {}
  Id(Id&& other) noexcept : id(std::exchange(other.id, -1)), close(other.close) {}
  Id& operator=(Id&& other) noexcept {
    std::swap(id, other.id);
    std::swap(close, other.close);
    return *this;
  }
  ~Id() { Reset(); }
  Id(const Id&) = delete;
  Id& operator=(const Id&) = delete;

  void Reset() {
    if (id >= 0) close(id);
    id = -1;
  }
  hid_t Get() const { return id; }
  explicit operator bool() const { return id >= 0; }

 private:
  hid_t id = -1;
  herr_t (*close)(hid_t) = nullptr;
};

Id Space(hsize_t size, hsize_t most) { return {H5Screate_simple(1, &size, &most), H5Sclose}; }

bool Write(const Id& set, hid_t memory, hid_t place, const void* bytes) {
  return H5Dwrite(set.Get(), H5T_NATIVE_UINT8, memory, place, H5P_DEFAULT, bytes) >= 0;
}
bool Read(const Id& set, hid_t memory, hid_t place, void* bytes) {
  return H5Dread(set.Get(), H5T_NATIVE_UINT8, memory, place, H5P_DEFAULT, bytes) >= 0;
}

/// The newest file format. A dataset of bytes for each name: within its header up to 4 KiB, in one
/// stretch above; one in chunks for streams that grow. Changes lie in the library's caches until
/// the flush that ends them all.
class Hdf5Store final : public Store {
 public:
  Outcome Create(const Plan& plan) override {
    Remember(plan);
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    access = Id(H5Pcreate(H5P_FILE_ACCESS), H5Pclose);
    H5Pset_libver_bounds(access.Get(), H5F_LIBVER_LATEST, H5F_LIBVER_LATEST);
    layout = Id(H5Pcreate(H5P_DATASET_CREATE), H5Pclose);
    H5Pset_obj_track_times(layout.Get(), false);
    H5Pset_fill_time(layout.Get(), H5D_FILL_TIME_NEVER);
    H5Pset_layout(layout.Get(), plan.size <= 4096 && plan.content != Content::kPieces
                                    ? H5D_COMPACT
                                    : H5D_CONTIGUOUS);
    file = NewFile(File("hdf5"));
    if (!file) return Outcome::kFailed;
    group = Id(H5Gcreate2(file.Get(), "all", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), H5Gclose);
    piece = Space(plan.size, plan.size);
    if (plan.content == Content::kPieces) {
      whole = Space(plan.count * plan.size, plan.count * plan.size);
      sets[0] = Make("first", whole.Get());
      return DoneIf(sets[0] && whole && piece);
    }
    if (plan.content == Content::kRecords) return DoneIf(MakeGrowing() && piece);
    return DoneIf(group && piece);
  }

  void Close() override {
    for (Id* id : {&sets[0], &sets[1], &whole, &piece, &group, &file, &layout, &access})
      id->Reset();
  }

  Outcome EndChanges() override { return DoneIf(H5Fflush(file.Get(), H5F_SCOPE_LOCAL) >= 0); }
  Outcome BeginReads() override {
    position[0] = 0;
    if (Given().content == Content::kRecords) whole = Id(H5Dget_space(sets[0].Get()), H5Sclose);
    return Outcome::kDone;
  }

  Outcome Put(Key key, const void* bytes, std::size_t size) override {
    Id other;
    if (size != Given().size) other = Space(size, size);
    const Id set = Make(key.name.c_str(), other ? other.Get() : piece.Get());
    return DoneIf(set && Write(set, H5S_ALL, H5S_ALL, bytes));
  }
  Outcome SetAgain(Key key, const void* bytes, std::size_t) override {
    const Id set = Open(group, key.name.c_str());
    return DoneIf(set && Write(set, H5S_ALL, H5S_ALL, bytes));
  }
  Outcome Fetch(Key key, void* bytes, std::size_t) override {
    const Id set = Open(group, key.name.c_str());
    return DoneIf(set && Read(set, H5S_ALL, H5S_ALL, bytes));
  }
  Outcome Remove(Key key) override {
    return DoneIf(H5Ldelete(group.Get(), key.name.c_str(), H5P_DEFAULT) >= 0);
  }
  Outcome OpenAndGet(Key key, void* bytes, std::size_t) override {
    const Id opened(H5Fopen(File("hdf5").c_str(), H5F_ACC_RDONLY, H5P_DEFAULT), H5Fclose);
    if (!opened) return Outcome::kFailed;
    const Id set = Open(opened, ("all/" + key.name).c_str());
    return DoneIf(set && Read(set, H5S_ALL, H5S_ALL, bytes));
  }

  Outcome Append(int stream, const void* bytes, std::size_t size) override {
    const Id& set = sets[stream];
    const hsize_t start = position[stream];
    position[stream] += size;
    if (Given().content == Content::kPieces)
      return DoneIf(Select(whole, start, size) && Write(set, piece.Get(), whole.Get(), bytes));
    if (H5Dset_extent(set.Get(), &position[stream]) < 0) return Outcome::kFailed;
    const Id space(H5Dget_space(set.Get()), H5Sclose);
    return DoneIf(Select(space, start, size) && Write(set, piece.Get(), space.Get(), bytes));
  }
  Outcome ReadNext(void* bytes, std::size_t size) override {
    const hsize_t start = position[0];
    position[0] += size;
    return DoneIf(Select(whole, start, size) && Read(sets[0], piece.Get(), whole.Get(), bytes));
  }
  Outcome ReadAt(std::uint32_t place, void* bytes, std::size_t size) override {
    const Id memory = Space(size, size);
    return DoneIf(Select(whole, place, size) && Read(sets[0], memory.Get(), whole.Get(), bytes));
  }

  /// What h5repack does without filters: all objects copied to a new file.
  Outcome Compact(const std::string& goal) override {
    const Id made = NewFile(goal);
    if (!made) return Outcome::kFailed;
    const bool copied =
        H5Ocopy(file.Get(), "all", made.Get(), "all", H5P_DEFAULT, H5P_DEFAULT) >= 0;
    return DoneIf(copied && H5Fflush(made.Get(), H5F_SCOPE_LOCAL) >= 0);
  }

 private:
  Id NewFile(const std::string& path) const {
    return {H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access.Get()), H5Fclose};
  }
  Id Make(const char* name, hid_t space) const {
    return {H5Dcreate2(group.Get(), name, H5T_NATIVE_UINT8, space, H5P_DEFAULT, layout.Get(),
                       H5P_DEFAULT),
            H5Dclose};
  }
  static Id Open(const Id& place, const char* name) {
    return {H5Dopen2(place.Get(), name, H5P_DEFAULT), H5Dclose};
  }
  bool MakeGrowing() {
    const hsize_t chunk = 65536;
    H5Pset_chunk(layout.Get(), 1, &chunk);
    const Id none = Space(0, H5S_UNLIMITED);
    sets[0] = Make("first", none.Get());
    sets[1] = Make("second", none.Get());
    return sets[0] && sets[1];
  }
  static bool Select(const Id& space, hsize_t start, hsize_t size) {
    return H5Sselect_hyperslab(space.Get(), H5S_SELECT_SET, &start, nullptr, &size, nullptr) >= 0;
  }

  Id access, layout, file, group, piece, whole, sets[2];
  hsize_t position[2] = {0, 0};
};

}  // namespace

std::string AddHdf5(std::vector<Competitor>& competitors) {
  competitors.push_back({"hdf5", []() -> StorePtr { return std::make_unique<Hdf5Store>(); },
                         kWorks | kChanges | kCompaction});
  unsigned major = 0, minor = 0, release = 0;
  H5get_libversion(&major, &minor, &release);
  return "HDF5 " + std::to_string(major) + "." + std::to_string(minor) + "." +
         std::to_string(release);
}

}  // namespace aobench

#else

namespace aobench {
std::string AddHdf5(std::vector<Competitor>&) { return ""; }
}  // namespace aobench

#endif  // HAVE_HDF5
