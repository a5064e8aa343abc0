// libFuzzer entry for the look-source reader. Each input is a whole source;
// one that parses must build into an image and encode as a BMP, and the
// source the tool writes back for it must parse and build into the very same
// file.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "looksource.h"

namespace {

bool Encode(const LookSource& src, std::vector<uint8_t>* pBytes) {
    LookBitmap bmp;
    std::string err;
    return BuildLookImage(src, &bmp, &err) && EncodeLookBmp(bmp, pBytes, &err);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    LookSource src;
    std::string err;
    if (!ParseLookSource(text, "fuzz.look", &src, &err)) {
        if (err.empty()) {
            abort();
        }
        return 0;
    }
    std::vector<uint8_t> first, second;
    LookSource again;
    if (!Encode(src, &first) ||
        !ParseLookSource(FormatLookSource(src, "again"), "again", &again, &err) ||
        !Encode(again, &second) || first != second) {
        abort();
    }
    return 0;
}
