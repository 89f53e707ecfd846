#include "arithmetic/kernels/ModulusVectors.hpp"

#include "arithmetic/kernels/FMA512Lanes.hpp"
#include "arithmetic/kernels/FloatProducts.hpp"

namespace Torvo::AVX512 {

constinit const RowKernels kernels = makeRowKernels<AVX512Lanes, lanes::Estimating<AVX512Lanes>>();
constinit const RowKernels floatKernels =
    makeRowKernels<AVX512Lanes, lanes::Estimating<AVX512Lanes>, lanes::FloatProducts<FMA512Lanes<0>>>();

void moveLines(const u64* in, const int* lines, const rows::LineOrder* orders, u64* out, u64 count) {
    using L = AVX512Lanes;
    constexpr u64 place = rows::lineWords - 1;
    for (u64 l = 0; l < count; ++l) {
        const auto source = static_cast<u64>(lines[l]);
        const auto words = L::load(in + (source & ~place));
        L::store(out + l * L::width, _mm512_permutexvar_epi64(L::load(orders[source & place].from), words));
    }
}

} // namespace Torvo::AVX512
