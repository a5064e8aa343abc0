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

bool IsDir(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Sets or clears an environment variable for one scope.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : m_name(name) {
        const char* old = getenv(name);
        m_bHad = old != nullptr;
        if (m_bHad) {
            m_old = old;
        }
        if (value) {
            setenv(name, value, 1);
        } else {
            unsetenv(name);
        }
    }
    ~ScopedEnv() {
        if (m_bHad) {
            setenv(m_name.c_str(), m_old.c_str(), 1);
        } else {
            unsetenv(m_name.c_str());
        }
    }

private:
    std::string m_name;
    std::string m_old;
    bool m_bHad = false;
};

// A fresh host root with the device folders.
class HostRoot : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/posteffect-root-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(tmpl));
        m_root = tmpl;
        for (const char* d : {"/data", "/sdcard", "/sdcard/quandor", "/system", "/system/media",
                              "/system/media/GPU"}) {
            ASSERT_EQ(0, mkdir((m_root + d).c_str(), 0755));
        }
        m_pEnv = new ScopedEnv("POSTEFFECT_ROOT", m_root.c_str());
    }
    void TearDown() override {
        delete m_pEnv;
        std::string cmd = "rm -rf '" + m_root + "'";
        EXPECT_EQ(0, system(cmd.c_str()));
    }
    std::string m_root;
    ScopedEnv* m_pEnv = nullptr;
};

TEST(HostPaths, DefaultRootIsTheBuildsAssetFolder) {
    ScopedEnv env("POSTEFFECT_ROOT", nullptr);
    EXPECT_STREQ(POSTEFFECT_TEST_HOST_ROOT, GEHostRoot());
    ScopedEnv empty("POSTEFFECT_ROOT", "");
    EXPECT_STREQ(POSTEFFECT_TEST_HOST_ROOT, GEHostRoot());
    const std::string root = POSTEFFECT_TEST_HOST_ROOT;
    EXPECT_TRUE(IsDir(root + "/data"));
    EXPECT_TRUE(IsDir(root + "/sdcard/quandor"));
    EXPECT_TRUE(IsDir(root + "/system/media/GPU"));
    EXPECT_EQ(root + "/system/media/GPU/CurveCross.bmp",
              GEHostResolvePath("/system/media/GPU/CurveCross.bmp"));
}

TEST(HostPaths, ResolvesOnlyTheDeviceFolders) {
    ScopedEnv env("POSTEFFECT_ROOT", "/srv/dev-root//");
    EXPECT_EQ("/srv/dev-root/data/tex.bmp", GEHostResolvePath("/data/tex.bmp"));
    EXPECT_EQ("/srv/dev-root/data", GEHostResolvePath("/data"));
    EXPECT_EQ("/srv/dev-root/sdcard/quandor/CurveCold.bmp",
              GEHostResolvePath("/sdcard/quandor/CurveCold.bmp"));
    EXPECT_EQ("/srv/dev-root/system/media/GPU/dot_mask_3.bmp",
              GEHostResolvePath("/system/media/GPU/dot_mask_3.bmp"));
    // Look-alikes and everything else pass through.
    EXPECT_EQ("/database/x", GEHostResolvePath("/database/x"));
    EXPECT_EQ("/systemd/x", GEHostResolvePath("/systemd/x"));
    EXPECT_EQ("/tmp/data/x", GEHostResolvePath("/tmp/data/x"));
    EXPECT_EQ("data/x", GEHostResolvePath("data/x"));
    EXPECT_EQ("/dev/graphics/fb0", GEHostResolvePath("/dev/graphics/fb0"));
    EXPECT_EQ("", GEHostResolvePath(nullptr));

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

TEST_F(HostRoot, FopenAndOpenLandUnderTheRoot) {
    FILE* f = fopen("/data/dump.bin", "wb");
    ASSERT_NE(nullptr, f);
    ASSERT_EQ(3u, fwrite("abc", 1, 3, f));
    fclose(f);
    struct stat st;
    ASSERT_EQ(0, stat((m_root + "/data/dump.bin").c_str(), &st));
    EXPECT_EQ(3, st.st_size);

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
    ASSERT_EQ(0, stat((m_root + "/sdcard/quandor/made.bin").c_str(), &st));
    EXPECT_EQ(0640u, st.st_mode & 0777u);

    fd = open64("/system/media/GPU/big.bin", O_CREAT | O_WRONLY, 0600);
    ASSERT_GE(fd, 0);
    close(fd);
    EXPECT_EQ(0, stat((m_root + "/system/media/GPU/big.bin").c_str(), &st));
    f = fopen64("/system/media/GPU/big.bin", "rb");
    ASSERT_NE(nullptr, f);
    fclose(f);

    errno = 0;
    EXPECT_EQ(nullptr, fopen("/system/media/GPU/missing.bmp", "rb"));
    EXPECT_EQ(ENOENT, errno);
    // A host path outside the device folders opens as it is.
    f = fopen((m_root + "/plain.txt").c_str(), "w");
    ASSERT_NE(nullptr, f);
    fclose(f);
    EXPECT_EQ(0, stat((m_root + "/plain.txt").c_str(), &st));
}

TEST(HostFrameBuffer, ReportsTheDisplaySize) {
    struct Case {
        const char* value;
        int w;
        int h;
    };
    const Case cases[] = {{nullptr, 1920, 1080}, {"800x480", 800, 480}, {"480X800", 480, 800},
                          {"0x480", 1920, 1080}, {"800x0", 1920, 1080}, {"-800x480", 1920, 1080},
                          {"800x", 1920, 1080},  {"x480", 1920, 1080},  {"800x480p", 1920, 1080},
                          {"wide", 1920, 1080},  {"", 1920, 1080},      {"1x1", 1, 1}};
    for (const Case& c : cases) {
        ScopedEnv env("POSTEFFECT_DISPLAY", c.value);
        const std::string what = c.value ? c.value : "(unset)";
        int w = 0;
        int h = 0;
        GEHostDisplaySize(&w, &h);
        EXPECT_EQ(c.w, w) << what;
        EXPECT_EQ(c.h, h) << what;

        int fd = open("/dev/graphics/fb0", O_RDWR);
        ASSERT_GE(fd, 0) << what;
        fb_var_screeninfo var;
        memset(&var, 0xEE, sizeof(var));
        ASSERT_EQ(0, ioctl(fd, FBIOGET_VSCREENINFO, &var)) << what;
        EXPECT_EQ((unsigned)c.w, var.xres) << what;
        EXPECT_EQ((unsigned)c.h, var.yres) << what;
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
