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

#include <algorithm>

using android::GraphicBuffer;
using android::MemoryHeapBase;
using android::sp;

namespace {

// `fd`'s first `size` bytes, mapped a second time, hold `a`'s bytes and take
// writes both ways.
void ExpectShared(int fd, unsigned char* a, size_t size) {
    struct stat st;
    ASSERT_EQ(0, fstat(fd, &st));
    EXPECT_GE((size_t)st.st_size, size);
    void* other = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ASSERT_NE(MAP_FAILED, other);
    unsigned char* b = static_cast<unsigned char*>(other);
    a[0] = 0x11;
    a[size - 1] = 0x22;
    b[size / 2] = 0x33;
    EXPECT_EQ(0x11, b[0]);
    EXPECT_EQ(0x22, b[size - 1]);
    EXPECT_EQ(0x33, a[size / 2]);
    munmap(other, size);
}

TEST(HostGraphicBuffer, HandleFieldsStrideAndMemory) {
    const struct {
        int format;
        uint32_t w, h;
        int size, bufferType;
    } cases[] = {
        {HAL_PIXEL_FORMAT_RGBA_8888, 100, 7, 100 * 7 * 4, 0},
        {HAL_PIXEL_FORMAT_RGBX_8888, 3, 5, 3 * 5 * 4, 0},
        {HAL_PIXEL_FORMAT_RGB_888, 33, 2, 33 * 2 * 3, 0},
        {HAL_PIXEL_FORMAT_RGB_565, 9, 9, 9 * 9 * 2, 0},
        // NV21: luma, then interleaved chroma at half height (rounded up)
        {HAL_PIXEL_FORMAT_YCrCb_420_SP, 64, 48, 64 * 48 + 64 * 24, 1},
        {HAL_PIXEL_FORMAT_YCrCb_420_SP, 5, 3, 15 + 6 * 2, 1},
        // NV16: chroma at full height
        {HAL_PIXEL_FORMAT_YCbCr_422_SP, 4, 2, 8 + 8, 1},
        // YV12: two quarter-size chroma planes
        {HAL_PIXEL_FORMAT_YV12, 4, 4, 16 + 2 * 4, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.format);
        sp<GraphicBuffer> gb = new GraphicBuffer(c.w, c.h, c.format, 0x130);
        ASSERT_EQ(android::NO_ERROR, gb->initCheck());
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
        EXPECT_EQ(c.bufferType, h->bufferType);
        // The words as the device code reads them: 3 fd, 6 flags, 7 size,
        // 8 offset, 10 (pointer-sized) base.
        const int* words = reinterpret_cast<const int*>(nb->handle);
        EXPECT_EQ(h->fd, words[3]);
        EXPECT_EQ((int)private_handle_t::PRIV_FLAGS_USES_HOST_MEMORY, words[6]);
        EXPECT_EQ(c.size, words[7]);
        EXPECT_EQ(0, words[8]);
        uintptr_t base = 0;
        memcpy(&base, &words[10], sizeof(base));
        EXPECT_EQ(h->base, base);

        void* vaddr = nullptr;
        ASSERT_EQ(android::NO_ERROR, gb->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &vaddr));
        EXPECT_EQ((void*)base, vaddr);
        EXPECT_EQ(android::NO_ERROR, gb->unlock());
        // Every byte is there, starts zero and is shared through the fd.
        const unsigned char* p = static_cast<const unsigned char*>(vaddr);
        EXPECT_EQ(c.size, std::count(p, p + c.size, 0));
        ExpectShared(h->fd, static_cast<unsigned char*>(vaddr), (size_t)c.size);
    }
}

TEST(HostGraphicBuffer, RefusalsReferencesAndSizes) {
    sp<GraphicBuffer> empty = new GraphicBuffer();
    EXPECT_EQ(android::NO_INIT, empty->initCheck());
    EXPECT_EQ(nullptr, empty->getNativeBuffer()->handle);
    void* vaddr = &vaddr;
    EXPECT_NE(android::NO_ERROR, empty->lock(0, &vaddr));
    const struct {
        uint32_t w, h;
        int format;
        android::status_t status;
    } refused[] = {
        {0, 4, HAL_PIXEL_FORMAT_RGBA_8888, android::BAD_VALUE},
        {4, 0, HAL_PIXEL_FORMAT_RGBA_8888, android::BAD_VALUE},
        {4, 4, HAL_PIXEL_FORMAT_BGRA_8888, android::BAD_VALUE},
        {4, 4, 0x190B, android::BAD_VALUE},
        // Larger than a handle's 32-bit size can say.
        {65536, 65536, HAL_PIXEL_FORMAT_RGBA_8888, android::NO_MEMORY},
    };
    for (const auto& c : refused) {
        sp<GraphicBuffer> gb = new GraphicBuffer(c.w, c.h, c.format, 0);
        EXPECT_EQ(c.status, gb->initCheck()) << c.w << "x" << c.h << " " << c.format;
        EXPECT_EQ(nullptr, gb->getNativeBuffer()->handle);
    }
    EXPECT_EQ(4, GraphicBuffer::bytesPerPixel(HAL_PIXEL_FORMAT_RGBA_8888));
    EXPECT_EQ(3, GraphicBuffer::bytesPerPixel(HAL_PIXEL_FORMAT_RGB_888));
    EXPECT_EQ(2, GraphicBuffer::bytesPerPixel(HAL_PIXEL_FORMAT_RGB_565));
    EXPECT_EQ(0, GraphicBuffer::bytesPerPixel(HAL_PIXEL_FORMAT_YCrCb_420_SP));
    EXPECT_EQ(0u, GraphicBuffer::bufferSize(HAL_PIXEL_FORMAT_BGRA_8888, 4, 4));

    // The native buffer's references are the buffer's strong references.
    sp<GraphicBuffer> gb = new GraphicBuffer(4, 4, HAL_PIXEL_FORMAT_RGB_565, 0);
    ANativeWindowBuffer* nb = gb->getNativeBuffer();
    nb->common.incRef(&nb->common);
    EXPECT_EQ(2, gb->getStrongCount());
    nb->common.decRef(&nb->common);
    EXPECT_EQ(1, gb->getStrongCount());
}

TEST(HostMemoryHeap, PagesFlagsSharingAndClose) {
    const size_t page = (size_t)sysconf(_SC_PAGESIZE);
    int fd = -1;
    {
        sp<MemoryHeapBase> heap = new MemoryHeapBase(1000, 0x200);
        fd = heap->getHeapID();
        ASSERT_GE(fd, 0);
        EXPECT_EQ(page, heap->getSize());
        EXPECT_EQ((uint32_t)MemoryHeapBase::NO_CACHING, heap->getFlags());
        ASSERT_NE(MAP_FAILED, heap->getBase());
        unsigned char* p = static_cast<unsigned char*>(heap->getBase());
        EXPECT_EQ((long)page, std::count(p, p + page, 0));
        ExpectShared(fd, p, page);
    }
    EXPECT_EQ(-1, fcntl(fd, F_GETFD)) << "the descriptor closes with the heap";

    sp<MemoryHeapBase> two = new MemoryHeapBase(page + 1);
    EXPECT_EQ(page * 2, two->getSize());
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

}  // namespace
