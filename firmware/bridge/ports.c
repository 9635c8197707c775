// SPDX-License-Identifier: MIT
// The five ports, and the SPI that is played on four pins of port A.
#include "bridge.h"

#define PORTS 5

// Levels written to the ports. A port that is read shows its pins, not what was written to it.
static u8 latches[PORTS];

#define SPI_SELECT 0x80
#define SPI_CLOCK 0x40
#define SPI_OUT 0x20
#define SPI_IN 0x10
#define SPI_PINS 0xF0
#define SPI_DIRECTION 0xE0

void ports_start(void)
{
    // Outputs that a program before has set stay as they are.
    latches[0] = IOA;
    latches[1] = IOB;
    latches[2] = IOC;
    latches[3] = IOD;
    latches[4] = IOE;
}

// Payload: for each port a mask of the bits that stay as they are, and the bits that are set.
void change_ports(u8 direction)
{
    __xdata u8* pair = payload;
    if (payload_length < 2 * PORTS) {
        answer(REFUSED);
        return;
    }
    if (direction) {
        OEA = (OEA & pair[0]) | pair[1];
        OEB = (OEB & pair[2]) | pair[3];
        OEC = (OEC & pair[4]) | pair[5];
        OED = (OED & pair[6]) | pair[7];
        OEE = (OEE & pair[8]) | pair[9];
    } else {
        latches[0] = (latches[0] & pair[0]) | pair[1];
        latches[1] = (latches[1] & pair[2]) | pair[3];
        latches[2] = (latches[2] & pair[4]) | pair[5];
        latches[3] = (latches[3] & pair[6]) | pair[7];
        latches[4] = (latches[4] & pair[8]) | pair[9];
        IOA = latches[0];
        IOB = latches[1];
        IOC = latches[2];
        IOD = latches[3];
        IOE = latches[4];
    }
    answer(DONE);
}

void read_ports(void)
{
    if (reply_length != PORTS) {
        answer(REFUSED);
        return;
    }
    answer_begin();
    answer_byte(IOA);
    answer_byte(IOB);
    answer_byte(IOC);
    answer_byte(IOD);
    answer_byte(IOE);
    answer_end(DONE);
}

// One byte each way, highest bit first: data while the clock is low, taken by both sides when it has risen.
static u8 spi_byte(u8 out)
{
    u8 low = latches[0] & (u8)~(SPI_SELECT | SPI_CLOCK | SPI_OUT);
    u8 in = 0;
    u8 bit = 8;
    u8 level;
    do {
        level = out & 0x80 ? low | SPI_OUT : low;
        IOA = level;
        IOA = level | SPI_CLOCK;
        out <<= 1;
        in <<= 1;
        if (IOA & SPI_IN)
            in |= 1;
    } while (--bit);
    return in;
}

// Exchanges as many bytes as the longer of payload and reply has. The sub-code, which tells the kinds of cameras
// apart, makes no difference on the pins.
void exchange_spi(void)
{
    u16 i;
    u8 in;
    if ((OEA & SPI_PINS) != SPI_DIRECTION) {
        answer(FAILED);
        return;
    }
    IOA = latches[0] & (u8)~(SPI_SELECT | SPI_CLOCK);
    answer_begin();
    for (i = 0; i < payload_length || i < reply_length; ++i) {
        in = spi_byte(i < payload_length ? payload[i] : 0);
        if (i < reply_length)
            answer_byte(in);
    }
    // The clock goes back to its level of rest while the camera is still selected.
    IOA = latches[0] & (u8)~SPI_SELECT;
    IOA = latches[0] | SPI_SELECT;
    latches[0] |= SPI_SELECT;
    if (REQUEST_ACKNOWLEDGED || reply_length)
        answer_end(DONE);
}
