// Reports from its static constructor and destructor.
#include "zarvo_orvane_logging/orvane_logging.h"

namespace {

struct FirstAndLastWords {
    FirstAndLastWords() { g_OrvaneLogging.Report(1, 16, L"dll", L"static constructor"); }
    ~FirstAndLastWords() { g_OrvaneLogging.Report(1, 16, L"dll", L"static destructor"); }
};
const FirstAndLastWords g_words;

}  // namespace
