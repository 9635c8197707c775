// SPDX-License-Identifier: MIT
// Ports and single lines of the bridge.
#include "camera_impl.h"
#include "trace/trace.h"
#include "transport/bridge.h"

using namespace vornccd;

namespace {

/// The block that sets or clears one line.
PortBlock lineBlock(unsigned line, unsigned value)
{
    const auto bit = static_cast<uint8_t>(1U << (line & 7));
    return portBlock(line >> 3, static_cast<uint8_t>(~bit), value != 0 ? bit : uint8_t{0});
}

}  // namespace

bool VornCameraImpl::setPortDirection(unsigned port, unsigned dir)
{
    TRACE_ENTER("%s-> VornCameraImpl::setPortDirection(%d, 0x%02x)\n", port, dir);
    const PortBlock block = portBlock(port, 0x00, static_cast<uint8_t>(dir));
    const bool ok = exchange(*this, {.code = BRIDGE_SET_PORT_DIRECTION, .payload = block});
    TRACE_EXIT("%s<- VornCameraImpl::setPortDirection %d\n", ok);
    return ok;
}

bool VornCameraImpl::setPortState(unsigned port, unsigned state)
{
    TRACE_ENTER("%s-> VornCameraImpl::setPortState(%d, 0x%02x)\n", port, state);
    const PortStatePayload payload = portStatePayload(portBlock(port, 0x00, static_cast<uint8_t>(state)));
    const bool ok = exchange(*this, {.code = BRIDGE_SET_PORT_STATE, .payload = payload});
    TRACE_EXIT("%s<- VornCameraImpl::setPortState %d\n", ok);
    return ok;
}

bool VornCameraImpl::setIODir(unsigned line, unsigned output)
{
    TRACE_ENTER("%s-> VornCameraImpl::setIODir(%d, %d)\n", line, output);
    const PortBlock block = lineBlock(line, output);
    const bool ok = exchange(*this, {.code = BRIDGE_SET_PORT_DIRECTION, .payload = block});
    TRACE_EXIT("%s<- VornCameraImpl::setIODir %d\n", ok);
    return ok;
}

bool VornCameraImpl::getIOState(unsigned line, unsigned* state)
{
    TRACE_ENTER("%s-> VornCameraImpl::getIOState(%d)\n", line);
    std::array<uint8_t, PORT_COUNT> ports = {};
    const bool ok = exchange(*this, {.code = BRIDGE_GET_PORT_STATE, .reply = ports});
    if (ok && line >> 3 < PORT_COUNT)
        *state = static_cast<unsigned>(ports[line >> 3]) >> (line & 7) & 1U;
    TRACE_EXIT("%s<- VornCameraImpl::getIOState %d %d\n", ok, *state);
    return ok;
}

bool VornCameraImpl::setIOState(unsigned line, unsigned value)
{
    TRACE_ENTER("%s-> VornCameraImpl::setIOState(%d, %d)\n", line, value);
    const PortStatePayload payload = portStatePayload(lineBlock(line, value));
    const bool ok = exchange(*this, {.code = BRIDGE_SET_PORT_STATE, .payload = payload});
    TRACE_EXIT("%s<- VornCameraImpl::setIOState %d\n", ok);
    return ok;
}
