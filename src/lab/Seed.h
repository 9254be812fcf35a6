// Everything in a run that is left to chance comes from one seed, by numbers that do not depend on a standard library.
#pragma once

#include <cstdint>

namespace Lab {

// The seed of the thing with this number, unlike those of its neighbours (SplitMix64's step and mix).
constexpr std::uint64_t derivedSeed(std::uint64_t seed, std::uint64_t number) {
  std::uint64_t x = seed + (number + 1) * 0x9e3779b97f4a7c15u;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9u;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebu;
  return x ^ (x >> 31);
}

}  // namespace Lab
