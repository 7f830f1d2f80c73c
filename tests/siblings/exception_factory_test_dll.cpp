// Registers a thrower from its static constructor, and throws it from there to see it work.
#include "concurrency/errors/error_storage.h"
#include "zarvo_orvane_utils/exception_factory.h"

namespace {

void ThrowNumber(const Orvane::ErrorStorage& error) {
    throw static_cast<unsigned>(error.code);
}

unsigned g_thrown = 0;

struct Registrar {
    Registrar() {
        Orvane::ExceptionFactory::Register(L"registered at load", 3, ThrowNumber);
        Orvane::ErrorStorage error;
        error.isNamed = true;
        error.name = L"registered at load";
        error.code = 3;
        try {
            Orvane::ExceptionFactory::Throw(error);
        } catch (const unsigned number) {
            g_thrown = number;
        }
    }
};
const Registrar g_registrar;

}  // namespace

extern "C" __declspec(dllexport) unsigned ThrownAtLoad() {
    return g_thrown;
}
