#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/EvaluationKey.hpp>
#include <Torvo/Export.hpp>

#include <iosfwd>
#include <memory>

namespace Torvo {

/// Two switching keys with tag `s`: DTS takes a level-0 ciphertext from the dense secret to a sparse one, in
/// a second context of one prime; STD takes it back in the main context.
class TORVO_API SparseSecretEncapsulationKey {
public:
    /// Two unset keys.
    SparseSecretEncapsulationKey(const Context& context, const Context& context_sparse);

    EvaluationKey* getDTSPart();
    const EvaluationKey* getDTSPart() const;
    EvaluationKey* getSTDPart();
    const EvaluationKey* getSTDPart() const;

    /// As `EvaluationKey::copyTo` and `EvaluationKey::removeExcept`, on DTS first, then on STD.
    void copyTo(const Device& device);
    void removeExcept(const Device& device);

private:
    EvaluationKey dts_;
    EvaluationKey std_;
};

TORVO_API std::unique_ptr<SparseSecretEncapsulationKey>
makeEmptySparseSecretEncapsulationKey(const Context& context, const Context& context_sparse);

/// Format: docs/files.md.
TORVO_API void save(const SparseSecretEncapsulationKey& key, std::ostream& stream);
TORVO_API void load(SparseSecretEncapsulationKey& key, std::istream& stream);

} // namespace Torvo
