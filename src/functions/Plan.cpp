#include "bootstrap/BootConstants.hpp"
#include "bootstrap/Messages.hpp"
#include "context/ContextContent.hpp"
#include "context/RadixDecomposition.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "crypto/Messages.hpp"
#include "encoding/Encoding.hpp"
#include "functions/PlanImpl.hpp"
#include "functions/PlannedCiphertextImpl.hpp"
#include "functions/UnitCosts.hpp"

#include <Torvo/Bootstrapper.hpp>

#include <algorithm>
#include <cmath>

namespace Torvo {

// ---- planned ciphertexts

PlannedCiphertext::PlannedCiphertext() : impl_(new PlannedCiphertextImpl) {}
PlannedCiphertext::PlannedCiphertext(PlannedCiphertextImpl&& impl)
    : impl_(new PlannedCiphertextImpl(std::move(impl))) {}
PlannedCiphertext::PlannedCiphertext(const PlannedCiphertext& other) = default;
PlannedCiphertext::PlannedCiphertext(PlannedCiphertext&& other) noexcept = default;
PlannedCiphertext& PlannedCiphertext::operator=(const PlannedCiphertext& other) = default;
PlannedCiphertext& PlannedCiphertext::operator=(PlannedCiphertext&& other) noexcept = default;
PlannedCiphertext::~PlannedCiphertext() = default;

unsigned long PlannedCiphertext::getLevel() const {
    return impl_->level;
}
unsigned long PlannedCiphertext::getLogSlots() const {
    return impl_->exact.getLogSlots();
}
int PlannedCiphertext::getRescaleCounter() const {
    return impl_->rescale_counter;
}
const Message& PlannedCiphertext::getMessage() const {
    return impl_->exact;
}
const Message& PlannedCiphertext::getNoisyMessage() const {
    return impl_->noisy;
}

double PlannedCiphertext::getError() const {
    double sum = 0;
    for (u64 i = 0; i < impl_->exact.getSize(); ++i) sum += std::norm(impl_->noisy[i] - impl_->exact[i]);
    return std::sqrt(sum / static_cast<double>(std::max<u64>(impl_->exact.getSize(), 1)));
}

double PlannedCiphertext::getLargestError() const {
    double largest = 0;
    for (u64 i = 0; i < impl_->exact.getSize(); ++i)
        largest = std::max(largest, std::abs(impl_->noisy[i] - impl_->exact[i]));
    return largest;
}

// ---- plans

Plan::Plan(const Context& context) : impl_(std::make_shared<PlanImpl>(context, std::nullopt)) {}

Plan::Plan(const Context& context, BootstrappingEvaluator::Precision precision)
    : impl_(std::make_shared<PlanImpl>(context, precision)) {}

PlannedCiphertext Plan::encrypt(const Message& message) const {
    return encrypt(message, getEncryptionLevel(impl_->getContext()));
}

PlannedCiphertext Plan::encrypt(const Message& message, unsigned long level) const {
    const Context& context = impl_->getContext();
    require(level <= context->parameter.encryption_level, message::aboveEncryptionLevelUnderPublicKey);
    impl_->requireEncodable(message, level);
    PlannedCiphertextImpl planned{level, 0, 2, message, message};
    impl_->disturb(planned.noisy, impl_->noise().encryption(level, message.getSize()));
    return PlannedCiphertext(std::move(planned));
}

const Context& Plan::getContext() const {
    return impl_->getContext();
}
PlanReport Plan::getReport() const {
    return impl_->getReport();
}
double Plan::estimateSeconds() const {
    const UnitCosts& costs = UnitCosts::of(impl_->getContext());
    double seconds = 0;
    for (const auto& [stepAtLevel, times] : impl_->counts())
        seconds += static_cast<double>(times) * costs.of(stepAtLevel.first, stepAtLevel.second);
    return seconds;
}
void Plan::reset() {
    impl_->reset();
}

// ---- what a plan counts

namespace {

/// Two polynomials over all primes for each digit.
u64 bytesOfKey(const Parameter& parameter) {
    return 2 * parameter.gadget_rank * (parameter.chain_length + parameter.numTP) * parameter.degree *
           sizeof(u64);
}

} // namespace

PlanImpl::PlanImpl(const Context& context, std::optional<BootstrappingEvaluator::Precision> precision)
    : context_(context), noise_(requireContext(context)), precision_(precision) {
    if (precision) require(context->parameter.has_bootstrap, message::noBootstrap);
    if (precision == BootstrappingEvaluator::Precision::Extended)
        require(context->parameter.has_extended_bootstrap, message::noExtendedBootstrap);
    reset();
}

void PlanImpl::requireEncodable(const Message& message, u64 level) const {
    static_cast<void>(Encoding(context_, message, level, 0).takeInNTTForm());
}

void PlanImpl::count(Step step, u64 level) {
    ++counts_[{step, level}];
}

void PlanImpl::reach(u64 level) {
    lowestLevel_ = std::min(lowestLevel_, level);
}

void PlanImpl::countRotation(Step step, u64 index, u64 level) {
    count(step, level);
    leftRotations_.insert(index);
}

void PlanImpl::countBootstrap(u64 level, u64 log_slots) {
    count(Step::Bootstrap, level);
    bootstrapped_.insert(log_slots);
}

void PlanImpl::countEncoding(u64 id, const TransformPlace& place, double factor, u64 bytes) {
    encodingBytes_[{id, place.log_slots, place.level, factor}] = bytes;
}

u64 PlanImpl::total(Step step) const {
    u64 sum = 0;
    for (const auto& [key, times] : counts_)
        if (key.first == step) sum += times;
    return sum;
}

PlanReport PlanImpl::getReport() const {
    PlanReport report;
    report.tensors = total(Step::Tensor);
    report.relinearizations = total(Step::Relinearize);
    report.rotations = total(Step::Rotate) + total(Step::BabyStep) + total(Step::GiantStep);
    report.conjugations = total(Step::Conjugate);
    report.plaintextProducts = total(Step::PlaintextProduct) + total(Step::DiagonalProduct);
    report.constantProducts = total(Step::ConstantProduct);
    report.rescales = total(Step::Rescale);
    report.bootstraps = total(Step::Bootstrap);
    report.lowestLevel = lowestLevel_;
    report.leftRotations = leftRotations_;
    report.keyBytes = keysOf(report) * bytesOfKey(context_->parameter);
    report.constantBytes = bytesOfConstants();
    return report;
}

/// Without the encryption key.
u64 PlanImpl::keysOf(const PlanReport& report) const {
    std::set<u64> rotations(report.leftRotations.begin(), report.leftRotations.end());
    const bool bootstraps = report.bootstraps > 0;
    if (bootstraps) {
        const std::set<long> indices = getRotIndicesForBootstrap(context_, getLogFullSlots(context_));
        for (const u64 index : convertFromSgnIdx({indices.begin(), indices.end()}, context_))
            if (index != 0) rotations.insert(index);
    }
    return rotations.size() + (bootstraps || report.relinearizations > 0 ? 1 : 0) +
           (bootstraps || report.conjugations > 0 ? 1 : 0);
}

/// Of transforms, and those that a bootstrapper makes: for all slots, and for the numbers of slots in use.
u64 PlanImpl::bytesOfConstants() const {
    u64 bytes = 0;
    for (const auto& [encoding, ofEncoding] : encodingBytes_) bytes += ofEncoding;
    if (bootstrapped_.empty()) return bytes;
    std::set<u64> made = bootstrapped_;
    made.insert(getLogFullSlots(context_));
    const Parameter& parameter = context_->parameter;
    for (const u64 log_slots : made)
        bytes += BootShapes(log_slots, parameter.chain_length).rowCount() * parameter.degree * sizeof(u64);
    return bytes;
}

void PlanImpl::reset() {
    counts_.clear();
    leftRotations_.clear();
    bootstrapped_.clear();
    encodingBytes_.clear();
    lowestLevel_ = context_->parameter.chain_length - 1;
    engine_.seed(1);
}

void PlanImpl::disturb(Message& message, double variance) {
    std::normal_distribution<double> part(0, std::sqrt(variance / 2));
    for (std::complex<double>& slot : message) slot += std::complex<double>(part(engine_), part(engine_));
}

} // namespace Torvo
