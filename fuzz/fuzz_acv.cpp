// libFuzzer entry for the Photoshop curves reader. Each input is a whole
// .acv file; the reader must refuse bad ones with a message and give curves
// whose every output is a level from 0 to 255.
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include "lookimport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CurveSet set;
    std::string err;
    if (!ParseAcv(data, size, "fuzz.acv", &set, &err)) {
        if (err.empty()) {
            abort();
        }
        return 0;
    }
    for (int c = 0; c < 3; ++c) {
        for (double x = -1; x <= 256; x += 0.5) {
            const double y = set.Eval(c, x);
            if (!(y >= 0 && y <= 255)) {
                abort();
            }
        }
    }
    return 0;
}
