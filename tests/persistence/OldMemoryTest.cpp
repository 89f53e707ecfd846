#include "support/OldMemory.hpp"
#include "arithmetic/elements/PolynomialVector.hpp"
#include "context/ContextContent.hpp"
#include "context/LWEContextContent.hpp"
#include "support/BootScheme.hpp"
#include "support/Contexts.hpp"
#include "support/FailingAllocations.hpp"
#include "support/ObjectFiles.hpp"
#include "support/Pointers.hpp"
#include "support/RingFamily.hpp"
#include "support/RingPhases.hpp"
#include "support/Sanitizer.hpp"

#include <Torvo/Bootstrapper.hpp>
#include <Torvo/EncryptionKey.hpp>
#include <Torvo/LWEEncryptor.hpp>
#include <Torvo/LWEHomEvaluator.hpp>
#include <Torvo/RingPacker.hpp>
#include <Torvo/SparseSecretEncapsulationKey.hpp>

#include <algorithm>
#include <functional>
#include <sstream>
#include <utility>

/// No file contains the previous content of memory: neither for new objects nor after any operation, in rows,
/// holes, spare capacity, and in everything that a larger level or a failure exposes.
namespace Torvo {
namespace {

using namespace test;
using enum EncryptionType;
using Complex = std::complex<double>;

const Device secondHost{DeviceType::CPU, 1};
const Device pinned{DeviceType::PinnedHost, 0};

const Scheme& fx() {
    return Scheme::of(ParameterPreset::FX);
}
const ModuleScheme& module() {
    return ModuleScheme::of(ParameterPreset::SD3D6R2);
}
const Context& fxRing() {
    return contextOf(ParameterPreset::FX);
}

bool isAllZero(const Polynomial& polynomial) {
    return std::ranges::all_of(polynomial.getData(), [](u64 word) { return word == 0; });
}

// ---- everything that an object can be made to show

std::string shown(const Message& message) {
    Message larger = message;
    Message grown = message;
    grown.resize(4 * message.getSize());
    Message again = std::move(larger);
    again.resize(1);
    again.resize(message.getSize());
    return saved(message) + saved(grown) + saved(again);
}

/// Under its level and above, all the way up and once around.
template <class Object>
std::string shownAtAllLevels(Object& object) {
    std::string files = saved(object);
    const u64 level = object.getLevel();
    object.setLevel(level + 2);
    files += saved(object);
    object.setLevel(0);
    object.setLevel(level + 1);
    return files + saved(object);
}

std::string shown(Plaintext plaintext) {
    return shownAtAllLevels(plaintext);
}

template <EncryptionType E>
std::string shown(CiphertextBase<E> ciphertext) {
    std::string files = shownAtAllLevels(ciphertext);
    ciphertext.setNumPoly(ciphertext.getNumPoly() + 1);
    return files + saved(ciphertext);
}

std::string shown(LWE::Ciphertext ciphertext) {
    return shownAtAllLevels(ciphertext);
}

/// The object itself, not a copy, whose spare capacity holds what it came with.
template <class Object>
std::string shownItself(Object& object) {
    return shownAtAllLevels(object);
}

// ---- new objects

TEST(OldMemory, IsNotInNewMessages) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    expectNothingOld("slots", [] { return shown(Message(5)); });
    expectNothingOld("resized", [] {
        Message message;
        message.resize(9);
        return shown(message);
    });
    expectNothingOld("used, shrunk and grown", [] {
        Message message(3, {1.0, 2.0});
        message.resize(1);
        message.resize(7);
        return shown(message);
    });
    expectNothingOld("back from a place that the host cannot read", [] {
        Message message(3, {1.0, 2.0});
        message.allocate(pinned);
        message.allocate(Device{});
        return shown(message);
    });
    const Message zero(4);
    for (const auto& slot : zero) EXPECT_EQ(slot, std::complex<double>(0.0));
    Message grown(1, {3.0, 4.0});
    grown.resize(1);
    grown.resize(2);
    EXPECT_EQ(grown[1], std::complex<double>(0.0));
}

TEST(OldMemory, IsNotInNewPlaintexts) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    expectNothingOld("new", [] { return shown(Plaintext(fxRing())); });
    expectNothingOld("elsewhere", [] {
        Plaintext plaintext(fxRing());
        plaintext.allocate(secondHost);
        return shown(plaintext);
    });
    EXPECT_TRUE(isAllZero(Plaintext(fxRing()).getMx()));
}

TEST(OldMemory, IsNotInNewCiphertexts) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    for (const bool modUp : {false, true}) {
        expectNothingOld("new", [&] {
            Ciphertext ciphertext(fxRing(), modUp);
            ciphertext.setLevel(2);
            return shown(ciphertext);
        });
        expectNothingOld("elsewhere", [&] {
            Ciphertext ciphertext(fxRing(), modUp);
            ciphertext.allocate(secondHost);
            return shown(ciphertext);
        });
        expectNothingOld("of a module", [&] {
            return shown(CiphertextBase<MLWE>(contextOf(ParameterPreset::SD3D6R2), modUp));
        });
        const Ciphertext zero(fxRing(), modUp);
        for (const Polynomial& poly : zero.getPolys().getPolys()) EXPECT_TRUE(isAllZero(poly));
    }
    expectNothingOld("under another context", [] {
        Ciphertext low(fxRing());
        low.setLevel(0);
        return shown(Ciphertext(makeContext(ParameterPreset::FX), low));
    });
    expectNothingOld("plain", [] {
        LWE::Ciphertext ciphertext(LWE::makeContext(LWE::ParameterPreset::SD3));
        return shown(ciphertext);
    });
}

TEST(OldMemory, IsNotInNewKeys) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    expectNothingOld("encryption", [] { return saved(EncryptionKey(fxRing())); });
    expectNothingOld("encryption, elsewhere", [] {
        EncryptionKey key(fxRing());
        key.allocate(secondHost);
        return saved(key);
    });
    expectNothingOld("evaluation", [] { return saved(EvaluationKey(fxRing(), 'x', 3)); });
    for (const auto& make : {makeEmptyMultKey, makeEmptyConjKey, makeEmptyModPackKey, makeEmptyRingSwitchKey})
        expectNothingOld("by kind", [&] { return saved(*make(fxRing())); });
    expectNothingOld("rotation", [] { return saved(*makeEmptyRotKey(fxRing(), 5)); });
    expectNothingOld("ring switching", [] { return saved(RingSwitchKey(familyRing(6, 3))); });
    expectNothingOld("packing", [] { return saved(ModPackKeyBundle(familyRing(6, 3), 2)); });
    expectNothingOld("encapsulation",
                     [] { return saved(SparseSecretEncapsulationKey(familyRing(6, 3), familyRing(7, 3))); });
    expectNothingOld("encapsulation by its maker", [] {
        return saved(*makeEmptySparseSecretEncapsulationKey(familyRing(6, 3), familyRing(7, 3)));
    });
    const auto key = makeEmptyMultKey(fxRing());
    for (u64 j = 0; j < key->getGadgetRank(); ++j) {
        EXPECT_TRUE(isAllZero(key->getAxIter(Device{})[j]));
        EXPECT_TRUE(isAllZero(key->getBxIter(Device{})[j]));
    }
}

// ---- generated, encrypted, decrypted

TEST(OldMemory, IsNotInGeneratedKeys) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    expectNothingOld("pack", [] {
        const SecretKey secretKey(fxRing());
        const KeyGenerator generator(fxRing(), secretKey);
        generator.genEncKey();
        generator.genMultKey();
        generator.genConjKey();
        generator.genLeftRotKey(3);
        return saved(secretKey) + saved(generator.getKeyPack());
    });
    expectNothingOld("ring switching", [] {
        const SecretKey large(familyRing(7, 3)), small(familyRing(6, 3));
        const KeyGenerator generator(familyRing(7, 3), large);
        return saved(generator.genComposeKey(small)) +
               saved(generator.genDecomposeKey(familyRing(7, 3), small));
    });
    expectNothingOld("packing", [] {
        const SecretKeyBase<MLWE> in(familyModule(6, 3, 4)), out(familyModule(6, 3, 2));
        return saved(KeyGenerator(familyRing(7, 3)).genModPackKeyBundle(in, out)) + saved(in);
    });
    expectNothingOld("plain",
                     [] { return saved(LWE::SecretKey(LWE::makeContext(LWE::ParameterPreset::SD3))); });
}

/// Outputs as earlier uses may leave them.
template <EncryptionType E>
std::vector<CiphertextBase<E>> outputsOf(const Context& context, const Context& other) {
    std::vector<CiphertextBase<E>> outputs(7, CiphertextBase<E>(context));
    CiphertextBase<E> small(context);
    small.setLevel(0);
    outputs[1] = CiphertextBase<E>(small); // reuses the large capacity
    outputs.push_back(small);              // has a small one
    outputs[2].setNumPoly(4);
    outputs[3] = CiphertextBase<E>(context, true);
    outputs[4] = CiphertextBase<E>(other);
    outputs[5].to(secondHost);
    outputs[6] = CiphertextBase<E>(context, true);
    outputs[6].setLevel(1);
    outputs[6].to(secondHost);
    return outputs;
}

/// Of `operation(out)` into every kind of output.
template <EncryptionType E, class Operation>
void expectNothingOldIn(const std::string& name, const Context& context, const Context& other,
                        Operation&& operation) {
    const u64 count = outputsOf<E>(context, other).size();
    for (u64 k = 0; k < count; ++k)
        expectNothingOld(name + ", output " + std::to_string(k), [&] {
            auto out = std::move(outputsOf<E>(context, other)[k]);
            operation(out);
            return shown(out) + shownItself(out);
        });
}

template <class Operation>
void expectNothingOldIn(const std::string& name, Operation&& operation) {
    expectNothingOldIn<RLWE>(name, fx().context, familyRing(6, 3), std::forward<Operation>(operation));
}

template <class Operation>
void expectNothingOldInModule(const std::string& name, Operation&& operation) {
    expectNothingOldIn<MLWE>(name, module().context, familyModule(6, 3, 2),
                             std::forward<Operation>(operation));
}

/// Of `operation(out)` into plaintexts.
template <class Operation>
void expectNothingOldInPlaintext(const std::string& name, Operation&& operation) {
    for (u64 k = 0; k < 4; ++k)
        expectNothingOld(name + ", output " + std::to_string(k), [&] {
            Plaintext out(k == 1 ? familyRing(6, 3) : fx().context);
            if (k == 2) out.setLevel(0);
            if (k == 3) out.getMx() = Polynomial(Ciphertext(fx().context, true).getPoly(0));
            operation(out);
            return shown(out) + shownItself(out);
        });
}

Message sampleMessage() {
    Seeded random(61);
    return random.message(3);
}

/// Live rows random, holes as they are made.
Ciphertext randomModUp(u64 level, u64 numPoly = 2) {
    Seeded random(62);
    Ciphertext ciphertext(fx().context, true);
    ciphertext.setLevel(level);
    ciphertext.setNumPoly(numPoly);
    for (Polynomial& poly : ciphertext.getPolys().getPolys())
        for (u64 i = 0; i < poly.rowEnd(); ++i)
            if (poly.isLiveRow(i))
                std::ranges::copy(random.row(poly.getDegree(), poly.getPrimes()[i]), poly.getRow(i));
    return ciphertext;
}

TEST(OldMemory, IsNotInEncryptions) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Message message = sampleMessage();
    const std::vector<double> coefficients(8, 0.25);
    expectNothingOldIn("public key",
                       [&](auto& out) { fx().encryptor.encrypt(message, fx().keys, out, 2, 0); });
    expectNothingOldIn("secret key",
                       [&](auto& out) { fx().encryptor.encrypt(message, fx().secretKey, out, 2, 1); });
    expectNothingOld("compact", [&] {
        const auto compact = fx().encryptor.encryptCompact(message, fx().secretKey, 2, 1);
        return saved(compact) + shown(compact.expand());
    });
    expectNothingOldIn("coefficients",
                       [&](auto& out) { fx().encryptor.encrypt(coefficients, fx().secretKey, out, 3, 0); });
    expectNothingOldInModule(
        "module", [&](auto& out) { module().encryptor.encrypt(message, module().secretKey, out, 1, 0); });
    expectNothingOldInModule("module coefficients", [&](auto& out) {
        module().encryptor.encrypt(coefficients, module().secretKey, out, 1, 0);
    });
}

TEST(OldMemory, IsNotInDecryptions) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Ciphertext low = fx().encrypt(sampleMessage(), 2);
    const Ciphertext modUp = randomModUp(2), three = randomModUp(2, 3);
    const auto moduleLow = module().encrypt(sampleMessage(), 1);
    for (const Ciphertext* ciphertext : {&low, &modUp, &three})
        expectNothingOldInPlaintext(
            "decrypt", [&](auto& out) { fx().decryptor.decrypt(*ciphertext, fx().secretKey, out); });
    expectNothingOldInPlaintext("decrypt a module's", [&](auto& out) {
        module().decryptor.decrypt(moduleLow, module().secretKey, out);
    });
    expectNothingOld("decrypt to a message", [&] { return shown(fx().decrypt(low)); });
    for (const Ciphertext* ciphertext : {&low, &modUp})
        expectNothingOldIn(
            "partial", [&](auto& out) { fx().decryptor.partialDecrypt(*ciphertext, fx().secretKey, out); });
}

TEST(OldMemory, IsNotInEncodings) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Message message = sampleMessage();
    expectNothingOld("encode", [&] { return shown(fx().encoder.encode(message, 2)); });
    expectNothingOld("encode what owes", [&] { return shown(fx().encoder.encodeWithoutNTT(message, 3, 2)); });
    expectNothingOld("encode coefficients",
                     [&] { return shown(fx().encoder.encodeWithoutNTT(std::vector<double>(4, 0.5), 2, 0)); });
    const Plaintext plaintext = fx().encoder.encode(message, 3, 1);
    expectNothingOld("decode", [&] { return shown(fx().encoder.decode(plaintext)); });
}

// ---- evaluated

TEST(OldMemory, IsNotInMessagesThatAreComputed) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const HomEvaluator& e = fx().evaluator;
    const Message a = sampleMessage(), b = sampleMessage();
    const std::vector<std::function<void(Message&)>> operations{
        [&](Message& out) { e.negate(a, out); },
        [&](Message& out) { e.add(a, 2.0, out); },
        [&](Message& out) { e.add(a, b, out); },
        [&](Message& out) { e.sub(a, 2.0, out); },
        [&](Message& out) { e.sub(a, b, out); },
        [&](Message& out) { e.mult(a, 2.0, out); },
        [&](Message& out) { e.mult(a, b, out); },
        [&](Message& out) { e.square(a, out); },
        [&](Message& out) { e.multImagUnit(a, out); },
        [&](Message& out) { e.leftRotate(a, 3, out); },
        [&](Message& out) { e.rightRotate(a, 3, out); },
        [&](Message& out) { e.conjugate(a, out); },
        [&](Message& out) { e.leftRotateReduce(a, 1, 3, out); },
        [&](Message& out) { e.rightRotateReduce(a, 1, 3, out); }};
    for (u64 i = 0; i < operations.size(); ++i)
        for (const u64 slots : {0, 2, 16})
            expectNothingOld("operation " + std::to_string(i), [&] {
                Message out;
                out.resize(slots);
                operations[i](out);
                out.resize(20);
                return shown(out);
            });
}

TEST(OldMemory, IsNotInPlaintextsThatAreComputed) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const HomEvaluator& e = fx().evaluator;
    Plaintext modUp(fx().context);
    modUp.getMx() = randomModUp(2).getPoly(0);
    for (const Plaintext& a : {fx().encoder.encode(sampleMessage(), 2), modUp}) {
        const auto expect = [&](const char* name, auto&& operation) {
            expectNothingOldInPlaintext(name, operation);
            expectNothingOld(std::string(name) + ", in place", [&] {
                Plaintext out = a;
                operation(out);
                return shown(out) + shownItself(out);
            });
        };
        expect("negate", [&](auto& out) { e.negate(a, out); });
        expect("add a constant", [&](auto& out) { e.add(a, Complex(0.5, 0.25), out); });
        expect("add", [&](auto& out) { e.add(a, a, out); });
        expect("sub a constant", [&](auto& out) { e.sub(a, 0.5, out); });
        expect("sub", [&](auto& out) { e.sub(a, a, out); });
        expect("mult", [&](auto& out) { e.mult(a, a, out); });
        expect("mult a constant", [&](auto& out) { e.mult(a, 0.5, out); });
        expect("square", [&](auto& out) { e.square(a, out); });
        expect("multImagUnit", [&](auto& out) { e.multImagUnit(a, out); });
        expect("multInteger", [&](auto& out) { e.multInteger(a, -3, out); });
        expect("leftRotate", [&](auto& out) { e.leftRotate(a, 1, out); });
        expect("rightRotate", [&](auto& out) { e.rightRotate(a, 1, out); });
        expect("conjugate", [&](auto& out) { e.conjugate(a, out); });
        expect("inverseRescale", [&](auto& out) {
            out = a;
            e.inverseRescale(out);
            e.rescale(out);
        });
        if (!a.getMx().isModUp()) expect("relevel", [&](auto& out) { e.relevel(a, 4, out); });
    }
}

/// The operations of both kinds of encryption. `at` returns an operand at a level.
template <EncryptionType E, class Expect>
void expectLinearOperations(const HomEvaluator& e, const EnDecoder& encoder, const CiphertextBase<E>& a,
                            const CiphertextBase<E>& higher, Expect&& expect) {
    const Message message = sampleMessage();
    const u64 level = a.getLevel();
    expect("negate", [&](auto& out) { e.negate(a, out); });
    expect("add a constant", [&](auto& out) { e.add(a, Complex(0.5, 0.25), out); });
    expect("add", [&](auto& out) { e.add(a, a, out); });
    expect("sub a constant", [&](auto& out) { e.sub(a, 0.5, out); });
    expect("sub", [&](auto& out) { e.sub(a, a, out); });
    expect("mult a constant", [&](auto& out) { e.mult(a, Complex(0.5, 0.25), out); });
    expect("mult an integer constant", [&](auto& out) { e.mult(a, Complex(3.0, -2.0), out); });
    expect("multImagUnit", [&](auto& out) { e.multImagUnit(a, out); });
    expect("multInteger", [&](auto& out) { e.multInteger(a, -3, out); });
    expect("multWithoutRescale, rescale", [&](auto& out) {
        e.multWithoutRescale(a, 0.5, out);
        e.rescale(out);
    });
    if (a.isModUp()) return;
    const Plaintext plaintext = encoder.encode(message, level);
    expect("add of two levels", [&](auto& out) { e.add(a, higher, out); });
    expect("sub of two levels", [&](auto& out) { e.sub(higher, a, out); });
    expect("add a message", [&](auto& out) { e.add(a, message, out); });
    expect("sub a message", [&](auto& out) { e.sub(a, message, out); });
    expect("mult a message", [&](auto& out) { e.mult(a, message, out); });
    expect("add a plaintext", [&](auto& out) { e.add(a, plaintext, out); });
    expect("sub a plaintext", [&](auto& out) { e.sub(a, plaintext, out); });
    expect("mult a plaintext", [&](auto& out) { e.mult(a, plaintext, out); });
    expect("levelDown", [&](auto& out) { e.levelDown(higher, level, out); });
    expect("levelDownOne", [&](auto& out) { e.levelDownOne(higher, out); });
}

TEST(OldMemory, IsNotInCiphertextsThatAreComputed) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Ciphertext higher = fx().encrypt(sampleMessage(), 4);
    for (const Ciphertext& a : {fx().encrypt(sampleMessage(), 2), randomModUp(2)}) {
        SCOPED_TRACE(a.isModUp() ? "mod-up" : "");
        expectLinearOperations(
            fx().evaluator, fx().encoder, a, higher,
            [](const char* name, auto&& operation) { expectNothingOldIn(name, operation); });
        Ciphertext three = a;
        three.setNumPoly(3);
        expectNothingOldIn("add of two sizes", [&](auto& out) { fx().evaluator.add(a, three, out); });
        expectNothingOldIn("sub of two sizes", [&](auto& out) { fx().evaluator.sub(a, three, out); });
        expectNothingOldIn("tensor", [&](auto& out) { fx().evaluator.tensor(a, a, out); });
        expectNothingOldIn("tensor of any length", [&](auto& out) { fx().evaluator.tensor(a, three, out); });
    }
    const auto module1 = module().encrypt(sampleMessage(), 1), module2 = module().encrypt(sampleMessage(), 2);
    expectLinearOperations(
        module().evaluator, module().encoder, module1, module2,
        [](const char* name, auto&& operation) { expectNothingOldInModule(name, operation); });
}

TEST(OldMemory, IsNotInProductsAndRotations) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Scheme& s = fx();
    KeyGenerator(s.context, s.secretKey, s.keys).genRotKeyBundle();
    const HomEvaluator& e = s.evaluator;
    const Ciphertext a = s.encrypt(sampleMessage(), 2), higher = s.encrypt(sampleMessage(), 4);
    Ciphertext product(s.context);
    e.tensor(a, a, product);
    expectNothingOldIn("relinearize", [&](auto& out) { e.relinearize(product, out); });
    expectNothingOldIn("multWithoutRescale", [&](auto& out) { e.multWithoutRescale(a, a, out); });
    expectNothingOldIn("mult", [&](auto& out) { e.mult(a, a, out); });
    expectNothingOldIn("mult of two levels", [&](auto& out) { e.mult(a, higher, out); });
    expectNothingOldIn("square", [&](auto& out) { e.square(a, out); });
    expectNothingOldIn("leftRotate", [&](auto& out) { e.leftRotate(a, 1, out); });
    expectNothingOldIn("leftRotate, composed", [&](auto& out) { e.leftRotate(a, 5, out); });
    expectNothingOldIn("rightRotate", [&](auto& out) { e.rightRotate(a, 1, out); });
    expectNothingOldIn("conjugate", [&](auto& out) { e.conjugate(a, out); });
    expectNothingOldIn("killImag", [&](auto& out) { e.killImag(a, out); });
    for (const u64 count : {4, 6, 7})
        expectNothingOldIn("leftRotateReduce", [&](auto& out) { e.leftRotateReduce(a, 1, count, out); });
    expectNothingOldIn("rightRotateReduce", [&](auto& out) { e.rightRotateReduce(a, 1, 4, out); });
    expectNothingOldIn("rotSum", [&](auto& out) { e.rotSum({a, a, a}, {0, 1, 2}, out); });
    expectNothingOldIn("inverseRescale", [&](auto& out) {
        out = a;
        e.inverseRescale(out);
    });
}

TEST(OldMemory, IsNotInBootstrappedCiphertexts) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Bootstrapper bootstrapper(toy().evaluator, 3);
    const Ciphertext a = toy().encrypt(sampleMessage(), 3);
    const auto expect = [&](const char* name, auto&& operation) {
        expectNothingOld(name, [&] {
            Ciphertext out(toy().context), second(toy().context);
            operation(out, second);
            return shown(out) + shownItself(out) + shown(second);
        });
    };
    expect("bootstrap", [&](auto& out, auto&) { bootstrapper.bootstrap(a, out, true); });
    expect("bootstrap a real message", [&](auto& out, auto&) { bootstrapper.bootstrap(a, out, false); });
    expect("bootstrap to two", [&](auto& out, auto& second) { bootstrapper.bootstrap(a, out, second); });
    expect("slotToCoeff, halfBoot", [&](auto& out, auto& second) {
        bootstrapper.slotToCoeff(a, out);
        bootstrapper.halfBoot(out, second, false);
    });
}

// ---- between rings

TEST(OldMemory, IsNotInWhatChangesItsRing) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const RingPacker packer;
    const Context large = familyRing(7, 3), small = familyRing(6, 3);
    const SecretKey largeKey(large), smallKey(small);
    const KeyGenerator generator(large, largeKey);
    const RingSwitchKey up = generator.genComposeKey(smallKey),
                        down = generator.genDecomposeKey(large, smallKey);
    Seeded random(63);
    const auto one = randomOnCoefficients<RLWE>(small, 1, random), two = one;
    const auto whole = randomOnCoefficients<RLWE>(large, 1, random);
    expectNothingOldIn<RLWE>("compose", large, small, [&](auto& out) {
        if (*out.getContext() == *large) packer.compose({&one, &two}, up, out);
    });
    expectNothingOld("embed one", [&] {
        Ciphertext out(large, true);
        packer.compose({&one}, up, out);
        return shown(out) + shownItself(out);
    });
    expectNothingOld("decompose", [&] {
        Ciphertext first(small, true), second(small);
        second.setNumPoly(3);
        std::vector<Ciphertext*> parts{&first, &second};
        packer.decompose(whole, down, parts);
        return shown(first) + shownItself(first) + shown(second);
    });

    const Context rankFour = familyModule(6, 3, 4), rankTwo = familyModule(6, 3, 2);
    const SecretKeyBase<MLWE> in(rankFour), out(rankTwo);
    const auto keys = KeyGenerator(large).genModPackKeyBundle(in, out);
    const auto packed = randomOnCoefficients<MLWE>(rankFour, 1, random);
    expectNothingOldIn<MLWE>("modPack", rankTwo, rankTwo, [&](auto& target) {
        target.setNumPoly(3);
        packer.modPack({&packed}, keys, target);
    });
}

// ---- plain numbers

TEST(OldMemory, IsNotInPlainNumbers) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const LWE::Context context = LWE::makeContext(LWE::ParameterPreset::SD3);
    const LWE::SecretKey key(context);
    const LWE::Encryptor encryptor(context);
    const LWE::HomEvaluator e(context);
    LWE::Ciphertext a(context), lower(context);
    encryptor.encrypt(0.5, key, a, 2, 0);
    encryptor.encrypt(0.5, key, lower, 1, 0);
    const auto expect = [&](const char* name, auto&& operation) {
        for (const u64 level : {0, 3})
            expectNothingOld(name, [&] {
                LWE::Ciphertext out(context);
                out.setLevel(level);
                LWE::Ciphertext small = out; // without capacity to spare
                operation(out);
                operation(small);
                return shown(out) + shownItself(out) + shownItself(small);
            });
    };
    expect("encrypt", [&](auto& out) { encryptor.encrypt(0.5, key, out, 1, 0); });
    expect("negate", [&](auto& out) { e.negate(a, out); });
    expect("add a constant", [&](auto& out) { e.add(a, 0.5, out); });
    expect("sub a constant", [&](auto& out) { e.sub(a, 0.5, out); });
    expect("add", [&](auto& out) { e.add(a, lower, out); });
    expect("sub", [&](auto& out) { e.sub(lower, a, out); });
    expect("multInteger", [&](auto& out) { e.multInteger(a, -3, out); });
    expect("mult", [&](auto& out) { e.mult(a, 0.5, out); });
    expect("levelDown", [&](auto& out) { e.levelDown(a, 0, out); });
    expect("levelDownOne", [&](auto& out) { e.levelDownOne(a, out); });
}

TEST(OldMemory, IsNotInNumbersTakenOutOfAPolynomial) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    const Context ring = smallRingOfSD3();
    const LWE::Context numbers = LWE::makeContext(LWE::ParameterPreset::SD3);
    numbers->parameter.dimension = 64;
    Seeded random(64);
    const auto in = randomOnCoefficients<RLWE>(ring, 2, random);
    expectNothingOld("unPack", [&] {
        std::vector<LWE::Ciphertext> out(64, LWE::Ciphertext(numbers));
        out[3] = LWE::Ciphertext(LWE::makeContext(LWE::ParameterPreset::SD3));
        out[5].setLevel(0);
        RingPacker().unPack(in, pointersTo(out));
        std::string files;
        for (auto& number : out) files += shownItself(number);
        return files;
    });
}

// ---- outputs after a failure

/// Elements may have different shapes after a failure, so each is shown alone.
std::string shownOfEach(Ciphertext& ciphertext) {
    std::string files = saved(ciphertext);
    for (Polynomial& poly : ciphertext.getPolys().getPolys()) poly.setLevel(poly.getLevel() + 1);
    return files + saved(ciphertext);
}

/// Lets every allocation of `operation(out)` fail, one after the other; what is in `out` then shows nothing.
template <class Make, class Operation>
void expectNothingOldAfterFailures(const std::string& name, Make&& make, Operation&& operation) {
    bool goesOn = true;
    for (u64 before = 0; goesOn; ++before) {
        ASSERT_LT(before, 10000U);
        expectNothingOld(name + ", allocation " + std::to_string(before), [&] {
            auto out = make();
            {
                const FailingAllocation failing(before);
                try {
                    operation(out);
                } catch (const std::bad_alloc&) {
                }
                goesOn = failing.hasFailed();
            }
            return shownOfEach(out);
        });
    }
}

TEST(OldMemory, IsNotInOutputsOfFailedOperations) {
    SKIP_WHERE_ALLOCATIONS_CANNOT_BE_WATCHED();
    SKIP_WHERE_NEW_CANNOT_THROW();
    const HomEvaluator& e = fx().evaluator;
    const Ciphertext a = fx().encrypt(sampleMessage(), 4), modUp = randomModUp(2);
    const auto low = [] {
        Ciphertext out(fx().context);
        out.setLevel(0);
        return Ciphertext(out);
    };
    const auto modUpOutput = [] { return Ciphertext(fx().context, true); };
    for (const auto& make : {std::function<Ciphertext()>(low), std::function<Ciphertext()>(modUpOutput)}) {
        expectNothingOldAfterFailures("add", make, [&](auto& out) { e.add(a, a, out); });
        expectNothingOldAfterFailures("add, mod-up", make, [&](auto& out) { e.add(modUp, modUp, out); });
        expectNothingOldAfterFailures("tensor", make, [&](auto& out) { e.tensor(a, a, out); });
        expectNothingOldAfterFailures("mult", make, [&](auto& out) { e.mult(a, a, out); });
        expectNothingOldAfterFailures("mult a constant", make,
                                      [&](auto& out) { e.mult(a, Complex(0.5, 0.25), out); });
        expectNothingOldAfterFailures("levelDown", make, [&](auto& out) { e.levelDown(a, 2, out); });
        expectNothingOldAfterFailures("conjugate", make, [&](auto& out) { e.conjugate(a, out); });
    }
}

} // namespace
} // namespace Torvo
