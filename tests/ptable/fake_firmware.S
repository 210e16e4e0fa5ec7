/* A boot sector that takes the place of the firmware: it answers the calls for disk extensions and
   for the TPM in its own way, tells on the screen what it was asked, and then starts the
   sector behind itself as the firmware would start sector 0. */

#define AT(label) ((label) - start + 0x8000)

    .section .rodata
    .globl fakeFirmware
    .code16
fakeFirmware:
start:
    cli
    xorw %ax, %ax
    movw %ax, %ss
    movw $0x7A00, %sp
    movw %ax, %ds
    movw %ax, %es
    cld
    movw $0x7C00, %si
    movw $0x8000, %di
    movw $256, %cx
    rep movsw
    ljmp $0, $AT(moved)
moved:
    movl 0x13 * 4, %eax
    movl %eax, AT(oldDisk)
    movw $AT(disk), 0x13 * 4
    movw $0, 0x13 * 4 + 2
    movw $AT(tpm), 0x1A * 4
    movw $0, 0x1A * 4 + 2
    sti
    movw $0x0201, %ax
    movw $0x7C00, %bx
    movw $2, %cx
    movw $0x0080, %dx
    int $0x13
    movw $0x0080, %dx
    ljmp $0, $0x7C00

/* No extensions: only CHS addresses are left. */
disk:
    cmpb $0x41, %ah
    je noExtensions
    .byte 0x2E, 0xFF, 0x2E /* ljmp *%cs:oldDisk */
    .word AT(oldDisk)
noExtensions:
    pushw %bp
    movw %sp, %bp
    orw $1, 6(%bp)
    popw %bp
    iret

/* A TPM that takes everything: "[self]" for the moved boot code, "[sector]" for a loaded sector,
   both into PCR 8, and "[?]" for anything else. */
tpm:
    cmpw $0xBB00, %ax
    je taken
    movw $AT(unknown), %si
    cmpw $0xBB07, %ax
    jne say
    cmpl $0x41504354, %ebx
    jne say
    cmpl $8, %edx
    jne say
    cmpw $0x600, %di
    jne notSelf
    cmpl $440, %ecx
    jne say
    movw $AT(self), %si
    jmp say
notSelf:
    cmpw $0x7C00, %di
    jne say
    cmpl $512, %ecx
    jne say
    movw $AT(sector), %si
say:
    xorw %bx, %bx
next:
    lodsb
    testb %al, %al
    jz taken
    movb $0x0E, %ah
    int $0x10
    jmp next
taken:
    xorl %eax, %eax
    movl $0x41504354, %ebx
    iret

oldDisk:
    .long 0
self:
    .asciz "[self]"
sector:
    .asciz "[sector]"
unknown:
    .asciz "[?]"
    .fill 510 - (. - start), 1, 0
    .byte 0x55, 0xAA
    .section .note.GNU-stack,"",%progbits
