// Host graphics buffers (handle fields, strides, sizes, shared memory) and
// memory heaps.
#include <binder/MemoryHeapBase.h>
#include <binder/MemoryHeapPmem.h>
#include <fcntl.h>
#include <gralloc_priv.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>

using android::GraphicBuffer;
using android::MemoryHeapBase;
using android::sp;

namespace {

// The handle's words as the device code reads them: word 3 fd, 6 flags,
// 7 size, 8 offset, 10 (pointer-sized) base.
struct Words {
    int fd, flags, size, offset;
    uintptr_t base;
};

Words ReadWords(buffer_handle_t handle) {
    const int* w = reinterpret_cast<const int*>(handle);
    Words out;
    out.fd = w[3];
    out.flags = w[6];
    out.size = w[7];
    out.offset = w[8];
    memcpy(&out.base, &w[10], sizeof(out.base));
    return out;
}

long PageSize() {
    return sysconf(_SC_PAGESIZE);
}

TEST(HostGraphicBuffer, HandleFieldsAndStride) {
    struct Case {
        int format;
        uint32_t w, h;
        int size;
        int bufferType;
    };
    const Case cases[] = {
        {HAL_PIXEL_FORMAT_RGBA_8888, 100, 7, 100 * 7 * 4, 0},
        {HAL_PIXEL_FORMAT_RGBX_8888, 3, 5, 3 * 5 * 4, 0},
        {HAL_PIXEL_FORMAT_RGB_888, 33, 2, 33 * 2 * 3, 0},
        {HAL_PIXEL_FORMAT_RGB_565, 9, 9, 9 * 9 * 2, 0},
        // NV21: luma, then interleaved chroma at half height
        {HAL_PIXEL_FORMAT_YCrCb_420_SP, 64, 48, 64 * 48 + 64 * 24, 1},
        {HAL_PIXEL_FORMAT_YCrCb_420_SP, 5, 3, 15 + 6 * 2, 1},
        // NV16: chroma at full height
        {HAL_PIXEL_FORMAT_YCbCr_422_SP, 4, 2, 8 + 8, 1},
        // YV12: two quarter-size chroma planes
        {HAL_PIXEL_FORMAT_YV12, 4, 4, 16 + 2 * 4, 1},
    };
    for (const Case& c : cases) {
        sp<GraphicBuffer> gb = new GraphicBuffer(c.w, c.h, c.format, 0x130);
        ASSERT_EQ(android::NO_ERROR, gb->initCheck()) << c.format;
        EXPECT_EQ(c.w, gb->getWidth());
        EXPECT_EQ(c.h, gb->getHeight());
        EXPECT_EQ(c.w, gb->getStride()) << "the host stride is the width";
        EXPECT_EQ(0x130u, gb->getUsage());
        EXPECT_EQ(c.format, gb->getPixelFormat());
        EXPECT_EQ((size_t)c.size, GraphicBuffer::bufferSize(c.format, c.w, c.h));

        ANativeWindowBuffer* nb = gb->getNativeBuffer();
        EXPECT_EQ((int)ANDROID_NATIVE_BUFFER_MAGIC, nb->common.magic);
        EXPECT_EQ((int)sizeof(ANativeWindowBuffer), nb->common.version);
        EXPECT_EQ((int)c.w, nb->stride);
        EXPECT_EQ(c.format, nb->format);
        EXPECT_EQ(0x130, nb->usage);
        const private_handle_t* h = reinterpret_cast<const private_handle_t*>(nb->handle);
        ASSERT_NE(nullptr, h);
        EXPECT_EQ((int)sizeof(native_handle_t), h->version);
        EXPECT_EQ(1, h->numFds);
        EXPECT_EQ(private_handle_t::numIntsFor(), h->numInts);
        EXPECT_EQ((int)private_handle_t::sMagic, h->magic);
        EXPECT_EQ((int)private_handle_t::PRIV_FLAGS_USES_HOST_MEMORY, h->flags);
        EXPECT_EQ(c.size, h->size);
        EXPECT_EQ(0, h->offset);
        EXPECT_EQ(c.bufferType, h->bufferType);
        EXPECT_GE(fcntl(h->fd, F_GETFD), 0) << "a live descriptor";

        Words words = ReadWords(nb->handle);
        EXPECT_EQ(h->fd, words.fd);
        EXPECT_EQ(h->flags, words.flags);
        EXPECT_EQ(h->size, words.size);
        EXPECT_EQ(h->offset, words.offset);
        EXPECT_EQ(h->base, words.base);

        void* vaddr = nullptr;
        ASSERT_EQ(android::NO_ERROR, gb->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &vaddr));
        EXPECT_EQ((void*)h->base, vaddr);
        EXPECT_EQ(android::NO_ERROR, gb->unlock());
        // Every byte is there and starts zero.
        const unsigned char* p = static_cast<const unsigned char*>(vaddr);
        for (int i = 0; i < c.size; ++i) {
            ASSERT_EQ(0, p[i]) << i;
        }
        memset(vaddr, 0x5C, (size_t)c.size);
    }
}

TEST(HostGraphicBuffer, MemoryIsSharedThroughItsDescriptor) {
    sp<GraphicBuffer> gb = new GraphicBuffer(16, 4, HAL_PIXEL_FORMAT_RGBA_8888, 0x130);
    const private_handle_t* h = reinterpret_cast<const private_handle_t*>(gb->handle);
    struct stat st;
    ASSERT_EQ(0, fstat(h->fd, &st));
    EXPECT_EQ(h->size, st.st_size);
    void* other = mmap(nullptr, (size_t)h->size, PROT_READ | PROT_WRITE, MAP_SHARED, h->fd, 0);
    ASSERT_NE(MAP_FAILED, other);
    unsigned char* a = reinterpret_cast<unsigned char*>(h->base);
    unsigned char* b = static_cast<unsigned char*>(other);
    a[0] = 0x11;
    a[h->size - 1] = 0x22;
    b[100] = 0x33;
    EXPECT_EQ(0x11, b[0]);
    EXPECT_EQ(0x22, b[h->size - 1]);
    EXPECT_EQ(0x33, a[100]);
    munmap(other, (size_t)h->size);
}

TEST(HostGraphicBuffer, RefusalsAndTheEmptyBuffer) {
    sp<GraphicBuffer> empty = new GraphicBuffer();
    EXPECT_EQ(android::NO_INIT, empty->initCheck());
    EXPECT_EQ(nullptr, empty->getNativeBuffer()->handle);
    void* vaddr = &vaddr;
    EXPECT_NE(android::NO_ERROR, empty->lock(0, &vaddr));

    auto check = [](uint32_t w, uint32_t h, int format) {
        sp<GraphicBuffer> gb = new GraphicBuffer(w, h, format, 0);
        EXPECT_EQ(nullptr, gb->getNativeBuffer()->handle);
        return gb->initCheck();
    };
    EXPECT_EQ(android::BAD_VALUE, check(0, 4, HAL_PIXEL_FORMAT_RGBA_8888));
    EXPECT_EQ(android::BAD_VALUE, check(4, 0, HAL_PIXEL_FORMAT_RGBA_8888));
    EXPECT_EQ(android::BAD_VALUE, check(4, 4, HAL_PIXEL_FORMAT_BGRA_8888));
    EXPECT_EQ(android::BAD_VALUE, check(4, 4, 0x190B));
    // Larger than a handle's 32-bit size can say.
    EXPECT_EQ(android::NO_MEMORY, check(65536, 65536, HAL_PIXEL_FORMAT_RGBA_8888));

    EXPECT_EQ(4, GraphicBuffer::bytesPerPixel(HAL_PIXEL_FORMAT_RGBA_8888));
    EXPECT_EQ(3, GraphicBuffer::bytesPerPixel(HAL_PIXEL_FORMAT_RGB_888));
    EXPECT_EQ(2, GraphicBuffer::bytesPerPixel(HAL_PIXEL_FORMAT_RGB_565));
    EXPECT_EQ(0, GraphicBuffer::bytesPerPixel(HAL_PIXEL_FORMAT_YCrCb_420_SP));
    EXPECT_EQ(0u, GraphicBuffer::bufferSize(HAL_PIXEL_FORMAT_BGRA_8888, 4, 4));
}

TEST(HostGraphicBuffer, NativeReferencesKeepTheBufferAlive) {
    sp<GraphicBuffer> gb = new GraphicBuffer(4, 4, HAL_PIXEL_FORMAT_RGB_565, 0);
    ANativeWindowBuffer* nb = gb->getNativeBuffer();
    nb->common.incRef(&nb->common);
    EXPECT_EQ(2, gb->getStrongCount());
    nb->common.decRef(&nb->common);
    EXPECT_EQ(1, gb->getStrongCount());
}

TEST(HostMemoryHeap, PagesFlagsAndSharing) {
    sp<MemoryHeapBase> heap = new MemoryHeapBase(1000, 0x200);
    ASSERT_GE(heap->getHeapID(), 0);
    EXPECT_EQ((size_t)PageSize(), heap->getSize());
    EXPECT_EQ(0x200u, heap->getFlags());
    EXPECT_EQ((uint32_t)MemoryHeapBase::NO_CACHING, heap->getFlags());
    ASSERT_NE(MAP_FAILED, heap->getBase());
    unsigned char* p = static_cast<unsigned char*>(heap->getBase());
    for (size_t i = 0; i < heap->getSize(); ++i) {
        ASSERT_EQ(0, p[i]);
    }
    p[0] = 0xAB;
    p[heap->getSize() - 1] = 0xCD;
    void* other = mmap(nullptr, heap->getSize(), PROT_READ, MAP_SHARED, heap->getHeapID(), 0);
    ASSERT_NE(MAP_FAILED, other);
    EXPECT_EQ(0xAB, static_cast<unsigned char*>(other)[0]);
    EXPECT_EQ(0xCD, static_cast<unsigned char*>(other)[heap->getSize() - 1]);
    munmap(other, heap->getSize());

    sp<MemoryHeapBase> two = new MemoryHeapBase((size_t)PageSize() + 1);
    EXPECT_EQ((size_t)PageSize() * 2, two->getSize());
    EXPECT_EQ(0u, two->getFlags());

    sp<MemoryHeapBase> none = new MemoryHeapBase(0);
    EXPECT_EQ(-1, none->getHeapID());
    EXPECT_EQ(MAP_FAILED, none->getBase());

    sp<MemoryHeapBase> unmapped = new MemoryHeapBase(64, MemoryHeapBase::DONT_MAP_LOCALLY);
    EXPECT_GE(unmapped->getHeapID(), 0);
    EXPECT_EQ(MAP_FAILED, unmapped->getBase());

    sp<android::MemoryHeapPmem> pmem = new android::MemoryHeapPmem(5000, 0x200);
    EXPECT_GE(pmem->getHeapID(), 0);
    EXPECT_EQ(0x200u, pmem->getFlags());
    EXPECT_GE(pmem->getSize(), 5000u);
}

TEST(HostMemoryHeap, DescriptorClosesWithTheHeap) {
    int fd = -1;
    {
        sp<MemoryHeapBase> heap = new MemoryHeapBase(64);
        fd = heap->getHeapID();
        ASSERT_GE(fcntl(fd, F_GETFD), 0);
    }
    EXPECT_EQ(-1, fcntl(fd, F_GETFD));
}

}  // namespace
