/* Build helper, run on the build machine: writes the PE checksum of a Windows image into its
 * optional header, as link.exe /release computes it (the 16-bit one's-complement sum of the file
 * with the checksum field taken as zero, plus the file's length). The release build strips DWARF
 * from the shipped images after lld has written them, and llvm-objcopy leaves the field zero.
 *
 * usage: zel-pe-checksum FILE */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: zel-pe-checksum FILE\n");
        return 2;
    }
    FILE* file = fopen(argv[1], "r+b");
    if (file == NULL || fseek(file, 0, SEEK_END) != 0) {
        perror(argv[1]);
        return 1;
    }
    const long size = ftell(file);
    unsigned char* bytes = size > 0x40 ? malloc((size_t)size + 1) : NULL;
    if (bytes == NULL || fseek(file, 0, SEEK_SET) != 0 ||
        fread(bytes, 1, (size_t)size, file) != (size_t)size) {
        fprintf(stderr, "%s: cannot read the image\n", argv[1]);
        return 1;
    }
    const uint32_t pe = (uint32_t)bytes[0x3c] | (uint32_t)bytes[0x3d] << 8 |
                        (uint32_t)bytes[0x3e] << 16 | (uint32_t)bytes[0x3f] << 24;
    /* The checksum follows the signature (4), the file header (20) and 64 bytes of the optional
     * header, the same offset in PE32 and PE32+. */
    const long field = (long)pe + 4 + 20 + 64;
    if (bytes[0] != 'M' || bytes[1] != 'Z' || field + 4 > size || bytes[pe] != 'P' ||
        bytes[pe + 1] != 'E') {
        fprintf(stderr, "%s: not a PE image\n", argv[1]);
        return 1;
    }
    for (int i = 0; i < 4; ++i) {
        bytes[field + i] = 0;
    }
    bytes[size] = 0; /* an odd length is summed as if padded with a zero byte */
    uint64_t sum = 0;
    for (long at = 0; at < size; at += 2) {
        sum += (uint32_t)bytes[at] | (uint32_t)bytes[at + 1] << 8;
        sum = (sum & 0xffff) + (sum >> 16);
    }
    sum = (sum & 0xffff) + (sum >> 16);
    const uint32_t checksum = (uint32_t)(sum + (uint64_t)size);
    const unsigned char out[4] = {(unsigned char)checksum, (unsigned char)(checksum >> 8),
                                  (unsigned char)(checksum >> 16), (unsigned char)(checksum >> 24)};
    if (fseek(file, field, SEEK_SET) != 0 || fwrite(out, 1, 4, file) != 4 || fclose(file) != 0) {
        fprintf(stderr, "%s: cannot write the checksum\n", argv[1]);
        return 1;
    }
    free(bytes);
    return 0;
}
