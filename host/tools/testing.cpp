#include "too/testing.h"

#include <atomic>
#include <csignal>
#include <limits>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "too/last_error.h"

namespace too_testing {

namespace {

enum class StepMode { off, count, fail, kill };

std::atomic<StepMode> g_stepMode{StepMode::off};
std::atomic<unsigned> g_stepCount{0};
std::atomic<unsigned> g_firstBadStep{0};
std::atomic<unsigned> g_lastBadStep{0};
std::atomic<int> g_stepError{0};

struct FailingCall {
    DWORD lastError;
    unsigned first;  // counted down to the first call that fails
    unsigned count;
};

std::atomic<bool> g_callsArmed{false};
std::mutex g_callsMutex;
std::map<std::string, FailingCall, std::less<>>& FailingCalls() {
    static std::map<std::string, FailingCall, std::less<>> calls;
    return calls;
}
struct AwaitedCall {
    std::string name;
    unsigned left = 0;  // calls up to the one that is awaited
    std::function<void()> action;
};
AwaitedCall& Awaited() {
    static AwaitedCall call;
    return call;
}

bool g_isCounting = false;
std::map<std::string, unsigned, std::less<>>& CallCounts() {
    static std::map<std::string, unsigned, std::less<>> counts;
    return counts;
}

void SetSteps(StepMode mode, unsigned first, unsigned last, int error) {
    g_stepMode = StepMode::off;
    g_stepCount = 0;
    g_firstBadStep = first;
    g_lastBadStep = last;
    g_stepError = error;
    g_stepMode = mode;
}

bool IsBadStep(StepMode mode, unsigned step) {
    return (mode == StepMode::fail || mode == StepMode::kill) && step >= g_firstBadStep && step <= g_lastBadStep;
}

/// What is to be done before this call, if it is the one that is awaited.
std::function<void()> TakeAwaited(const char* name) {
    std::lock_guard lock(g_callsMutex);
    AwaitedCall& call = Awaited();
    if (call.left == 0 || call.name != name || --call.left != 0) return {};
    return std::exchange(call.action, {});
}

}  // namespace

void FailStep(unsigned nth, int systemError, unsigned count) {
    constexpr unsigned most = std::numeric_limits<unsigned>::max();
    SetSteps(StepMode::fail, nth, count == 0 || count > most - nth ? most : nth + count - 1, systemError);
}

void KillAtStep(unsigned nth) {
    SetSteps(StepMode::kill, nth, nth, 0);
}

void ResetSteps() {
    SetSteps(StepMode::count, 0, 0, 0);
}

unsigned GetStepCount() {
    return g_stepCount;
}

int NextStepFails() {
    const StepMode mode = g_stepMode.load(std::memory_order_relaxed);
    if (mode == StepMode::off || !IsBadStep(mode, ++g_stepCount)) return 0;
    if (mode == StepMode::kill) std::raise(SIGKILL);
    return g_stepError;
}

bool NextStepIsBad() {
    const StepMode mode = g_stepMode.load(std::memory_order_relaxed);
    return mode != StepMode::off && IsBadStep(mode, g_stepCount + 1);
}

void FailCall(const char* name, DWORD lastError, unsigned nth, unsigned count) {
    std::lock_guard lock(g_callsMutex);
    if (lastError == 0) {
        FailingCalls().erase(name);
    } else {
        FailingCalls()[name] = {lastError, nth, count == 0 ? std::numeric_limits<unsigned>::max() : count};
    }
    g_callsArmed = g_isCounting || Awaited().left != 0 || !FailingCalls().empty();
}

void ResetCalls() {
    std::lock_guard lock(g_callsMutex);
    FailingCalls().clear();
    CallCounts().clear();
    Awaited() = AwaitedCall();
    g_isCounting = false;
    g_callsArmed = false;
}

void CountCalls() {
    std::lock_guard lock(g_callsMutex);
    CallCounts().clear();
    g_isCounting = true;
    g_callsArmed = true;
}

void BeforeCall(const char* name, unsigned nth, std::function<void()> action) {
    std::lock_guard lock(g_callsMutex);
    Awaited() = {name, nth, std::move(action)};
    g_callsArmed = true;
}

unsigned GetCallCount(const char* name) {
    std::lock_guard lock(g_callsMutex);
    const auto found = CallCounts().find(std::string_view(name));
    return found == CallCounts().end() ? 0 : found->second;
}

bool CallFails(const char* name) {
    if (!g_callsArmed.load(std::memory_order_relaxed)) return false;
    if (const std::function<void()> action = TakeAwaited(name)) action();
    std::lock_guard lock(g_callsMutex);
    if (g_isCounting) ++CallCounts()[name];
    const auto found = FailingCalls().find(std::string_view(name));
    if (found == FailingCalls().end()) return false;
    FailingCall& call = found->second;
    if (call.first > 1) {
        --call.first;
        return false;
    }
    if (call.count == 0) return false;
    --call.count;
    SetLastError(call.lastError);
    return true;
}

}  // namespace too_testing
