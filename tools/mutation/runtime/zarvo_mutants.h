#ifndef ZARVO_MUTANTS_H
#define ZARVO_MUTANTS_H

// Every unit of a build with mutants includes this first. All mutants are compiled in; the environment chooses one.

#ifdef __cplusplus

extern "C" {
extern int zarvo_chosen_mutant;  // 0 for none
extern volatile unsigned char* zarvo_reached_mutants;  // a byte for each mutant, or null
}

// Whether the mutant is the chosen one, at the place where the source has it.
inline bool zarvo_mutant(int mutant) noexcept {
    if (zarvo_reached_mutants != nullptr) {
        zarvo_reached_mutants[mutant] = 1;
    }
    return zarvo_chosen_mutant == mutant;
}

#endif

#endif
