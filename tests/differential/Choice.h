// The dice of a differential run. One seed gives the same choices on every home and with every library, so the numbers
// are drawn from the engine itself and never through a distribution.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>

class CChoice {
  public:
    explicit CChoice(std::uint32_t seed) : m_engine(seed) {}

    // 0 to n - 1.
    std::size_t Below(std::size_t n) { return static_cast<std::size_t>(m_engine() % n); }
    // True once in n.
    bool OneIn(std::size_t n) { return Below(n) == 0; }
    template <class Array>
    const auto& Of(const Array& all) {
        return all[Below(std::size(all))];
    }

  private:
    std::mt19937 m_engine;
};
