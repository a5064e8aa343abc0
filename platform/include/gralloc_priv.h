// Host version of the gralloc private handle carried by every graphics buffer.
//
// The fields keep the device's word order (fd is word 3 counting the three
// header words, flags word 6, size word 7, offset word 8, base word 10); the
// base is pointer-sized so that it holds a host address.
#ifndef POSTEFFECT_HOST_GRALLOC_PRIV_H
#define POSTEFFECT_HOST_GRALLOC_PRIV_H

#include <stdint.h>

#include <cutils/native_handle.h>

enum {
    GRALLOC_USAGE_SW_READ_OFTEN = 0x00000003,
    GRALLOC_USAGE_SW_WRITE_OFTEN = 0x00000030,
    GRALLOC_USAGE_HW_TEXTURE = 0x00000100,
};

struct private_handle_t : public native_handle {
    enum { PRIV_FLAGS_USES_HOST_MEMORY = 0x00000001 };
    enum { sMagic = 0x3141592 };
    enum { sNumFds = 1 };

    int fd;          // word 3: the memory's file descriptor
    int magic;       // word 4
    int reserved;    // word 5
    int flags;       // word 6: allocator flags, chooses the allocator
    int size;        // word 7: bytes mapped
    int offset;      // word 8: offset of the pixels in the mapping
    int bufferType;  // word 9
    uintptr_t base;  // word 10: CPU address of the mapping
    int format;
    int width;
    int height;

    static int numIntsFor() {
        return (int)((sizeof(private_handle_t) - sizeof(native_handle_t)) / sizeof(int)) - sNumFds;
    }
};

#endif
