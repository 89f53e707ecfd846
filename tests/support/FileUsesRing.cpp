// Messages, plaintexts, ciphertexts in full and compact, and secret keys.

#include "support/FileUses.hpp"

#include <complex>

namespace Torvo::test::uses {

namespace {

using enum EncryptionType;

template <EncryptionType E>
const ToyRing<E>& toy() {
    if constexpr (E == RLWE)
        return toyRing();
    else
        return toyModule();
}

constexpr std::complex<double> constant{0.5, -0.25};

// ---- plaintexts

void evaluate(const ToyRing<RLWE>& ring, const Plaintext& in) {
    const HomEvaluator& evaluator = ring.evaluator;
    const auto into = [&](auto&& operation) {
        attempt([&] {
            Plaintext out(ring.context);
            operation(out);
        });
    };
    into([&](Plaintext& out) { evaluator.negate(in, out); });
    into([&](Plaintext& out) { evaluator.add(in, constant, out); });
    into([&](Plaintext& out) { evaluator.add(in, in, out); });
    into([&](Plaintext& out) { evaluator.sub(ring.plaintext, in, out); });
    into([&](Plaintext& out) { evaluator.mult(in, constant, out); });
    into([&](Plaintext& out) { evaluator.mult(in, ring.plaintext, out); });
    into([&](Plaintext& out) { evaluator.square(in, out); });
    into([&](Plaintext& out) { evaluator.multImagUnit(in, out); });
    into([&](Plaintext& out) { evaluator.multInteger(in, -3, out); });
    into([&](Plaintext& out) { evaluator.rescale(out = in); });
    into([&](Plaintext& out) { evaluator.inverseRescale(out = in); });
    into([&](Plaintext& out) { evaluator.relevel(in, 0, out); });
    into([&](Plaintext& out) { evaluator.relevel(in, 1, out); });
    into([&](Plaintext& out) { evaluator.leftRotate(in, 3, out); });
    into([&](Plaintext& out) { evaluator.conjugate(in, out); });
}

template <EncryptionType E>
void useWithCiphertext(const ToyRing<E>& ring, const Plaintext& in) {
    using Ciphertext = CiphertextBase<E>;
    const auto into = [&](auto&& operation) {
        attempt([&] {
            Ciphertext out(ring.context);
            operation(out);
        });
    };
    into([&](Ciphertext& out) { ring.encryptor.encrypt(in, ring.secretKey, out); });
    into([&](Ciphertext& out) { ring.evaluator.add(ring.fresh, in, out); });
    into([&](Ciphertext& out) { ring.evaluator.sub(ring.fresh, in, out); });
    into([&](Ciphertext& out) { ring.evaluator.mult(ring.fresh, in, out); });
    into([&](Ciphertext& out) { ring.evaluator.multWithoutRescale(ring.fresh, in, out); });
}

void use(const ToyRing<RLWE>& ring, const Plaintext& in) {
    attempt([&] { ring.encoder.decode(in); });
    attempt([&] { ring.encoder.decodeWithoutFFT(in); });
    attempt([&] { in.isZero(); });
    attempt([&] {
        Plaintext copy = in;
        copy.setLevel(0);
        copy.setRescaleCounter(0);
        ring.encoder.decode(copy);
    });
    attempt([&] {
        Ciphertext out(ring.context);
        ring.encryptor.encrypt(in, ring.keys, out);
    });
    useWithCiphertext(ring, in);
    evaluate(ring, in);
}

// ---- ciphertexts

template <EncryptionType E>
void decrypt(const ToyRing<E>& ring, const CiphertextBase<E>& in) {
    attempt([&] {
        Plaintext out(ring.context);
        ring.decryptor.decrypt(in, ring.secretKey, out);
    });
    attempt([&] {
        Message out;
        ring.decryptor.decrypt(in, ring.secretKey, out);
    });
    attempt([&] {
        std::vector<double> out;
        ring.decryptor.decrypt(in, ring.secretKey, out);
    });
}

/// Operations that ciphertexts of either type have. Each output held something else.
template <EncryptionType E>
void evaluate(const ToyRing<E>& ring, const CiphertextBase<E>& in) {
    using Ciphertext = CiphertextBase<E>;
    const HomEvaluator& evaluator = ring.evaluator;
    const auto into = [&](auto&& operation) {
        attempt([&] {
            Ciphertext out = ring.fresh;
            operation(out);
        });
    };
    into([&](Ciphertext& out) { evaluator.negate(in, out); });
    into([&](Ciphertext& out) { evaluator.add(in, constant, out); });
    into([&](Ciphertext& out) { evaluator.add(in, ring.slots, out); });
    into([&](Ciphertext& out) { evaluator.add(in, ring.plaintext, out); });
    into([&](Ciphertext& out) { evaluator.add(in, in, out); });
    into([&](Ciphertext& out) { evaluator.add(in, ring.fresh, out); });
    into([&](Ciphertext& out) { evaluator.sub(ring.fresh, in, out); });
    into([&](Ciphertext& out) { evaluator.mult(in, constant, out); });
    into([&](Ciphertext& out) { evaluator.mult(in, ring.slots, out); });
    into([&](Ciphertext& out) { evaluator.mult(in, ring.plaintext, out); });
    into([&](Ciphertext& out) { evaluator.multWithoutRescale(in, constant, out); });
    into([&](Ciphertext& out) { evaluator.multImagUnit(in, out); });
    into([&](Ciphertext& out) { evaluator.multInteger(in, -3, out); });
    into([&](Ciphertext& out) { evaluator.rescale(out = in); });
    into([&](Ciphertext& out) { evaluator.levelDown(in, 0, out); });
    into([&](Ciphertext& out) { evaluator.levelDownOne(in, out); });
    into([&](Ciphertext& out) { evaluator.add(out = in, in, out); });
    into([&](Ciphertext& out) {
        out = in;
        out.setNumPoly(2);
        out.setLevel(0);
        Message slots;
        ring.decryptor.decrypt(out, ring.secretKey, slots);
    });
    into([&](Ciphertext& out) { out = Ciphertext(ring.context, in); });
}

/// Operations that need keys.
void evaluateWithKeys(const ToyRing<RLWE>& ring, const Ciphertext& in) {
    const HomEvaluator& evaluator = ring.evaluator;
    const auto into = [&](auto&& operation) {
        attempt([&] {
            Ciphertext out(ring.context);
            operation(out);
        });
    };
    into([&](Ciphertext& out) { evaluator.inverseRescale(out = in); });
    into([&](Ciphertext& out) { evaluator.tensor(in, ring.fresh, out); });
    into([&](Ciphertext& out) { evaluator.tensor(in, in, out); });
    into([&](Ciphertext& out) { evaluator.relinearize(in, out); });
    into([&](Ciphertext& out) { evaluator.multWithoutRescale(in, in, out); });
    into([&](Ciphertext& out) { evaluator.mult(ring.fresh, in, out); });
    into([&](Ciphertext& out) { evaluator.square(in, out); });
    into([&](Ciphertext& out) { evaluator.leftRotate(in, 1, out); });
    into([&](Ciphertext& out) { evaluator.leftRotate(in, 3, out); }); // by 1 and 2
    into([&](Ciphertext& out) { evaluator.rightRotate(in, 1, out); });
    into([&](Ciphertext& out) { evaluator.conjugate(in, out); });
    into([&](Ciphertext& out) { evaluator.killImag(in, out); });
    into([&](Ciphertext& out) { evaluator.leftRotateReduce(in, 1, 4, out); });
    into([&](Ciphertext& out) { evaluator.rotSum({in, ring.fresh}, {1, 2}, out); });
    into([&](Ciphertext& out) { ring.decryptor.partialDecrypt(in, ring.secretKey, out); });
    into([&](Ciphertext&) { Ciphertext(toyPartner(), in); });
}

// ---- secret keys

template <EncryptionType E>
void use(const ToyRing<E>& ring, const SecretKeyBase<E>& key) {
    attempt([&] {
        CiphertextBase<E> out(ring.context);
        ring.encryptor.encrypt(ring.slots, key, out);
    });
    attempt([&] {
        Message out;
        ring.decryptor.decrypt(ring.fresh, key, out);
    });
    attempt([&] { SecretKeyBase<E>(ring.context, key.getCoefficients()); });
    if constexpr (E == RLWE) {
        attempt([&] { KeyGenerator(ring.context, key).genEncKey(); });
        attempt([&] { KeyGenerator(ring.context, key).genMultKey(); });
    }
}

template <EncryptionType E>
void useSecretKey(const std::string& file) {
    using Key = SecretKeyBase<E>;
    const ToyRing<E>& ring = toy<E>();
    const Key key = loadedKey<Key>(file, ring.context), copy = key;
    use(ring, copy);
    expectKeyLoadsAgain(key, ring.context);
}

} // namespace

const ToyRing<RLWE>& toyRing() {
    static const ToyRing<RLWE> ring(archives::ring());
    return ring;
}

const ToyRing<MLWE>& toyModule() {
    static const ToyRing<MLWE> ring(makeContext(ParameterPreset::SD3D6R2));
    return ring;
}

const Context& toyPartner() {
    static const Context partner = archives::partner();
    return partner;
}

void message(const std::string& file) {
    Message in;
    load(file, in);
    const ToyRing<RLWE>& ring = toyRing();
    attempt([&] { ring.encoder.encode(in); });
    attempt([&] { ring.encoder.encode(in, 1, 1); });
    attempt([&] {
        Ciphertext out(ring.context);
        ring.encryptor.encrypt(in, ring.keys, out);
    });
    attempt([&] {
        Ciphertext out(ring.context);
        ring.evaluator.mult(ring.fresh, in, out);
    });
    attempt([&] {
        Message out;
        ring.evaluator.mult(in, ring.slots, out);
    });
    attempt([&] {
        Message out;
        ring.evaluator.leftRotateReduce(in, 1, 4, out);
    });
    attempt([&] { in.getLogSlots(); });
    expectLoadsAgain(in, Message());
}

void plaintext(const std::string& file) {
    const ToyRing<RLWE>& ring = toyRing();
    Plaintext in(ring.context);
    load(file, in);
    use(ring, in);
    expectLoadsAgain(in, Plaintext(ring.context));
}

void ciphertext(const std::string& file) {
    const ToyRing<RLWE>& ring = toyRing();
    Ciphertext in(ring.context);
    load(file, in);
    decrypt(ring, in);
    evaluate(ring, in);
    evaluateWithKeys(ring, in);
    expectLoadsAgain(in, Ciphertext(ring.context));
}

void moduleCiphertext(const std::string& file) {
    const ToyRing<MLWE>& ring = toyModule();
    CiphertextBase<MLWE> in(ring.context);
    load(file, in);
    decrypt(ring, in);
    evaluate(ring, in);
    expectLoadsAgain(in, CiphertextBase<MLWE>(ring.context));
}

void compactCiphertext(const std::string& file) {
    const ToyRing<RLWE>& ring = toyRing();
    CompactCiphertext in(ring.context);
    load(file, in);
    const CompactCiphertext copy = in;
    attempt([&] {
        const Ciphertext expanded = copy.expand();
        decrypt(ring, expanded);
        evaluate(ring, expanded);
        evaluateWithKeys(ring, expanded);
        expectLoadsAgain(expanded, Ciphertext(ring.context));
    });
    expectLoadsAgain(in, CompactCiphertext(ring.context));
}

void secretKey(const std::string& file) {
    useSecretKey<RLWE>(file);
}

void moduleSecretKey(const std::string& file) {
    useSecretKey<MLWE>(file);
}

} // namespace Torvo::test::uses
