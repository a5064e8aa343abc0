// libFuzzer entry for the cube LUT reader. Each input is a whole .cube file;
// the reader must refuse bad ones with a message and give tables whose every
// output is a level from 0 to 255.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include "lookimport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CubeCurves cube;
    std::string err;
    if (!ParseCube(reinterpret_cast<const char*>(data), size, "fuzz.cube", &cube, &err)) {
        if (err.empty()) {
            abort();
        }
        return 0;
    }
    for (int c = 0; c < 3; ++c) {
        for (double x = 0; x <= 255; x += 0.5) {
            const double y = cube.Eval(c, x);
            if (!(y >= 0 && y <= 255)) {
                abort();
            }
        }
    }
    return 0;
}
