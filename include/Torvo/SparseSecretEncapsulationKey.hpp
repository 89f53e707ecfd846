#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/EvaluationKey.hpp>
#include <Torvo/Export.hpp>

#include <iosfwd>
#include <memory>
#include <string>

namespace Torvo {

/// Two switching keys with tag `s`: DTS takes a level-0 ciphertext from the dense secret to a sparse one, in
/// a second context of one prime; STD takes it back, in the main context. Both are used within one bootstrap
/// only, so a new key also serves ciphertexts made under the old one. One thread may write, or many read.
class TORVO_API SparseSecretEncapsulationKey {
public:
    /// Two keys of all zeros.
    SparseSecretEncapsulationKey(const Context& context, const Context& context_sparse);
    /// For the library itself.
    SparseSecretEncapsulationKey(EvaluationKey&& dts, EvaluationKey&& std);

    /// The parts, owned by this object.
    EvaluationKey* getDTSPart();
    const EvaluationKey* getDTSPart() const;
    EvaluationKey* getSTDPart();
    const EvaluationKey* getSTDPart() const;

    /// As `EvaluationKey::copyTo` and `EvaluationKey::removeExcept`, on DTS first, then on STD.
    void copyTo(const Device& device);
    void removeExcept(const Device& device);

    /// Format: docs/files.md.
    /// @throws RuntimeException "Cannot open file " and the path; "Cannot finish writing file ", the path and
    ///         the reason; an existing file is then unchanged
    void save(const std::string& path) const;
    void save(std::ostream& stream) const;
    /// The bytes that `save` writes to a stream. Counts them without copying the data (`Message::savedSize`).
    unsigned long savedSize() const;
    /// Accepts only parts with tag `s` of the rings of their contexts.
    /// @throws RuntimeException "Cannot open file " and the path; "[Verifier::load] Validation failed during
    ///         deserializing objects."; the archive's exception on a short read
    void load(const std::string& path);
    void load(std::istream& stream);

private:
    EvaluationKey dts_;
    EvaluationKey std_;
};

/// Two keys of all zeros, to generate or to load into.
TORVO_API std::unique_ptr<SparseSecretEncapsulationKey>
makeEmptySparseSecretEncapsulationKey(const Context& context, const Context& context_sparse);

/// As the members of the same name.
TORVO_API void save(const SparseSecretEncapsulationKey& key, std::ostream& stream);
TORVO_API void load(SparseSecretEncapsulationKey& key, std::istream& stream);

} // namespace Torvo
