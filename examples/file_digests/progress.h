// How far the work is, as one line of text.
//
// Threads: one. Units: seconds since the start, bytes.
#pragma once

#include <cstdint>
#include <string>

namespace FileDigests {

// "1.5 GiB"
std::string ShownBytes(double bytes);

class Progress {
  public:
    struct Amount {
        std::uint64_t files = 0;
        std::uint64_t bytes = 0;
    };

    explicit Progress(Amount total) : m_total(total) {}

    // What is done by `seconds`, which never go back.
    void Update(Amount done, double seconds);

    // A bar, percent, files/s, bytes/s and the time left, in at most so many characters: the narrower, the less.
    std::string Line(int columns) const;

  private:
    std::string TimeLeft() const;

    const Amount m_total;
    Amount m_done;
    double m_seconds = 0;
    double m_filesPerSecond = 0;
    double m_bytesPerSecond = 0;
    double m_workPerSecond = 0;
};

}  // namespace FileDigests
