#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/EvaluationKey.hpp>
#include <Torvo/Export.hpp>

#include <iosfwd>
#include <memory>
#include <string>

namespace Torvo {

/// The key of `RingPacker::compose` or of `RingPacker::decompose`: one switching key with tag `w`, between
/// the secret of a large ring and the secret of a small ring embedded in it. Made by
/// `KeyGenerator::genComposeKey` and `genDecomposeKey`. A shared handle: copies see the same key. Any number
/// of threads may use it; `to` and `load` are for its owner, while nobody else uses it.
class TORVO_API RingSwitchKey {
public:
    /// A key of `context`, the large ring, all zeros, to load into.
    explicit RingSwitchKey(const Context& context);
    /// For the library itself.
    explicit RingSwitchKey(std::shared_ptr<EvaluationKey> key);

    /// The large ring.
    const Context& getContext() const;
    /// The key itself, not a copy.
    EvaluationKey& getKey() const;

    /// Keeps the key on `device` only.
    /// @throws RuntimeException as allocation on a device without backend does
    void to(const Device& device);

    /// The format is that of `EvaluationKey`.
    /// @throws RuntimeException "Cannot open file " and the path; "Cannot finish writing file ", the path and
    ///         the reason; an existing file is then unchanged
    void save(const std::string& path) const;
    void save(std::ostream& stream) const;
    /// The bytes that `save` writes to a stream. Counts them without copying the data (`Message::savedSize`).
    unsigned long savedSize() const;
    /// Accepts only a key with tag `w` of the large ring.
    /// @throws RuntimeException as `EvaluationKey::load`
    void load(const std::string& path);
    void load(std::istream& stream);

private:
    std::shared_ptr<EvaluationKey> key_;
};

} // namespace Torvo
