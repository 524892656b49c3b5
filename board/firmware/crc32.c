#include "crc32.h"

static unsigned int table[256];

static void make_table(void)
{
    for (unsigned int byte = 0; byte < 256; byte++) {
        unsigned int value = byte;

        for (int bit = 0; bit < 8; bit++)
            value = (value >> 1) ^ (value & 1 ? 0xEDB88320u : 0);
        table[byte] = value;
    }
}

unsigned int crc32(unsigned int sum, const unsigned char *data, size_t length)
{
    if (!table[1])
        make_table();
    sum = ~sum;
    while (length--)
        sum = table[(sum ^ *data++) & 0xFF] ^ (sum >> 8);
    return ~sum;
}
