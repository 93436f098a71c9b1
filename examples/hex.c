/* Prints the bytes of the arguments as digits and back, and what the first one is as a hexadecimal number. */

#include "util/hex.h"

#include <stdio.h>
#include <string.h>

int main(int argc, char **argv)
{
    for (int i = 1; i < argc; i++) {
        char digits[129], bytes[65];
        size_t length = strnlen(argv[i], 64);
        bin_2_hex(argv[i], length, digits);
        bytes[hex_2_bin(digits, bytes)] = '\0';
        printf("%s = %s\n", digits, bytes);
    }
    if (argc > 1)
        printf("as a number: %d = 0x%s\n", hex2int(argv[1]), int2hex(hex2int(argv[1])));
    return 0;
}
