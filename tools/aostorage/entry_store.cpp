#include "entry_store.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>
#include <variant>

#include <aostorage/error.h>
#include <aostorage/types.h>

namespace aotool {
namespace {

template <typename Loaded>
std::optional<Value> AsValue(const std::optional<Loaded>& loaded) {
  if (!loaded) return std::nullopt;
  return Value(*loaded);
}

// Writes numbers over the start of a plain root stream, as an entry in a folder is written.
template <std::size_t Count>
bool StoreAtRoot(Place place, const std::string& name,
                 const std::array<std::int32_t, Count>& numbers) {
  StreamPtr stream(place.storage->OpenOrCreateStream(name.c_str(), aostorage::PackKind(false)));
  if (!stream || stream->IsFolder() == 1) return false;
  for (const std::int32_t number : numbers) *stream << number;
  return stream->GetCurDataPos() == Count * sizeof(std::int32_t);
}

template <std::size_t Count>
std::optional<std::array<std::int32_t, Count>> LoadAtRoot(Place place, const std::string& name) {
  std::array<std::int32_t, Count> numbers{};
  const StreamPtr stream = place.Open(name, aostorage::kReadFlags);
  if (!stream) return std::nullopt;
  for (std::int32_t& number : numbers) *stream >> number;
  if (stream->GetCurDataPos() != Count * sizeof(std::int32_t)) return std::nullopt;
  return numbers;
}

// Stores one value; true when the library says that it did.
struct Storing {
  Place place;
  const std::string& name;

  // The types that entries have at the root as well.
  template <typename Common>
  bool SetAnywhere(Common value) const {
    return (place.folder != nullptr ? place.folder->SetEntry(name.c_str(), value)
                                    : place.storage->SetEntry(name.c_str(), value)) == 1;
  }

  bool operator()(std::int32_t value) const { return SetAnywhere(value); }
  bool operator()(std::int64_t value) const { return SetAnywhere(value); }
  bool operator()(double value) const { return SetAnywhere(value); }
  bool operator()(const std::string& value) const { return SetAnywhere(value.c_str()); }

  bool operator()(std::uint32_t value) const {
    if (place.folder != nullptr) return place.folder->SetEntry(name.c_str(), value) == 1;
    return SetAnywhere(static_cast<std::int32_t>(value));  // the same four bytes
  }
  bool operator()(const SizeNumbers& value) const {
    if (place.folder == nullptr) return StoreAtRoot(place, name, value);
    const aostorage::tagSIZE size{value[0], value[1]};
    return place.folder->SetEntry(name.c_str(), &size) == 1;
  }
  bool operator()(const RectNumbers& value) const {
    if (place.folder == nullptr) return StoreAtRoot(place, name, value);
    const aostorage::tagRECT rect{value[0], value[1], value[2], value[3]};
    return place.folder->SetEntry(name.c_str(), &rect) == 1;
  }
  bool operator()(const RawBytes& value) const {
    const auto count = static_cast<std::uint32_t>(value.bytes.size());
    if (count == 0) return EraseOrCreate();  // the operations do nothing for a count of 0
    const void* bytes = value.bytes.data();
    const int result = place.folder != nullptr
                           ? place.folder->SetEntryEraseOld(name.c_str(), bytes, count)
                           : place.storage->SetEntryEraseOld(name.c_str(), bytes, count);
    return static_cast<std::uint32_t>(result) == count;
  }

  bool EraseOrCreate() const {
    StreamPtr stream = place.Open(name, aostorage::kWriteFlags);
    if (!stream) return place.Create(name, aostorage::PackKind(false)) != nullptr;
    return stream->GetLength() == 0 || stream->Erase();
  }
};

// Asked twice with different defaults: the answers differ when there is no value.
template <typename Type, typename Ask>
std::optional<Value> AskTwice(const Ask& ask, Type firstDefault, Type secondDefault) {
  const auto first = ask(firstDefault);
  if (first != ask(secondDefault)) return std::nullopt;
  return Value(first);
}

template <typename Number>
std::optional<Value> LoadNumber(Place place, const std::string& name) {
  const auto ask = [&](Number none) {
    if constexpr (!std::is_same_v<Number, std::uint32_t>) {
      if (place.folder == nullptr) return place.storage->GetEntry(name.c_str(), none);
    } else if (place.folder == nullptr) {
      return static_cast<std::uint32_t>(
          place.storage->GetEntry(name.c_str(), static_cast<std::int32_t>(none)));
    }
    return place.folder->GetEntry(name.c_str(), none);
  };
  return AskTwice<Number>(ask, 0, 1);
}

// As LoadNumber, with its bits compared: a double that is no number differs from itself.
std::optional<Value> LoadDouble(Place place, const std::string& name) {
  const auto ask = [&](double none) {
    const double value = place.folder != nullptr ? place.folder->GetEntry(name.c_str(), none)
                                                 : place.storage->GetEntry(name.c_str(), none);
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
  };
  const std::uint64_t bits = ask(0);
  if (bits != ask(1)) return std::nullopt;
  double value = 0;
  std::memcpy(&value, &bits, sizeof value);
  return Value(value);
}

std::optional<Value> LoadString(Place place, const std::string& name) {
  const auto ask = [&](const char* none) {
    return place.folder != nullptr ? place.folder->GetEntry(name.c_str(), none)
                                   : place.storage->GetEntry(name.c_str(), none);
  };
  return AskTwice<const char*>(ask, "0", "1");
}

std::optional<Value> LoadSize(Place place, const std::string& name) {
  if (place.folder == nullptr) return AsValue(LoadAtRoot<2>(place, name));
  const auto ask = [&](std::int32_t none) {
    const aostorage::tagSIZE defaultSize{none, none};
    aostorage::tagSIZE size{};
    place.folder->GetEntry(name.c_str(), &size, &defaultSize);
    return SizeNumbers{size.cx, size.cy};
  };
  return AskTwice<std::int32_t>(ask, 0, 1);
}

std::optional<Value> LoadRect(Place place, const std::string& name) {
  if (place.folder == nullptr) return AsValue(LoadAtRoot<4>(place, name));
  const auto ask = [&](std::int32_t none) {
    const aostorage::tagRECT defaultRect{none, none, none, none};
    aostorage::tagRECT rect{};
    place.folder->GetEntry(name.c_str(), &rect, &defaultRect);
    return RectNumbers{rect.left, rect.top, rect.right, rect.bottom};
  };
  return AskTwice<std::int32_t>(ask, 0, 1);
}

bool RawIsStored(Place place, const std::string& name, const std::string& bytes) {
  const StreamPtr stream = place.Open(name, aostorage::kReadFlags);
  if (!stream || stream->GetLength() != bytes.size()) return false;
  std::string stored(bytes.size(), '\0');
  return stream->Read(stored.data(), stream->GetLength()) == bytes.size() && stored == bytes;
}

// A success of the typed operations says that the stream was there, not that the bytes reached it.
bool IsStored(Place place, const std::string& name, const Value& value) {
  if (const auto* raw = std::get_if<RawBytes>(&value)) return RawIsStored(place, name, raw->bytes);
  const std::optional<Value> stored = LoadValue(place, name, static_cast<ValueType>(value.index()));
  return stored && FormatValue(*stored) == FormatValue(value);
}

}  // namespace

Result StoreValue(Place place, const std::string& name, const Value& value) {
  aostorage::ClearLastError();
  if (std::visit(Storing{place, name}, value) && IsStored(place, name, value)) return {};
  if (aostorage::LastError().code != aostorage::ErrorCode::kNone) return FromLibrary();
  return {kInputOutput, "the value does not read back"};
}

std::optional<Value> LoadValue(Place place, const std::string& name, ValueType type) {
  aostorage::ClearLastError();
  switch (type) {
    case ValueType::kInt:
      return LoadNumber<std::int32_t>(place, name);
    case ValueType::kInt64:
      return LoadNumber<std::int64_t>(place, name);
    case ValueType::kUint:
      return LoadNumber<std::uint32_t>(place, name);
    case ValueType::kDouble:
      return LoadDouble(place, name);
    case ValueType::kString:
      return LoadString(place, name);
    case ValueType::kSize:
      return LoadSize(place, name);
    case ValueType::kRect:
      return LoadRect(place, name);
    case ValueType::kRaw:
      break;
  }
  return std::nullopt;
}

}  // namespace aotool
