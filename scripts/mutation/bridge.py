#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Puts deliberate faults into the bridge program, one at a time, and counts those that its tests catch.

usage: bridge.py CHIP_TEST PACKER [LABEL-PART]

Needs SDCC. Each fault replaces a piece of the source that occurs once.
"""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

FAULTS = [
    # file, label, what stands there, what stands there then
    ("main.c", "packet length of full speed", "? 512 : 64", "? 512 : 512"),
    ("main.c", "no clock set-up", "CPUCS = CPU_48_MHZ;", ""),
    ("main.c", "endpoint 4 armed once", "    EP4BCL = RELEASE;\n    SYNC;\n}", "    SYNC;\n}"),
    ("main.c", "endpoint 4 armed three times", "    EP4BCL = RELEASE;\n    SYNC;\n}",
     "    EP4BCL = RELEASE;\n    SYNC;\n    EP4BCL = RELEASE;\n    SYNC;\n}"),
    ("main.c", "endpoint 2 not automatic", "EP2FIFOCFG = AUTO_OUT | WORD_WIDE;  // turn", "EP2FIFOCFG = WORD_WIDE;  // turn"),
    ("main.c", "endpoint 8 in bytes", "EP8FIFOCFG = WORD_WIDE;", "EP8FIFOCFG = 0;"),
    ("main.c", "endpoint 8 not reset at start", "    reset_fifo(8);\n    EP2FIFOCFG", "    EP2FIFOCFG"),
    ("main.c", "endpoint 6 not reset at start", "    reset_fifo(6);\n    reset_fifo(8);\n    EP2", "    reset_fifo(8);\n    EP2"),
    ("main.c", "endpoint 2 not reset at start", "    reset_fifo(2);\n    reset_fifo(4);", "    reset_fifo(4);"),
    ("main.c", "no delay in a FIFO reset", "FIFORESET = NAK_ALL | endpoint;\n    SYNC;", "FIFORESET = NAK_ALL | endpoint;"),
    ("main.c", "endpoints stay closed", "FIFORESET = 0;\n    SYNC;", "SYNC;"),
    ("main.c", "no delay in a commit", "EP6BCH = answer_length >> 8;\n    SYNC;", "EP6BCH = answer_length >> 8;"),
    ("main.c", "answer without its lead byte", "    abandoned = 0;\n    answer_byte(0);", "    abandoned = 0;"),
    ("main.c", "sequence and code swapped", "answer_byte(REQUEST_SEQUENCE);\n    answer_byte(REQUEST_CODE);",
     "answer_byte(REQUEST_CODE);\n    answer_byte(REQUEST_SEQUENCE);"),
    ("main.c", "answers nobody asked for", "if (!REQUEST_ACKNOWLEDGED && !reply_length)", "if (0)"),
    ("main.c", "no room awaited on endpoint 6", "answer_length == 0 && (EP2468STAT & EP6_FULL)", "0"),
    ("main.c", "commit one byte early", "++answer_length == packet_length", "++answer_length == packet_length - 1"),
    ("main.c", "old answer kept", "    if (!(EP2468STAT & EP6_EMPTY))\n        reset_fifo(6);", ""),
    ("main.c", "old words kept", "    if (!(EP2468STAT & EP8_EMPTY))\n        reset_fifo(8);", ""),
    ("main.c", "an answer is sent to a host that has gone on", "if (!abandoned && NEW_REQUEST)", "if (0)"),
    ("main.c", "old output kept", "waiting_output())\n        drop_output();", "0)\n        drop_output();"),
    ("main.c", "timeouts swapped", "if (REQUEST_SUBCODE)\n        i2c_timeout", "if (!REQUEST_SUBCODE)\n        i2c_timeout"),
    ("main.c", "one timeout for both", "        parallel_timeout = value;\n    answer", "        parallel_timeout = i2c_timeout = value;\n    answer"),
    ("main.c", "milliseconds of 0.9", "#define MILLISECOND 0xF060", "#define MILLISECOND 0xF1F0"),
    ("main.c", "speed of I2C ignored", "I2CTL = REQUEST_SUBCODE & 1;", ""),
    ("main.c", "unknown codes accepted", "        default:\n            answer(REFUSED);", "        default:\n            answer(DONE);"),
    ("main.c", "length not checked", "if (length != announced || length > REQUEST_SPACE)", "if (0)"),
    ("main.c", "requests of one packet only", "if (packet < packet_length || length >= announced)", "if (1)"),
    ("main.c", "endless wait for the rest of a request", "            if (timed_out())\n                break;", "            timed_out();"),
    ("main.c", "endpoint 4 not released", "    SYNC;\n    EP4BCL = RELEASE;\n    SYNC;\n    return", "    SYNC;\n    return"),
    ("ports.c", "mask ignored", "latches[0] = (latches[0] & pair[0]) | pair[1]", "latches[0] = pair[1]"),
    ("ports.c", "port E forgotten", "        IOE = latches[4];\n", ""),
    ("ports.c", "directions of ports B and C swapped", "OEB = (OEB & pair[2]) | pair[3]", "OEB = (OEB & pair[4]) | pair[5]"),
    ("ports.c", "levels read as latches", "latches[0] = (latches[0] & pair[0])", "latches[0] = (IOA & pair[0])"),
    ("ports.c", "levels lost over a restart", "latches[0] = IOA;", "latches[0] = 0;"),
    ("ports.c", "lowest bit first", "out <<= 1;\n", "out >>= 1;\n"),
    ("ports.c", "input before the clock", "        IOA = level;\n        IOA = level | SPI_CLOCK;", "        IOA = level | SPI_CLOCK;\n        IOA = level;"),
    ("ports.c", "never deselected", "    IOA = latches[0] | SPI_SELECT;\n", ""),
    ("ports.c", "SPI without its pins", "(OEA & SPI_PINS) != SPI_DIRECTION", "0"),
    ("i2c.c", "no acknowledge for the last byte forgotten", "            if (left == 2)\n                I2CS = I2C_LAST_READ;", ""),
    ("i2c.c", "no acknowledge of a single byte forgotten", "        if (left == 1)\n            I2CS = I2C_LAST_READ;", ""),
    ("i2c.c", "STOP not awaited", "    start_timeout(STOP_TIMEOUT);\n    while (I2CS & I2C_STOP) {\n        if (timed_out())\n            return 0;\n    }\n", ""),
    ("i2c.c", "acknowledge not looked at", "return wait_byte() && (I2CS & I2C_ACKNOWLEDGED);", "return wait_byte();"),
    ("i2c.c", "endless wait", "        if (timed_out())\n            return 0;\n    }\n    return !(I2CS", "        timed_out();\n    }\n    return !(I2CS"),
    ("i2c.c", "EEPROM unguarded", "#define EEPROM_LONGEST_WRITE 2", "#define EEPROM_LONGEST_WRITE 200"),
    ("i2c.c", "failure called success", "        if (read_bytes())\n            status", "        read_bytes();\n            status"),
    ("parallel.c", "waveforms loaded in the wrong mode", "    IFCONFIG = table[1];\n    stop_engine();", "    stop_engine();"),
    ("parallel.c", "idle levels forgotten", "GPIFIDLECTL = table[6];", ""),
    ("parallel.c", "ready inputs forgotten", "GPIFREADYCFG = table[3];", ""),
    ("parallel.c", "selection forgotten", "GPIFWFSELECT = table[7];", ""),
    ("parallel.c", "waveform for output forgotten", "i < sizeof WAVEFORMS; ++i", "i < 32; ++i"),
    ("parallel.c", "table length not checked", "payload_length != (table[0] & LONG_TABLE_FLAG ? LONG_TABLE : SHORT_TABLE)", "0"),
    ("parallel.c", "odd byte lost", "    if (odd)\n        ++words;", ""),
    ("parallel.c", "trailing byte also after odd counts", "if (odd || !wait_room())", "if (!wait_room())"),
    ("parallel.c", "no room awaited on endpoint 8", "    if (!wait_room())\n        return 0;\n", ""),
    ("parallel.c", "timeout over the whole transfer", "    start_timeout(parallel_timeout);\n    GPIFTRIG = GPIF_READ_EP8;", "    GPIFTRIG = GPIF_READ_EP8;"),
    ("parallel.c", "words before a table", "    if (!table_loaded)\n        return;", ""),
    ("parallel.c", "part of a packet kept after a timeout", "            stop_engine();\n            reset_fifo(8);", "            stop_engine();"),
    ("parallel.c", "no delay in a word count", "GPIFTCB1 = words >> 8;\n    SYNC;", "GPIFTCB1 = words >> 8;"),
    ("parallel.c", "output kept after a timeout", "    if (waiting_output()) {\n        drop_output();", "    if (waiting_output()) {"),
]


def main():
    test, packer = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    wanted = sys.argv[3] if len(sys.argv) > 3 else ""
    source = pathlib.Path(__file__).resolve().parents[2] / "firmware" / "bridge"
    survivors, count = [], 0
    for name, label, before, after in FAULTS:
        if wanted not in label:
            continue
        count += 1
        with tempfile.TemporaryDirectory() as folder:
            work = pathlib.Path(folder)
            shutil.copytree(source, work / "bridge")
            text = (work / "bridge" / name).read_text()
            if text.count(before) != 1:
                sys.exit(f"{name}: {label}: the piece to replace occurs {text.count(before)} times")
            (work / "bridge" / name).write_text(text.replace(before, after))
            build = work / "bridge" / "build.sh"  # a fault may bring a warning
            build.write_text(build.read_text().replace(" --Werror", ""))
            for command in ([work / "bridge" / "build.sh", work / "bridge.hex"],
                            [packer, work / "bridge.hex", "-o", work / "table.cpp", "--binary-out", work / "table.bin"]):
                subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
            try:
                run = subprocess.run([test, "--gtest_filter=*BridgeProgram*", "--gtest_fail_fast"], timeout=120,
                                     stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                     env={**os.environ, "VORNCCD_TEST_TABLE": str(work / "table.bin")})
                caught = run.returncode != 0
            except subprocess.TimeoutExpired:
                caught = True
        if not caught:
            survivors.append(label)
        print(f"{'caught  ' if caught else 'SURVIVES'} {name}: {label}", flush=True)
    print(f"{count - len(survivors)} of {count} faults caught; survivors: {', '.join(survivors) or 'none'}")
    return 0 if len(survivors) <= 3 else 1


if __name__ == "__main__":
    sys.exit(main())
