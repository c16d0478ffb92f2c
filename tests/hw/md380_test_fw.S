@ A stand-in for the two entry points of the MD380 firmware's vocoder, assembled into an
@ image that is loaded at 0x0800C000 like md380fw.img. It uses the same calling convention
@ (four register arguments, the rest on the stack), uses the FPU, and writes its results
@ where the real decoder and encoder write theirs, so that the emulator set-up, argument
@ passing and bit packing can be checked without the real firmware.
@
@ decoder(out, n, bits, r3, a5, half, work):
@   cnt = work[0]++ (32 bits)
@   out[i]  = int(float(bits[i] * 1000 + half * 100 + cnt) * 1.5)   for i < 49
@   out[49..57] = n, r3, a5, work lo, work hi, bits lo, bits hi, out lo, out hi
@   out[i]  = i                                                      for 58 <= i < n
@
@ encoder(bits, r1, in, n, a5, half, a7, work):
@   returns without writing unless bits = 0x2000DFC6, r1 = 0, in = 0x2000DE82 + half * 0xA0,
@   n = 80, a5 = 0x1840, a7 = 0x2000
@   cnt = work[0]++ (32 bits)
@   bits[half * 24 + j] = float(in[j]) * 0.5 < 0                      for j < 24
@   half 1 also: bits[48] = (cnt >> 1) & 1

    .syntax unified
    .arch armv7-a
    .fpu vfpv3
    .thumb
    .text

    .org 0x44D90            @ 0x08050D90, the encoder entry
    .thumb_func
encoder:
    push    {r4-r11, lr}
    ldr     r4, [sp, #36]
    ldr     r5, [sp, #40]
    ldr     r6, [sp, #44]
    ldr     r7, [sp, #48]
    movw    r8, #0xDFC6
    movt    r8, #0x2000
    cmp     r0, r8
    bne     9f
    cmp     r1, #0
    bne     9f
    cmp     r3, #80
    bne     9f
    movw    r8, #0x1840
    cmp     r4, r8
    bne     9f
    cmp     r6, #0x2000
    bne     9f
    movw    r8, #0xDE82
    movt    r8, #0x2000
    mov     r9, #0xA0
    mla     r8, r5, r9, r8
    cmp     r2, r8
    bne     9f
    ldr     r8, [r7]
    add     r9, r8, #1
    str     r9, [r7]
    mov     r9, #48
    mla     r10, r5, r9, r0     @ &bits[half * 24]
    vmov.f32 s2, #0.5
    movs    r9, #0
1:  cmp     r9, #24
    bge     2f
    ldrsh   r11, [r2, r9, lsl #1]
    vmov    s0, r11
    vcvt.f32.s32 s0, s0
    vmul.f32 s0, s0, s2
    vcmp.f32 s0, #0
    vmrs    APSR_nzcv, fpscr
    ite     lt
    movlt   r11, #1
    movge   r11, #0
    strh    r11, [r10, r9, lsl #1]
    add     r9, r9, #1
    b       1b
2:  cmp     r5, #1
    bne     9f
    lsr     r11, r8, #1
    and     r11, r11, #1
    strh    r11, [r0, #96]
9:  pop     {r4-r11, pc}

    .org 0x45248            @ 0x08051248, the decoder entry
    .thumb_func
decoder:
    push    {r4-r11, lr}
    ldr     r4, [sp, #36]
    ldr     r5, [sp, #40]
    ldr     r6, [sp, #44]
    ldr     r7, [r6]
    add     r8, r7, #1
    str     r8, [r6]
    vmov.f32 s2, #1.5
    movs    r9, #0
1:  cmp     r9, #49
    bge     2f
    ldrh    r10, [r2, r9, lsl #1]
    mov     r11, #1000
    mul     r10, r10, r11
    mov     r11, #100
    mla     r10, r5, r11, r10
    add     r10, r10, r7
    vmov    s0, r10
    vcvt.f32.s32 s0, s0
    vmul.f32 s0, s0, s2
    vcvt.s32.f32 s0, s0
    vmov    r10, s0
    strh    r10, [r0, r9, lsl #1]
    add     r9, r9, #1
    b       1b
2:  strh    r1, [r0, #98]
    strh    r3, [r0, #100]
    strh    r4, [r0, #102]
    strh    r6, [r0, #104]
    lsr     r10, r6, #16
    strh    r10, [r0, #106]
    strh    r2, [r0, #108]
    lsr     r10, r2, #16
    strh    r10, [r0, #110]
    strh    r0, [r0, #112]
    lsr     r10, r0, #16
    strh    r10, [r0, #114]
    movs    r9, #58
3:  cmp     r9, r1
    bge     4f
    strh    r9, [r0, r9, lsl #1]
    add     r9, r9, #1
    b       3b
4:  pop     {r4-r11, pc}
