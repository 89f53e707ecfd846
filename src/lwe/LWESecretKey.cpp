#include <Torvo/LWESecretKey.hpp>

#include "lwe/LWESecretKeyImpl.hpp"
#include "persistence/SavedSize.hpp"

namespace Torvo::LWE {

SecretKey::SecretKey(const Context& context) : impl_(new SecretKeyImpl(context)) {}

SecretKey::SecretKey(const Context& context, const int* const& coefficients)
    : impl_(new SecretKeyImpl(context, coefficients)) {}

SecretKey::SecretKey(const Context& context, const std::string& path)
    : impl_(new SecretKeyImpl(context, path)) {}

SecretKey::SecretKey(const Context& context, std::istream& stream)
    : impl_(new SecretKeyImpl(context, stream)) {}

SecretKey::SecretKey(const SecretKey& other) = default;
SecretKey::SecretKey(SecretKey&& other) noexcept = default;
SecretKey& SecretKey::operator=(const SecretKey& other) = default;
SecretKey& SecretKey::operator=(SecretKey&& other) noexcept = default;
SecretKey::~SecretKey() = default;

const Context& SecretKey::getContext() const {
    return impl_->context;
}

const int* SecretKey::getCoefficients() const {
    return impl_->coefficients.getData();
}

LevelledVector& SecretKey::getSx() {
    return impl_->sx;
}

const LevelledVector& SecretKey::getSx() const {
    return impl_->sx;
}

Device SecretKey::getDevice() const {
    return impl_->sx.getDevice();
}

void SecretKey::to(const Device& device) {
    impl_->sx.to(device);
}

void SecretKey::save(const std::string& path) const {
    impl_->save(path);
}

void SecretKey::save(std::ostream& stream) const {
    impl_->save(stream);
}

unsigned long SecretKey::savedSize() const {
    return detail::savedSize(*this);
}

void SecretKey::saveSeedOnly(const std::string& path) const {
    impl_->saveSeedOnly(path);
}

void SecretKey::saveSeedOnly(std::ostream& stream) const {
    impl_->saveSeedOnly(stream);
}

} // namespace Torvo::LWE
