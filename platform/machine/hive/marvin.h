// The hash that guards the entries of a registry log: Marvin32, 64 bits.
#pragma once

#include <cstddef>
#include <cstdint>

namespace machine {

// The seed of registry logs, as a number.
inline constexpr std::uint64_t kLogSeed = 0x82EF4D887A4E55C5;

// The low half is the word that a log stores first.
std::uint64_t MarvinHash(std::uint64_t seed, const void *bytes, std::size_t size);

}  // namespace machine
