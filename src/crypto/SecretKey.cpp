#include <Torvo/SecretKey.hpp>

#include "crypto/SecretKeyImpl.hpp"
#include "persistence/SavedSize.hpp"

namespace Torvo {

template <EncryptionType E>
SecretKeyBase<E>::SecretKeyBase(const Context& context) : impl_(new SecretKeyImpl<E>(context)) {}

template <EncryptionType E>
SecretKeyBase<E>::SecretKeyBase(const Context& context, const int* const& coefficients)
    : impl_(new SecretKeyImpl<E>(context, coefficients)) {}

template <EncryptionType E>
SecretKeyBase<E>::SecretKeyBase(const Context& context, const std::string& path)
    : impl_(new SecretKeyImpl<E>(context, path)) {}

template <EncryptionType E>
SecretKeyBase<E>::SecretKeyBase(const Context& context, std::istream& stream)
    : impl_(new SecretKeyImpl<E>(context, stream)) {}

template <EncryptionType E>
SecretKeyBase<E>::SecretKeyBase(const SecretKeyBase& other) = default;
template <EncryptionType E>
SecretKeyBase<E>::SecretKeyBase(SecretKeyBase&& other) noexcept = default;
template <EncryptionType E>
SecretKeyBase<E>& SecretKeyBase<E>::operator=(const SecretKeyBase& other) = default;
template <EncryptionType E>
SecretKeyBase<E>& SecretKeyBase<E>::operator=(SecretKeyBase&& other) noexcept = default;
template <EncryptionType E>
SecretKeyBase<E>::~SecretKeyBase() = default;

template <EncryptionType E>
const Context& SecretKeyBase<E>::getContext() const {
    return impl_->context;
}

template <EncryptionType E>
Polynomial& SecretKeyBase<E>::getSx(unsigned long index) {
    return impl_->sx.getPoly(index);
}

template <EncryptionType E>
const Polynomial& SecretKeyBase<E>::getSx(unsigned long index) const {
    return impl_->sx.getPoly(index);
}

template <EncryptionType E>
const int* SecretKeyBase<E>::getCoefficients() const {
    return impl_->coefficients.getData();
}

template <EncryptionType E>
Device SecretKeyBase<E>::getDevice() const {
    return impl_->sx.getDevice();
}

template <EncryptionType E>
void SecretKeyBase<E>::to(const Device& device) {
    impl_->sx.to(device);
}

template <EncryptionType E>
void SecretKeyBase<E>::save(const std::string& path) const {
    impl_->save(path);
}

template <EncryptionType E>
void SecretKeyBase<E>::save(std::ostream& stream) const {
    impl_->save(stream);
}

template <EncryptionType E>
unsigned long SecretKeyBase<E>::savedSize() const {
    return detail::savedSize(*this);
}

template <EncryptionType E>
void SecretKeyBase<E>::saveSeedOnly(const std::string& path) const {
    impl_->saveSeedOnly(path);
}

template <EncryptionType E>
void SecretKeyBase<E>::saveSeedOnly(std::ostream& stream) const {
    impl_->saveSeedOnly(stream);
}

template class SecretKeyBase<EncryptionType::RLWE>;
template class SecretKeyBase<EncryptionType::MLWE>;

} // namespace Torvo
