// A program that knows the library by its public headers alone: the first thing a new user writes.
#include <cstdio>
#include <string>

#include <aostorage/aostorage.h>

namespace {

bool WriteGreeting(const char* path) {
  aostorage::aoStorage* storage = aostorage::aoStorage::Create(path, aostorage::kWriteFlags, 0);
  if (storage == nullptr) return false;
  aostorage::aoStream* folder =
      storage->CreateStream("letters", aostorage::PackKind(true), aostorage::kWriteFlags);
  const bool written = folder != nullptr && folder->SetEntry("greeting", "hello") == 1;
  if (folder != nullptr) folder->Release();
  storage->Release();
  return written;
}

std::string ReadGreeting(const char* path) {
  aostorage::aoStorage* storage = aostorage::aoStorage::Open(path, aostorage::kReadFlags, 0);
  if (storage == nullptr) return aostorage::LastError().text;
  aostorage::aoStream* folder = storage->OpenStream("letters", aostorage::kReadFlags);
  std::string greeting =
      folder == nullptr ? std::string() : folder->GetEntry("greeting", "nothing");
  if (folder != nullptr) folder->Release();
  storage->Release();
  return greeting;
}

}  // namespace

int main() {
  const char* path = "consumer.ao";
  if (!WriteGreeting(path)) return 1;
  const std::string greeting = ReadGreeting(path);
  std::remove(path);
  return greeting == "hello" ? 0 : 2;
}
