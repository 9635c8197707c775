// SPDX-License-Identifier: MIT
// The parallel bus: the chip's waveform engine moves words as the table says that the host has loaded.
//
// | Offset | Size | Waveform table                                                  |
// |--------|------|-----------------------------------------------------------------|
// | 0      | 1    | 0x80: the table has 172 bytes, else 152                         |
// | 1      | 1    | IFCONFIG                                                        |
// | 3      | 5    | GPIFREADYCFG, GPIFCTLCFG, GPIFIDLECS, GPIFIDLECTL, GPIFWFSELECT |
// | 16     | 128  | four waveforms                                                  |
// | 144    | 8    | flow registers                                                  |
//
// The other bytes are not used: the FIFOs have fixed settings, and the flow states of the long table belong to
// waveforms that move no data.
#include "bridge.h"

#define SHORT_TABLE 152
#define LONG_TABLE 172
#define LONG_TABLE_FLAG 0x80
#define ENGINE_MODE_MASK 0xC3
#define ENGINE_MODE 0xC2  // IFCONFIG: own clock, 48 MHz, waveform engine
#define WAVEFORM_OFFSET 16
#define FLOW_OFFSET 144
#define FLAG_EMPTY 1
#define FLAG_FULL 2

u16 parallel_timeout;

static u8 table_loaded;

// Ends a transaction that waits for the camera.
static void stop_engine(void)
{
    GPIFABORT = 0xFF;
    while (!(GPIFTRIG & GPIF_DONE))
        ;
}

void parallel_start(void)
{
    table_loaded = 0;
    stop_engine();
    IFCONFIG = CLOCK_48_MHZ;
}

u16 waiting_output(void)
{
    return (u16)EP2FIFOBCH << 8 | EP2FIFOBCL;
}

void drop_output(void)
{
    EP2FIFOCFG = WORD_WIDE;
    SYNC;
    reset_fifo(2);
    EP2FIFOCFG = AUTO_OUT | WORD_WIDE;
    SYNC;
}

void load_waveforms(void)
{
    __xdata u8* table = payload;
    u8 i;
    if (payload_length != (table[0] & LONG_TABLE_FLAG ? LONG_TABLE : SHORT_TABLE) ||
        (table[1] & ENGINE_MODE_MASK) != ENGINE_MODE) {
        answer(REFUSED);
        return;
    }
    IFCONFIG = table[1];
    stop_engine();
    GPIFREADYCFG = table[3];
    GPIFCTLCFG = table[4];
    GPIFIDLECS = table[5];
    GPIFIDLECTL = table[6];
    GPIFWFSELECT = table[7];
    for (i = 0; i < sizeof WAVEFORMS; ++i)
        WAVEFORMS[i] = table[WAVEFORM_OFFSET + i];
    for (i = 0; i < sizeof FLOW; ++i)
        FLOW[i] = table[FLOW_OFFSET + i];
    SYNC;
    EP2GPIFFLGSEL = FLAG_EMPTY;
    SYNC;
    EP8GPIFFLGSEL = FLAG_FULL;
    SYNC;
    table_loaded = 1;
    answer(DONE);
}

static void set_word_count(u16 words)
{
    SYNC;
    GPIFTCB3 = 0;
    SYNC;
    GPIFTCB2 = 0;
    SYNC;
    GPIFTCB1 = words >> 8;
    SYNC;
    GPIFTCB0 = words & 0xFF;
    SYNC;
}

// Waits until there is room for a packet. Returns 0 when the host wants something else.
static u8 wait_room(void)
{
    while (EP2468STAT & EP8_FULL) {
        if (NEW_REQUEST)
            return 0;
    }
    return 1;
}

// Moves one packet from the camera to the host. Returns 0 when it cannot; nothing is left of it then.
static u8 packet_in(u16 words)
{
    if (!wait_room())
        return 0;
    set_word_count(words);
    start_timeout(parallel_timeout);
    GPIFTRIG = GPIF_READ_EP8;
    SYNC;
    while (!(GPIFTRIG & GPIF_DONE)) {
        if (NEW_REQUEST || (TF2 && timed_out())) {
            stop_engine();
            reset_fifo(8);
            return 0;
        }
    }
    INPKTEND = 8;
    SYNC;
    return 1;
}

// Value and index: how many bytes. One more follows, in a packet of its own when the number is even. What does not come
// in time is not replaced: the host's own timeout ends its wait, and nothing stays behind for the next request.
void parallel_in(void)
{
    u8 odd = index & 1;
    u16 packet_words = packet_length >> 1;
    u32 words = ((u32)value << 16 | index) >> 1;
    if (!table_loaded)
        return;
    if (odd)
        ++words;
    while (words >= packet_words) {
        if (!packet_in(packet_words))
            return;
        words -= packet_words;
    }
    if (words && !packet_in((u16)words))
        return;
    if (odd || !wait_room())
        return;
    EP8FIFOBUF[0] = 0;
    EP8BCH = 0;
    SYNC;
    EP8BCL = 1;
    SYNC;
}

// Sends the words that wait on endpoint 2.
void parallel_out(void)
{
    u16 bytes;
    u8 status = FAILED;
    start_timeout(parallel_timeout);
    if (table_loaded) {
        for (;;) {
            bytes = waiting_output();
            if (bytes) {
                set_word_count((bytes >> 1) + (bytes & 1));
                start_timeout(parallel_timeout);
                GPIFTRIG = GPIF_WRITE_EP2;
                SYNC;
                while (!(GPIFTRIG & GPIF_DONE) && !timed_out() && !NEW_REQUEST)
                    ;
                if (!(GPIFTRIG & GPIF_DONE))
                    break;
                status = DONE;
            } else if (status == DONE || timed_out() || NEW_REQUEST) {
                break;
            }
        }
        stop_engine();
    }
    if (waiting_output()) {
        drop_output();
        status = FAILED;
    }
    answer(status);
}
