#include "support/FileKinds.hpp"

#include "support/AllocationBudget.hpp"
#include "support/FileUses.hpp"
#include "support/NamelessFile.hpp"

#include <Torvo/Inspect.hpp>

#include <algorithm>
#include <exception>
#include <stdexcept>

namespace Torvo::test {

namespace {

constexpr u64 kibibyte = u64{1} << 10, mebibyte = u64{1} << 20;

std::vector<std::string> none() {
    return {};
}

/// A request beyond the bound ends in std::bad_alloc and a finding, and does not take the memory.
void runWithinMemory(u64 bound, const std::function<void()>& run, const std::string& name) {
    const AllocationBudget budget(bound);
    std::exception_ptr refusal;
    try {
        run();
    } catch (...) {
        refusal = std::current_exception();
    }
    if (budget.isExceeded())
        throw Finding{name + " asked for " + std::to_string(budget.peak()) +
                      " bytes of memory or more, where " + std::to_string(bound) + " are allowed"};
    if (refusal) std::rethrow_exception(refusal);
}

} // namespace

const std::vector<FileKind>& fileKinds() {
    static const std::vector<FileKind> kinds{
        {"message", uses::message, {"message.bin"}, none},
        {"plaintext", uses::plaintext, {"plaintext.bin"}, none},
        {"ciphertext",
         uses::ciphertext,
         {"ciphertext.bin", "ciphertext_coefficients.bin", "ciphertext_product.bin", "ciphertext_sparse.bin"},
         none},
        {"module_ciphertext", uses::moduleCiphertext, {"module_ciphertext.bin"}, none},
        {"compact_ciphertext", uses::compactCiphertext, {"compact_ciphertext.bin"}, none},
        {"secret_key",
         uses::secretKey,
         {"secret_key.bin", "secret_key_given.bin", "secret_key_seed.bin"},
         none},
        {"module_secret_key",
         uses::moduleSecretKey,
         {"module_secret_key.bin", "module_secret_key_seed.bin"},
         none},
        {"encryption_key", uses::encryptionKey, {"keys/PK/EncKey.bin"}, none},
        {"evaluation_key",
         uses::evaluationKey,
         {"keys/PK/MultKey.bin", "keys/PK/RotKey1.bin", "mult_key_in_full.bin"},
         none},
        {"key_without_context",
         uses::keyWithoutContext,
         {"keys/PK/MultKey.bin", "mult_key_in_full.bin", "ring_switch_key.bin"},
         none},
        {"encapsulation_key", uses::encapsulationKey, {"encapsulation_key.bin"}, none},
        {"key_pack", uses::keyPack, {"key_pack.bin"}, none},
        {"ring_switch_key", uses::ringSwitchKey, {"ring_switch_key.bin"}, none},
        {"packing_keys", uses::packingKeys, {}, uses::madePackingKeys},
        {"lwe_ciphertext", uses::plainCiphertext, {"lwe_ciphertext.bin"}, none},
        {"lwe_secret_key", uses::plainSecretKey, {"lwe_secret_key.bin", "lwe_secret_key_seed.bin"}, none},
        {"context",
         uses::context,
         {"ring.context", "partner.context", "narrow.context", "wide.context", "module.context"},
         none},
        {"lwe_context", uses::plainContext, {"lwe.context", "lwe_preset.context"}, none},
        {"boot_constants", uses::bootConstants, {"boot_constants.bin"}, none},
        {"encoded_transform", uses::encodedTransform, {"encoded_transform.bin"}, none},
        {"generator_state", uses::generatorState, {}, uses::madeGeneratorStates},
        {"chebyshev_series", uses::chebyshevSeries, {"chebyshev_series.bin"}, none},
        {"linear_transform", uses::linearTransform, {"linear_transform.bin"}, none},
    };
    return kinds;
}

const FileKind& fileKind(const std::string& name) {
    const auto& kinds = fileKinds();
    const auto found =
        std::find_if(kinds.begin(), kinds.end(), [&](const FileKind& kind) { return kind.name == name; });
    if (found == kinds.end()) throw std::out_of_range("no kind of file is called " + name);
    return *found;
}

void inspectWithinMemory(const std::string& file) {
    const NamelessFile named(file);
    FileReport report;
    runWithinMemory(
        64 * kibibyte, [&] { report = inspect(named.path()); }, "an inspection");
    if (report.size != file.size()) throw Finding{"an inspection found another length"};
    if (report.kinds.empty() == report.refusal.empty())
        throw Finding{"an inspection tells either kinds or a refusal"};
}

bool feed(const FileKind& kind, const std::string& file) {
    inspectWithinMemory(file);
    try {
        kind.loadAndUse(file);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

void loadWithinMemory(u64 byteCount, const std::function<void()>& load) {
    runWithinMemory(2 * byteCount + 4 * mebibyte, load,
                    "the load of a file of " + std::to_string(byteCount) + " bytes");
}

void attempt(const std::function<void()>& use) {
    try {
        runWithinMemory(64 * mebibyte, use, "a use of what was loaded");
    } catch (const std::exception&) {
    }
}

} // namespace Torvo::test
