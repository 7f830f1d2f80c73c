#include <cstring>

#include "toy.cpp"

// One test for each argument; 1 says that it has failed.
int main(int, char** arguments) {
    State state = State::Empty;
    if (std::strcmp(arguments[1], "fills") == 0) {
        return Fill(state, 3) == 3 && state == State::Full ? 0 : 1;
    }
    if (std::strcmp(arguments[1], "catches") == 0) {
        return FillSafely(state, -1) ? 1 : 0;
    }
    for (int i = 0; i < 3; ++i) {
        FillSafely(state, i);
    }
    return state == State::Empty ? 0 : 1;
}
