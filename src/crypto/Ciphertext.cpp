#include <Torvo/Ciphertext.hpp>

#include "context/ContextContent.hpp"
#include "crypto/CiphertextImpl.hpp"
#include "encoding/NumberOfSlots.hpp"
#include "persistence/SavedSize.hpp"
#include "persistence/Serialize.hpp"

#include <utility>

namespace Torvo {

template <EncryptionType E>
CiphertextBase<E>::CiphertextBase(const Context& context, bool isModUp)
    : CiphertextBase(PolynomialVector(context, getRank(context) + 1, isModUp, true)) {
    impl_->polys.clear();
}

template <EncryptionType E>
CiphertextBase<E>::CiphertextBase(PolynomialVector&& polys)
    : impl_(new CiphertextImpl<E>(std::move(polys))) {}

template <EncryptionType E>
CiphertextBase<E>::CiphertextBase(const Context& context, const CiphertextBase& other)
    : impl_(new CiphertextImpl<E>(context, *other.impl_)) {}

template <EncryptionType E>
CiphertextBase<E>::CiphertextBase(const CiphertextBase& other) = default;
template <EncryptionType E>
CiphertextBase<E>::CiphertextBase(CiphertextBase&& other) noexcept = default;
template <EncryptionType E>
CiphertextBase<E>& CiphertextBase<E>::operator=(const CiphertextBase& other) = default;
template <EncryptionType E>
CiphertextBase<E>& CiphertextBase<E>::operator=(CiphertextBase&& other) noexcept = default;
template <EncryptionType E>
CiphertextBase<E>::~CiphertextBase() = default;

template <EncryptionType E>
const Context& CiphertextBase<E>::getContext() const {
    return impl_->context;
}

template <EncryptionType E>
ParameterPreset CiphertextBase<E>::getParameterPreset() const {
    return impl_->context->parameter.preset;
}

template <EncryptionType E>
unsigned long CiphertextBase<E>::getNumPoly() const {
    return impl_->polys.getSize();
}

template <EncryptionType E>
unsigned long CiphertextBase<E>::getSize() const {
    return getNumPoly();
}

template <EncryptionType E>
void CiphertextBase<E>::setNumPoly(unsigned long n) {
    impl_->setNumPoly(n);
}

template <EncryptionType E>
void CiphertextBase<E>::setSize(unsigned long n) {
    setNumPoly(n);
}

template <EncryptionType E>
unsigned long CiphertextBase<E>::getLogSlots() const {
    return impl_->log_slots;
}

template <EncryptionType E>
void CiphertextBase<E>::setLogSlots(unsigned long log_slots) {
    impl_->log_slots = log_slots;
}

template <EncryptionType E>
unsigned long CiphertextBase<E>::getNumberOfSlots() const {
    return numberOfSlots(impl_->log_slots);
}

template <EncryptionType E>
unsigned long CiphertextBase<E>::getLevel() const {
    return impl_->polys.getLevel();
}

template <EncryptionType E>
void CiphertextBase<E>::setLevel(unsigned long level) {
    impl_->polys.setLevel(level);
}

template <EncryptionType E>
int CiphertextBase<E>::getRescaleCounter() const {
    return impl_->rescale_counter.getValue();
}

template <EncryptionType E>
void CiphertextBase<E>::setRescaleCounter(int rescale_counter) {
    impl_->setRescaleCounter(rescale_counter);
}

template <EncryptionType E>
EncodingType CiphertextBase<E>::getEncodingType() const {
    return impl_->encoding_type;
}

template <EncryptionType E>
void CiphertextBase<E>::setEncodingType(EncodingType encoding_type) {
    impl_->encoding_type = encoding_type;
}

template <EncryptionType E>
unsigned long CiphertextBase<E>::getCurrentPrime() const {
    return impl_->context->primes.getModuli().at(getLevel()).getPrime();
}

template <EncryptionType E>
double CiphertextBase<E>::getCurrentScaleFactor() const {
    return impl_->context->scale_factors.log_scale.at(getLevel());
}

template <EncryptionType E>
bool CiphertextBase<E>::isModUp() const {
    return impl_->polys.isModUp();
}

template <EncryptionType E>
bool CiphertextBase<E>::isNTT() const {
    return impl_->polys.isNTT();
}

template <EncryptionType E>
Polynomial& CiphertextBase<E>::getPoly(unsigned long index) {
    return impl_->polys.getPoly(index);
}

template <EncryptionType E>
const Polynomial& CiphertextBase<E>::getPoly(unsigned long index) const {
    return impl_->polys.getPoly(index);
}

template <EncryptionType E>
PolynomialVector& CiphertextBase<E>::getPolys() {
    return impl_->polys;
}

template <EncryptionType E>
const PolynomialVector& CiphertextBase<E>::getPolys() const {
    return impl_->polys;
}

template <EncryptionType E>
unsigned long* CiphertextBase<E>::getPolyData(unsigned long polyIndex, unsigned long primeIndex) {
    return getPoly(polyIndex).getRow(primeIndex);
}

template <EncryptionType E>
const unsigned long* CiphertextBase<E>::getPolyData(unsigned long polyIndex, unsigned long primeIndex) const {
    return getPoly(polyIndex).getRow(primeIndex);
}

template <EncryptionType E>
Device CiphertextBase<E>::getDevice() const {
    return impl_->polys.getDevice();
}

template <EncryptionType E>
void CiphertextBase<E>::to(const Device& device) {
    impl_->polys.to(device);
}

template <EncryptionType E>
void CiphertextBase<E>::allocate(const Device& device) {
    impl_->polys.allocate(device);
}

template <EncryptionType E>
void CiphertextBase<E>::save(const std::string& path) const {
    Serialize::save(path, *impl_);
}

template <EncryptionType E>
void CiphertextBase<E>::save(std::ostream& stream) const {
    Serialize::save(stream, *impl_);
}

template <EncryptionType E>
unsigned long CiphertextBase<E>::savedSize() const {
    return detail::savedSize(*this);
}

template <EncryptionType E>
void CiphertextBase<E>::load(const std::string& path) {
    Serialize::load(path, *impl_);
}

template <EncryptionType E>
void CiphertextBase<E>::load(std::istream& stream) {
    Serialize::load(stream, *impl_);
}

template class CiphertextBase<EncryptionType::RLWE>;
template class CiphertextBase<EncryptionType::MLWE>;

} // namespace Torvo
