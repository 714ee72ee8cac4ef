// One script over the whole interface. It must leave the same bytes however it is compiled, and
// each time: check_matrix.bash builds it in several ways, together with the library, and compares.
// Names and values have bytes above 0x7F, numbers are negative too.
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include <aostorage/aostorage.h>

using namespace aostorage;

namespace {

constexpr std::uint32_t kFolder = PackKind(true, 7);

// The order of two draws in one expression is the compiler's choice: each stands in its own.
std::uint32_t Draw(std::uint32_t end) {
  static std::uint64_t state = 7;
  state = state * 6364136223846793005U + 1442695040888963407U;
  return static_cast<std::uint32_t>(state >> 33) % end;
}

std::string Text(std::uint32_t longest) {
  std::string text(Draw(longest), ' ');
  for (char& c : text) c = static_cast<char>(1 + Draw(255));
  return text;
}

std::string Name(std::uint32_t of) {
  const std::uint32_t number = Draw(of);
  return {static_cast<char>(64 + number * 5), static_cast<char>(0xE1),
          static_cast<char>('a' + number % 26)};
}

void Change(aoStream& stream, std::ostream& told) {
  const std::uint32_t what = Draw(8), length = stream.GetLength();
  const std::uint32_t at = Draw(length + 1);
  told << what << ' ' << length << ' ' << stream.Seek(at, 0) << ' ';
  const std::string text = Text(Draw(9) == 0 ? 5000 : 90);
  const auto size = static_cast<std::uint32_t>(text.size());
  std::string read(300, '\0');
  switch (what) {
    case 0:
      told << stream.SetLength(at);
      break;
    case 1:
      told << stream.Erase();
      break;
    case 2:
      told << stream.Seek2(-static_cast<std::int32_t>(at / 2), 1);
      break;
    case 3:
      stream << static_cast<std::int32_t>(at) - 40 << at / 7.0 << text;
      break;
    case 4:
      told << stream.Read(read.data(), 300) << read;
      break;
    default:
      told << stream.Write(text.data(), size, what == 5);
  }
}

void Enter(aoStream& folder, std::ostream& told) {
  const std::string name = Name(6), text = Text(40);
  const char* n = name.c_str();
  const auto value = static_cast<std::int32_t>(Draw(100)) - 50;
  const tagRECT rect{value, -value, 3 * value, 0};
  switch (Draw(8)) {
    case 0:
      told << folder.SetEntry(n, value);
      break;
    case 1:
      told << folder.SetEntry(n, value / 3.0);
      break;
    case 2:
      told << folder.SetEntry(n, text.c_str());
      break;
    case 3:
      told << folder.SetEntry(n, &rect);
      break;
    case 4:
      told << folder.GetEntry(n, value) << folder.GetEntry(n, text.c_str());
      break;
    case 5:
      told << folder.SetEntryEraseOld(n, text.data(), static_cast<std::uint32_t>(text.size()));
      break;
    default:
      told << folder.SetEntry(n, text.data(), static_cast<std::uint32_t>(text.size()));
  }
}

void ChangeFolder(aoStorage& storage, aoStream& folder, std::ostream& told) {
  const std::string name = Name(6), other = Name(6), goal = Name(30);
  if (aoStream* child =
          folder.OpenOrCreateStream(name.c_str(), Draw(5) == 0 ? kFolder : 0, kWriteFlags)) {
    const std::uint32_t what = Draw(9);
    const bool gone = what == 0 && child->Remove();
    if (what == 1) told << child->Rename(other.c_str());
    if (what > 1 && child->IsFolder() != 0) Enter(*child, told);
    if (what > 1 && child->IsFolder() == 0) Change(*child, told);
    if (!gone) child->Release();
  }
  if (aoStream* to = Draw(20) == 0 ? storage.FindRootStorageWrite(goal.c_str()) : nullptr) {
    told << folder.CopyFolder(to);
    to->Release();
  }
}

void Tell(aoStorage& storage, std::ostream& told) {
  for (const int descending : {0, 1}) {
    storage.EnableSorting(1, descending);
    StreamCookie cookie = 0;
    for (aoStream* stream = storage.OpenStreamFirst(cookie, kReadFlags); stream != nullptr;
         stream = storage.OpenStreamNext(cookie, kReadFlags)) {
      std::vector<std::string> names;
      if (stream->IsFolder() != 0) stream->EnumStreams(names);
      told << '\n' << stream->GetName() << ' ' << stream->GetLength();
      for (const std::string& name : names) told << ' ' << name;
      stream->Release();
    }
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  const std::string folder = std::string(arguments[1]) + "/", path = folder + "script.aos";
  std::ofstream told(folder + "told");
  for (int round = 0; round < 3; ++round) {
    aoStorage* storage = aoStorage::OpenOrCreate(path.c_str(), kStreamWrite, 64);
    if (storage == nullptr) return 1;
    for (int step = 0; step < 500; ++step) {
      const std::string name = Name(30), other = Name(30);
      const char* n = name.c_str();
      const std::uint32_t what = Draw(12), kind = Draw(2) == 0 ? kFolder : PackKind(false, 3);
      told << '\n' << step << ' ' << what << ' ';
      if (what == 0) told << storage->SetEntryFast(n, static_cast<std::int64_t>(step) * -7777777);
      aoStream* stream = what == 1 ? storage->CreateStreamFast(n, kind, kWriteFlags)
                                   : storage->OpenOrCreateStream(n, kind);
      if (stream == nullptr) continue;
      const bool gone = what == 2 && Draw(3) == 0 && stream->Remove();
      if (what == 3) told << stream->Rename(other.c_str());
      if (what > 3 && stream->IsFolder() != 0) ChangeFolder(*storage, *stream, told);
      if (what > 3 && stream->IsFolder() == 0) Change(*stream, told);
      if (!gone) stream->Release();
    }
    Tell(*storage, told);
    storage->Release();
    const auto found = Inspection::Of(path.c_str());
    if (!found) return 1;
    for (std::uint32_t i = 0; i < found->Streams().size(); ++i) told << '\n' << found->PathOf(i);
    for (const Finding& finding : found->Findings())
      told << '\n' << finding.offset << RuleName(finding.rule);
    std::ofstream(folder + "before" + std::to_string(round)) << std::ifstream(path).rdbuf();
    if (aoStorage::Recreate(path.c_str()) != 1) return 1;
  }
  return told.good() ? 0 : 1;
}
