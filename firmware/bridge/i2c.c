// SPDX-License-Identifier: MIT
// I2C. A device that does not answer costs the host one short answer, never its patience: every wait has an end.
#include "bridge.h"

#define I2C_START 0x80
#define I2C_STOP 0x40
#define I2C_LAST_READ 0x20
#define I2C_BUS_ERROR 0x04
#define I2C_ACKNOWLEDGED 0x02
#define I2C_DONE 0x01

#define READ_BIT 0x01
#define STOP_TIMEOUT 2  // milliseconds

// The chip takes its USB identity from this memory at power-up; it has a two-byte word address.
#define EEPROM_WRITE 0xA2
#define EEPROM_LONGEST_WRITE 2

u16 i2c_timeout;

// Waits for the end of a byte. Returns whether it came without an error.
static u8 wait_byte(void)
{
    start_timeout(i2c_timeout);
    while (!(I2CS & I2C_DONE)) {
        check_abandoned();
        if (timed_out())
            return 0;
    }
    return !(I2CS & I2C_BUS_ERROR);
}

static u8 wait_stop(void)
{
    start_timeout(STOP_TIMEOUT);
    while (I2CS & I2C_STOP) {
        if (timed_out())
            return 0;
    }
    return 1;
}

static u8 send_byte(u8 byte)
{
    I2DAT = byte;
    return wait_byte() && (I2CS & I2C_ACKNOWLEDGED);
}

static u8 write_bytes(void)
{
    u16 i;
    u8 ok;
    I2CS = I2C_START;
    ok = send_byte(payload[0]);
    for (i = 1; ok && i < payload_length; ++i)
        ok = send_byte(payload[i]);
    I2CS = I2C_STOP;
    return wait_stop() && ok;
}

// Reads into the answer. What does not come is 0xFF there.
static u8 read_bytes(void)
{
    u16 left = reply_length;
    u8 ok;
    I2CS = I2C_START;
    ok = send_byte(payload[0]);
    if (ok && left) {
        if (left == 1)
            I2CS = I2C_LAST_READ;
        (void)I2DAT;  // begins the first byte
        while (left > 1) {
            ok = wait_byte();
            if (!ok)
                break;
            if (abandoned)
                left = 2;
            if (left == 2)
                I2CS = I2C_LAST_READ;
            answer_byte(I2DAT);  // begins the next one
            --left;
        }
        if (ok)
            ok = wait_byte();
    } else if (ok) {
        I2CS = I2C_LAST_READ;  // nobody wants a byte, but the device sends one
        (void)I2DAT;
        ok = wait_byte();
    }
    I2CS = I2C_STOP;
    if (ok && left) {
        answer_byte(I2DAT);
        --left;
    }
    answer_fill(left);
    return wait_stop() && ok;
}

// Payload: address with the read bit, then the bytes to write.
void transfer_i2c(void)
{
    u8 status = FAILED;
    u8 reading;
    if (!payload_length) {
        answer(REFUSED);
        return;
    }
    reading = payload[0] & READ_BIT;
    if (!reading && payload[0] == EEPROM_WRITE && payload_length > 1 + EEPROM_LONGEST_WRITE) {
        answer(REFUSED);
        return;
    }
    answer_begin();
    if (I2CS & I2C_STOP)  // the bus still hangs from last time
        answer_fill(reply_length);
    else if (reading) {
        if (read_bytes())
            status = DONE;
    } else {
        if (write_bytes())
            status = DONE;
        answer_fill(reply_length);
    }
    if (REQUEST_ACKNOWLEDGED || reply_length)
        answer_end(status);
}
