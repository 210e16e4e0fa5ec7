#define SYMBOL tallowinMeasuringBootCode
#define MEASURING
#include "boot_code.inc"
    .section .note.GNU-stack,"",%progbits
