#include <Torvo/LWEHomEvaluator.hpp>

#include "lwe/LWEHomEvaluatorImpl.hpp"

namespace Torvo::LWE {

HomEvaluator::HomEvaluator(const Context& context) : impl_(std::make_shared<HomEvaluatorImpl>(context)) {}

void HomEvaluator::negate(const Ciphertext& in, Ciphertext& out) const {
    impl_->negate(in, out);
}

void HomEvaluator::add(const Ciphertext& in, double c, Ciphertext& out) const {
    impl_->add(in, c, out);
}

void HomEvaluator::sub(const Ciphertext& in, double c, Ciphertext& out) const {
    impl_->sub(in, c, out);
}

void HomEvaluator::add(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    impl_->add(a, b, out);
}

void HomEvaluator::sub(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    impl_->sub(a, b, out);
}

void HomEvaluator::multInteger(const Ciphertext& in, long n, Ciphertext& out) const {
    impl_->multInteger(in, n, out);
}

void HomEvaluator::multWithoutRescale(const Ciphertext& in, double c, Ciphertext& out) const {
    impl_->multWithoutRescale(in, c, out);
}

void HomEvaluator::mult(const Ciphertext& in, double c, Ciphertext& out) const {
    impl_->mult(in, c, out);
}

void HomEvaluator::rescale(Ciphertext& in_out) const {
    impl_->rescale(in_out);
}

void HomEvaluator::levelDown(const Ciphertext& in, unsigned long targetLevel, Ciphertext& out) const {
    impl_->levelDown(in, targetLevel, out);
}

void HomEvaluator::levelDownOne(const Ciphertext& in, Ciphertext& out) const {
    impl_->levelDownOne(in, out);
}

} // namespace Torvo::LWE
