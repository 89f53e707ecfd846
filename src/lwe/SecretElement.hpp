#pragma once

#include "arithmetic/elements/LevelledElement.hpp"
#include "core/SecureWipe.hpp"

#include <utility>

namespace Torvo::LWE {

/// An integer that reveals the message or the key. Its words are wiped on destruction. It starts at its
/// highest level; operations may lower the level but must not raise it, since a reallocation would leave the
/// old words in freed memory.
class SecretElement : public LevelledElement {
public:
    /// Zero, at the top level.
    explicit SecretElement(const Context& context) : LevelledElement(context) {}
    explicit SecretElement(LevelledElement&& element) : LevelledElement(std::move(element)) {}
    SecretElement(const SecretElement&) = delete;
    SecretElement& operator=(const SecretElement&) = delete;
    ~SecretElement() { utils::wipe(getData()); }
};

} // namespace Torvo::LWE
