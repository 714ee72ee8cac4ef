// The payloads of entries: how a value stands in the stream of its name.
#ifndef AOSTORAGE_ENTRY_PAYLOAD_H_
#define AOSTORAGE_ENTRY_PAYLOAD_H_

#include <cstdint>
#include <string>

#include <aostorage/types.h>

#include "stream/stream_core.h"

namespace aostorage::detail {

// How entries open streams: for the length of one call.
inline constexpr auto kMomentary = StreamCore::Sharing::kMomentary;

// Each takes a stream whose cursor stands at its start. What the stream has is taken as the value
// asked for; nothing in the file tells the type that was written.
//
// ReadValue is false, and `value` unchanged, when there are too few bytes.
bool ReadValue(StreamCore& stream, std::int32_t& value);
bool ReadValue(StreamCore& stream, std::uint32_t& value);
bool ReadValue(StreamCore& stream, std::int64_t& value);
bool ReadValue(StreamCore& stream, double& value);
bool ReadValue(StreamCore& stream, tagSIZE& value);
bool ReadValue(StreamCore& stream, tagRECT& value);
// Never false: a stream without a byte has the empty string, and bytes that its count promises
// beyond what is there are 0.
bool ReadValue(StreamCore& stream, std::string& value);

// Overwrites from the start; longer old bytes stay behind the value.
void WriteValue(StreamCore& stream, std::int32_t value);
void WriteValue(StreamCore& stream, std::uint32_t value);
void WriteValue(StreamCore& stream, std::int64_t value);
void WriteValue(StreamCore& stream, double value);
void WriteValue(StreamCore& stream, const tagSIZE& value);
void WriteValue(StreamCore& stream, const tagRECT& value);
void WriteValue(StreamCore& stream, const char* value);

// Moves the prefix to the end of the stream and appends the value there.
void AppendLogValue(StreamCore& stream, const void* buffer, std::uint32_t count);

// The first `size` bytes; false, and the buffer untouched, when the stream's length is below.
bool ReadErased(StreamCore& stream, void* buffer, std::uint32_t size);

}  // namespace aostorage::detail

#endif  // AOSTORAGE_ENTRY_PAYLOAD_H_
