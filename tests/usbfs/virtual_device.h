// SPDX-License-Identifier: MIT
#pragma once

#include <cstring>
#include <memory>

#include "loopback_device.h"
#include "usbfs/urb_queue.h"

namespace vornsim::test {

/// Time that passes only when a test says so.
class ManualClock : public Clock {
public:
    int64_t nowUs() const override { return us; }
    int64_t us = 0;
};

constexpr uint64_t FILE_A = 0x1000;
constexpr uint64_t FILE_B = 0x2000;

inline std::unique_ptr<Urb> bulkUrb(uint64_t handle, uint8_t endpoint, size_t length, uint64_t owner = FILE_A)
{
    auto urb = std::make_unique<Urb>();
    urb->handle = handle;
    urb->owner = owner;
    urb->endpoint = endpoint;
    urb->length = length;
    urb->data = std::make_unique<uint8_t[]>(length);
    std::memset(urb->data.get(), 0x5A, length);
    return urb;
}

inline std::unique_ptr<Urb> controlUrb(uint8_t requestType, uint8_t request, uint16_t value, uint16_t index = 0)
{
    auto urb = std::make_unique<Urb>();
    urb->owner = FILE_A;
    urb->kind = UrbKind::CONTROL;
    urb->setup = {requestType, request, value, index, 0};
    urb->data = std::make_unique<uint8_t[]>(0);
    return urb;
}

}  // namespace vornsim::test
