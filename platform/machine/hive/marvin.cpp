#include "platform/machine/hive/marvin.h"

#include <bit>

#include "platform/machine/base/little_endian.h"

namespace machine {
namespace {

struct State {
  std::uint32_t lo, hi;
};

void Mix(State *state, std::uint32_t word) {
  std::uint32_t lo = state->lo + word;
  std::uint32_t hi = state->hi ^ lo;
  lo = std::rotl(lo, 20) + hi;
  hi = std::rotl(hi, 9) ^ lo;
  lo = std::rotl(lo, 27) + hi;
  hi = std::rotl(hi, 19);
  *state = {lo, hi};
}

}  // namespace

std::uint64_t MarvinHash(std::uint64_t seed, const void *bytes, std::size_t size) {
  const auto *at = static_cast<const std::uint8_t *>(bytes);
  State state = {static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32)};
  for (; size >= 4; at += 4, size -= 4) Mix(&state, ReadLe32(at));
  std::uint32_t last = 0x80;
  while (size > 0) last = last << 8 | at[--size];
  Mix(&state, last);
  Mix(&state, 0);
  return state.lo | std::uint64_t{state.hi} << 32;
}

}  // namespace machine
