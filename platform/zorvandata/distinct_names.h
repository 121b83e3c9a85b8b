// Whether names are all different, at less memory than they take in a message.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <vector>

#include "zorvandata/seeded_hash.h"

namespace foundation::zorvandata {

// Of so many names, the first of them at a position: next(position) is the name there, and moves
// the position on to the next one. Positions fit 32 bits.
template <class Next>
bool areDistinct(size_t first, size_t count, const Next& next) {
  constexpr size_t kFew = 12;
  constexpr size_t kMany = size_t{1} << 16;
  size_t position = first;
  if (count <= kFew) {
    std::string_view names[kFew];
    for (size_t i = 0; i < count; ++i) {
      names[i] = next(position);
      if (std::find(names, names + i, names[i]) != names + i) return false;
    }
    return true;
  }
  // Very many a part at a time, by their hashes: the table is to take less than they do.
  const size_t parts = count > kMany ? 4 : 1;
  const size_t size = (count + count / 2) / parts;
  std::vector<uint32_t> table(size);  // where names stand, plus one
  for (size_t part = 0; part < parts; ++part) {
    std::fill(table.begin(), table.end(), 0);
    position = first;
    for (size_t left = count; left > 0; --left) {
      const auto here = static_cast<uint32_t>(position + 1);
      const std::string_view name = next(position);
      const uint64_t hash = seededHash(name);
      if (hash % parts != part) continue;
      // A slot by the high bits of the hash, as many slots as there are.
      auto slot = static_cast<size_t>(static_cast<unsigned __int128>(hash) * size >> 64);
      for (; table[slot] != 0; slot = slot + 1 < size ? slot + 1 : 0) {
        size_t other = table[slot] - 1;
        if (next(other) == name) return false;
      }
      table[slot] = here;
    }
  }
  return true;
}

}  // namespace foundation::zorvandata
