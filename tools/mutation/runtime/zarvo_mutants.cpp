#include "zarvo_mutants.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

int zarvo_chosen_mutant = 0;
volatile unsigned char* zarvo_reached_mutants = nullptr;

namespace {

// The module is loaded before all that have mutants, and this runs before what else it does. The file is shared with
// child processes, and keeps what a process wrote that was killed.
__attribute__((constructor(101))) void ChooseMutant() {
    if (const char* mutant = std::getenv("ZARVO_MUTANT")) {
        zarvo_chosen_mutant = std::atoi(mutant);
    }
    const char* const path = std::getenv("ZARVO_REACHED_MUTANTS");
    const int file = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
    struct stat status;
    if (file < 0 || fstat(file, &status) != 0) {
        return;
    }
    void* const bytes = mmap(nullptr, static_cast<size_t>(status.st_size), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (bytes != MAP_FAILED) {
        zarvo_reached_mutants = static_cast<volatile unsigned char*>(bytes);
    }
}

}  // namespace
