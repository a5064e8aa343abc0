// Architectures without SIMD row functions: the portable ones do all the work.
#include "sp2yuvx_row.h"

void SP2YUVXSelectSimdRows(SP2YUVXRowSet* /*pSet*/) {}

int SP2YUVXSimdRowVariants(const SP2YUVXRowVariant** ppList) {
    *ppList = nullptr;
    return 0;
}
