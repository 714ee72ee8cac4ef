#include <cstdint>
#include <iostream>
#include <string>

#include <aostorage/aostorage.h>

int main() {
  using namespace aostorage;
  aoStream2 out;
  out << 1969 << 384.4 << "moon";
  std::int32_t size = 0;
  std::uint8_t* block = out.Detach(size);
  if (block == nullptr) return 1;

  std::int32_t year = 0;
  double distance = 0;
  std::string name;
  aoStream2 in(block, size);
  in >> year >> distance >> name;
  aoStream::FreeBuffer(block);
  std::cout << size << " bytes: " << year << ' ' << distance << ' ' << name << '\n';
  return year == 1969 && name == "moon" ? 0 : 1;
}
