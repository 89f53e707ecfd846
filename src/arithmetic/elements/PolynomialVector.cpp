#include "arithmetic/elements/PolynomialVector.hpp"

#include "arithmetic/elements/Messages.hpp"
#include "core/Failure.hpp"

#include <algorithm>

namespace Torvo {

namespace {

/// The common result of `query` for all polynomials; refuses with `message` when they differ.
template <class Query>
auto commonAnswer(const std::vector<Polynomial>& polys, Query&& query, const char* message) {
    const auto answer = query(polys.at(0));
    require(std::all_of(polys.begin() + 1, polys.end(), [&](const auto& p) { return query(p) == answer; }),
            message);
    return answer;
}

} // namespace

PolynomialVector::PolynomialVector(const Context& context, unsigned long size, bool modUp, bool isNTT)
    : context_(context) {
    polys_.reserve(size);
    for (u64 i = 0; i < size; ++i) polys_.emplace_back(context, modUp, isNTT);
}

u64 PolynomialVector::getLevel() const {
    return commonAnswer(
        polys_, [](const Polynomial& p) { return p.getLevel(); }, message::polynomialsDifferInLevel);
}

bool PolynomialVector::isModUp() const {
    return commonAnswer(
        polys_, [](const Polynomial& p) { return p.isModUp(); }, message::polynomialsDifferInModUp);
}

bool PolynomialVector::isNTT() const {
    return commonAnswer(
        polys_, [](const Polynomial& p) { return p.isNTT(); }, message::polynomialsDifferInNTT);
}

Device PolynomialVector::getDevice() const {
    return commonAnswer(
        polys_, [](const Polynomial& p) { return p.getDevice(); }, message::polynomialsDifferInDevice);
}

void PolynomialVector::setLevel(unsigned long level) {
    for (Polynomial& poly : polys_) poly.setLevel(level);
}

void PolynomialVector::setSize(unsigned long size) {
    if (size < polys_.size()) polys_.erase(polys_.begin() + static_cast<std::ptrdiff_t>(size), polys_.end());
    polys_.reserve(size);
    while (polys_.size() < size) {
        polys_.push_back(polys_.front().sameShape());
        polys_.back().clear();
    }
}

void PolynomialVector::clear() {
    for (Polynomial& poly : polys_) poly.clear();
}

void PolynomialVector::to(const Device& device) {
    for (Polynomial& poly : polys_) poly.to(device);
}

void PolynomialVector::allocate(const Device& device) {
    for (Polynomial& poly : polys_) poly.allocate(device);
}

} // namespace Torvo
