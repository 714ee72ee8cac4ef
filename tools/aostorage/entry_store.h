// Values of entries in and out of a store.
#ifndef AOSTORAGE_TOOLS_ENTRY_STORE_H_
#define AOSTORAGE_TOOLS_ENTRY_STORE_H_

#include <optional>
#include <string>

#include "entry_values.h"
#include "paths.h"
#include "report.h"

namespace aotool {

// Stores the value as the entry `name` and reads it back. What is stored at the root has the bytes
// that it has in a folder, for the types too that entries at the root have no operation of their
// own for.
Result StoreValue(Place place, const std::string& name, const Value& value);

// Reads the entry `name`, a plain stream that is there. Nothing when it holds too little for the
// type or cannot be read. Not for raw bytes, which are all that the stream holds.
std::optional<Value> LoadValue(Place place, const std::string& name, ValueType type);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_ENTRY_STORE_H_
