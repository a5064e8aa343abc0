// Device paths under the host root, and the frame-buffer stand-in.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <host/GEHostPlatform.h>
#include <linux/fb.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace {

// Sets (or, with null, clears) an environment variable for one scope.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : m_name(name) {
        const char* old = getenv(name);
        m_bHad = old != nullptr;
        m_old = old ? old : "";
        value ? setenv(name, value, 1) : unsetenv(name);
    }
    ~ScopedEnv() { m_bHad ? setenv(m_name.c_str(), m_old.c_str(), 1) : unsetenv(m_name.c_str()); }

private:
    std::string m_name, m_old;
    bool m_bHad;
};

// The size of `path`, -1 when there is none.
long SizeOf(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? (long)st.st_size : -1L;
}

TEST(HostPaths, DefaultRootIsTheBuildsAssetFolder) {
    const std::string root = POSTEFFECT_TEST_HOST_ROOT;
    for (const char* value : {(const char*)nullptr, ""}) {
        ScopedEnv env("POSTEFFECT_ROOT", value);
        EXPECT_EQ(root, GEHostRoot());
        EXPECT_EQ(root + "/system/media/GPU/CurveCross.bmp",
                  GEHostResolvePath("/system/media/GPU/CurveCross.bmp"));
    }
    for (const char* dir : {"/data", "/sdcard/quandor", "/system/media/GPU"}) {
        struct stat st;
        EXPECT_TRUE(stat((root + dir).c_str(), &st) == 0 && S_ISDIR(st.st_mode)) << dir;
    }
}

TEST(HostPaths, ResolvesOnlyTheDeviceFolders) {
    ScopedEnv env("POSTEFFECT_ROOT", "/srv/dev-root//");
    const struct {
        const char* in;
        std::string out;
    } cases[] = {
        {"/data/tex.bmp", "/srv/dev-root/data/tex.bmp"},
        {"/data", "/srv/dev-root/data"},
        {"/sdcard/quandor/CurveCold.bmp", "/srv/dev-root/sdcard/quandor/CurveCold.bmp"},
        {"/system/media/GPU/dot_mask_3.bmp", "/srv/dev-root/system/media/GPU/dot_mask_3.bmp"},
        // Look-alikes and everything else pass through.
        {"/database/x", "/database/x"},
        {"/systemd/x", "/systemd/x"},
        {"/tmp/data/x", "/tmp/data/x"},
        {"data/x", "data/x"},
        {"/dev/graphics/fb0", "/dev/graphics/fb0"},
        {nullptr, ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.out, GEHostResolvePath(c.in)) << (c.in ? c.in : "(null)");
    }
    // Into a caller's buffer: exactly the room needed, no byte beyond.
    const std::string want = "/srv/dev-root/data/a";
    char out[64];
    memset(out, 'Z', sizeof(out));
    ASSERT_EQ(1, GEHostResolvePath("/data/a", out, want.size() + 1));
    EXPECT_EQ(want, out);
    EXPECT_EQ('Z', out[want.size() + 1]) << "wrote past the terminator";
    EXPECT_EQ(0, GEHostResolvePath("/data/a", out, want.size()));
    EXPECT_EQ(0, GEHostResolvePath(nullptr, out, sizeof(out)));
    EXPECT_EQ(0, GEHostResolvePath("/data/a", nullptr, 10));
}

TEST(HostPaths, FopenAndOpenLandUnderTheRoot) {
    char tmpl[] = "/tmp/posteffect-root-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(tmpl));
    const std::string root = tmpl;
    for (const char* d :
         {"/data", "/sdcard", "/sdcard/quandor", "/system", "/system/media", "/system/media/GPU"}) {
        ASSERT_EQ(0, mkdir((root + d).c_str(), 0755));
    }
    {
        ScopedEnv env("POSTEFFECT_ROOT", root.c_str());
        FILE* f = fopen("/data/dump.bin", "wb");
        ASSERT_NE(nullptr, f);
        ASSERT_EQ(3u, fwrite("abc", 1, 3, f));
        fclose(f);
        EXPECT_EQ(3, SizeOf(root + "/data/dump.bin"));
        int fd = open("/data/dump.bin", O_RDONLY);
        ASSERT_GE(fd, 0);
        char text[4] = {0};
        EXPECT_EQ(3, read(fd, text, 3));
        EXPECT_STREQ("abc", text);
        close(fd);

        mode_t old = umask(022);
        fd = open("/sdcard/quandor/made.bin", O_CREAT | O_WRONLY | O_TRUNC, 0640);
        umask(old);
        ASSERT_GE(fd, 0);
        close(fd);
        struct stat st;
        ASSERT_EQ(0, stat((root + "/sdcard/quandor/made.bin").c_str(), &st));
        EXPECT_EQ(0640u, st.st_mode & 0777u);

        fd = open64("/system/media/GPU/big.bin", O_CREAT | O_WRONLY, 0600);
        ASSERT_GE(fd, 0);
        close(fd);
        EXPECT_EQ(0, SizeOf(root + "/system/media/GPU/big.bin"));
        f = fopen64("/system/media/GPU/big.bin", "rb");
        ASSERT_NE(nullptr, f);
        fclose(f);

        errno = 0;
        EXPECT_EQ(nullptr, fopen("/system/media/GPU/missing.bmp", "rb"));
        EXPECT_EQ(ENOENT, errno);
        // A host path outside the device folders opens as it is.
        f = fopen((root + "/plain.txt").c_str(), "w");
        ASSERT_NE(nullptr, f);
        fclose(f);
        EXPECT_EQ(0, SizeOf(root + "/plain.txt"));
    }
    EXPECT_EQ(0, system(("rm -rf '" + root + "'").c_str()));
}

TEST(HostFrameBuffer, ReportsTheDisplaySize) {
    const struct {
        const char* value;
        int w, h;
    } cases[] = {{nullptr, 1920, 1080}, {"800x480", 800, 480}, {"480X800", 480, 800},
                 {"0x480", 1920, 1080}, {"800x0", 1920, 1080}, {"-800x480", 1920, 1080},
                 {"800x", 1920, 1080},  {"x480", 1920, 1080},  {"800x480p", 1920, 1080},
                 {"wide", 1920, 1080},  {"", 1920, 1080},      {"1x1", 1, 1}};
    for (const auto& c : cases) {
        ScopedEnv env("POSTEFFECT_DISPLAY", c.value);
        SCOPED_TRACE(c.value ? c.value : "(unset)");
        int w = 0, h = 0;
        GEHostDisplaySize(&w, &h);
        EXPECT_EQ(c.w, w);
        EXPECT_EQ(c.h, h);
        int fd = open("/dev/graphics/fb0", O_RDWR);
        ASSERT_GE(fd, 0);
        fb_var_screeninfo var;
        memset(&var, 0xEE, sizeof(var));
        ASSERT_EQ(0, ioctl(fd, FBIOGET_VSCREENINFO, &var));
        EXPECT_EQ((unsigned)c.w, var.xres);
        EXPECT_EQ((unsigned)c.h, var.yres);
        EXPECT_EQ(32u, var.bits_per_pixel);
        fb_fix_screeninfo fix;
        ASSERT_EQ(0, ioctl(fd, FBIOGET_FSCREENINFO, &fix));
        EXPECT_EQ((unsigned)c.w * 4, fix.line_length);
        EXPECT_EQ(0, close(fd));
    }
}

TEST(HostFrameBuffer, OnlyTheStandInAnswers) {
    int fd = open("/dev/graphics/fb0", O_RDONLY);
    ASSERT_GE(fd, 0);
    errno = 0;
    EXPECT_EQ(-1, ioctl(fd, FBIOPUT_VSCREENINFO, nullptr));
    EXPECT_EQ(EFAULT, errno);
    int dummy = 0;
    EXPECT_EQ(-1, ioctl(fd, FBIOBLANK, &dummy));
    EXPECT_EQ(ENOTTY, errno);
    ASSERT_EQ(0, close(fd));
    // The number, once closed and reused for an ordinary file, is ordinary.
    int other = open("/dev/null", O_RDONLY);
    ASSERT_GE(other, 0);
    fb_var_screeninfo var;
    EXPECT_EQ(-1, ioctl(other, FBIOGET_VSCREENINFO, &var));
    close(other);
}

}  // namespace
