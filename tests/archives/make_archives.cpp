// Writes the files of this directory, which are kept in the repository and are not to be written again: a new
// kind of file is added by a line here, and only its own file goes into the repository.
//
// Usage: make_archives DIRECTORY

#include "arithmetic/elements/Polynomial.hpp"
#include "crypto/EvaluationKeyImpl.hpp"
#include "support/Archives.hpp"

#include <Torvo/Randomseeds.hpp>
#include <Torvo/Torvo.hpp>

#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

namespace {

using namespace Torvo;
using namespace Torvo::test;

const Device cpu;

class Archives {
public:
    explicit Archives(std::string directory) : directory_(std::move(directory)) {
        std::filesystem::create_directories(directory_ + "/keys");
    }

    void writeContexts() const {
        saveContextToFile(ring_, path("ring.context"));
        saveContextToFile(partner_, path("partner.context"));
        saveContextToFile(archives::narrow(), path("narrow.context"));
        saveContextToFile(archives::wide(), path("wide.context"));
        saveContextToFile(module_, path("module.context"));
    }

    void writeSecretKeys() const {
        secret_.save(path("secret_key.bin"));
        secret_.saveSeedOnly(path("secret_key_seed.bin"));
        const auto given = archives::givenSecret(getDegree(ring_));
        SecretKey(ring_, given.data()).save(path("secret_key_given.bin"));
        moduleSecret_.save(path("module_secret_key.bin"));
        moduleSecret_.saveSeedOnly(path("module_secret_key_seed.bin"));
    }

    void writeMessages() const {
        archives::message(3).save(path("message.bin"));
        const EnDecoder encoder(ring_);
        encoder.encode(archives::message(3), 1, 1).save(path("plaintext.bin"));
    }

    void writeCiphertexts() const {
        const Encryptor encryptor(ring_);
        Ciphertext slots(ring_), few(ring_), coefficients(ring_), product(ring_);
        encryptor.encrypt(archives::message(5), secret_, slots, 1, 0);
        slots.save(path("ciphertext.bin"));
        encryptor.encrypt(archives::message(2), keys_, few, 1, 1);
        few.save(path("ciphertext_sparse.bin"));
        encryptor.encrypt(archives::coefficients(64), secret_, coefficients, 0, 0);
        coefficients.save(path("ciphertext_coefficients.bin"));
        HomEvaluator(ring_, keys_).tensor(slots, slots, product);
        product.save(path("ciphertext_product.bin"));
        CiphertextBase<EncryptionType::MLWE> ofModule(module_);
        Encryptor(module_).encrypt(archives::message(5), moduleSecret_, ofModule, 3, 0);
        ofModule.save(path("module_ciphertext.bin"));
    }

    /// A key directory, and the same keys as one stream.
    void writeKeyPack() {
        keys_.save(path("keys"));
        std::ofstream stream(path("key_pack.bin"), std::ios::binary);
        keys_.save(stream);
    }

    /// The multiplication key without its seeds.
    void writeKeyInFull() const {
        EvaluationKey& key = *keys_.getMultKey();
        const auto seeded = key.impl().ax.at(cpu);
        for (Polynomial& poly : key.impl().ax.at(cpu)) poly.disableGerm();
        key.save(path("mult_key_in_full.bin"));
        key.impl().ax.at(cpu) = seeded;
    }

    /// Between the secret and a sparse one: a switch from key to key of one ring in each of two rings.
    void writeEncapsulationKey() const {
        const SecretKey sparse(partner_), denseInPartner(partner_, secret_.getCoefficients());
        const SecretKey sparseInRing(ring_, sparse.getCoefficients());
        sparse.saveSeedOnly(path("partner_secret_key_seed.bin"));
        const auto key = makeEmptySparseSecretEncapsulationKey(ring_, partner_);
        fill(*key->getDTSPart(), KeyGenerator(partner_, sparse).genComposeKey(denseInPartner));
        fill(*key->getSTDPart(), generator_.genComposeKey(sparseInRing));
        key->save(path("encapsulation_key.bin"));
    }

    void writeRingSwitchKey() const {
        const SecretKey narrow(archives::narrow()), wide(archives::wide());
        narrow.saveSeedOnly(path("narrow_secret_key_seed.bin"));
        wide.saveSeedOnly(path("wide_secret_key_seed.bin"));
        KeyGenerator(wide.getContext(), wide).genComposeKey(narrow).save(path("ring_switch_key.bin"));
    }

    void writePackingKeys() const {
        using Key = SecretKeyBase<EncryptionType::MLWE>;
        const Key from(makeContext(ParameterPreset::FGbD6R6L0)), to(makeContext(ParameterPreset::FGbD8R4L0));
        from.saveSeedOnly(path("packing_from_seed.bin"));
        to.saveSeedOnly(path("packing_to_seed.bin"));
        const KeyGenerator generator(makeContext(ParameterPreset::FGbD12L0));
        generator.genModPackKeyBundle(from, to).save(path("packing_keys.bin"));
    }

    void writePlainLWE() const {
        LWE::saveContextToFile(plain_, path("lwe.context"));
        LWE::saveContextToFile(LWE::makeContext(LWE::ParameterPreset::SD3), path("lwe_preset.context"));
        const LWE::SecretKey secret(plain_);
        secret.save(path("lwe_secret_key.bin"));
        secret.saveSeedOnly(path("lwe_secret_key_seed.bin"));
        LWE::Ciphertext ciphertext(plain_);
        LWE::Encryptor(plain_).encrypt(archives::plainNumber, secret, ciphertext, 1, 1);
        ciphertext.save(path("lwe_ciphertext.bin"));
    }

    /// Half of an encryption, and the seed of the other half.
    void writeCompactCiphertext() const {
        Encryptor(ring_)
            .encryptCompact(archives::message(4), secret_, 1, 1)
            .save(path("compact_ciphertext.bin"));
    }

    /// For two slots. They are no secret and no keys are needed.
    void writeBootConstants() const {
        const Context toy = makeContext(ParameterPreset::FX);
        Bootstrapper(HomEvaluator(toy, KeyPack(toy)), 1).saveBootConstants(1, path("boot_constants.bin"));
    }

    void writeSeries() const { archives::series().save(path("chebyshev_series.bin")); }

    /// With one baby and one giant step.
    void writeEncodedTransform() const {
        EncodedTransform(ring_, LinearTransform::fromDiagonals(32, archives::diagonals()), 5, 1, {2})
            .save(path("encoded_transform.bin"));
    }

    void writeLinearTransform() const { archives::linearTransform().save(path("linear_transform.bin")); }

private:
    std::string path(const std::string& name) const { return directory_ + "/" + name; }

    static void fill(EvaluationKey& key, const RingSwitchKey& from) {
        std::copy_n(from.getKey().getAxIter(cpu), key.getGadgetRank(), key.getAxIter(cpu));
        std::copy_n(from.getKey().getBxIter(cpu), key.getGadgetRank(), key.getBxIter(cpu));
    }

    static KeyGenerator generatorFor(const Context& context, const SecretKey& secret) {
        KeyGenerator generator(context, secret);
        generator.genEncKey();
        generator.genMultKey();
        generator.genConjKey();
        generator.genLeftRotKey(1);
        generator.genLeftRotKey(archives::rotation);
        return generator;
    }

    std::string directory_;
    Context ring_ = archives::ring(), partner_ = archives::partner();
    LWE::Context plain_ = archives::plain();
    Context module_ = makeContext(ParameterPreset::SD3D6R2);
    SecretKey secret_{ring_};
    SecretKeyBase<EncryptionType::MLWE> moduleSecret_{module_};
    KeyGenerator generator_ = generatorFor(ring_, secret_);
    KeyPack keys_ = generator_.getKeyPack();
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: make_archives DIRECTORY\n", stderr);
        return 1;
    }
    omp_set_num_threads(1); // each thread has a generator of its own, and only this one is seeded
    setSeed({20, 26, 11, 21});
    Archives archives(argv[1]);
    archives.writeContexts();
    archives.writeSecretKeys();
    archives.writeMessages();
    archives.writeCiphertexts();
    archives.writeKeyPack();
    archives.writeKeyInFull();
    archives.writeEncapsulationKey();
    archives.writeRingSwitchKey();
    archives.writePackingKeys();
    archives.writePlainLWE();
    archives.writeCompactCiphertext();
    archives.writeBootConstants();
    archives.writeSeries();
    archives.writeEncodedTransform();
    archives.writeLinearTransform();
}
