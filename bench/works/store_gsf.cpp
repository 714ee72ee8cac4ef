#include "store.h"

#ifdef HAVE_GSF

#include <unordered_set>

#include <gsf/gsf.h>

namespace aobench {
namespace {

template <class Object>
void Drop(Object*& object) {
  if (object != nullptr) g_object_unref(object);
  object = nullptr;
}

/// Files of this kind are written once and whole, then read: nothing is added, set again or removed
/// later. What is written is in the file when the writing ends.
class GsfStore final : public Store {
 public:
  ~GsfStore() override { Close(); }

  Outcome Create(const Plan& plan) override {
    static const bool started = (gsf_init(), true);
    static_cast<void>(started);
    Remember(plan);
    dropped.clear();
    return DoneIf(StartWriting(File("gsf")));
  }
  void Close() override {
    static_cast<void>(EndWriting());
    Drop(stream);
    Drop(in);
  }

  Outcome EndChanges() override { return DoneIf(EndWriting()); }
  Outcome BeginReads() override {
    in = OpenToRead();
    if (in == nullptr) return Outcome::kFailed;
    if (Given().content == Content::kPieces) stream = gsf_infile_child_by_name(in, "first");
    return DoneIf(Given().content != Content::kPieces || stream != nullptr);
  }
  Outcome EndReads() override {
    Drop(stream);
    Drop(in);
    return Outcome::kDone;
  }

  Outcome Put(Key key, const void* bytes, std::size_t size) override {
    GsfOutput* child = gsf_outfile_new_child(out, key.name.c_str(), FALSE);
    if (child == nullptr) return Outcome::kFailed;
    const bool written = gsf_output_write(child, size, static_cast<const guint8*>(bytes)) != 0 &&
                         gsf_output_close(child) != 0;
    Drop(child);
    return DoneIf(written);
  }
  Outcome Fetch(Key key, void* bytes, std::size_t size) override {
    return FetchFrom(in, key, bytes, size);
  }
  /// Only so that compacting knows what it is to leave out.
  Outcome Remove(Key key) override {
    if (Given().content != Content::kStreamsToClean) return Outcome::kCannot;
    dropped.insert(key.name);
    return Outcome::kDone;
  }
  Outcome OpenAndGet(Key key, void* bytes, std::size_t size) override {
    GsfInfile* opened = OpenToRead();
    if (opened == nullptr) return Outcome::kFailed;
    const Outcome outcome = FetchFrom(opened, key, bytes, size);
    Drop(opened);
    return outcome;
  }

  Outcome Append(int which, const void* bytes, std::size_t size) override {
    if (which != 0) return Outcome::kCannot;
    if (growing == nullptr) growing = gsf_outfile_new_child(out, "first", FALSE);
    return DoneIf(growing != nullptr &&
                  gsf_output_write(growing, size, static_cast<const guint8*>(bytes)) != 0);
  }
  Outcome ReadNext(void* bytes, std::size_t size) override {
    return DoneIf(gsf_input_read(stream, size, static_cast<guint8*>(bytes)) != nullptr);
  }

  /// The kept children read from the one file and written to the other.
  Outcome Compact(const std::string& goal) override {
    in = OpenToRead();
    if (in == nullptr || !StartWriting(goal)) return Outcome::kFailed;
    const int count = gsf_infile_num_children(in);
    std::vector<std::uint8_t> bytes(Given().size);
    bool carried = true;
    for (int i = 0; carried && i < count; ++i) {
      const std::string name = gsf_infile_name_by_index(in, i);
      if (dropped.count(name) != 0) continue;
      GsfInput* child = gsf_infile_child_by_index(in, i);
      carried = child != nullptr && gsf_input_read(child, bytes.size(), bytes.data()) != nullptr &&
                Put(Key{0, name}, bytes.data(), bytes.size()) == Outcome::kDone;
      Drop(child);
    }
    return DoneIf(carried && EndWriting());
  }

 private:
  bool StartWriting(const std::string& path) {
    GsfOutput* sink = gsf_output_stdio_new(path.c_str(), nullptr);
    if (sink == nullptr) return false;
    out = gsf_outfile_msole_new(sink);
    Drop(sink);
    return out != nullptr;
  }
  bool EndWriting() {
    bool done = true;
    if (growing != nullptr) done = gsf_output_close(growing) != 0;
    Drop(growing);
    if (out != nullptr) done = gsf_output_close(GSF_OUTPUT(out)) != 0 && done;
    Drop(out);
    return done;
  }
  GsfInfile* OpenToRead() const {
    GsfInput* source = gsf_input_mmap_new(File("gsf").c_str(), nullptr);
    if (source == nullptr) return nullptr;
    GsfInfile* const opened = gsf_infile_msole_new(source, nullptr);
    Drop(source);
    return opened;
  }
  static Outcome FetchFrom(GsfInfile* from, Key key, void* bytes, std::size_t size) {
    GsfInput* child = gsf_infile_child_by_name(from, key.name.c_str());
    if (child == nullptr) return Outcome::kFailed;
    const bool read = gsf_input_size(child) == static_cast<gsf_off_t>(size) &&
                      gsf_input_read(child, size, static_cast<guint8*>(bytes)) != nullptr;
    Drop(child);
    return DoneIf(read);
  }

  GsfOutfile* out = nullptr;
  GsfOutput* growing = nullptr;
  GsfInfile* in = nullptr;
  GsfInput* stream = nullptr;
  std::unordered_set<std::string> dropped;
};

}  // namespace

std::string AddGsf(std::vector<Competitor>& competitors) {
  competitors.push_back({"libgsf", []() -> StorePtr { return std::make_unique<GsfStore>(); },
                         kWorks | kChanges | kCompaction});
  return "libgsf " + std::to_string(libgsf_major_version) + "." +
         std::to_string(libgsf_minor_version) + "." + std::to_string(libgsf_micro_version);
}

}  // namespace aobench

#else

namespace aobench {
std::string AddGsf(std::vector<Competitor>&) { return ""; }
}  // namespace aobench

#endif  // HAVE_GSF
