#include <algorithm>
#include <cerrno>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <aostorage/aostorage.h>
#include <aostorage/inspect.h>

#include "support/raw_file.h"
#include "support/syscalls.h"
#include "support/temp_dir.h"

namespace aostorage::testing {
namespace {

// A file made by hand:
//   slot 6 "plain"   400 bytes in two blocks with room for 300 each
//   slot 7 "box"     a folder with "kid" (50 bytes), a vacated slot over 60 bytes, "box2" (a
//   folder) slot 8           vacated, over 70 bytes
class InspectionOf : public ::testing::Test {
 protected:
  InspectionOf() {
    plain = file.AddStream(6, "plain", Pattern(400), {300, 300});
    kid = file.AddChain(Pattern(50));
    gone = file.AddChain(Pattern(60));
    box2 = file.AddChain(FolderPayload({}));
    Bytes vacated = StreamRecord("", false, 0, gone, gone);
    box = file.AddStream(7, "box",
                         FolderPayload({StreamRecord("kid", false, 50, kid, kid), vacated,
                                        StreamRecord("box2", true, 4, box2, box2)}),
                         {}, true);
    removed = file.AddChain(Pattern(70));
    file.PutSlot(8, StreamRecord("", false, 0, removed, removed));
  }

  std::uint32_t Child(std::uint32_t index) const { return box + 20 + 4 + kSlotSize * index; }
  std::uint32_t SecondOfPlain() const { return plain + 320; }

  std::unique_ptr<Inspection> Look(bool salvage = false) {
    WriteFile(path, file.bytes);
    InspectOptions options;
    options.salvage = salvage;
    return Inspection::Of(path.c_str(), options);
  }

  // What was found, the notes that the sound file has left out.
  std::set<std::string> Found(Severity least = Severity::kNote) {
    const auto inspection = Look(true);
    std::set<std::string> lines;
    for (const Finding& finding : inspection->Findings()) {
      if (finding.severity < least) continue;
      const bool usual = finding.rule == Rule::kRemovedStream &&
                         (finding.offset == Child(1) || finding.offset == file.SlotAt(8));
      if (usual) continue;
      lines.insert(std::string(RuleName(finding.rule)) + " " + std::to_string(finding.offset) +
                   " " + inspection->PathOf(finding.stream));
    }
    return lines;
  }

  void Put(std::size_t offset, std::uint32_t value) { Put32(file.bytes, offset, value); }

  TempDir dir;
  const std::string path = dir.File("store");
  FileBuilder file;
  std::uint32_t plain, kid, gone, box, box2, removed;
};

TEST_F(InspectionOf, ASoundFileTellsEveryRecordOnce) {
  const auto inspection = Look();
  EXPECT_EQ(Found(), std::set<std::string>());
  EXPECT_TRUE(inspection->SlotsPerDirectory() == 64 && inspection->ReservedSlotCount() == 6);
  const auto behind = static_cast<std::uint32_t>(inspection->Streams().size());
  EXPECT_EQ(inspection->PathOf(behind) + inspection->NameOf(behind), "");
  EXPECT_EQ(inspection->ReadStream(behind, [](const void*, std::size_t) { return true; }), 0U);
  EXPECT_STREQ(RuleName(static_cast<Rule>(99)), "?");
  EXPECT_STREQ(RuleText(static_cast<Rule>(99)), "");
  std::vector<std::string> lines;
  const char* const kinds[] = {"header", "directory", "slot",   "block",   "count",
                               "child",  "data",      "behind", "reserve", "unknown"};
  const char* const states[] = {"live", "unused", "vacated", "unreachable", "orphan", "overlap"};
  std::uint64_t end = 0;
  EXPECT_TRUE(inspection->ForEachRecord([&](const Record& record) {
    EXPECT_EQ(record.offset, end);
    end = record.offset + record.size;
    if (record.state == RecordState::kUnused) return true;
    lines.push_back(std::string(kinds[static_cast<int>(record.kind)]) + " " +
                    std::to_string(record.size) + " " + states[static_cast<int>(record.state)] +
                    " " + inspection->PathOf(record.stream));
    return true;
  }));
  EXPECT_EQ(end, file.bytes.size());
  const std::string inBox = "box/<removed " + std::to_string(Child(1)) + ">";
  const std::string atRoot = "<removed " + std::to_string(file.SlotAt(8)) + ">";
  EXPECT_EQ(lines,
            (std::vector<std::string>{"header 32 live ",           "directory 12 live ",
                                      "slot 80 live plain",        "slot 80 live box",
                                      "slot 80 vacated " + atRoot, "block 20 live plain",
                                      "data 300 live plain",       "block 20 live plain",
                                      "data 100 live plain",       "reserve 200 live plain",
                                      "block 20 live box/kid",     "data 50 live box/kid",
                                      "block 20 vacated " + inBox, "data 60 vacated " + inBox,
                                      "block 20 live box/box2",    "count 4 live box/box2",
                                      "block 20 live box",         "count 4 live box",
                                      "child 80 live box/kid",     "child 80 vacated " + inBox,
                                      "child 80 live box/box2",    "block 20 vacated " + atRoot,
                                      "data 70 vacated " + atRoot}));
}

TEST_F(InspectionOf, WhatTheSystemCannotReadIsNamedAndTakenAsZeros) {
  Look();
  std::size_t k = 1;
  for (;; ++k) {
    SCOPED_TRACE(k);
    Watch watch;
    watch.FailAt(k, Only(Call::kRead), EIO, 1);  // a page, then its first sector
    InspectOptions options;
    options.salvage = true;
    const auto inspection = Inspection::Of(path.c_str(), options);
    if (!watch.FaultFired()) break;
    ASSERT_TRUE(inspection);
    EXPECT_EQ(inspection->CountOf(Rule::kUnreadable), 1U);
    EXPECT_GT(inspection->BytesMadeUp(), 0U);
    std::uint64_t end = 0;
    inspection->ForEachRecord([&](const Record& record) {
      EXPECT_EQ(record.offset, end);
      end = record.offset + record.size;
      return true;
    });
    EXPECT_EQ(end, file.bytes.size());
  }
  EXPECT_GT(k, 1U);
}

TEST_F(InspectionOf, BrokenRulesAreNamedWithTheirPlace) {
  struct Row {
    const char* what;
    std::function<void()> damage;
    std::set<std::string> expected;
    bool alsoOthers = false;  // what follows from it may be told as well
  };
  const auto at = [](std::uint64_t offset, const std::string& rest) {
    return std::to_string(offset) + " " + rest;
  };
  const std::uint32_t slot6 = file.SlotAt(6), slot7 = file.SlotAt(7), size = 0x10000000;
  const std::vector<Row> rows = {
      {"magic text", [&] { file.bytes[3] ^= 1; }, {"I1 0 ", "N6 0 "}},
      {"first directory", [&] { Put(32, 0); }, {"I2 32 "}, true},
      {"slotCount", [&] { Put(36, 65); }, {"I3 36 "}},
      {"directory to nowhere", [&] { Put(40, size); }, {"I3 40 "}},
      {"directory in a circle", [&] { Put(40, 32); }, {"I4 40 "}},
      {"slot magic", [&] { Put(slot6, 0); }, {"I6 " + at(slot6, "plain")}},
      {"name without end",
       [&] { std::fill_n(file.bytes.begin() + slot6 + 4, 61, 'x'); },
       {"I6 " + at(slot6 + 4, std::string(61, 'x'))}},
      {"bytes behind the name",
       [&] { file.bytes[slot6 + 40] = 1; },
       {"I6 " + at(slot6 + 9, "plain")}},
      {"kind", [&] { file.bytes[slot6 + 67] = 2; }, {"I6 " + at(slot6 + 67, "plain")}},
      {"empty slot", [&] { Put(file.SlotAt(20), 7); }, {"I7 " + at(file.SlotAt(20), "")}},
      {"vacated slot", [&] { Put(file.SlotAt(8) + 68, 7); }, {"I8 " + at(file.SlotAt(8), "")}},
      {"slot in a folder",
       [&] { Put(Child(1), 0); },
       {"I9 " + at(Child(1), "box/<damaged " + std::to_string(Child(1)) + ">"),
        "N5 " + at(gone, "<orphan " + std::to_string(gone) + ">")}},
      {"length without a block",
       [&] { Put(Child(0) + 76, 0); },
       {"I10 " + at(Child(0) + 68, "box/kid"), "I10 " + at(Child(0) + 72, "box/kid"),
        "N5 " + at(kid, "<orphan " + std::to_string(kid) + ">")}},
      {"block magic",
       [&] { Put(SecondOfPlain(), 0); },
       {"I11 " + at(SecondOfPlain(), "plain")},
       true},
      {"used above capacity", [&] { Put(plain + 4, 321); }, {"I11 " + at(plain, "plain")}, true},
      {"capacity above the file",
       [&] { Put(removed + 8, 91); },
       {"I12 " + at(removed, "<removed " + std::to_string(file.SlotAt(8)) + ">")}},
      {"file cut in data",
       [&] { file.bytes.resize(removed + 60); },
       {"I12 " + at(removed, "<removed " + std::to_string(file.SlotAt(8)) + ">")}},
      {"next leads out",
       [&] { Put(SecondOfPlain() + 16, size); },
       {"I13 " + at(SecondOfPlain() + 16, "plain")}},
      {"next leads back", [&] { Put(SecondOfPlain() + 16, plain); }, {"I13 " + at(plain, "plain")}},
      {"prev", [&] { Put(SecondOfPlain() + 12, 0); }, {"I14 " + at(SecondOfPlain(), "plain")}},
      {"first block of another",
       [&] { Put(slot6 + 76, kid); },
       {"I15 " + at(kid, "plain"), "I24 " + at(slot6 + 68, "plain"),
        "N5 " + at(plain, "<orphan " + std::to_string(plain) + ">")}},
      {"next block of another",
       [&] { Put(SecondOfPlain() + 16, kid); },
       {"I15 " + at(kid, "plain")}},
      {"length above the data", [&] { Put(slot6 + 68, 401); }, {"I16 " + at(slot6 + 68, "plain")}},
      {"lastBlock", [&] { Put(slot6 + 72, kid); }, {"I17 " + at(slot6 + 72, "plain")}},
      {"no count word",
       [&] { Put(box2 + 4, 23); },
       {"I16 " + at(Child(2) + 68, "box/box2"), "I19 " + at(Child(2), "box/box2")}},
      {"count too high", [&] { Put(box + 20, 4); }, {"I20 " + at(box + 20, "box")}},
      {"count too low by one", [&] { Put(box + 20, 2); }, {"N3 " + at(Child(2), "box/box2")}},
      {"count too low",
       [&] { Put(box + 20, 0); },
       {"I21 " + at(box + 20, "box"), "N3 " + at(Child(0), "box/kid"),
        "N3 " + at(Child(2), "box/box2")}},
      {"folder in itself",
       [&] { Put(Child(2) + 72, 0), Put(Child(2) + 76, box); },
       {"I23 " + at(box, "box/box2"), "I24 " + at(Child(2) + 68, "box/box2"),
        "N5 " + at(box2, "<orphan " + std::to_string(box2) + ">")}},
      {"length above the room", [&] { Put(slot6 + 68, 601); }, {"I24 " + at(slot6 + 68, "plain")}},
      {"hidden at the root",
       [&] { file.PutSlot(7, StreamRecord("plain", false, 0, 0)); },
       {"N2 " + at(slot6, "plain")},
       true},
      {"hidden in a folder",
       [&] {
         const Bytes record = StreamRecord("kid", true, 4, box2, box2);
         std::copy(record.begin(), record.end(), file.bytes.begin() + Child(2));
       },
       {"N2 " + at(Child(2), "box/kid")}},
      {"lost header", [&] { Put(32, 0); }, {"N4 " + at(slot7, "<lost>/box")}, true},
      {"bytes of nobody",
       [&] { file.bytes.resize(file.bytes.size() + 5, 0xFA); },
       {"N6 " + at(file.bytes.size(), "")}},
  };
  const Bytes sound = file.bytes;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    file.bytes = sound;
    row.damage();
    const std::set<std::string> found = Found();
    if (!row.alsoOthers) {
      EXPECT_EQ(found, row.expected);
    } else {
      EXPECT_TRUE(
          std::includes(found.begin(), found.end(), row.expected.begin(), row.expected.end()))
          << ::testing::PrintToString(found);
    }
  }
}

TEST_F(InspectionOf, AWrongLinkTakesNoBlockFromItsOwner) {
  // Slot 5 comes before "plain" and claims the chain that "plain" and its links agree on.
  file.PutSlot(5, StreamRecord("thief", false, 100, SecondOfPlain(), SecondOfPlain()));
  Put(file.SlotAt(6) + 72, SecondOfPlain());
  const auto inspection = Look();
  for (const InspectedStream& stream : inspection->Streams()) {
    const std::string name = stream.header.name;
    if (name == "plain") {
      EXPECT_EQ(stream.blockCount + 10U * stream.shared, 2U);
    }
    if (name == "thief") {
      EXPECT_EQ(stream.blockCount + 10U * stream.shared, 10U);
    }
  }
}

TEST_F(InspectionOf, BlocksInTheDataOfAnotherAreToldOneByOne) {
  Bytes data = Pattern(70000);
  for (const std::size_t at : {50U, 120U}) {
    Put32(data, at, kBlockMagic), Put32(data, at + 4, 40), Put32(data, at + 8, 40);
    Put32(data, at + 12, 0), Put32(data, at + 16, 0);
  }
  const std::uint32_t host = file.AddStream(9, "host", data);
  file.PutSlot(10, StreamRecord("x", false, 20, host + 20 + 50));
  file.PutSlot(11, StreamRecord("y", false, 20, host + 20 + 120));
  Put(file.SlotAt(9) + 68, 66000);
  const auto inspection = Look();
  std::size_t overlapping = 0;
  inspection->ForEachRecord([&overlapping](const Record& record) {
    const bool onOthers = record.state == RecordState::kOverlapping && record.block == kNoIndex;
    overlapping += onOthers ? 1U : 0U;
    return true;
  });
  EXPECT_EQ(overlapping, 2U);
  for (std::uint32_t i = 0; i < inspection->Streams().size(); ++i) {
    if (inspection->PathOf(i) != "host") continue;
    const auto take = [](const void*, std::size_t) { return true; };
    EXPECT_EQ(inspection->ReadStream(i, take), 66000U) << "not what lies behind the length";
  }
}

TEST_F(InspectionOf, WithoutItsHeaderTheNamesAreFoundAgain) {
  std::fill_n(file.bytes.begin(), 400, 0);  // header, head of the directory, the first slots
  EXPECT_EQ(Look(), nullptr);
  EXPECT_EQ(LastError().code, ErrorCode::kNotAStorage);
  const auto inspection = Look(true);
  std::set<std::string> paths;
  for (std::uint32_t i = 0; i < inspection->Streams().size(); ++i) {
    Bytes bytes;
    inspection->ReadStream(i, [&bytes](const void* piece, std::size_t count) {
      const auto* from = static_cast<const std::uint8_t*>(piece);
      bytes.insert(bytes.end(), from, from + count);
      return true;
    });
    if (inspection->Streams()[i].origin != StreamOrigin::kVacated)
      paths.insert(inspection->PathOf(i) + "=" + std::to_string(bytes.size()));
    if (inspection->PathOf(i) == "<lost>/plain") {
      EXPECT_EQ(bytes, Pattern(400));
    }
    if (inspection->PathOf(i) == "<lost>/box/kid") {
      EXPECT_EQ(bytes, Pattern(50));
    }
  }
  EXPECT_EQ(paths, (std::set<std::string>{"<lost>/plain=400", "<lost>/box=244", "<lost>/box/kid=50",
                                          "<lost>/box/box2=4"}));
}

TEST_F(InspectionOf, ChainsWithoutAnOwnerKeepTheNamesBelowThem) {
  file.PutSlot(7, Bytes(kSlotSize));  // the folder's header is gone
  const std::uint32_t deep = file.AddChain(Pattern(20));
  const std::uint32_t inner = file.AddChain(FolderPayload({StreamRecord("deep", false, 20, deep)}));
  const std::uint32_t outer = file.AddChain(FolderPayload({StreamRecord("in", true, 84, inner)}));
  const auto inspection = Look();
  std::set<std::string> paths;
  for (std::uint32_t i = 0; i < inspection->Streams().size(); ++i)
    paths.insert(inspection->PathOf(i));
  const std::string lost = "<orphan " + std::to_string(box) + ">";
  const std::string second = "<orphan " + std::to_string(outer) + ">";
  EXPECT_EQ(paths, (std::set<std::string>{"plain", lost, lost + "/kid", lost + "/box2", second,
                                          second + "/in", second + "/in/deep",
                                          lost + "/<removed " + std::to_string(Child(1)) + ">",
                                          "<removed " + std::to_string(file.SlotAt(8)) + ">"}));
}

// Many names for one long chain, a folder of folders that all lead to one another: no walk may
// follow every way.
TEST_F(InspectionOf, ManyWaysToTheSameBytesAreGoneOnce) {
  const std::uint32_t chain = file.AddChain(Pattern(40000), std::vector<std::uint32_t>(40000, 1));
  std::vector<Bytes> records;
  for (std::uint32_t i = 0; i < 20000; ++i)
    records.push_back(
        StreamRecord("s" + std::to_string(i), i % 2 == 1, 40000, chain + 21 * (i % 40000)));
  file.AddStream(9, "many", FolderPayload(records), {}, true);
  const auto inspection = Look();
  EXPECT_GT(inspection->CountOf(Rule::kNoOverlap), 10000U);
  EXPECT_LE(inspection->Findings().size(), 10000U);  // they are counted, not all kept
  EXPECT_EQ(inspection->Blocks().size(), 40000U + 8);

  InspectOptions options;
  options.mostRecords = 1000;
  const auto bounded = Inspection::Of(path.c_str(), options);
  EXPECT_LE(bounded->Streams().size() + bounded->Blocks().size(), 1000U + 64);
  EXPECT_EQ(bounded->CountOf(Rule::kGivenUp), 1U);

  options.goOn = [](std::uint64_t, std::uint64_t) { return false; };
  EXPECT_EQ(Inspection::Of(path.c_str(), options), nullptr);
  EXPECT_EQ(LastError().code, ErrorCode::kCancelled);
}

// Blocks that nobody reaches may lead round in circles: empty ones, and such as lie hidden in the
// data of one another.
TEST_F(InspectionOf, OrphansInACircleComeToAnEnd) {
  const Bytes sound = file.bytes;
  const auto size = static_cast<std::uint32_t>(sound.size());
  const auto block = [this](std::uint32_t at, std::uint32_t bytes, std::uint32_t other) {
    file.bytes.resize(std::max<std::size_t>(file.bytes.size(), at + bytes));
    Put(at, kBlockMagic), Put(at + 4, bytes), Put(at + 8, bytes);
    Put(at + 12, other), Put(at + 16, other);
  };
  block(size, 20, size);
  EXPECT_EQ(Look()->CountOf(Rule::kOrphanChain), 1U) << "one that follows itself";
  file.bytes = sound;
  block(size, 20, size + 20);
  block(size + 20, 20, size);
  EXPECT_EQ(Look()->CountOf(Rule::kOrphanChain), 1U) << "two that follow each other";
  file.bytes = sound;
  block(size, 240, size + 120);
  const Bytes record = StreamRecord("k", false, 0, 0);
  std::copy(record.begin(), record.end(), file.bytes.begin() + size + 20);
  block(size + 120, 20, size);
  EXPECT_EQ(Look()->CountOf(Rule::kOrphanChain), 1U) << "one inside the other";
}

}  // namespace
}  // namespace aostorage::testing
