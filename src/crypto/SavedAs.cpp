#include "crypto/SavedAs.hpp"

#include "crypto/Messages.hpp"

#include <Torvo/EncryptionKey.hpp>
#include <Torvo/EvaluationKey.hpp>
#include <Torvo/RuntimeException.hpp>
#include <Torvo/SparseSecretEncapsulationKey.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <streambuf>
#include <system_error>

namespace Torvo {

namespace {

/// Compares what is written with what a file holds from its beginning on. Behind the first difference nothing
/// is read any more.
class ComparingBuffer : public std::streambuf {
public:
    explicit ComparingBuffer(const std::string& path) : file_(path, std::ios::in | std::ios::binary) {}

    bool isOpen() const { return file_.is_open(); }
    /// Whether all was the same, and the file has no more.
    bool isSame() { return isSame_ && file_.peek() == traits_type::eof(); }

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize byteCount) override {
        for (std::streamsize done = 0; isSame_ && done < byteCount;) {
            const auto piece = std::min<std::streamsize>(byteCount - done, sizeof piece_);
            isSame_ = file_.read(piece_.data(), piece) &&
                      std::memcmp(piece_.data(), bytes + done, static_cast<std::size_t>(piece)) == 0;
            done += piece;
        }
        return byteCount;
    }
    int_type overflow(int_type character) override {
        if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
        const char byte = traits_type::to_char_type(character);
        xsputn(&byte, 1);
        return character;
    }

private:
    std::ifstream file_;
    bool isSame_ = true;
    std::array<char, 16384> piece_{};
};

[[noreturn]] void refuse(const char* reason, const std::string& path) {
    throw RuntimeException(std::string(message::cannotUnload) + reason + path + message::saveFirst);
}

template <class Key>
void requireSame(const Key& key, const std::string& path) {
    std::error_code ignored; // what cannot be looked at is no file
    // A pipe would be waited for, and what it gave would be gone.
    if (!std::filesystem::is_regular_file(path, ignored)) refuse(message::noKeyFile, path);
    ComparingBuffer buffer(path);
    if (!buffer.isOpen()) refuse(message::noKeyFile, path);
    std::ostream stream(&buffer);
    key.save(stream);
    if (!buffer.isSame()) refuse(message::otherKeyInFile, path);
}

} // namespace

void requireSavedAs(const EncryptionKey& key, const std::string& path) {
    requireSame(key, path);
}

void requireSavedAs(const EvaluationKey& key, const std::string& path) {
    requireSame(key, path);
}

void requireSavedAs(const SparseSecretEncapsulationKey& key, const std::string& path) {
    requireSame(key, path);
}

} // namespace Torvo
