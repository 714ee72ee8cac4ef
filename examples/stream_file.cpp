#include <cstdint>
#include <iostream>
#include <string>

#include <aostorage/aostorage.h>

using namespace aostorage;

void WriteReport(CFile& file) {  // knows nothing of streams
  const std::string text = "all is well";
  file.Write(text.data(), static_cast<std::uint32_t>(text.size()));
}

int main() {
  aoStorage* storage = aoStorage::Create("reports.aos", kWriteFlags, 0);
  if (storage == nullptr) return 1;
  aoStream* stream = storage->CreateStream("monday", kWriteFlags);
  if (stream == nullptr) return 1;

  CAoStreamFile file(stream);
  WriteReport(file);
  std::string text(file.GetLength(), '\0');
  if (text.empty() || file.Seek(0, 0) != 0) return 1;
  if (file.Read(text.data(), file.GetLength()) != text.size()) return 1;
  std::cout << file.GetStorageName() << ": " << text << '\n';
  stream->Release();
  storage->Release();
}
