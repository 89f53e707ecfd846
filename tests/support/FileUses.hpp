#pragma once

#include "support/Archives.hpp"
#include "support/Bytes.hpp"
#include "support/FileKinds.hpp"

#include <Torvo/Torvo.hpp>

#include <exception>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

/// The loads and uses behind `fileKinds`.
namespace Torvo::test::uses {

void message(const std::string& file);
void plaintext(const std::string& file);
void ciphertext(const std::string& file);
void moduleCiphertext(const std::string& file);
void compactCiphertext(const std::string& file);
void secretKey(const std::string& file);
void moduleSecretKey(const std::string& file);
void encryptionKey(const std::string& file);
void evaluationKey(const std::string& file);
void keyWithoutContext(const std::string& file);
void encapsulationKey(const std::string& file);
void keyPack(const std::string& file);
void ringSwitchKey(const std::string& file);
void packingKeys(const std::string& file);
void plainCiphertext(const std::string& file);
void plainSecretKey(const std::string& file);
void context(const std::string& file);
void plainContext(const std::string& file);
void bootConstants(const std::string& file);
void encodedTransform(const std::string& file);
void generatorState(const std::string& file);
void chebyshevSeries(const std::string& file);
void linearTransform(const std::string& file);

/// Keys of a ring of degree 64, where those kept belong to one of degree 4096.
std::vector<std::string> madePackingKeys();
std::vector<std::string> madeGeneratorStates();

/// Loads `file` into `object`.
template <class T>
void load(const std::string& file, T& object) {
    loadWithinMemory(file.size(), [&] { loadFrom(file, object); });
}

/// A key that is loaded when it is made.
template <class Key, class AnyContext>
Key loadedKey(const std::string& file, const AnyContext& context) {
    std::optional<Key> key;
    loadWithinMemory(file.size(), [&] {
        std::istringstream stream(file);
        key.emplace(context, stream);
    });
    return std::move(*key);
}

/// What an object with a member `save` says of its size must be so.
/// @throws Finding
template <class T>
void expectSavedSize(const T& object) {
    if (object.savedSize() != saved(object).size())
        throw Finding{"saved, it has " + std::to_string(saved(object).size()) + " bytes, not " +
                      std::to_string(object.savedSize())};
}

/// An object that was loaded and saved must load again, by `load(bytes)`, which returns the bytes of that
/// object saved.
/// @throws Finding
template <class Load>
void expectLoadsAgain(const std::string& bytes, Load&& load) {
    std::string again;
    try {
        again = load(bytes);
    } catch (const std::exception& failure) {
        throw Finding{std::string("what was loaded and saved does not load: ") + failure.what()};
    }
    if (again != bytes) throw Finding{"what was loaded and saved is saved differently after another load"};
}

/// The same for an object with members `save` and `load`; `other` is an empty one of its kind.
template <class T>
void expectLoadsAgain(const T& object, T other) {
    expectSavedSize(object);
    expectLoadsAgain(saved(object), [&](const std::string& bytes) {
        load(bytes, other);
        return saved(other);
    });
}

/// The same for a secret key in both its forms, of which a given key has but one.
template <class Key, class AnyContext>
void expectKeyLoadsAgain(const Key& key, const AnyContext& context) {
    const auto seedOf = [](const Key& from) {
        return bytesOf([&](std::ostream& stream) { from.saveSeedOnly(stream); });
    };
    const auto load = [&](const std::string& bytes) { return loadedKey<Key>(bytes, context); };
    expectSavedSize(key);
    expectLoadsAgain(saved(key), [&](const std::string& bytes) { return saved(load(bytes)); });
    std::string seed;
    attempt([&] { seed = seedOf(key); });
    if (!seed.empty()) expectLoadsAgain(seed, [&](const std::string& bytes) { return seedOf(load(bytes)); });
}

/// All that objects of one ring are used with, made once.
template <EncryptionType E>
struct ToyRing {
    explicit ToyRing(const Context& ring)
        : context(ring), secretKey(ring), keys(makeKeys()), evaluator(ring, keys), encoder(ring),
          encryptor(ring), decryptor(ring), slots(archives::message(getLogFullSlots(ring))),
          plaintext(encoder.encode(slots)), fresh(ring) {
        encryptor.encrypt(slots, secretKey, fresh);
    }
    ToyRing(const ToyRing&) = delete;
    ToyRing& operator=(const ToyRing&) = delete;

    /// A module has no keys but its secret.
    KeyPack makeKeys() const {
        KeyPack pack(context);
        if constexpr (E == EncryptionType::RLWE) {
            const KeyGenerator generator(context, secretKey, pack);
            generator.genEncKey();
            generator.genMultKey();
            generator.genConjKey();
            for (const unsigned long index : {1UL, 2UL, 31UL}) generator.genLeftRotKey(index);
        }
        return pack;
    }

    Context context;
    SecretKeyBase<E> secretKey;
    KeyPack keys;
    HomEvaluator evaluator;
    EnDecoder encoder;
    Encryptor encryptor;
    Decryptor decryptor;
    Message slots;
    Plaintext plaintext;
    CiphertextBase<E> fresh;
};

/// The rings of the files in tests/archives.
const ToyRing<EncryptionType::RLWE>& toyRing();
const ToyRing<EncryptionType::MLWE>& toyModule();
const Context& toyPartner();

} // namespace Torvo::test::uses
