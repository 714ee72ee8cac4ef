#include <filesystem>
#include <iostream>
#include <string>

#include <aostorage/aostorage.h>

int main() {
  using namespace aostorage;
  aoStorage* storage = aoStorage::Create("drafts.aos", kWriteFlags, 0);
  if (storage == nullptr) return 1;
  aoStream* draft = storage->CreateStream("draft", kWriteFlags);
  aoStream* text = storage->CreateStream("text", kWriteFlags);
  if (draft == nullptr || text == nullptr) return 1;
  const std::string pages(100000, 'x');
  if (draft->Write(pages.data(), 100000) != 100000 || text->Write("done", 4) != 4) return 1;
  if (!draft->Remove()) return 1;  // its 100,000 bytes stay in the file
  text->Release();
  storage->Release();

  const auto before = std::filesystem::file_size("drafts.aos");
  if (aoStorage::Recreate("drafts.aos") != 1) return 1;
  const auto after = std::filesystem::file_size("drafts.aos");
  std::cout << before << " bytes, then " << after << '\n';
  return after + 100000 <= before ? 0 : 1;
}
