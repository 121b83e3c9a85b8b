#include "zorvandata/seeded_hash.h"

#include <cstring>
#include <random>

namespace foundation::zorvandata {
namespace {

uint64_t makeSeed() {
  std::random_device device;
  return (uint64_t{device()} << 32 | device()) | 1;
}

// Both halves of the product, so that every bit counts.
uint64_t mix(uint64_t a, uint64_t b) {
  const auto product = static_cast<unsigned __int128>(a) * b;
  return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

}  // namespace

uint64_t seededHash(std::string_view bytes) {
  static const uint64_t kSeed = makeSeed();
  static const uint64_t kSecondSeed = makeSeed();
  uint64_t hash = kSeed ^ bytes.size();
  const char* at = bytes.data();
  size_t left = bytes.size();
  uint64_t word = 0;
  for (; left >= sizeof(word); at += sizeof(word), left -= sizeof(word)) {
    std::memcpy(&word, at, sizeof(word));
    hash = mix(hash ^ word, kSecondSeed);
  }
  word = 0;
  if (left) std::memcpy(&word, at, left);
  return mix(hash ^ word, kSecondSeed ^ left);
}

}  // namespace foundation::zorvandata
