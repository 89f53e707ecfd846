#pragma once

#include "core/Integers.hpp"
#include "core/ThreadSafe.hpp"

#include <Torvo/Context.hpp>
#include <Torvo/Device.hpp>
#include <Torvo/EncryptionKey.hpp>
#include <Torvo/EvaluationKey.hpp>
#include <Torvo/SparseSecretEncapsulationKey.hpp>

#include <iosfwd>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace Torvo {

/// The keys behind a pack, with one mutex per fixed slot, a reader-writer lock around the map of rotation
/// keys, and one load mutex per rotation index. Indices here are left-rotation indices, as they are.
class KeyPackImpl {
public:
    explicit KeyPackImpl(const Context& context);
    KeyPackImpl(const Context& context, const std::string& keyDirPath);
    KeyPackImpl(const Context& context, const Context& contextSparse);
    KeyPackImpl(const Context& context, const Context& contextSparse, const std::string& keyDirPath);

    bool isEncKeyFileAvailable() const;
    bool isMultKeyFileAvailable() const;
    bool isConjKeyFileAvailable() const;
    bool isRotKeyFileAvailable(u64 index) const;
    bool isSparseSecretEncapsulationKeyFileAvailable() const;

    void maybeLoadEncKey();
    void maybeLoadMultKey();
    void maybeLoadConjKey();
    void maybeLoadRotKey(u64 index);
    void maybeLoadSparseSecretEncapsulationKey();

    void maybeLoadEncKey(std::istream& stream);
    void maybeLoadMultKey(std::istream& stream);
    void maybeLoadConjKey(std::istream& stream);
    void maybeLoadRotKey(u64 index, std::istream& stream);
    void maybeLoadSparseSecretEncapsulationKey(std::istream& stream);

    bool isEncKeyLoaded() const;
    bool isMultKeyLoaded() const;
    bool isConjKeyLoaded() const;
    bool isRotKeyLoaded(u64 index) const;
    bool isSparseSecretEncapsulationKeyLoaded() const;

    /// Each tries the lazy load first; null when there is no key.
    std::shared_ptr<EncryptionKey> getEncKey();
    std::shared_ptr<EvaluationKey> getMultKey();
    std::shared_ptr<EvaluationKey> getConjKey();
    std::shared_ptr<EvaluationKey> getRotKey(u64 index);
    std::shared_ptr<SparseSecretEncapsulationKey> getSparseSecretEncapsulationKey();

    void setKeyDirPath(const std::string& path);
    void to(const Device& device);
    void save(const std::string& path);
    void save(std::ostream& stream);
    void load(std::istream& stream);

    // The slots are written by KeyGeneratorImpl too, under their mutexes.

    Context context;
    std::optional<Context> context_sparse;
    std::shared_ptr<EncryptionKey> enc_key;
    mutable std::mutex enc_mutex;
    std::shared_ptr<EvaluationKey> mult_key;
    mutable std::mutex mult_mutex;
    std::shared_ptr<EvaluationKey> conj_key;
    mutable std::mutex conj_mutex;
    ThreadSafeMap<u64, std::shared_ptr<EvaluationKey>> rot_keys;
    ThreadSafeMap<u64, std::unique_ptr<std::mutex>> rot_load_mutexes;
    std::shared_ptr<SparseSecretEncapsulationKey> sparse_key;
    mutable std::mutex sparse_mutex;
    std::string key_dir_path;
};

} // namespace Torvo
