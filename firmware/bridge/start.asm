; SPDX-License-Identifier: MIT
; Interrupt vectors, start-up and the text that says what this program is. The load records that the library uploads
; want the vectors exactly as they stand here: nothing between them, and the start-up code at 0x002E.

	.module start
	.globl	_bridge_main
	.globl	_sync_delay

_ie	=	0xA8
_t2con	=	0xC8

	.area	VECTOR (ABS,CODE)
	.org	0x0000
	ljmp	boot
	reti			; interrupt 0
	.org	0x000B
	reti			; timer 0
	.org	0x0013
	reti			; interrupt 1
	.org	0x001B
	reti			; timer 1
	.org	0x0023
	reti			; serial port 0
	.org	0x002B
	ljmp	timer2

boot:	mov	_ie,#0		; no interrupt is used: all waiting is done in plain loops
	mov	r0,#0xFF	; clear internal memory: every variable there starts as 0
	clr	a
clear:	mov	@r0,a
	djnz	r0,clear
	mov	sp,#0x5F	; the stack has 0x60 to 0xFF
	ljmp	_bridge_main

timer2:	clr	_t2con+7	; never enabled
	reti

; Some registers need time between two writes. The call, the return and the instructions that load address and value
; are several times what the chip asks for.
_sync_delay:
	ret

	.area	IDENT (ABS,CODE)
	.org	0x1A00
	.ascii	"libvornccd bridge program 1: a free replacement, written from the outside of the wire; "
	.ascii	"executed on an emulated chip only"
	.db	0
