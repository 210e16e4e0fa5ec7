#define SYMBOL tallowinStandardBootCode
#include "boot_code.inc"
    .section .note.GNU-stack,"",%progbits
