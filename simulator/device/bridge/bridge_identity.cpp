// SPDX-License-Identifier: MIT
#include "bridge_identity.h"

namespace vornsim {

UsbIdentity bridgeIdentity(uint16_t productId)
{
    constexpr uint8_t ISOCHRONOUS = 1;
    constexpr uint8_t BULK = 2;
    constexpr uint8_t INTERRUPT = 3;
    const auto setting = [](uint8_t small, uint16_t smallSize, uint8_t quantum) {
        const auto interval = static_cast<uint8_t>(quantum == BULK ? 0 : 1);
        return std::vector<EndpointInfo>{{0x01, small, smallSize, interval}, {0x81, small, smallSize, interval},
                                         {0x02, quantum, 512, interval},     {0x04, BULK, 512, 0},
                                         {0x86, quantum, 512, interval},     {0x88, BULK, 512, 0}};
    };
    UsbIdentity identity;
    identity.vendorId = SIMULATED_VENDOR_ID;
    identity.productId = productId;
    identity.alternates = {
        {}, setting(BULK, 512, BULK), setting(INTERRUPT, 64, INTERRUPT), setting(INTERRUPT, 64, ISOCHRONOUS)};
    return identity;
}

}  // namespace vornsim
