#include <iostream>
#include <string>
#include <vector>

#include <aostorage/aostorage.h>

int main() {
  using namespace aostorage;
  aoStorage* storage = aoStorage::Create("settings.aos", kWriteFlags, 0);
  if (storage == nullptr) return 1;
  aoStream* window = storage->CreateStream("window", PackKind(true), kWriteFlags);
  if (window == nullptr) return 1;
  const tagSIZE size{800, 600};
  if (window->SetEntry("title", "Notes") != 1 || window->SetEntry("size", &size) != 1) return 1;
  aoStream* fonts = window->CreateStream("fonts", PackKind(true), kWriteFlags);
  if (fonts == nullptr || fonts->SetEntry("body", 11.5) != 1) return 1;
  fonts->Release();

  std::vector<std::string> names;
  window->EnumStreams(names);
  for (const std::string& name : names) std::cout << name << '\n';
  tagSIZE found{};
  window->GetEntry("size", &found, &size);
  const double zoom = window->GetEntry("zoom", 1.0);  // none is stored: the default
  std::cout << window->GetEntry("title", "") << ", " << found.cx << " wide, " << zoom << '\n';
  window->Release();
  storage->Release();
  return names.size() == 3 && found.cx == 800 ? 0 : 1;
}
