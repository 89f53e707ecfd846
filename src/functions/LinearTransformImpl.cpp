#include "functions/LinearTransformImpl.hpp"

#include "functions/Messages.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Verifier.hpp"

#include <Torvo/RuntimeException.hpp>

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

namespace Torvo {

namespace {

/// A count of at most `most`, and as many numbers.
template <class T, class Scalar>
std::vector<T> loadedArray(InputArchive& archive, u64 most) {
    u64 count = 0;
    archive(count);
    verify(count <= most);
    std::vector<T> numbers;
    detail::readPieces<T, Scalar>(archive, count, [&](u64 size) {
        numbers.resize(size);
        return numbers.data();
    });
    return numbers;
}

} // namespace

LinearTransformImpl::LinearTransformImpl(u64 size, Diagonals diagonals)
    : size_(size), diagonals_(std::move(diagonals)) {
    if (diagonals_.empty()) diagonals_[0];
}

LinearTransformImpl LinearTransformImpl::permutation(const std::vector<u64>& sources, double factor) {
    const u64 size = sources.size();
    Diagonals diagonals;
    for (u64 i = 0; i < size; ++i) diagonals[(sources[i] + size - i) % size].push_back({i, factor});
    return {size, std::move(diagonals)};
}

std::vector<TransformMask> LinearTransformImpl::masks(u64 slots) const {
    std::vector<TransformMask> masks;
    for (const auto& [diagonal, entries] : diagonals_) {
        const u64 edge = size_ - diagonal; // the first row that reaches across the end
        const bool areWhole = slots == size_ || diagonal == 0;
        if (areWhole) {
            masks.push_back({diagonal, diagonal, 0, size_});
            continue;
        }
        if (entries.front().row < edge) masks.push_back({diagonal, diagonal, 0, edge});
        if (entries.back().row >= edge) masks.push_back({slots - edge, diagonal, edge, size_});
    }
    std::ranges::sort(masks, {}, &TransformMask::rotation);
    return masks;
}

Message LinearTransformImpl::numbers(const TransformMask& mask, u64 shift) const {
    Message message(static_cast<u64>(std::countr_zero(size_)));
    for (const auto& [row, value] : diagonals_.at(mask.diagonal))
        if (mask.begin <= row && row < mask.end) message[(row + shift) % size_] = value;
    return message;
}

void LinearTransformImpl::apply(const Message& in, Message& out) const {
    const u64 slots = in.getSize();
    if (slots == 0 || slots % size_ != 0) throw RuntimeException(message::messageNotInBlocks(slots, size_));
    Message sum = in;
    std::fill_n(sum.begin(), slots, 0.0);
    for (u64 block = 0; block < slots; block += size_)
        for (const auto& [diagonal, entries] : diagonals_)
            for (const auto& [row, value] : entries)
                sum[block + row] += value * in[block + (row + diagonal) % size_];
    out = std::move(sum);
}

double LinearTransformImpl::largestRow() const {
    std::vector<double> sums(size_);
    for (const auto& [diagonal, entries] : diagonals_)
        for (const auto& [row, value] : entries) sums[row] += std::abs(value.real()) + std::abs(value.imag());
    return std::ranges::max(sums);
}

void LinearTransformImpl::save(OutputArchive& archive) const {
    saveTag(archive, ObjectTag::LinearTransform);
    archive(size_, static_cast<u64>(diagonals_.size()));
    for (const auto& [index, entries] : diagonals_) {
        const auto count = static_cast<u64>(entries.size());
        archive(index, count);
        for (const Entry& entry : entries) archive(entry.row);
        archive(count);
        for (const Entry& entry : entries) archive(entry.value.real(), entry.value.imag());
    }
}

void LinearTransformImpl::load(InputArchive& archive) {
    verifyTag(archive, ObjectTag::LinearTransform);
    u64 size = 0, count = 0;
    archive(size, count);
    verify(isSize(size) && 0 < count && count <= size);
    Diagonals diagonals;
    for (u64 k = 0, least = 0; k < count; ++k) {
        u64 index = 0;
        archive(index);
        verify(least <= index && index < size);
        least = index + 1;
        const std::vector<u64> rows = loadedArray<u64, u64>(archive, size);
        const auto values = loadedArray<std::complex<double>, double>(archive, rows.size());
        // Where all numbers are zero, diagonal 0 says so.
        verify(values.size() == rows.size() && (!rows.empty() || (count == 1 && index == 0)));
        std::vector<Entry>& entries = diagonals[index];
        entries.reserve(rows.size());
        for (u64 i = 0; i < rows.size(); ++i) {
            verify(rows[i] < size && (i == 0 || rows[i - 1] < rows[i]));
            verify(std::isfinite(values[i].real()) && std::isfinite(values[i].imag()) && values[i] != 0.0);
            entries.push_back({rows[i], values[i]});
        }
    }
    *this = LinearTransformImpl(size, std::move(diagonals));
}

} // namespace Torvo
