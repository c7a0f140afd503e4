// fake_clock.cpp: see fake_clock.h. The clocks themselves are libapclock.so's, which stands in front of the C library.

#include "tests/support/fake_clock.h"

#include "tools/apclock/control.h"

namespace test {

namespace {

constexpr int64_t ns_per_ms = 1'000'000;

}  // namespace

FakeClock::FakeClock(int64_t calendar_s) { apclock_drive(calendar_s * 1000 * ns_per_ms); }

FakeClock::~FakeClock() { apclock_release(); }

void FakeClock::advance_ms(int64_t duration_ms) { apclock_advance(duration_ms * ns_per_ms); }

int64_t FakeClock::elapsed_ms() const { return apclock_elapsed() / ns_per_ms; }

std::vector<int64_t> FakeClock::waits_ms() const {
    std::vector<int64_t> waits(apclock_waits(nullptr, 0));
    apclock_waits(waits.data(), static_cast<uint32_t>(waits.size()));
    for (int64_t &wait : waits) wait /= ns_per_ms;
    return waits;
}

}  // namespace test
