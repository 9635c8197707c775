// SPDX-License-Identifier: MIT
// Start, requests and answers.
//
// The chip's own hardware keeps descriptors and endpoint 0, so that this program can be loaded again at any time.
// Endpoints: OUT 4 requests, IN 6 answers, OUT 2 words to the camera, IN 8 words from it.
#include "bridge.h"

__xdata __at(0xE000) u8 header[HEADER_LENGTH];
__xdata __at(0xE010) u8 payload[REQUEST_SPACE - HEADER_LENGTH];

u16 value, index, payload_length, reply_length, packet_length;

static u16 milliseconds_left;
static u16 answer_length;  // bytes in the packet that is put together
u8 abandoned;

// How long the next packet of a request may take.
#define REQUEST_TIMEOUT 100

#define MILLISECOND 0xF060  // timer 2 counts up to 65536 at 4 MHz
#define DEFAULT_TIMEOUT 1000

// ---- Time ----

void start_timeout(u16 milliseconds)
{
    TR2 = 0;
    TL2 = MILLISECOND & 0xFF;
    TH2 = MILLISECOND >> 8;
    TF2 = 0;
    milliseconds_left = milliseconds;
    TR2 = 1;
}

u8 timed_out(void)
{
    if (TF2) {
        TF2 = 0;
        if (milliseconds_left)
            --milliseconds_left;
    }
    return milliseconds_left == 0;
}

// ---- Endpoints ----

void reset_fifo(u8 endpoint)
{
    FIFORESET = NAK_ALL;
    SYNC;
    FIFORESET = NAK_ALL | endpoint;
    SYNC;
    FIFORESET = 0;
    SYNC;
}

// Brings the endpoints to a known state, whatever a program before left behind.
static void start_endpoints(void)
{
    packet_length = USBCS & HIGH_SPEED ? 512 : 64;
    SYNC;
    EP2FIFOCFG = 0;
    SYNC;
    EP4FIFOCFG = 0;
    SYNC;
    EP6FIFOCFG = 0;
    SYNC;
    EP8FIFOCFG = WORD_WIDE;
    SYNC;
    reset_fifo(2);
    reset_fifo(4);
    reset_fifo(6);
    reset_fifo(8);
    EP2FIFOCFG = AUTO_OUT | WORD_WIDE;  // turning AUTO_OUT on gives both buffers to the host
    SYNC;
    EP4BCL = RELEASE;  // once for each buffer
    SYNC;
    EP4BCL = RELEASE;
    SYNC;
}

// ---- Answers ----

void answer_begin(void)
{
    answer_length = 0;
    abandoned = 0;
    answer_byte(0);
}

static void commit_answer(void)
{
    EP6BCH = answer_length >> 8;
    SYNC;
    EP6BCL = answer_length & 0xFF;
    SYNC;
    answer_length = 0;
}

void check_abandoned(void)
{
    if (!abandoned && NEW_REQUEST) {
        abandoned = 1;
        reset_fifo(6);
    }
}

void answer_byte(u8 byte)
{
    do {
        check_abandoned();
        if (abandoned)
            return;
    } while (answer_length == 0 && (EP2468STAT & EP6_FULL));
    EP6FIFOBUF[answer_length] = byte;
    if (++answer_length == packet_length)
        commit_answer();
}

void answer_fill(u16 count)
{
    while (count--)
        answer_byte(0xFF);
}

void answer_end(u8 status)
{
    answer_byte(status);
    answer_byte(REQUEST_SEQUENCE);
    answer_byte(REQUEST_CODE);
    if (answer_length && !abandoned)
        commit_answer();
}

void answer(u8 status)
{
    if (!REQUEST_ACKNOWLEDGED && !reply_length)
        return;
    answer_begin();
    answer_fill(reply_length);
    answer_end(status);
}

// ---- Requests ----

// Copies one packet behind what is there of the request. Packets that do not fit any more are only counted.
// Returns its length.
static u16 take_packet(u16 offset)
{
    u16 length = (u16)EP4BCH << 8 | EP4BCL;
    u16 count = length;
    if (offset <= REQUEST_SPACE && count <= REQUEST_SPACE - offset) {
        AUTOPTRH1 = (u16)EP4FIFOBUF >> 8;
        AUTOPTRL1 = 0;
        AUTOPTRH2 = (REQUEST_ADDRESS + offset) >> 8;
        AUTOPTRL2 = (REQUEST_ADDRESS + offset) & 0xFF;
        while (count) {
            XAUTODAT2 = XAUTODAT1;
            --count;
        }
    }
    SYNC;
    EP4BCL = RELEASE;
    SYNC;
    return length;
}

// Waits for a request and takes it in, in as many packets as it has. Returns 0 when it is not what it says it is.
static u8 take_request(void)
{
    u16 length = 0;
    u16 packet, announced;
    for (;;) {
        packet = take_packet(length);
        length = length + packet < length ? 0xFFFF : length + packet;
        announced = HEADER_LENGTH;
        if (length >= HEADER_LENGTH)
            announced = header[14] | header[15] || header[13] > 1 ? 0xFFFF
                                                                       : HEADER_LENGTH + ((u16)header[13] << 8 | header[12]);
        if (packet < packet_length || length >= announced)
            break;
        start_timeout(REQUEST_TIMEOUT);
        while (!NEW_REQUEST) {
            if (timed_out())
                break;
        }
        TR2 = 0;
        if (!NEW_REQUEST)
            return 0;
    }
    if (length != announced || length > REQUEST_SPACE)
        return 0;
    value = (u16)header[5] << 8 | header[4];
    index = (u16)header[7] << 8 | header[6];
    payload_length = length - HEADER_LENGTH;
    reply_length = (u16)header[9] << 8 | header[8];
    return !header[10] && !header[11] && reply_length <= LONGEST_REPLY;
}

// A new request means that the host has given up the one before. What is left of its answers goes at once, before the
// host can ask for the answer to the new one.
static void drop_answers(void)
{
    if (!(EP2468STAT & EP6_EMPTY))
        reset_fifo(6);
    if (!(EP2468STAT & EP8_EMPTY))
        reset_fifo(8);
}

static void drop_stale_output(void)
{
    // A host that waits for this request's result has sent no words for another one yet.
    if (REQUEST_CODE != PARALLEL_OUT && (REQUEST_ACKNOWLEDGED || reply_length || REQUEST_CODE == PARALLEL_IN) &&
        waiting_output())
        drop_output();
}

static void set_timeout(void)
{
    if (REQUEST_SUBCODE > 1) {
        answer(REFUSED);
        return;
    }
    if (REQUEST_SUBCODE)
        i2c_timeout = value;
    else
        parallel_timeout = value;
    answer(DONE);
}

static void serve_request(void)
{
    switch (REQUEST_CODE) {
        case PORT_STATE:
            change_ports(0);
            break;
        case PORT_DIRECTION:
            change_ports(1);
            break;
        case READ_PORTS:
            read_ports();
            break;
        case I2C:
            transfer_i2c();
            break;
        case I2C_SPEED:
            I2CTL = REQUEST_SUBCODE & 1;
            answer(DONE);
            break;
        case SPI:
            exchange_spi();
            break;
        case LOAD_WAVEFORMS:
            load_waveforms();
            break;
        case PARALLEL_IN:
            parallel_in();
            break;
        case PARALLEL_OUT:
            parallel_out();
            break;
        case TIMEOUT:
            set_timeout();
            break;
        default:
            answer(REFUSED);
            break;
    }
    TR2 = 0;
}

void bridge_main(void)
{
    CPUCS = CPU_48_MHZ;
    CKCON = 0;  // memory without wait cycles; timer 2 counts a twelfth of the clock
    T2CON = 0;
    RCAP2L = MILLISECOND & 0xFF;
    RCAP2H = MILLISECOND >> 8;
    AUTOPTRSETUP = 0x07;  // both pointers, both moving on
    I2CTL = 0;
    i2c_timeout = DEFAULT_TIMEOUT;
    parallel_timeout = DEFAULT_TIMEOUT;
    ports_start();
    parallel_start();
    start_endpoints();
    for (;;) {
        while (!NEW_REQUEST)
            ;
        drop_answers();
        if (take_request()) {
            drop_stale_output();
            serve_request();
        }
    }
}
