// SPDX-License-Identifier: MIT
// Registers of the bridge chip, as far as the program uses them. The names are those of the chip's manual.
#ifndef FX2_H
#define FX2_H

#define XREG(name, address) static __xdata volatile __at(address) unsigned char name

// Special function registers
__sfr __at(0x80) IOA;
__sfr __at(0x90) IOB;
__sfr __at(0xA0) IOC;
__sfr __at(0xB0) IOD;
__sfr __at(0xB1) IOE;
__sfr __at(0xB2) OEA;
__sfr __at(0xB3) OEB;
__sfr __at(0xB4) OEC;
__sfr __at(0xB5) OED;
__sfr __at(0xB6) OEE;
__sfr __at(0x8E) CKCON;
__sfr __at(0x9A) AUTOPTRH1;
__sfr __at(0x9B) AUTOPTRL1;
__sfr __at(0x9D) AUTOPTRH2;
__sfr __at(0x9E) AUTOPTRL2;
__sfr __at(0xAF) AUTOPTRSETUP;
__sfr __at(0xAA) EP2468STAT;
__sfr __at(0xBB) GPIFTRIG;
__sfr __at(0xC8) T2CON;
__sbit __at(0xCA) TR2;
__sbit __at(0xCF) TF2;
__sfr __at(0xCA) RCAP2L;
__sfr __at(0xCB) RCAP2H;
__sfr __at(0xCC) TL2;
__sfr __at(0xCD) TH2;

// EP2468STAT
#define EP4_EMPTY 0x04
#define EP6_EMPTY 0x10
#define EP6_FULL 0x20
#define EP8_EMPTY 0x40
#define EP8_FULL 0x80

// GPIFTRIG
#define GPIF_DONE 0x80
#define GPIF_READ_EP8 0x07
#define GPIF_WRITE_EP2 0x00

// Chip registers. Writes to those marked * need SYNC between them.
XREG(CPUCS, 0xE600);
XREG(IFCONFIG, 0xE601);
XREG(FIFORESET, 0xE604);  // *
XREG(EP2FIFOCFG, 0xE618); // * and the next three
XREG(EP4FIFOCFG, 0xE619);
XREG(EP6FIFOCFG, 0xE61A);
XREG(EP8FIFOCFG, 0xE61B);
XREG(INPKTEND, 0xE648); // *
XREG(I2CS, 0xE678);
XREG(I2DAT, 0xE679);
XREG(I2CTL, 0xE67A);
XREG(XAUTODAT1, 0xE67B);
XREG(XAUTODAT2, 0xE67C);
XREG(USBCS, 0xE680);
XREG(EP4BCH, 0xE694); // * and the next five
XREG(EP4BCL, 0xE695);
XREG(EP6BCH, 0xE698);
XREG(EP6BCL, 0xE699);
XREG(EP8BCH, 0xE69C);
XREG(EP8BCL, 0xE69D);
XREG(EP2FIFOBCH, 0xE6AB);
XREG(EP2FIFOBCL, 0xE6AC);
XREG(GPIFWFSELECT, 0xE6C0);
XREG(GPIFIDLECS, 0xE6C1);
XREG(GPIFIDLECTL, 0xE6C2);
XREG(GPIFCTLCFG, 0xE6C3);
XREG(GPIFTCB3, 0xE6CE); // * and the next three
XREG(GPIFTCB2, 0xE6CF);
XREG(GPIFTCB1, 0xE6D0);
XREG(GPIFTCB0, 0xE6D1);
XREG(EP2GPIFFLGSEL, 0xE6D2); // *
XREG(EP8GPIFFLGSEL, 0xE6EA); // *
XREG(GPIFREADYCFG, 0xE6F3);
XREG(GPIFABORT, 0xE6F5);

static __xdata volatile __at(0xE400) unsigned char WAVEFORMS[128];
static __xdata volatile __at(0xE6C6) unsigned char FLOW[8];
static __xdata volatile __at(0xF400) unsigned char EP4FIFOBUF[512];
static __xdata volatile __at(0xF800) unsigned char EP6FIFOBUF[512];
static __xdata volatile __at(0xFC00) unsigned char EP8FIFOBUF[512];

#define CPU_48_MHZ 0x12    // CPUCS: clock output on, as after power-up
#define CLOCK_48_MHZ 0xC0  // IFCONFIG: own clock of 48 MHz, pins are ports
#define HIGH_SPEED 0x80    // USBCS
#define WORD_WIDE 0x01     // EPxFIFOCFG
#define AUTO_OUT 0x10      // EPxFIFOCFG
#define RELEASE 0x80       // EPxBCL: give the buffer to the host
#define NAK_ALL 0x80       // FIFORESET

void sync_delay(void);
#define SYNC sync_delay()

#endif
