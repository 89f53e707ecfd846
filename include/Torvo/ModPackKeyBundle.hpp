#pragma once

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/EvaluationKey.hpp>
#include <Torvo/Export.hpp>

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace Torvo {

/// The keys of `RingPacker::modPack`, with tag `p`, all of one large ring: one key for each group of secret
/// components that becomes one component of the output. Made by `KeyGenerator::genModPackKeyBundle`. Copies
/// share the keys. Any number of threads may use them; `to` and `load` are for their owner, while nobody else
/// uses them.
class TORVO_API ModPackKeyBundle {
public:
    /// `num_keys` keys of `context`, the large ring, all zeros, to load into.
    /// @throws RuntimeException "[ModPackKeyBundle] The number of keys should be at most 1048576"
    ModPackKeyBundle(const Context& context, unsigned long num_keys);
    /// For the library itself.
    ModPackKeyBundle(const Context& context, std::vector<std::shared_ptr<EvaluationKey>> keys);

    const Context& getContext() const { return context_; }
    unsigned long getNumKeys() const;
    /// @throws std::out_of_range past the end
    std::shared_ptr<EvaluationKey> getModPackKey(unsigned long index) const;

    /// Keeps each key on `device` only.
    /// @throws RuntimeException as allocation on a device without backend does
    void to(const Device& device);

    /// The file does not contain the number of keys: load into a bundle of the right number. Format:
    /// docs/files.md.
    /// @throws RuntimeException "Cannot open file " and the path; "Cannot finish writing file ", the path and
    ///         the reason; an existing file is then unchanged
    void save(const std::string& path) const;
    void save(std::ostream& stream) const;
    /// The bytes that `save` writes to a stream. Counts them without copying the data (`Message::savedSize`).
    unsigned long savedSize() const;
    /// Accepts only keys with tag `p` of the large ring.
    /// @throws RuntimeException "Cannot open file " and the path; "[Verifier::load] Validation failed during
    ///         deserializing objects."; the archive's exception on a short read
    void load(const std::string& path);
    void load(std::istream& stream);

private:
    Context context_;
    std::vector<std::shared_ptr<EvaluationKey>> keys_;
};

} // namespace Torvo
