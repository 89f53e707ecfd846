#include <Torvo/LinearTransform.hpp>

#include "core/Failure.hpp"
#include "encoding/EncodingBound.hpp"
#include "functions/LinearTransformImpl.hpp"
#include "functions/Messages.hpp"
#include "functions/TransformPlan.hpp"
#include "persistence/SavedSize.hpp"
#include "persistence/Serialize.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <string>

namespace Torvo {

namespace {

using Complex = std::complex<double>;
using Diagonals = LinearTransformImpl::Diagonals;

constexpr u64 mostSlots = LinearTransformImpl::mostSlots;

/// Keeps the entry unless it is zero. `place` describes it in a refusal.
template <class Place>
void addEntry(Diagonals& diagonals, u64 diagonal, u64 row, const Complex& value, Place&& place) {
    if (!std::isfinite(value.real()) || !std::isfinite(value.imag()))
        throw RuntimeException(
            message::entryNotFinite(place(), decimal(value.real()), decimal(value.imag())));
    if (value != 0.0) diagonals[diagonal].push_back({row, value});
}

void requireSize(u64 size) {
    if (!LinearTransformImpl::isSize(size)) throw RuntimeException(message::transformSize(size, mostSlots));
}

} // namespace

LinearTransform LinearTransform::fromMatrix(const std::vector<std::vector<Complex>>& rows) {
    require(!rows.empty() && !rows.front().empty(), message::matrixEmpty);
    const u64 columns = rows.front().size();
    for (u64 i = 0; i < rows.size(); ++i)
        if (rows[i].size() != columns)
            throw RuntimeException(message::matrixRagged(i, rows[i].size(), columns));
    const u64 size = std::bit_ceil(std::max<u64>(rows.size(), columns));
    if (size > mostSlots) throw RuntimeException(message::matrixTooLarge(rows.size(), columns, mostSlots));
    Diagonals diagonals;
    for (u64 i = 0; i < rows.size(); ++i)
        for (u64 j = 0; j < columns; ++j)
            addEntry(diagonals, (j + size - i) % size, i, rows[i][j],
                     [&] { return message::inRowAndColumn(i, j); });
    return LinearTransform(new LinearTransformImpl(size, std::move(diagonals)));
}

LinearTransform LinearTransform::fromDiagonals(unsigned long size,
                                               const std::map<unsigned long, std::vector<Complex>>& given) {
    requireSize(size);
    for (const auto& [index, numbers] : given)
        if (index >= size) throw RuntimeException(message::noSuchDiagonal(index, size));
    for (const auto& [index, numbers] : given)
        if (numbers.size() != size)
            throw RuntimeException(message::diagonalLength(index, numbers.size(), size));
    Diagonals diagonals;
    for (const auto& [index, numbers] : given)
        for (u64 i = 0; i < size; ++i)
            addEntry(diagonals, index, i, numbers[i], [&, d = index] { return message::onDiagonal(d, i); });
    return LinearTransform(new LinearTransformImpl(size, std::move(diagonals)));
}

LinearTransform LinearTransform::fromPermutation(const std::vector<unsigned long>& sources) {
    const u64 size = sources.size();
    requireSize(size);
    for (u64 i = 0; i < size; ++i)
        if (sources[i] >= size) throw RuntimeException(message::noSuchSource(i, sources[i], size));
    std::vector<u64> taken(size, size);
    for (u64 i = 0; i < size; ++i) {
        if (taken[sources[i]] != size)
            throw RuntimeException(message::sourceTwice(sources[i], taken[sources[i]], i));
        taken[sources[i]] = i;
    }
    return LinearTransform(new LinearTransformImpl(LinearTransformImpl::permutation(sources, 1.0)));
}

LinearTransform::LinearTransform() : LinearTransform(new LinearTransformImpl(1, {})) {}
LinearTransform::LinearTransform(LinearTransformImpl* impl) : impl_(impl) {}

LinearTransform::LinearTransform(const LinearTransform& other) = default;
LinearTransform::LinearTransform(LinearTransform&& other) noexcept = default;
// By a copy: one that fails must not leave the diagonals of one transform beside the size of another.
LinearTransform& LinearTransform::operator=(const LinearTransform& other) {
    return *this = LinearTransform(other);
}
LinearTransform& LinearTransform::operator=(LinearTransform&& other) noexcept = default;
LinearTransform::~LinearTransform() = default;

unsigned long LinearTransform::getSize() const {
    return impl_->getSize();
}

std::vector<unsigned long> LinearTransform::getDiagonalIndices() const {
    std::vector<unsigned long> indices;
    for (const auto& [index, entries] : impl_->getDiagonals()) indices.push_back(index);
    return indices;
}

std::vector<unsigned long> LinearTransform::getRotationIndices(const Context& context,
                                                               unsigned long log_slots, unsigned long level,
                                                               const TransformOptions& options) const {
    return TransformPlan(context, *impl_, {log_slots, level}, options.maxKeys).rotationIndices();
}

void LinearTransform::apply(const Message& in, Message& out) const {
    impl_->apply(in, out);
}

void LinearTransform::save(const std::string& path) const {
    Serialize::save(path, *impl_);
}

void LinearTransform::save(std::ostream& stream) const {
    Serialize::save(stream, *impl_);
}

unsigned long LinearTransform::savedSize() const {
    return detail::savedSize(*this);
}

void LinearTransform::load(const std::string& path) {
    Serialize::load(path, *impl_);
}

void LinearTransform::load(std::istream& stream) {
    Serialize::load(stream, *impl_);
}

} // namespace Torvo
