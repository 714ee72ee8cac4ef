#include <iostream>
#include <string>

#include <aostorage/aostorage.h>

int main() {
  using namespace aostorage;
  aoStorage* storage = aoStorage::Create("greetings.aos", kWriteFlags, 0);
  if (storage == nullptr) return 1;
  aoStream* stream = storage->CreateStream("english", kWriteFlags);
  if (stream == nullptr || stream->Write("good morning", 12) != 12) return 1;
  stream->Release();
  storage->Release();

  storage = aoStorage::Open("greetings.aos", kReadFlags, 0);
  if (storage == nullptr) return 1;
  stream = storage->OpenStream("english", kReadFlags);
  if (stream == nullptr) return 1;
  std::string text(stream->GetLength(), '\0');
  if (stream->Read(text.data(), stream->GetLength()) != text.size()) return 1;
  std::cout << text << '\n';
  stream->Release();
  storage->Release();
}
