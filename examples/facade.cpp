#include <array>
#include <cstdint>
#include <iostream>

#include <aostorage/aostorage.h>

int main() {
  using namespace aostorage;
  CCompStgFile file;
  if (file.Open("samples.aos", 2) != 1) return 1;  // 2: for writing, made if it is not there
  if (file.OpenOrCreateGenericStream("sensor", 0, PackKind(true)) != 1) return 1;
  const std::array<std::uint8_t, 3> first{20, 21, 23}, more{22, 19, 18};
  if (file.WriteGenericChildStream("today", first.data(), 3, 0, 1) != 1) return 1;  // replaces
  if (file.WriteGenericChildStream("today", more.data(), 3, 1, 0) != 1) return 1;   // appends
  if (file.Close() != 1) return 1;

  if (file.Open("samples.aos", 1) != 1) return 1;  // 1: for reading
  if (file.OpenGenericStreams("sensor", "today") != 1) return 1;
  std::array<std::uint8_t, 100> samples{};
  const std::uint32_t count = file.ReadGenericChildStream(samples.data(), 100);
  if (count == kFailed) return 1;
  for (std::uint32_t i = 0; i < count; ++i) std::cout << int{samples[i]} << '\n';
  return count == 6 && file.Close() == 1 ? 0 : 1;
}
