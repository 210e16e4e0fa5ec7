# The boot sector of a newly formatted volume: it says that there is nothing to boot from,
# waits for a key and hands over to the BIOS. The parameters of the file system are filled in
# later; 90 bytes from the start are theirs.

    .code16
    .section .rodata
    .globl tallowinNewFatBootSector
    .type tallowinNewFatBootSector, @object
    .size tallowinNewFatBootSector, 512

tallowinNewFatBootSector:
start:
    .byte 0xE9                      # jmp near to code; the short form would be padded
    .word code - start - 3
    .ascii "STRANDXX"

    .org start + 90
code:
    ljmp $0x07C0, $(segments - start)
segments:
    push %cs
    pop %ds
    cld
    mov $(message - start), %si
    jmp print

    .org start + 110
message:
    .ascii "\r\nThis partition does not contain an operating system."
    .ascii "\r\nIf you are about to install a new OS then insert the"
    .ascii "\r\ninstallation diskette into drive A:"
    .ascii "\r\n\nPress any key to run the BIOS bootstrap loader...\r\n\0"

print:
    lodsb
    test %al, %al
    jz wait_for_key
    mov $0x0E, %ah                  # teletype output, page 0, light grey
    mov $7, %bx
    int $0x10
    jmp print
wait_for_key:
    xor %ax, %ax
    int $0x16
    int $0x19
    jmp wait_for_key

    .org start + 510
    .byte 0x55, 0xAA

    .section .note.GNU-stack, "", @progbits
