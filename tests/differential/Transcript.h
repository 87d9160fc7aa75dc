// What a differential run writes: one line for each operation, "seed.number operation -> answer", in ASCII, without
// anything that two runs could not have in common (handles, times, places in memory).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Platform.h"

class CTranscript {
  public:
    explicit CTranscript(std::uint32_t seed) : m_seed(seed) {}

    void Write(const std::string& operation, const std::string& answer);

  private:
    std::uint32_t m_seed;
    unsigned m_number = 0;
};

// In quotes; units beyond printable ASCII as \uXXXX; a run of more than 20 equal units as c{count}. Null as "null".
std::string Shown(LPCWSTR text);
std::string Shown(wstr_view text);
// Hexadecimal digits; of more than 64 bytes the first 16, their number and a sum of all.
std::string Shown(const std::vector<BYTE>& bytes);

std::string Hex(std::uint64_t number);
