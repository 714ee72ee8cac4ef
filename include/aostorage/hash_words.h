/// @file
/// Plain functions on the 32-bit words of a hash record. Words are little-endian, at any address.
#ifndef AOSTORAGE_HASH_WORDS_H_
#define AOSTORAGE_HASH_WORDS_H_

#include <cstdint>

#include <aostorage/export.h>

namespace aostorage {

/// The word at `p`; 0 for null.
AOSTORAGE_API std::uint32_t HashLoadHashWord(const void* p);

/// Stores a word at `p`. Does nothing for null.
AOSTORAGE_API void HashStoreHashWord(void* p, std::uint32_t value);

/// The index that a hash value has in the table described by the record at `p`: `value` shifted
/// right by the low five bits of word 4, then ANDed with word 11. Word n lies at byte 4 * n, so the
/// record has 48 bytes at least.
/// @return the index; 0 for null
AOSTORAGE_API std::uint32_t FormHashIndexDword(const void* p, std::uint32_t value);

}  // namespace aostorage

#endif  // AOSTORAGE_HASH_WORDS_H_
