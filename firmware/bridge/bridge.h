// SPDX-License-Identifier: MIT
// What the parts of the bridge program know of each other.
//
// | Offset | Size | Request, little-endian                       |
// |--------|------|----------------------------------------------|
// | 0      | 1    | code                                         |
// | 1      | 1    | sequence, returned with the answer           |
// | 2      | 1    | not 0: answer even without reply data        |
// | 3      | 1    | sub-code                                     |
// | 4      | 2    | value                                        |
// | 6      | 2    | index                                        |
// | 8      | 4    | length of the reply data                     |
// | 12     | 4    | length of the payload, which follows         |
//
// Answer: 0, the reply data, then status, sequence and code.
#ifndef BRIDGE_H
#define BRIDGE_H

#include "fx2.h"

typedef unsigned char u8;
typedef unsigned int u16;
typedef unsigned long u32;

enum {
    PORT_STATE = 1,
    PORT_DIRECTION = 2,
    READ_PORTS = 3,
    I2C = 4,
    I2C_SPEED = 5,
    SPI = 6,
    LOAD_WAVEFORMS = 8,
    PARALLEL_IN = 9,
    PARALLEL_OUT = 10,
    TIMEOUT = 12
};

enum {
    DONE = 0,
    FAILED = 1,
    REFUSED = 0xFF
};

#define HEADER_LENGTH 16
#define REQUEST_SPACE 512
#define LONGEST_REPLY 4096

// The request that is being served, in the chip's scratch memory: header and payload.
#define REQUEST_ADDRESS 0xE000
extern __xdata __at(0xE000) u8 header[HEADER_LENGTH];
extern __xdata __at(0xE010) u8 payload[REQUEST_SPACE - HEADER_LENGTH];
#define REQUEST_CODE header[0]
#define REQUEST_SEQUENCE header[1]
#define REQUEST_ACKNOWLEDGED header[2]
#define REQUEST_SUBCODE header[3]

// Set for each request.
extern u16 value, index;    // of the header
extern u16 payload_length;  // at most REQUEST_SPACE - HEADER_LENGTH
extern u16 reply_length;    // at most LONGEST_REPLY
extern u16 packet_length;   // of the endpoints at the speed of this cable: 512 or 64

// A new request has arrived: the host has given up the one that is being served.
#define NEW_REQUEST (!(EP2468STAT & EP4_EMPTY))

// main.c: waiting. The time starts anew with each call of start_timeout().
void start_timeout(u16 milliseconds);
u8 timed_out(void);  // not 0 when the time is over

// main.c: the answer, byte by byte. A host that has given up gets nothing.
extern u8 abandoned;  // not 0 when the host does not fetch this answer any more
void check_abandoned(void);
void answer_begin(void);
void answer_byte(u8 byte);
void answer_end(u8 status);
void answer_fill(u16 count);  // bytes of 0xFF
// The whole answer of a request that has no reply data of its own: filled with 0xFF as far as the host wants some.
void answer(u8 status);

void reset_fifo(u8 endpoint);

// ports.c
void ports_start(void);
void change_ports(u8 direction);
void read_ports(void);
void exchange_spi(void);

// i2c.c
extern u16 i2c_timeout;  // milliseconds, for each byte
void transfer_i2c(void);

// parallel.c
extern u16 parallel_timeout;  // milliseconds, for each packet
void parallel_start(void);
void load_waveforms(void);
void parallel_in(void);
void parallel_out(void);
// Bytes that wait to go out to the camera.
u16 waiting_output(void);
void drop_output(void);

#endif
