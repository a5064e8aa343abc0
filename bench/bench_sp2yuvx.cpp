// Speed of the CPU semi-planar converters on whole frames, against memcpy of
// the same output bytes and libyuv's NV21ToARGB on the same frame.
//
// bench_sp2yuvx [Google Benchmark flags]. Every benchmark runs 5 times unless
// --benchmark_repetitions says otherwise, the repetitions of all benchmarks
// in random order; after the runs a summary gives, per
// frame size, the time of each function (minimum and median over the
// repetitions) and the ratios between them, all from this one run.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <libyuv/convert_argb.h>

#include "sp2yuvx.h"
#include "sp2yuvx_row.h"

namespace {

struct Size {
    int nWidth;
    int nHeight;
};
const Size kSizes[] = {{1280, 720}, {1920, 1080}, {4000, 3000}};

struct FreeDeleter {
    void operator()(uint8_t* p) const { free(p); }
};
using Buffer = std::unique_ptr<uint8_t, FreeDeleter>;

// Page-aligned, as graphics buffers are; touched once so that no benchmark
// pays for the first page faults.
Buffer Allocate(size_t n, uint32_t nSeed) {
    const size_t nRounded = (n + 4095) & ~size_t(4095);
    Buffer b(static_cast<uint8_t*>(aligned_alloc(4096, nRounded)));
    std::mt19937 rng(nSeed);
    for (size_t i = 0; i < nRounded; i += 4) {
        const uint32_t v = rng();
        memcpy(b.get() + i, &v, 4);
    }
    return b;
}

// One frame size's buffers: the semi-planar source, a second 4-byte-per-pixel
// buffer as memcpy's source, and the destination all functions write.
struct Frame {
    explicit Frame(const Size& s)
        : size(s),
          nOutBytes(size_t(s.nWidth) * s.nHeight * 4),
          src(Allocate(size_t(s.nWidth) * s.nHeight * 3 / 2, 1)),
          copySrc(Allocate(nOutBytes, 2)),
          dst(Allocate(nOutBytes, 3)) {}
    Size size;
    size_t nOutBytes;
    Buffer src;
    Buffer copySrc;
    Buffer dst;
};

Frame& FrameFor(int i) {
    static std::unique_ptr<Frame> s_frames[sizeof(kSizes) / sizeof(kSizes[0])];
    if (!s_frames[i]) {
        s_frames[i].reset(new Frame(kSizes[i]));
    }
    return *s_frames[i];
}

// How the sp2yuvx family is run: the runtime-chosen row functions with the
// default store choice, with cached stores only, with streaming stores
// wherever possible, or the portable row functions.
enum Variant { kAuto, kCached, kStreaming, kPortable };

struct VariantScope {
    explicit VariantScope(Variant v) {
        SP2YUVXForcePortable(v == kPortable);
        SP2YUVXSetStoreMode(v == kCached      ? SP2YUVX_STORE_CACHED
                            : v == kStreaming ? SP2YUVX_STORE_STREAMING
                                              : SP2YUVX_STORE_AUTO);
    }
    ~VariantScope() {
        SP2YUVXForcePortable(false);
        SP2YUVXSetStoreMode(SP2YUVX_STORE_AUTO);
    }
};

void Finish(benchmark::State& state, const Frame& f) {
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(f.nOutBytes));
    state.counters["Mpix/s"] = benchmark::Counter(
        double(f.size.nWidth) * f.size.nHeight * 1e-6 * double(state.iterations()),
        benchmark::Counter::kIsRate);
}

void BM_sp2yuvxs(benchmark::State& state, int nSize, Variant v) {
    Frame& f = FrameFor(nSize);
    const VariantScope scope(v);
    const int w = f.size.nWidth, h = f.size.nHeight;
    for (auto _ : state) {
        sp2yuvxs(f.dst.get(), w, h, f.src.get(), w, h, 0, 0, w, h);
        benchmark::ClobberMemory();
    }
    Finish(state, f);
}

void BM_sp2yuvx(benchmark::State& state, int nSize, Variant v) {
    Frame& f = FrameFor(nSize);
    const VariantScope scope(v);
    for (auto _ : state) {
        sp2yuvx(f.dst.get(), f.src.get(), f.size.nWidth, f.size.nHeight);
        benchmark::ClobberMemory();
    }
    Finish(state, f);
}

void BM_memcpy(benchmark::State& state, int nSize) {
    Frame& f = FrameFor(nSize);
    for (auto _ : state) {
        memcpy(f.dst.get(), f.copySrc.get(), f.nOutBytes);
        benchmark::ClobberMemory();
    }
    Finish(state, f);
}

void BM_NV21ToARGB(benchmark::State& state, int nSize) {
    Frame& f = FrameFor(nSize);
    const int w = f.size.nWidth, h = f.size.nHeight;
    const uint8_t* pY = f.src.get();
    const uint8_t* pVU = pY + size_t(w) * h;
    for (auto _ : state) {
        libyuv::NV21ToARGB(pY, w, pVU, w, f.dst.get(), w * 4, w, h);
        benchmark::ClobberMemory();
    }
    Finish(state, f);
}

double Min(const std::vector<double>& v) {
    return *std::min_element(v.begin(), v.end());
}

// Keeps the minimum and median time of every benchmark for the summary.
class SummaryReporter : public benchmark::ConsoleReporter {
public:
    struct Times {
        double fMin = 0;
        double fMedian = 0;
    };

    void ReportRuns(const std::vector<Run>& reports) override {
        for (const Run& r : reports) {
            if (r.error_occurred) {
                continue;
            }
            Times& t = m_times[r.run_name.function_name];
            const double ms = r.GetAdjustedRealTime();
            if (r.run_type == Run::RT_Iteration) {
                if (t.fMin == 0 || ms < t.fMin) {
                    t.fMin = ms;
                }
                if (t.fMedian == 0) {
                    t.fMedian = ms;
                }
            } else if (r.aggregate_name == "median") {
                t.fMedian = ms;
            } else if (r.aggregate_name == "min") {
                t.fMin = ms;
            }
        }
        ConsoleReporter::ReportRuns(reports);
    }

    const Times* Find(const std::string& name) const {
        const auto it = m_times.find(name);
        return it == m_times.end() ? nullptr : &it->second;
    }

private:
    std::map<std::string, Times> m_times;
};

std::string Name(const char* pszFunction, int nSize) {
    char s[64];
    snprintf(s, sizeof(s), "%s/%dx%d", pszFunction, kSizes[nSize].nWidth, kSizes[nSize].nHeight);
    return s;
}

void PrintSummary(const SummaryReporter& rep) {
    printf(
        "\nSummary (times in ms: minimum / median over the repetitions; ratios from the "
        "minimum, median in brackets)\n");
    printf("row functions: %s; streaming stores from %zu MiB of output\n",
           SP2YUVXActiveRows().pszName, kSP2YUVXStreamMinBytes >> 20);
    const char* const pszNames[] = {"sp2yuvxs",         "sp2yuvx",         "memcpy",
                                    "NV21ToARGB",       "sp2yuvxs_cached", "sp2yuvxs_streaming",
                                    "sp2yuvxs_portable"};
    for (int i = 0; i < int(sizeof(kSizes) / sizeof(kSizes[0])); ++i) {
        printf("\n%dx%d (%.1f MB of output)\n", kSizes[i].nWidth, kSizes[i].nHeight,
               double(kSizes[i].nWidth) * kSizes[i].nHeight * 4 * 1e-6);
        for (const char* pszName : pszNames) {
            const SummaryReporter::Times* t = rep.Find(Name(pszName, i));
            if (t) {
                printf("  %-20s %8.3f / %8.3f\n", pszName, t->fMin, t->fMedian);
            }
        }
        auto ratio = [&](const char* pszA, const char* pszB, const char* pszWhat) {
            const SummaryReporter::Times* a = rep.Find(Name(pszA, i));
            const SummaryReporter::Times* b = rep.Find(Name(pszB, i));
            if (a && b) {
                printf("  %-44s %5.2fx  (%5.2fx)\n", pszWhat, a->fMin / b->fMin,
                       a->fMedian / b->fMedian);
            }
        };
        ratio("sp2yuvxs", "memcpy", "sp2yuvxs time / memcpy time");
        ratio("sp2yuvx", "memcpy", "sp2yuvx time / memcpy time");
        ratio("NV21ToARGB", "sp2yuvxs", "NV21ToARGB time / sp2yuvxs time (speed-up)");
        ratio("NV21ToARGB", "sp2yuvx", "NV21ToARGB time / sp2yuvx time (speed-up)");
        ratio("sp2yuvxs_cached", "sp2yuvxs_streaming", "cached stores / streaming stores");
        ratio("sp2yuvxs_portable", "sp2yuvxs", "portable rows / runtime rows");
    }
}

void Register() {
    for (int i = 0; i < int(sizeof(kSizes) / sizeof(kSizes[0])); ++i) {
        std::vector<benchmark::internal::Benchmark*> v = {
            benchmark::RegisterBenchmark(Name("sp2yuvxs", i).c_str(), BM_sp2yuvxs, i, kAuto),
            benchmark::RegisterBenchmark(Name("sp2yuvx", i).c_str(), BM_sp2yuvx, i, kAuto),
            benchmark::RegisterBenchmark(Name("memcpy", i).c_str(), BM_memcpy, i),
            benchmark::RegisterBenchmark(Name("NV21ToARGB", i).c_str(), BM_NV21ToARGB, i),
            benchmark::RegisterBenchmark(Name("sp2yuvxs_cached", i).c_str(), BM_sp2yuvxs, i,
                                         kCached),
            benchmark::RegisterBenchmark(Name("sp2yuvxs_streaming", i).c_str(), BM_sp2yuvxs, i,
                                         kStreaming),
            benchmark::RegisterBenchmark(Name("sp2yuvxs_portable", i).c_str(), BM_sp2yuvxs, i,
                                         kPortable),
        };
        for (benchmark::internal::Benchmark* b : v) {
            b->Unit(benchmark::kMillisecond)->UseRealTime()->ComputeStatistics("min", Min);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<char*> args(argv, argv + argc);
    bool bRepetitions = false;
    bool bInterleaving = false;
    for (int i = 1; i < argc; ++i) {
        bRepetitions |= strncmp(argv[i], "--benchmark_repetitions", 23) == 0;
        bInterleaving |= strncmp(argv[i], "--benchmark_enable_random_interleaving", 38) == 0;
    }
    // Repetitions of all benchmarks run in random order, so that a busy moment
    // of the machine does not fall on one function alone.
    char szRepetitions[] = "--benchmark_repetitions=5";
    char szInterleaving[] = "--benchmark_enable_random_interleaving=true";
    if (!bRepetitions) {
        args.push_back(szRepetitions);
    }
    if (!bInterleaving) {
        args.push_back(szInterleaving);
    }
    int nArgs = int(args.size());
    args.push_back(nullptr);
    benchmark::Initialize(&nArgs, args.data());
    if (benchmark::ReportUnrecognizedArguments(nArgs, args.data())) {
        return 1;
    }
    Register();
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    PrintSummary(reporter);
    benchmark::Shutdown();
    return 0;
}
