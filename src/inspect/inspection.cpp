// The public face of the inspection.
#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include <aostorage/inspect.h>

#include "inspect/inspected_file.h"
#include "inspect/walker.h"
#include "platform/file.h"
#include "platform/last_error.h"

namespace aostorage {
namespace {

using namespace detail;

// The header, as far as there is one; else the form whose directory block is there.
void ReadHeader(InspectedFile& file) {
  std::uint8_t bytes[StorageFileHeader::kSize] = {};
  if (file.view.ReadExactly(0, bytes, sizeof bytes)) {
    if (const auto header = StorageFileHeader::Decode(bytes)) {
      file.hasHeader = true;
      file.header = *header;
    }
  }
  if (!file.hasHeader) {
    std::uint8_t magic[4] = {};
    static_cast<void>(file.view.Read(StorageFileHeader::kOlderSize, magic, sizeof magic));
    if (Load32(magic) == DirectoryBlock::kMagic)
      file.header.firstDirectoryOffset = StorageFileHeader::kOlderSize;
  }
  file.headerSize = file.header.firstDirectoryOffset;
}

std::string Place(const char* what, std::uint64_t number) {
  return std::string("<") + what + " " + std::to_string(number) + ">";
}

}  // namespace

struct Inspection::Data {
  explicit Data(FileView view) : file(std::move(view)) {}
  std::string Name(std::uint32_t stream) const;
  std::string Path(std::uint32_t stream) const;
  std::uint64_t Stream(std::uint32_t stream,
                       const std::function<bool(const void*, std::size_t)>& take,
                       std::uint64_t from) const;
  InspectedFile file;
};

Inspection::Inspection(std::unique_ptr<Data> found) : data(std::move(found)) {}
Inspection::~Inspection() = default;

std::unique_ptr<Inspection> Inspection::Of(const char* path, const InspectOptions& options) {
  return Guarded("Inspection::Of", std::unique_ptr<Inspection>(),
                 [&]() -> std::unique_ptr<Inspection> {
                   if (path == nullptr) {
                     Fail(ErrorCode::kNameUnusable);
                     return nullptr;
                   }
                   File source = File::Open(path, File::Access::kRead);
                   if (!source.IsOpen()) return nullptr;
                   const auto size = source.Size();
                   if (!size) return nullptr;
                   auto found = std::make_unique<Data>(FileView(std::move(source), *size));
                   ReadHeader(found->file);
                   if (!found->file.hasHeader) {
                     if (!options.salvage) {
                       Fail(ErrorCode::kNotAStorage, 0);
                       return nullptr;
                     }
                     found->file.findings.Add(Rule::kFileHeader, 0, kNoIndex, "other magic text");
                   }
                   if (!Walker(found->file, options).Run()) {
                     Fail(ErrorCode::kCancelled);
                     return nullptr;
                   }
                   return std::unique_ptr<Inspection>(new Inspection(std::move(found)));
                 });
}

std::uint64_t Inspection::FileSize() const noexcept { return data->file.view.Size(); }
bool Inspection::HasFileHeader() const noexcept { return data->file.hasHeader; }
bool Inspection::IsOlderForm() const noexcept {
  return data->file.headerSize == StorageFileHeader::kOlderSize;
}
std::uint16_t Inspection::SlotsPerDirectory() const noexcept {
  return data->file.header.slotsPerDirectory;
}
std::uint16_t Inspection::ReservedSlotCount() const noexcept {
  return data->file.header.reservedSlotCount;
}
std::uint32_t Inspection::FileHeaderSize() const noexcept { return data->file.headerSize; }

const std::vector<InspectedStream>& Inspection::Streams() const noexcept {
  return data->file.streams;
}
const std::vector<InspectedBlock>& Inspection::Blocks() const noexcept { return data->file.blocks; }
const std::vector<InspectedDirectory>& Inspection::Directories() const noexcept {
  return data->file.directories;
}
const std::vector<Finding>& Inspection::Findings() const noexcept {
  return data->file.findings.All();
}
std::uint64_t Inspection::CountOf(Rule rule) const noexcept {
  return data->file.findings.CountOf(rule);
}
std::uint64_t Inspection::CountOf(Severity severity) const noexcept {
  return data->file.findings.CountOf(severity);
}

std::uint64_t Inspection::BytesMadeUp() const noexcept { return data->file.view.BytesMadeUp(); }

std::string Inspection::NameOf(std::uint32_t stream) const {
  return Guarded("Inspection::NameOf", std::string(), [&] { return data->Name(stream); });
}

std::string Inspection::PathOf(std::uint32_t stream) const {
  return Guarded("Inspection::PathOf", std::string(), [&] { return data->Path(stream); });
}

bool Inspection::ForEachRecord(const std::function<bool(const Record&)>& take) const {
  return Guarded("Inspection::ForEachRecord", false, [&] {
    return detail::ForEachRecord(data->file, [&take](const Record& record) {
      const Callback outside;
      return take(record);
    });
  });
}

std::size_t Inspection::Read(std::uint64_t offset, void* buffer, std::size_t count) const {
  return Guarded("Inspection::Read", std::size_t{0},
                 [&] { return data->file.view.Read(offset, buffer, count); });
}

std::uint64_t Inspection::ReadStream(
    std::uint32_t stream, const std::function<bool(const void* bytes, std::size_t count)>& take,
    std::uint64_t from) const {
  return Guarded("Inspection::ReadStream", std::uint64_t{0},
                 [&] { return data->Stream(stream, take, from); });
}

std::string Inspection::Data::Name(std::uint32_t stream) const {
  if (stream >= file.streams.size()) return "";
  const InspectedStream& found = file.streams[stream];
  switch (found.origin) {
    case StreamOrigin::kOrphanChain:
      return Place("orphan", found.header.firstBlock);
    case StreamOrigin::kVacated:
      return Place("removed", found.headerOffset);
    case StreamOrigin::kUnusedSlot:
      return Place("unused", found.headerOffset);
    case StreamOrigin::kDamagedSlot:
      return Place("damaged", found.headerOffset);
    default:
      break;
  }
  const char* const begin = found.header.name;
  return {begin, std::find(begin, begin + sizeof found.header.name, '\0')};
}

std::string Inspection::Data::Path(std::uint32_t stream) const {
  std::vector<std::uint32_t> way;
  for (std::uint32_t at = stream; at < file.streams.size(); at = file.streams[at].parent) {
    way.push_back(at);
  }
  std::string path;
  if (!way.empty()) {
    const StreamOrigin top = file.streams[way.back()].origin;
    if (top == StreamOrigin::kLostDirectory || top == StreamOrigin::kLoneRecord) path = "<lost>/";
  }
  for (auto step = way.rbegin(); step != way.rend(); ++step) {
    if (step != way.rbegin()) path += '/';
    path += Name(*step);
  }
  return path;
}

std::uint64_t Inspection::Data::Stream(
    std::uint32_t stream, const std::function<bool(const void* bytes, std::size_t count)>& take,
    std::uint64_t from) const {
  if (stream >= file.streams.size()) return 0;
  const InspectedStream& found = file.streams[stream];
  const bool hasLength = found.headerOffset != 0 && found.origin != StreamOrigin::kVacated;
  const std::uint64_t end =
      hasLength ? std::min<std::uint64_t>(found.header.length, found.dataBytes) : found.dataBytes;
  constexpr std::size_t kPiece = 65536;
  std::vector<std::uint8_t> piece(kPiece);
  std::uint64_t given = 0;
  while (from + given < end) {
    const auto wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, end - from - given));
    const std::size_t got = ReadChain(file, found, from + given, piece.data(), wanted);
    if (got == 0) break;
    given += got;
    const Callback outside;
    if (!take(piece.data(), got)) break;
  }
  return given;
}

}  // namespace aostorage
