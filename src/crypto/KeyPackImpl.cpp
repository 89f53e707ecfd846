#include "crypto/KeyPackImpl.hpp"

#include "context/ContextContent.hpp"
#include "core/Failure.hpp"
#include "core/RequireContext.hpp"
#include "crypto/Messages.hpp"
#include "crypto/SavedAs.hpp"
#include "crypto/UnsetKey.hpp"
#include "persistence/Serialize.hpp"

#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

namespace Torvo {

namespace {

constexpr const char* keySubdirectory = "/PK";

bool isDirectory(const std::string& path) {
    std::error_code ignored; // what cannot be looked at is no directory
    return std::filesystem::is_directory(path, ignored);
}

void requirePath(bool condition, const std::string& path) {
    if (!condition) throw RuntimeException(message::noSuchPath + path);
}

bool opens(const std::string& path) {
    return !path.empty() && std::ifstream(path, std::ios::in | std::ios::binary).is_open();
}

std::string rotKeyName(u64 index) {
    return "RotKey" + std::to_string(index) + ".bin";
}

constexpr const char* encKeyName = "EncKey.bin";
constexpr const char* multKeyName = "MultKey.bin";
constexpr const char* conjKeyName = "ConjKey.bin";
constexpr const char* sparseKeyName = "SparseSecretEncapsulationKey.bin";

template <class Key>
std::shared_ptr<Key> readFrom(std::istream& stream, std::unique_ptr<Key> key) {
    loadOwn(*key, stream);
    return key;
}

} // namespace

void requireSparsePartner(const Context& context, const Context& context_sparse, const char* unsupported,
                          const char* mismatched) {
    require(isSparseSecretEncapsulationSupported(context), unsupported);
    require(requireContext(context_sparse)->parameter.preset ==
                getSparseParameterPresetFor(context->parameter.preset),
            mismatched);
}

KeyPackImpl::KeyPackImpl(const Context& context) : context_(requireContext(context)) {}

KeyPackImpl::KeyPackImpl(const Context& context, const std::string& keyDirPath) : KeyPackImpl(context) {
    openKeyDir(keyDirPath);
}

KeyPackImpl::KeyPackImpl(const Context& context, const Context& context_sparse) : KeyPackImpl(context) {
    requireSparsePartner(context, context_sparse, message::keyPackWithoutEncapsulation,
                         message::keyPackOtherSparseContext);
    context_sparse_ = context_sparse;
}

KeyPackImpl::KeyPackImpl(const Context& context, const Context& context_sparse, const std::string& keyDirPath)
    : KeyPackImpl(context, context_sparse) {
    openKeyDir(keyDirPath);
}

void KeyPackImpl::openKeyDir(const std::string& path) {
    requirePath(isDirectory(path) && isDirectory(path + keySubdirectory), path);
    keyDirPath_.write([&](std::string& stored) { stored = path; });
}

void KeyPackImpl::setKeyDirPath(const std::string& path) {
    requirePath(isDirectory(path), path);
    if (!isDirectory(path + keySubdirectory)) std::filesystem::create_directory(path + keySubdirectory);
    keyDirPath_.write([&](std::string& stored) { stored = path; });
}

std::string KeyPackImpl::keyFile(const std::string& name) const {
    return keyDirPath_.read([&](const std::string& path) {
        return path.empty() ? std::string() : path + keySubdirectory + "/" + name;
    });
}

bool KeyPackImpl::isEncKeyFileAvailable() const {
    return opens(keyFile(encKeyName));
}

bool KeyPackImpl::isMultKeyFileAvailable() const {
    return opens(keyFile(multKeyName));
}

bool KeyPackImpl::isConjKeyFileAvailable() const {
    return opens(keyFile(conjKeyName));
}

bool KeyPackImpl::isRotKeyFileAvailable(u64 index) const {
    return opens(keyFile(rotKeyName(index)));
}

bool KeyPackImpl::isSparseSecretEncapsulationKeyFileAvailable() const {
    return opens(keyFile(sparseKeyName));
}

std::shared_ptr<EncryptionKey> KeyPackImpl::getEncKey() {
    return encKey.getOrRead(keyFile(encKeyName), [&] { return unsetEncryptionKey(context_); });
}

std::shared_ptr<EvaluationKey> KeyPackImpl::getMultKey() {
    return multKey.getOrRead(keyFile(multKeyName), [&] { return unsetKey(context_, KeyKind::Mult); });
}

std::shared_ptr<EvaluationKey> KeyPackImpl::getConjKey() {
    return conjKey.getOrRead(keyFile(conjKeyName), [&] { return unsetKey(context_, KeyKind::Conj); });
}

std::shared_ptr<SparseSecretEncapsulationKey> KeyPackImpl::getSparseSecretEncapsulationKey() {
    if (!context_sparse_) return sparseKey.get();
    return sparseKey.getOrRead(keyFile(sparseKeyName), [&] { return makeEmptySparseKey(); });
}

// What is found is handed on, not looked up again: another thread may unload it meanwhile.
std::shared_ptr<EvaluationKey> KeyPackImpl::getRotKey(u64 index) {
    if (auto held = findRotKey(index)) return held;
    const std::lock_guard lock(rotLoadMutex(index));
    if (auto held = findRotKey(index)) return held;
    auto key =
        readKeyFile(keyFile(rotKeyName(index)), [&] { return unsetKey(context_, KeyKind::Rot, index); });
    return key ? addRotKey(index, std::move(key)) : nullptr;
}

std::mutex& KeyPackImpl::rotLoadMutex(u64 index) {
    return rotLoadMutexes_.write([&](auto& mutexes) -> std::mutex& {
        auto& mutex = mutexes[index];
        if (!mutex) mutex = std::make_unique<std::mutex>();
        return *mutex;
    });
}

std::string KeyPackImpl::keyFileToUnload(const std::string& name) const {
    std::string path = keyFile(name);
    if (path.empty()) throw RuntimeException(std::string(message::cannotUnload) + message::noKeyDirectory);
    return path;
}

void KeyPackImpl::unloadEncKey() {
    encKey.unload(keyFileToUnload(encKeyName));
}

void KeyPackImpl::unloadMultKey() {
    multKey.unload(keyFileToUnload(multKeyName));
}

void KeyPackImpl::unloadConjKey() {
    conjKey.unload(keyFileToUnload(conjKeyName));
}

void KeyPackImpl::unloadSparseSecretEncapsulationKey() {
    const std::string path = keyFileToUnload(sparseKeyName);
    // One that was generated here would not be read: for that it takes the second context.
    require(context_sparse_.has_value() || !sparseKey.isFilled(), message::keyPackWithoutEncapsulation);
    sparseKey.unload(path);
}

void KeyPackImpl::unloadRotKey(u64 index) {
    const std::string path = keyFileToUnload(rotKeyName(index));
    const std::lock_guard lock(rotLoadMutex(index));
    const auto key = findRotKey(index);
    if (!key) return;
    requireSavedAs(*key, path);
    rotKeys_.write([&](RotationKeys& keys) {
        const auto found = keys.find(index);
        // A pack that was loaded from a stream meanwhile brought another one.
        if (found != keys.end() && found->second == key) keys.erase(found);
    });
}

void KeyPackImpl::unload() {
    unloadEncKey();
    unloadMultKey();
    unloadConjKey();
    for (const auto& [index, key] : contents().rotKeys) unloadRotKey(index);
    unloadSparseSecretEncapsulationKey();
}

void KeyPackImpl::maybeLoadEncKey(std::istream& stream) {
    encKey.replace([&] { return readFrom(stream, unsetEncryptionKey(context_)); });
}

void KeyPackImpl::maybeLoadMultKey(std::istream& stream) {
    multKey.replace([&] { return readFrom(stream, unsetKey(context_, KeyKind::Mult)); });
}

void KeyPackImpl::maybeLoadConjKey(std::istream& stream) {
    conjKey.replace([&] { return readFrom(stream, unsetKey(context_, KeyKind::Conj)); });
}

void KeyPackImpl::maybeLoadRotKey(u64 index, std::istream& stream) {
    addRotKey(index, readFrom(stream, unsetKey(context_, KeyKind::Rot, index)));
}

void KeyPackImpl::maybeLoadSparseSecretEncapsulationKey(std::istream& stream) {
    require(context_sparse_.has_value(), message::keyPackWithoutEncapsulation);
    sparseKey.replace([&] { return readFrom(stream, makeEmptySparseKey()); });
}

std::unique_ptr<SparseSecretEncapsulationKey> KeyPackImpl::makeEmptySparseKey() const {
    return unsetEncapsulationKey(context_, *context_sparse_);
}

std::shared_ptr<EvaluationKey> KeyPackImpl::findRotKey(u64 index) const {
    return rotKeys_.read([&](const RotationKeys& keys) {
        const auto found = keys.find(index);
        return found == keys.end() ? nullptr : found->second;
    });
}

std::shared_ptr<EvaluationKey> KeyPackImpl::addRotKey(u64 index, std::shared_ptr<EvaluationKey> key) {
    return rotKeys_.write(
        [&](RotationKeys& keys) { return keys.emplace(index, std::move(key)).first->second; });
}

void KeyPackImpl::to(const Device& device) {
    {
        const std::scoped_lock lock(encKey.mutex(), multKey.mutex(), conjKey.mutex());
        if (encKey.key()) encKey.key()->to(device);
        if (multKey.key()) multKey.key()->removeExcept(device);
        if (conjKey.key()) conjKey.key()->removeExcept(device);
    }
    rotKeys_.read([&](const RotationKeys& keys) {
        for (const auto& [index, key] : keys) key->removeExcept(device);
    });
    const std::lock_guard lock(sparseKey.mutex());
    if (sparseKey.key()) sparseKey.key()->removeExcept(device);
}

KeyPackContents KeyPackImpl::contents() const {
    KeyPackContents held(context_, context_sparse_);
    held.encKey = encKey.get();
    held.multKey = multKey.get();
    held.conjKey = conjKey.get();
    held.rotKeys = rotKeys_.read([](const RotationKeys& keys) { return keys; });
    held.sparseKey = sparseKey.get();
    return held;
}

void KeyPackImpl::save(const std::string& path) {
    setKeyDirPath(path);
    const KeyPackContents held = contents();
    const auto saveAs = [&](const auto& key, const std::string& name) {
        if (key) key->save(path + keySubdirectory + "/" + name);
    };
    saveAs(held.encKey, encKeyName);
    saveAs(held.multKey, multKeyName);
    saveAs(held.conjKey, conjKeyName);
    for (const auto& [index, key] : held.rotKeys) saveAs(key, rotKeyName(index));
    saveAs(held.sparseKey, sparseKeyName);
}

void KeyPackImpl::save(std::ostream& stream) const {
    Serialize::save(stream, contents());
}

void KeyPackImpl::load(std::istream& stream) {
    KeyPackContents read(context_, context_sparse_);
    Serialize::load(stream, read);
    encKey.replace([&] { return read.encKey; });
    multKey.replace([&] { return read.multKey; });
    conjKey.replace([&] { return read.conjKey; });
    rotKeys_.write([&](RotationKeys& keys) { keys.swap(read.rotKeys); });
    sparseKey.replace([&] { return read.sparseKey; });
}

} // namespace Torvo
