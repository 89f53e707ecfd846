#pragma once

#include "core/Failure.hpp"
#include "crypto/OwnKey.hpp"
#include "crypto/SavedAs.hpp"

#include <fstream>
#include <istream>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace Torvo {

/// The key in a file, loaded into the one that `make` returns; null if the file cannot be opened. The file is
/// opened once, so that its existence and its content come from the same descriptor.
template <class Make>
auto readKeyFile(const std::string& path, Make&& make) {
    using Key = typename decltype(make())::element_type;
    std::ifstream file(path, std::ios::in | std::ios::binary);
    std::shared_ptr<Key> key;
    if (file.is_open()) {
        key = make();
        loadOwn(*key, file);
    }
    return key;
}

/// One key of a kind behind a mutex, which is held while the key is read from disk or generated: so a key is
/// read once, and a second caller waits for the first. A key becomes visible only when it is complete.
template <class Key>
class KeySlot {
public:
    bool isFilled() const {
        const std::lock_guard lock(mutex_);
        return key_ != nullptr;
    }

    /// The key, null when there is none; never reads the disk.
    std::shared_ptr<Key> get() const {
        const std::lock_guard lock(mutex_);
        return key_;
    }

    /// The key; if there is none yet, it is read from the file `path` into the one that `makeEmpty` returns.
    /// Null if the file is missing too.
    template <class MakeEmpty>
    std::shared_ptr<Key> getOrRead(const std::string& path, MakeEmpty&& makeEmpty) {
        const std::lock_guard lock(mutex_);
        if (!key_) key_ = readKeyFile(path, makeEmpty);
        return key_;
    }

    /// Drops the key, if the file of `path` has it.
    /// @throws as `requireSavedAs`
    void unload(const std::string& path) {
        std::shared_ptr<Key> dropped; // goes, and frees its memory, behind the lock
        const std::lock_guard lock(mutex_);
        if (!key_) return;
        requireSavedAs(*key_, path);
        dropped.swap(key_);
    }

    /// Replaces the key by the one that `make` returns.
    template <class Make>
    void replace(Make&& make) {
        const std::lock_guard lock(mutex_);
        key_ = make();
    }

    /// For locking several slots together.
    std::mutex& mutex() const { return mutex_; }
    /// The key, for a caller that holds `mutex()`.
    const std::shared_ptr<Key>& key() const { return key_; }

private:
    std::shared_ptr<Key> key_;
    mutable std::mutex mutex_;
};

} // namespace Torvo
