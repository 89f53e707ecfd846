// Keys that others may have, and packs and bundles of them.

#include "support/FileUses.hpp"
#include "support/Pointers.hpp"
#include "support/RingFamily.hpp"

#include <Torvo/KeyGenerator.hpp>
#include <Torvo/RingPacker.hpp>
#include <Torvo/RingPackerUtils.hpp>

namespace Torvo::test::uses {

namespace {

using enum EncryptionType;
using ModuleCiphertext = CiphertextBase<MLWE>;

const Device cpu;

/// A pack that takes the file as one of its keys, by `loadKey(pack, stream)`.
template <class LoadKey>
KeyPack packWith(const std::string& file, LoadKey&& loadKey) {
    const KeyPack pack(toyRing().context);
    std::istringstream stream(file);
    attempt([&] { loadKey(pack, stream); });
    return pack;
}

/// Each operation that a key serves.
void evaluateWith(const KeyPack& pack) {
    const ToyRing<RLWE>& ring = toyRing();
    const HomEvaluator evaluator(ring.context, pack);
    const auto into = [&](auto&& operation) {
        attempt([&] {
            Ciphertext out(ring.context);
            operation(out);
        });
    };
    into([&](Ciphertext& out) { ring.encryptor.encrypt(ring.slots, pack, out); });
    into([&](Ciphertext& out) { evaluator.mult(ring.fresh, ring.fresh, out); });
    into([&](Ciphertext& out) { evaluator.conjugate(ring.fresh, out); });
    into([&](Ciphertext& out) { evaluator.leftRotate(ring.fresh, 1, out); });
    into([&](Ciphertext& out) { evaluator.leftRotate(ring.fresh, 5, out); });
}

void look(const EvaluationKey& key) {
    attempt([&] { key.getContext(); });
    attempt([&] { key.getGadgetRank(); });
    attempt([&] { key.getAxIter(cpu); });
    attempt([&] { key.getBxIter(cpu); });
}

/// Keys that pack two ciphertexts of rank 2 into one of degree 128.
struct ToyPacking {
    ToyPacking() : keys(KeyGenerator(wide).genModPackKeyBundle(from, to)) {
        for (u64 i = 0; i < getNumCiphertextsToModPack(module, wide); ++i) {
            ModuleCiphertext& ciphertext = ciphertexts.emplace_back(module);
            Encryptor(module).encrypt(archives::coefficients(64), from, ciphertext);
        }
    }

    Context module = familyModule(6, 2, 2), wide = archives::wide();
    SecretKeyBase<MLWE> from{module};
    SecretKey to{wide};
    ModPackKeyBundle keys;
    std::vector<ModuleCiphertext> ciphertexts;
};

const ToyPacking& toyPacking() {
    static const ToyPacking packing;
    return packing;
}

} // namespace

void encryptionKey(const std::string& file) {
    EncryptionKey key(toyRing().context);
    load(file, key);
    evaluateWith(packWith(file, [](const KeyPack& pack, std::istream& in) { pack.loadEncKey(in); }));
    expectLoadsAgain(key, EncryptionKey(toyRing().context));
}

void evaluationKey(const std::string& file) {
    const auto empty = [] { return EvaluationKey(toyRing().context, 'x', 0); };
    EvaluationKey key = empty();
    load(file, key);
    look(key);
    attempt([&] { key.copyTo(cpu); });
    evaluateWith(packWith(file, [](const KeyPack& pack, std::istream& in) { pack.loadMultKey(in); }));
    evaluateWith(packWith(file, [](const KeyPack& pack, std::istream& in) { pack.loadConjKey(in); }));
    evaluateWith(packWith(file, [](const KeyPack& pack, std::istream& in) { pack.loadLeftRotKey(1, in); }));
    expectLoadsAgain(key, empty());
}

void keyWithoutContext(const std::string& file) {
    EvaluationKey key;
    load(file, key);
    look(key);
    attempt([&] { key.copyTo(cpu); });
    expectLoadsAgain(key, EvaluationKey());
}

void encapsulationKey(const std::string& file) {
    const auto empty = [] { return SparseSecretEncapsulationKey(toyRing().context, toyPartner()); };
    SparseSecretEncapsulationKey key = empty();
    load(file, key);
    look(*key.getDTSPart());
    look(*key.getSTDPart());
    attempt([&] { key.copyTo(cpu); });
    expectLoadsAgain(key, empty());
}

void keyPack(const std::string& file) {
    KeyPack pack(toyRing().context);
    load(file, pack);
    for (u64 index = 0; index < 32; ++index)
        if (pack.isLeftRotKeyLoaded(index)) look(*pack.getLeftRotKey(index));
    attempt([&] { pack.to(cpu); });
    evaluateWith(pack);
    expectLoadsAgain(pack, KeyPack(toyRing().context));
}

void ringSwitchKey(const std::string& file) {
    static const Context narrow = archives::narrow(), wide = archives::wide();
    static const Ciphertext part(narrow), whole(wide);
    RingSwitchKey key(wide);
    load(file, key);
    look(key.getKey());
    attempt([&] {
        Ciphertext out(wide);
        RingPacker().compose({&part, &part}, key, out);
    });
    attempt([&] {
        std::vector<Ciphertext> parts(2, Ciphertext(narrow));
        auto outputs = pointersTo(parts);
        RingPacker().decompose(whole, key, outputs);
    });
    expectLoadsAgain(key, RingSwitchKey(wide));
}

void packingKeys(const std::string& file) {
    const ToyPacking& packing = toyPacking();
    const auto empty = [&] { return ModPackKeyBundle(packing.wide, packing.keys.getNumKeys()); };
    ModPackKeyBundle keys = empty();
    load(file, keys);
    for (u64 i = 0; i < keys.getNumKeys(); ++i) look(*keys.getModPackKey(i));
    attempt([&] {
        Ciphertext out(packing.wide);
        RingPacker().modPack(pointersTo(packing.ciphertexts), keys, out);
    });
    expectLoadsAgain(keys, empty());
}

std::vector<std::string> madePackingKeys() {
    return {saved(toyPacking().keys)};
}

} // namespace Torvo::test::uses
