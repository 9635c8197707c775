// SPDX-License-Identifier: MIT
#include "capture/clock.h"

#include <algorithm>
#include <thread>

namespace vorncapture {
namespace {

class SystemClock : public Clock {
public:
    double steadySeconds() override
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    }

    Utc utc() override { return std::chrono::system_clock::now(); }

    void sleep(double seconds) override { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }
};

}  // namespace

std::shared_ptr<Clock> Clock::system()
{
    static const std::shared_ptr<Clock> INSTANCE = std::make_shared<SystemClock>();
    return INSTANCE;
}

bool sleepUntil(Clock& clock, double due, const CancelToken* cancel, const std::function<void(double left)>& tick,
                double step)
{
    while (true) {
        const double left = due - clock.steadySeconds();
        if (tick)
            tick(left);
        if (cancel != nullptr && cancel->requested())
            return false;
        if (left <= 0.0)
            return true;
        clock.sleep(std::min(left, step));
    }
}

}  // namespace vorncapture
