// The life of a folder with each call failing once: what was committed before is there afterwards.
#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>

#include "folder/storage_fixture.h"

namespace aostorage::testing {
namespace {

using Tree = std::map<std::string, Bytes>;  // path to value; a folder's value is empty

struct Step {
  std::string label;
  std::function<bool(aoStorage&)>
      perform;  // anew from the root each time, so that it can be repeated
  std::function<void(Tree&)> expect;
};

Stream OpenPath(aoStorage& storage, const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return Stream(storage.OpenStream(path.c_str(), kWriteFlags));
  const Stream parent = OpenPath(storage, path.substr(0, slash));
  return Stream(parent ? parent->OpenStream(path.substr(slash + 1).c_str(), kWriteFlags) : nullptr);
}

// Runs `change` on the folder of the path, with the child's name.
std::function<bool(aoStorage&)> InFolder(
    const std::string& path, const std::function<bool(aoStream&, const char*)>& change) {
  return [=](aoStorage& storage) {
    const Stream folder = OpenPath(storage, path.substr(0, path.rfind('/')));
    return folder && change(*folder, path.substr(path.rfind('/') + 1).c_str());
  };
}

Step Make(const std::string& path, bool folder) {
  return {"make " + path,
          InFolder(path,
                   [=](aoStream& parent, const char* name) {
                     return Got(parent.OpenOrCreateStream(name, PackKind(folder), kWriteFlags));
                   }),
          [=](Tree& tree) { tree[path]; }};
}

Step Write(const std::string& path, std::uint32_t position, std::size_t count) {
  const Bytes data = Pattern(count, position);
  return {"write " + path,
          InFolder(path,
                   [=](aoStream& parent, const char* name) {
                     const Stream child(parent.OpenStream(name, kWriteFlags));
                     if (!child || (child->Seek(position, 0) != 0 && position != 0)) return false;
                     return child->Write(data.data(), static_cast<std::uint32_t>(count)) == count;
                   }),
          [=](Tree& tree) {
            tree[path].resize(std::max(tree[path].size(), position + count));
            std::copy(data.begin(), data.end(), tree[path].begin() + position);
          }};
}

Step RemoveAt(const std::string& path) {
  return {"remove " + path,
          InFolder(path,
                   [](aoStream& parent, const char* name) {
                     Stream child(parent.OpenStream(name, kWriteFlags));
                     return !child || Remove(child);
                   }),
          [=](Tree& tree) {
            for (auto it = tree.lower_bound(path);
                 it != tree.end() && it->first.compare(0, path.size(), path) == 0;) {
              it = tree.erase(it);
            }
          }};
}

std::vector<Step> FolderLife() {
  return {
      Make("f/a", false),
      Write("f/a", 0, 30),
      Make("f/b", false),
      Write("f/b", 0, 200),
      Make("f/sub", true),
      Make("f/sub/x", false),
      Write("f/sub/x", 0, 90),
      Write("f/a", 30, 300),  // beyond its first block
      {"rename f/b",
       InFolder("f/b",
                [](aoStream& parent, const char* name) {
                  const Stream child(parent.OpenStream(name, kWriteFlags));
                  return child ? child->Rename("bb") : Got(parent.OpenStream("bb", kReadFlags));
                }),
       [](Tree& tree) { tree["f/bb"] = tree.extract("f/b").mapped(); }},
      {"set f/entry",
       InFolder("f/entry",
                [](aoStream& parent, const char* name) {
                  return parent.SetEntry(name, std::int32_t{1}) == 1 &&
                         parent.GetEntry(name, std::int32_t{0}) == 1;
                }),
       [](Tree& tree) {
         tree["f/entry"] = {1, 0, 0, 0};
       }},
      {"log f/log",
       InFolder("f/log",
                [](aoStream& parent, const char* name) {
                  if (Got(parent.OpenStream(name, kReadFlags))) return true;
                  return parent.SetEntry(name, "value", 5) == 1;
                }),
       [](Tree& tree) { tree["f/log"] = {4, 0, 0, 0, 'v', 'a', 'l', 'u', 'e'}; }},
      RemoveAt("f/a"),
      Make("f/c", false),  // in the slot and the chain of a
      Write("f/c", 0, 350),
      RemoveAt("f/sub"),
      Make("f/next", true),  // over the chain of sub
      Make("f/next/y", false),
      Write("f/next/y", 0, 40),
  };
}

class FolderFaults : public StorageFileTest, public ::testing::WithParamInterface<int> {
 protected:
  // Both kinds of fault: the call fails, or a write at the end of the file stops after some bytes.
  void Plan(Watch& watch, std::size_t k) const {
    if (GetParam() == 0) {
      watch.FailAt(k, Only(Call::kRead) | Only(Call::kWrite) | Only(Call::kState), EIO);
    } else {
      watch.CutAppendAt(k, static_cast<std::size_t>(GetParam()), ENOSPC);
    }
  }
  // What is in `before` and in `after` alike stands in the file; what changes may be on its way.
  void CheckTree(const Tree& before, const Tree& after) const {
    const Storage storage = Open();
    ASSERT_TRUE(storage);
    for (const auto& [streamPath, value] : before) {
      const auto later = after.find(streamPath);
      if (later == after.end()) continue;
      const Stream stream = OpenPath(*storage, streamPath);
      ASSERT_TRUE(stream) << streamPath;
      const bool settled = stream->IsFolder() == 0 && later->second == value;
      ASSERT_TRUE(!settled || ReadValue(*stream) == value) << streamPath;
    }
    if (before.count("f/b") == 1 && after.count("f/b") == 0) {
      ASSERT_TRUE(OpenPath(*storage, "f/b") || OpenPath(*storage, "f/bb"))
          << "lost between two names";
    }
    ASSERT_EQ("", CheckFile(path, Rules::kAfterFault));
  }
  void Start() {
    const Storage storage = Create();
    ASSERT_TRUE(Got(storage->CreateStream("f", kFolderKind, kWriteFlags)));
    Stream other(storage->CreateStream("other", kWriteFlags));
    ASSERT_TRUE(Append(*other, Pattern(50)));
  }
  static constexpr std::size_t kMostCalls = 1000;
};

TEST_P(FolderFaults, LoseNothingThatWasCommitted) {
  bool fired = true;
  for (std::size_t k = 1; fired && k < kMostCalls; ++k) {
    Start();
    Tree before{{"f", {}}, {"other", Pattern(50)}}, after = before;
    std::string label = "the whole life";
    {
      const Storage storage = Open(40);
      Watch watch;
      Plan(watch, k);
      for (const Step& step : FolderLife()) {
        step.expect(after);
        const bool done = step.perform(*storage);
        fired = watch.FaultFired();
        // A creation may tell success and the count word not have reached the file: the step counts
        // as on its way.
        if (fired) {
          label = step.label;
          break;
        }
        ASSERT_TRUE(done) << step.label;
        before = after;
      }
    }
    SCOPED_TRACE("call " + std::to_string(k) + " in " + label);
    ASSERT_NO_FATAL_FAILURE(CheckTree(before, after));
  }
  EXPECT_FALSE(fired);
}

TEST_P(FolderFaults, AreOvercomeByASecondTry) {
  bool fired = true;
  for (std::size_t k = 1; fired && k < kMostCalls; ++k) {
    Start();
    Tree tree{{"f", {}}, {"other", Pattern(50)}};
    {
      const Storage storage = Open(40);
      Watch watch;
      Plan(watch, k);
      for (const Step& step : FolderLife()) {
        const bool firedBefore = watch.FaultFired();
        const bool done = step.perform(*storage);
        SCOPED_TRACE("call " + std::to_string(k) + " in " + step.label);
        ASSERT_TRUE(done || !firedBefore) << "only the failed call makes a step fail";
        if (watch.FaultFired() && !firedBefore) {
          // A folder may be there without its count word, and a log entry without its value,
          // whatever the call told: begun anew they are whole.
          const std::size_t name = step.label.find("f/");
          const bool begins =
              step.label.compare(0, 4, "make") == 0 || step.label.compare(0, 3, "log") == 0;
          if (begins) RemoveAt(step.label.substr(name)).perform(*storage);
          ASSERT_TRUE(step.perform(*storage));
        }
        step.expect(tree);
      }
      fired = watch.FaultFired();
    }
    SCOPED_TRACE("call " + std::to_string(k));
    ASSERT_NO_FATAL_FAILURE(CheckTree(tree, tree));
    ASSERT_EQ(Image().streams.size(), tree.size()) << "nothing came twice";
  }
  EXPECT_FALSE(fired);
}

INSTANTIATE_TEST_SUITE_P(Faults, FolderFaults, ::testing::Values(0, 1, 21, 70),
                         [](const auto& row) {
                           return row.param == 0 ? std::string("Fails")
                                                 : "CutAfter" + std::to_string(row.param);
                         });

}  // namespace
}  // namespace aostorage::testing
