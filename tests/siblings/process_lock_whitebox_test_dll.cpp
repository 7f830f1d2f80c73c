// Calls back while the process ends, when no other thread is left.
namespace {

void (*g_lastCall)() = nullptr;

struct LastCaller {
    LastCaller() = default;
    ~LastCaller() {
        if (g_lastCall != nullptr) {
            g_lastCall();
        }
    }
};
const LastCaller g_lastCaller;

}  // namespace

extern "C" __declspec(dllexport) void SetLastCall(void (*call)()) {
    g_lastCall = call;
}
