// A number for a text, the same on every machine and in every version: FNV-1a.
#pragma once

#include <cstdint>
#include <string_view>

namespace lmctl {

constexpr std::uint64_t TextHash(std::string_view text, std::uint64_t ullSeed = 0xcbf29ce484222325) {
  for (const char c : text) ullSeed = (ullSeed ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  return ullSeed;
}

}  // namespace lmctl
