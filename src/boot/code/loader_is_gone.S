# Takes the place of a boot sector whose loader looks for its files by sector numbers that are wrong
# by now: it says that the loader has to be installed again, and stops.

    .code16
    .section .rodata
    .globl tallowinLoaderIsGone
    .type tallowinLoaderIsGone, @object
    .size tallowinLoaderIsGone, 512

tallowinLoaderIsGone:
start:
    jmp code

    .org start + 64
code:
    ljmp $0x07C0, $(segments - start)
segments:
    push %cs
    pop %ds
    cld
    mov $(message - start), %si
print:
    lodsb
    test %al, %al
    jz stop
    mov $0x0E, %ah                  # teletype output, page 0, light grey
    mov $7, %bx
    int $0x10
    jmp print
stop:
    hlt
    jmp stop

    .org start + 112
message:
    .asciz "Reload LILO"

    .org start + 510
    .byte 0x55, 0xAA

    .section .note.GNU-stack, "", @progbits
