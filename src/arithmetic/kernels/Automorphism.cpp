#include "arithmetic/kernels/Automorphism.hpp"

#include "arithmetic/kernels/BitReversal.hpp"
#include "arithmetic/kernels/Feature.hpp"
#include "arithmetic/kernels/ModulusVectors.hpp"

#include <algorithm>

namespace Torvo {

namespace {

u64 lineLength(u64 degree) {
    return std::min(degree, rows::lineWords);
}

} // namespace

// Position j holds the value at psi^(2 e + 1), e = rev(j); there the image of f has the value of f at
// psi^((2 e + 1) k), which lies at position rev(e'), 2 e' + 1 = (2 e + 1) k mod 2N. The upper bits of e are the
// place in the line: with e = e0 + (N / 8) h, e' = e0' + (N / 8) h k mod N. So the lower bits of e', the line that
// is read, do not depend on h, and its upper bits, the place there, are those of e0' plus h k modulo 8.
Automorphism::Automorphism(u64 degree, long k) : degree_(degree), lines_(degree / lineLength(degree)) {
    const u64 line = lineLength(degree);
    const u64 bits = static_cast<u64>(__builtin_ctzl(degree)),
              lineBits = static_cast<u64>(__builtin_ctzl(line));
    const auto exponent = static_cast<u64>(k);
    const auto placeOf = [&](u64 h) { return lineBits == 0 ? 0 : reverseBits(h % line, lineBits); };
    for (u64 order = 0; order < line; ++order)
        for (u64 i = 0; i < line; ++i) orders_[order].from[i] = placeOf(order + placeOf(i) * exponent);
    for (u64 l = 0; l < lines_.size(); ++l) {
        const u64 image = (2 * reverseBits(l * line, bits) + 1) * exponent / 2 % degree;
        const u64 order = image / (degree / line);
        lines_[l] = static_cast<int>(reverseBits(image, bits) / line * line + order);
    }
}

void Automorphism::apply(const u64* in, u64 begin, u64 count, u64* out) const {
    const u64 line = lineLength(degree_);
    const int* lines = lines_.getData() + begin / line;
    if (line == rows::lineWords && currentForm() >= KernelForm::AVX512)
        return AVX512::moveLines(in, lines, orders_, out, count / line);
    for (u64 l = 0; l < count / line; ++l) {
        const auto source = static_cast<u64>(lines[l]);
        const u64* from = in + source / line * line;
        const rows::LineOrder& order = orders_[source % line];
        for (u64 i = 0; i < line; ++i) out[l * line + i] = from[order.from[i]];
    }
}

} // namespace Torvo
