// SPDX-License-Identifier: MIT
#include "capture/clock.h"

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

}  // namespace vorncapture
