#include <Torvo/Bootstrapper.hpp>

#include "bootstrap/BootstrapperImpl.hpp"
#include "context/ContextContent.hpp"
#include "core/RequireContext.hpp"

namespace Torvo {

Bootstrapper::Bootstrapper(const HomEvaluator& eval, unsigned long log_slots, bool sequential_rotations)
    : impl_(std::make_shared<BootstrapperImpl>(eval, std::nullopt, log_slots, sequential_rotations)) {}

Bootstrapper::Bootstrapper(const HomEvaluator& eval, const Context& context_sparse, unsigned long log_slots,
                           bool sequential_rotations)
    : impl_(std::make_shared<BootstrapperImpl>(eval, context_sparse, log_slots, sequential_rotations)) {}

bool Bootstrapper::isBootstrapReady(unsigned long log_slots) const {
    return impl_->isBootstrapReady(log_slots);
}

void Bootstrapper::makeBootConstants(unsigned long log_slots) {
    impl_->makeBootConstants(log_slots);
}

void Bootstrapper::loadBootConstants(unsigned long log_slots, const Device& device) const {
    impl_->loadBootConstants(log_slots, device);
}

void Bootstrapper::saveBootConstants(unsigned long log_slots, const std::string& path) const {
    impl_->saveBootConstants(log_slots, path);
}

void Bootstrapper::saveBootConstants(unsigned long log_slots, std::ostream& stream) const {
    impl_->saveBootConstants(log_slots, stream);
}

void Bootstrapper::mapBootConstants(unsigned long log_slots, const std::string& path, bool check) {
    impl_->mapBootConstants(log_slots, path, check);
}

void Bootstrapper::readBootConstants(unsigned long log_slots, const std::string& path, bool check) {
    impl_->readBootConstants(log_slots, path, check);
}

void Bootstrapper::readBootConstants(unsigned long log_slots, std::istream& stream, bool check) {
    impl_->readBootConstants(log_slots, stream, check);
}

unsigned long Bootstrapper::getLevelAfterFullSlotBootstrap() const {
    return impl_->getLevelAfterFullSlotBootstrap();
}

unsigned long Bootstrapper::getMinLevelForBootstrap() const {
    return impl_->getMinLevelForBootstrap();
}

void Bootstrapper::bootstrap(const Ciphertext& in, Ciphertext& out, bool is_complex) const {
    impl_->bootstrap(in, out, is_complex);
}

void Bootstrapper::bootstrap(const Ciphertext& in, Ciphertext& out_real, Ciphertext& out_imag) const {
    impl_->bootstrap(in, out_real, out_imag);
}

void Bootstrapper::bootstrapExtended(const Ciphertext& in, Ciphertext& out, bool is_complex) const {
    impl_->bootstrapExtended(in, out, is_complex);
}

void Bootstrapper::bootstrapExtended(const Ciphertext& in, Ciphertext& out_real, Ciphertext& out_imag) const {
    impl_->bootstrapExtended(in, out_real, out_imag);
}

void Bootstrapper::slotToCoeff(const Ciphertext& in, Ciphertext& out) const {
    impl_->levelDownAndSlotToCoeff(in, out);
}

void Bootstrapper::halfBoot(const Ciphertext& in, Ciphertext& out, bool is_complex) const {
    impl_->halfBoot(in, out, is_complex);
}

std::set<long> getRotIndicesForBootstrap(const Context& context, unsigned long log_slots) {
    requireContext(context)->requireSlotsForBootstrap(log_slots);
    return context->getRotIndicesForBootstrap(log_slots, false);
}

} // namespace Torvo
