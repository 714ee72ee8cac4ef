#include <iostream>
#include <string>

#include <aostorage/aostorage.h>

int main() {
  using namespace aostorage;
  aoStorage* storage = aoStorage::Create("library.aos", kWriteFlags, 0);
  if (storage == nullptr) return 1;
  CPathLoader loader;
  aoStream* shelf = loader.GetStreamByPath(storage, "books/poetry", 1, 1);  // write, create
  if (shelf == nullptr || shelf->SetEntry("blake", "The Tyger") != 1) return 1;
  loader.CloseOpenStorages();

  aoStream* poem = loader.GetStreamByPath(storage, "books/poetry/blake", 0, 0);
  if (poem == nullptr) return 1;
  std::string title;
  *poem >> title;
  std::cout << title << '\n';
  loader.CloseOpenStorages();

  const bool removed = loader.DeleteStreamByPath(storage, "books/poetry") == 1;
  storage->Release();
  return removed && title == "The Tyger" ? 0 : 1;
}
