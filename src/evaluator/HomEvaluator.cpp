#include <Torvo/HomEvaluator.hpp>

#include "evaluator/HomEvaluatorImpl.hpp"

namespace Torvo {

namespace {

u64 withinSlots(const Message& message, u64 index) {
    return index & ((u64{1} << message.getLogSlots()) - 1);
}

template <Owing Operand>
u64 withinSlots(const Operand& operand, u64 index) {
    return index % operand.getNumberOfSlots();
}

} // namespace

HomEvaluator::HomEvaluator(const Context& context, const std::string& keyDirPath)
    : context_(context), impl_(std::make_shared<HomEvaluatorImpl>(context, keyDirPath)) {}

HomEvaluator::HomEvaluator(const Context& context, const KeyPack& keyPack)
    : context_(context), impl_(std::make_shared<HomEvaluatorImpl>(context, keyPack)) {}

void HomEvaluator::negate(const Message& in, Message& out) const {
    impl_->negate(in, out);
}

void HomEvaluator::add(const Message& in, std::complex<double> c, Message& out) const {
    impl_->add(in, c, out);
}

void HomEvaluator::add(const Message& a, const Message& b, Message& out) const {
    impl_->add(a, b, out);
}

void HomEvaluator::sub(const Message& in, std::complex<double> c, Message& out) const {
    impl_->sub(in, c, out);
}

void HomEvaluator::sub(const Message& a, const Message& b, Message& out) const {
    impl_->sub(a, b, out);
}

void HomEvaluator::mult(const Message& in, std::complex<double> c, Message& out) const {
    impl_->mult(in, c, out);
}

void HomEvaluator::mult(const Message& a, const Message& b, Message& out) const {
    impl_->mult(a, b, out);
}

void HomEvaluator::square(const Message& in, Message& out) const {
    impl_->square(in, out);
}

void HomEvaluator::multImagUnit(const Message& in, Message& out) const {
    impl_->multImagUnit(in, out);
}

void HomEvaluator::leftRotate(const Message& in, unsigned long index, Message& out) const {
    impl_->leftRotate(in, withinSlots(in, index), out);
}

void HomEvaluator::rightRotate(const Message& in, unsigned long index, Message& out) const {
    impl_->rightRotate(in, withinSlots(in, index), out);
}

void HomEvaluator::conjugate(const Message& in, Message& out) const {
    impl_->conjugate(in, out);
}

void HomEvaluator::leftRotateReduce(const Message& in, unsigned long gap, unsigned long count,
                                    Message& out) const {
    impl_->leftRotateReduce(in, gap, count, out);
}

void HomEvaluator::rightRotateReduce(const Message& in, unsigned long gap, unsigned long count,
                                     Message& out) const {
    impl_->rightRotateReduce(in, gap, count, out);
}

void HomEvaluator::negate(const Plaintext& in, Plaintext& out) const {
    impl_->negate(in, out);
}

void HomEvaluator::add(const Plaintext& in, std::complex<double> c, Plaintext& out) const {
    impl_->add(in, c, out);
}

void HomEvaluator::add(const Plaintext& a, const Plaintext& b, Plaintext& out) const {
    impl_->add(a, b, out);
}

void HomEvaluator::sub(const Plaintext& in, std::complex<double> c, Plaintext& out) const {
    impl_->sub(in, c, out);
}

void HomEvaluator::sub(const Plaintext& a, const Plaintext& b, Plaintext& out) const {
    impl_->sub(a, b, out);
}

void HomEvaluator::mult(const Plaintext& in, std::complex<double> c, Plaintext& out) const {
    impl_->mult(in, c, out);
}

void HomEvaluator::mult(const Plaintext& a, const Plaintext& b, Plaintext& out) const {
    impl_->mult(a, b, out);
}

void HomEvaluator::square(const Plaintext& in, Plaintext& out) const {
    impl_->square(in, out);
}

void HomEvaluator::multImagUnit(const Plaintext& in, Plaintext& out) const {
    impl_->multImagUnit(in, out);
}

void HomEvaluator::multInteger(const Plaintext& in, long n, Plaintext& out) const {
    impl_->multInteger(in, n, out);
}

void HomEvaluator::rescale(Plaintext& in_out) const {
    impl_->rescale(in_out);
}

void HomEvaluator::inverseRescale(Plaintext& in_out) const {
    impl_->inverseRescale(in_out);
}

void HomEvaluator::relevel(const Plaintext& in, unsigned long targetLevel, Plaintext& out) const {
    impl_->relevel(in, targetLevel, out);
}

void HomEvaluator::leftRotate(const Plaintext& in, unsigned long index, Plaintext& out) const {
    impl_->leftRotate(in, withinSlots(in, index), out);
}

void HomEvaluator::rightRotate(const Plaintext& in, unsigned long index, Plaintext& out) const {
    impl_->rightRotate(in, withinSlots(in, index), out);
}

void HomEvaluator::conjugate(const Plaintext& in, Plaintext& out) const {
    impl_->conjugate(in, out);
}

template <EncryptionType E>
void HomEvaluator::negate(const CiphertextBase<E>& in, CiphertextBase<E>& out) const {
    impl_->negate(in, out);
}

template <EncryptionType E>
void HomEvaluator::add(const CiphertextBase<E>& in, std::complex<double> c, CiphertextBase<E>& out) const {
    impl_->add(in, c, out);
}

template <EncryptionType E>
void HomEvaluator::add(const CiphertextBase<E>& in, const Message& message, CiphertextBase<E>& out) const {
    impl_->add(in, message, out);
}

template <EncryptionType E>
void HomEvaluator::add(const CiphertextBase<E>& in, const Plaintext& plaintext,
                       CiphertextBase<E>& out) const {
    impl_->add(in, plaintext, out);
}

template <EncryptionType E>
void HomEvaluator::add(const CiphertextBase<E>& a, const CiphertextBase<E>& b, CiphertextBase<E>& out) const {
    impl_->add(a, b, out);
}

template <EncryptionType E>
void HomEvaluator::sub(const CiphertextBase<E>& in, std::complex<double> c, CiphertextBase<E>& out) const {
    impl_->sub(in, c, out);
}

template <EncryptionType E>
void HomEvaluator::sub(const CiphertextBase<E>& in, const Message& message, CiphertextBase<E>& out) const {
    impl_->sub(in, message, out);
}

template <EncryptionType E>
void HomEvaluator::sub(const CiphertextBase<E>& in, const Plaintext& plaintext,
                       CiphertextBase<E>& out) const {
    impl_->sub(in, plaintext, out);
}

template <EncryptionType E>
void HomEvaluator::sub(const CiphertextBase<E>& a, const CiphertextBase<E>& b, CiphertextBase<E>& out) const {
    impl_->sub(a, b, out);
}

template <EncryptionType E>
void HomEvaluator::mult(const CiphertextBase<E>& in, std::complex<double> c, CiphertextBase<E>& out) const {
    impl_->mult(in, c, out);
}

template <EncryptionType E>
void HomEvaluator::mult(const CiphertextBase<E>& in, const Message& message, CiphertextBase<E>& out) const {
    impl_->mult(in, message, out);
}

template <EncryptionType E>
void HomEvaluator::mult(const CiphertextBase<E>& in, const Plaintext& plaintext,
                        CiphertextBase<E>& out) const {
    impl_->mult(in, plaintext, out);
}

template <EncryptionType E>
void HomEvaluator::multWithoutRescale(const CiphertextBase<E>& in, std::complex<double> c,
                                      CiphertextBase<E>& out) const {
    impl_->multWithoutRescale(in, c, out);
}

template <EncryptionType E>
void HomEvaluator::multWithoutRescale(const CiphertextBase<E>& in, const Plaintext& plaintext,
                                      CiphertextBase<E>& out) const {
    impl_->multWithoutRescale(in, plaintext, out);
}

template <EncryptionType E>
void HomEvaluator::multImagUnit(const CiphertextBase<E>& in, CiphertextBase<E>& out) const {
    impl_->multImagUnit(in, out);
}

template <EncryptionType E>
void HomEvaluator::multInteger(const CiphertextBase<E>& in, long n, CiphertextBase<E>& out) const {
    impl_->multInteger(in, n, out);
}

template <EncryptionType E>
void HomEvaluator::rescale(CiphertextBase<E>& in_out) const {
    impl_->rescale(in_out);
}

void HomEvaluator::inverseRescale(Ciphertext& in_out) const {
    impl_->inverseRescale(in_out);
}

template <EncryptionType E>
void HomEvaluator::levelDown(const CiphertextBase<E>& in, unsigned long targetLevel,
                             CiphertextBase<E>& out) const {
    impl_->levelDown(in, targetLevel, out);
}

template <EncryptionType E>
void HomEvaluator::levelDownOne(const CiphertextBase<E>& in, CiphertextBase<E>& out) const {
    impl_->levelDownOne(in, out);
}

void HomEvaluator::tensor(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    impl_->tensor(a, b, out);
}

void HomEvaluator::relinearize(const Ciphertext& in, Ciphertext& out) const {
    impl_->relinearize(in, out);
}

void HomEvaluator::multWithoutRescale(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    impl_->multWithoutRescale(a, b, out);
}

void HomEvaluator::mult(const Ciphertext& a, const Ciphertext& b, Ciphertext& out) const {
    impl_->mult(a, b, out);
}

void HomEvaluator::square(const Ciphertext& in, Ciphertext& out) const {
    impl_->square(in, out);
}

void HomEvaluator::leftRotate(const Ciphertext& in, unsigned long index, Ciphertext& out) const {
    impl_->leftRotate(in, withinSlots(in, index), out);
}

void HomEvaluator::rightRotate(const Ciphertext& in, unsigned long index, Ciphertext& out) const {
    impl_->rightRotate(in, withinSlots(in, index), out);
}

void HomEvaluator::leftRotate(const Ciphertext& in, const std::vector<unsigned long>& indices,
                              std::vector<Ciphertext>& outs) const {
    impl_->rotate(HomEvaluatorImpl::Direction::Left, in, indices, outs);
}

void HomEvaluator::rightRotate(const Ciphertext& in, const std::vector<unsigned long>& indices,
                               std::vector<Ciphertext>& outs) const {
    impl_->rotate(HomEvaluatorImpl::Direction::Right, in, indices, outs);
}

void HomEvaluator::conjugate(const Ciphertext& in, Ciphertext& out) const {
    impl_->conjugate(in, out);
}

void HomEvaluator::killImag(const Ciphertext& in, Ciphertext& out) const {
    impl_->killImag(in, out);
}

void HomEvaluator::leftRotateReduce(const Ciphertext& in, unsigned long gap, unsigned long count,
                                    Ciphertext& out) const {
    impl_->leftRotateReduce(in, gap, count, out);
}

void HomEvaluator::rightRotateReduce(const Ciphertext& in, unsigned long gap, unsigned long count,
                                     Ciphertext& out) const {
    impl_->rightRotateReduce(in, gap, count, out);
}

void HomEvaluator::rotSum(const std::vector<Ciphertext>& cts, const std::vector<unsigned long>& indices,
                          Ciphertext& out) const {
    impl_->rotSum(cts, indices, out);
}

#define TORVO_FOR_CIPHERTEXT(T)                                                                              \
    template TORVO_API void HomEvaluator::negate(const T&, T&) const;                                        \
    template TORVO_API void HomEvaluator::add(const T&, std::complex<double>, T&) const;                     \
    template TORVO_API void HomEvaluator::add(const T&, const Message&, T&) const;                           \
    template TORVO_API void HomEvaluator::add(const T&, const Plaintext&, T&) const;                         \
    template TORVO_API void HomEvaluator::add(const T&, const T&, T&) const;                                 \
    template TORVO_API void HomEvaluator::sub(const T&, std::complex<double>, T&) const;                     \
    template TORVO_API void HomEvaluator::sub(const T&, const Message&, T&) const;                           \
    template TORVO_API void HomEvaluator::sub(const T&, const Plaintext&, T&) const;                         \
    template TORVO_API void HomEvaluator::sub(const T&, const T&, T&) const;                                 \
    template TORVO_API void HomEvaluator::mult(const T&, std::complex<double>, T&) const;                    \
    template TORVO_API void HomEvaluator::mult(const T&, const Message&, T&) const;                          \
    template TORVO_API void HomEvaluator::mult(const T&, const Plaintext&, T&) const;                        \
    template TORVO_API void HomEvaluator::multWithoutRescale(const T&, std::complex<double>, T&) const;      \
    template TORVO_API void HomEvaluator::multWithoutRescale(const T&, const Plaintext&, T&) const;          \
    template TORVO_API void HomEvaluator::multImagUnit(const T&, T&) const;                                  \
    template TORVO_API void HomEvaluator::multInteger(const T&, long, T&) const;                             \
    template TORVO_API void HomEvaluator::rescale(T&) const;                                                 \
    template TORVO_API void HomEvaluator::levelDown(const T&, unsigned long, T&) const;                      \
    template TORVO_API void HomEvaluator::levelDownOne(const T&, T&) const

TORVO_FOR_CIPHERTEXT(Ciphertext);
TORVO_FOR_CIPHERTEXT(CiphertextBase<EncryptionType::MLWE>);

#undef TORVO_FOR_CIPHERTEXT

} // namespace Torvo
