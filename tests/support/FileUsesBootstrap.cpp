// Constants of bootstrapping.

#include "support/FileUses.hpp"
#include "support/NamelessFile.hpp"
#include "support/SealedHead.hpp"

namespace Torvo::test::uses {

namespace {

constexpr unsigned long logSlots = 1;

/// The toy preset with all that a bootstrap of two slots needs but the constants.
struct ToyBootstrap {
    ToyBootstrap() {
        const KeyGenerator generator(context, secretKey, keys);
        generator.genMultKey();
        generator.genConjKey();
        generator.genRotKeysForBootstrap(logSlots);
        Encryptor(context).encrypt(archives::message(logSlots), secretKey, in, 3, 0);
    }

    Context context = makeContext(ParameterPreset::FX);
    SecretKey secretKey{context};
    KeyPack keys{context};
    HomEvaluator evaluator{context, keys};
    Ciphertext in{context};
};

std::string savedConstants(const Bootstrapper& bootstrapper) {
    return bytesOf([&](std::ostream& stream) { bootstrapper.saveBootConstants(logSlots, stream); });
}

} // namespace

void bootConstants(const std::string& file) {
    static const ToyBootstrap toy;
    const NamelessFile named(file), sealed(resealed(file));
    Bootstrapper trusting(toy.evaluator, 0), careful(toy.evaluator, 0), reading(toy.evaluator, 0);
    // Else no damage of a number would come further than to the digest of the head.
    attempt([&] { Bootstrapper(toy.evaluator, 0).mapBootConstants(logSlots, sealed.path(), false); });
    loadWithinMemory(file.size(), [&] { trusting.mapBootConstants(logSlots, named.path(), false); });
    attempt([&] {
        Ciphertext out(toy.context);
        trusting.bootstrap(toy.in, out, true);
    });
    if (savedConstants(trusting).size() != file.size()) throw Finding{"another length when saved again"};
    loadWithinMemory(file.size(), [&] { careful.mapBootConstants(logSlots, named.path()); });
    loadWithinMemory(file.size(), [&] {
        std::istringstream stream(file);
        reading.readBootConstants(logSlots, stream);
    });
    if (savedConstants(careful) != file || savedConstants(reading) != file)
        throw Finding{"what was checked is saved differently"};
}

} // namespace Torvo::test::uses
