#include "support/VectorProducts.hpp"

#include "arithmetic/kernels/AVX2Lanes.hpp"

namespace Torvo::test {

void multiplyByVectors(const u64* x, const u64* y, u64* high, u64* low, u64* highAlone, u64 n) {
    for (u64 i = 0; i < n; i += AVX2Lanes::width) {
        const __m256i xi = AVX2Lanes::load(x + i);
        const __m256i yi = AVX2Lanes::load(y + i);
        __m256i h, l;
        arith::mul64To128(xi, yi, h, l);
        AVX2Lanes::store(high + i, h);
        AVX2Lanes::store(low + i, l);
        AVX2Lanes::store(highAlone + i, arith::mul64To128Hi(xi, yi));
    }
}

} // namespace Torvo::test
