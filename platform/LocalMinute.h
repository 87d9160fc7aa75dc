// The local time of seconds that follow each other closely, for one thread.
#pragma once

#include <ctime>

// Asks the C library, which takes a lock, once a minute: within a minute of local time only the seconds change,
// whatever the time zone does.
class CLocalMinute {
  public:
    std::tm At(std::time_t second) noexcept {
        if (second < m_from || second >= m_until) {
            if (!localtime_r(&second, &m_parts)) m_parts = {};
            m_from = second;
            m_until = second + (m_parts.tm_sec < 60 ? 60 - m_parts.tm_sec : 1);
        }
        std::tm parts = m_parts;
        parts.tm_sec += static_cast<int>(second - m_from);
        return parts;
    }

  private:
    std::time_t m_from = 0;
    std::time_t m_until = 0;  // first second that is not served
    std::tm m_parts = {};     // those of m_from
};
