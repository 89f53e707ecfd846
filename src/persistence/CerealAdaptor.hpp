#pragma once

#include "core/Failure.hpp"
#include "persistence/Archive.hpp"
#include "persistence/Messages.hpp"

#include <cereal/types/optional.hpp>

#include <optional>

namespace Torvo::detail {

/// Which form of an object is written. The numbers are part of the file formats.
namespace SerializeOption {
inline constexpr int full = 0;
inline constexpr int seedOnly = 1;
} // namespace SerializeOption

/// Passes an object that can be saved in two forms to `Serialize`: first the option, as an
/// std::optional<int>, then the fields of the form. `T` has members saveFull, saveSeed, loadFull and loadSeed
/// of an archive. Refers to the object, which must outlive it.
template <class T>
class CerealAdaptor {
public:
    explicit CerealAdaptor(T& object, std::optional<int> option = std::nullopt)
        : object_(&object), option_(option) {}

    /// @throws RuntimeException "[save SecretKey] Invalid serialize option" unless the option is one of the
    ///         two
    template <class Archive>
    void save(Archive& archive) const {
        require(isKnown(), message::unknownOptionToSave);
        archive(option_);
        if (*option_ == SerializeOption::full)
            object_->saveFull(archive);
        else
            object_->saveSeed(archive);
    }

    /// @throws RuntimeException "[load SecretKey] Invalid serialize option" unless the option read is one of
    ///         the two
    template <class Archive>
    void load(Archive& archive) {
        loadOption(archive);
        require(isKnown(), message::unknownOptionToLoad);
        if (*option_ == SerializeOption::full)
            object_->loadFull(archive);
        else
            object_->loadSeed(archive);
    }

private:
    bool isKnown() const { return option_ == SerializeOption::full || option_ == SerializeOption::seedOnly; }

    /// Reads an optional as cereal does, and also checks the flag byte.
    template <class Archive>
    void loadOption(Archive& archive) {
        bool isAbsent = false;
        archive(Flag(isAbsent));
        option_.reset();
        if (!isAbsent) archive(option_.emplace());
    }

    T* object_;
    std::optional<int> option_;
};

/// The adaptor that saves `object` in the form of `option`.
template <class T>
CerealAdaptor<const T> adapt(const T& object, int option) {
    return CerealAdaptor<const T>(object, option);
}

} // namespace Torvo::detail
