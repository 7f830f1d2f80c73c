#include "toy.h"

#include <stdexcept>

enum class State { Empty, Full, Shut };

struct Lock {
    explicit Lock(int& count) : m_count(count) { ++m_count; }
    ~Lock() { --m_count; }
    int& m_count;
};

#define DOUBLED(x) ((x) + (x))

static constexpr int kMost = 3;
static int g_holds = 0;

int Fill(State& state, int count) {
    {
        const Lock lock(g_holds);
    }
    if (count >= kMost && state == State::Empty) {
        state = State::Full;
    }
    if (count < 0)
        throw std::runtime_error("none");
    else
        g_holds = DOUBLED(1);
    return Larger(count, Twice(1));
}

bool FillSafely(State& state, int count) {
    try {
        Fill(state, count);
    } catch (const std::exception&) {
        return false;
    }
    return !(g_holds == 0) || count != 7;
}
