// The look from outside, at any bytes: each byte of the file once, every stream read, in both
// modes.
#include <sys/stat.h>

#include <aostorage/inspect.h>

#include "support/input.h"
#include "support/meter.h"
#include "support/scratch.h"
#include "targets/targets.h"

namespace aostorage::fuzz {
namespace {

void CheckRecords(const Inspection& found) {
  std::uint64_t end = 0;
  found.ForEachRecord([&](const Record& record) {
    if (record.state == RecordState::kOverlapping && record.kind == RecordKind::kBlockHeader &&
        record.block == kNoIndex)
      return true;  // lies on others
    Require(record.size != 0 || found.FileSize() == 0, "a record is empty");
    Require(record.offset == end,
            "a byte of the file belongs to no record, or to two:", std::to_string(end));
    Require(record.stream == kNoIndex || record.stream < found.Streams().size(), "no such stream");
    Require(record.block == kNoIndex || record.block < found.Blocks().size(), "no such block");
    end += record.size;
    return true;
  });
  Require(end == found.FileSize(), "the records end elsewhere than the file");
}

void CheckStreams(Meter& measured, const Inspection& found) {
  const std::vector<InspectedStream>& streams = found.Streams();
  std::uint64_t all = 0;
  for (std::uint32_t i = 0; i < streams.size(); ++i) {
    const InspectedStream& stream = streams[i];
    Require(stream.parent == kNoIndex || stream.parent < i, "a child stands before its folder");
    Require(stream.firstBlock + std::uint64_t{stream.blockCount} <= found.Blocks().size() ||
                stream.blockCount == 0,
            "blocks out of range");
    Require(stream.firstChild + std::uint64_t{stream.childCount} <= streams.size() ||
                stream.childCount == 0,
            "children out of range");
    all += stream.dataBytes;
    if (i >= 100) continue;
    Require(!found.PathOf(i).empty() || stream.header.name[0] == 0, "a path is empty");
    std::uint64_t pieces = 0;
    const std::uint64_t given = measured.Reading("read a stream", [&] {
      return found.ReadStream(i, [&](const void*, std::size_t count) {
        pieces += count;
        return true;
      });
    });
    Require(given == pieces && given <= stream.dataBytes, "a stream gives other bytes");
    found.ReadStream(
        i, [](const void*, std::size_t) { return false; }, given / 2);
  }
  Require(all <= found.FileSize(), "the streams hold more than the file");
}

void CheckFindings(const Inspection& found) {
  std::uint64_t last = 0;
  for (const Finding& finding : found.Findings()) {
    Require(finding.offset >= last, "findings are out of order");
    last = finding.offset;
    Require(finding.stream == kNoIndex || finding.stream < found.Streams().size(),
            "no such stream");
    Require(found.CountOf(finding.rule) != 0 && found.CountOf(finding.severity) != 0 &&
                *finding.detail != 0 && *RuleName(finding.rule) != 0,
            "a finding is not counted, or says nothing");
  }
}

}  // namespace

void InspectFile(const std::uint8_t* data, std::size_t size) {
  const std::string path = ScratchFile("file", Bytes(data, data + size));
  Meter measured({path});
  for (const bool salvage : {false, true}) {
    InspectOptions options;
    options.salvage = salvage;
    const auto found =
        measured.Reading("inspect", [&] { return Inspection::Of(path.c_str(), options); });
    Require(found || !salvage, "nothing could be salvaged");
    if (!found) continue;
    CheckRecords(*found);
    CheckStreams(measured, *found);
    CheckFindings(*found);
    options.mostRecords = found->Streams().size() / 2;
    const auto part = Inspection::Of(path.c_str(), options);
    if (part) CheckRecords(*part);
  }
}

}  // namespace aostorage::fuzz
