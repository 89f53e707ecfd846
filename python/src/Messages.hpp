#pragma once

#include "Guarded.hpp"

#include <Torvo/Message.hpp>

#include <string>
#include <type_traits>

namespace TorvoPython {

/// A message, whose slots Python can look at where they are. While somebody does, the slots must stay where they are.
class ViewedMessage : public Torvo::Message {
public:
    using Torvo::Message::Message;
    explicit ViewedMessage(Torvo::Message&& other) : Torvo::Message(std::move(other)) {}

    unsigned long views = 0;

    /// For what gives the message other slots. Under a writing lock.
    /// @throws BufferError while a view lives
    void requireNoView() const {
        if (views != 0)
            throw py::buffer_error(
                "The message has " + std::to_string(views) +
                " live view(s) on its slots, so it cannot be given others; drop the arrays and "
                "memoryviews made from it, or use another message");
    }
};

using MessageHandle = Guarded<ViewedMessage>;

/// A message that can be looked at is a message to the library.
template <>
struct Library<ViewedMessage> {
    using type = Torvo::Message;
};

/// The output, which is written as a whole: a message must have no view.
template <class T>
LibraryOf<T>& outputOf(Guarded<T>& out) {
    if constexpr (std::is_same_v<T, ViewedMessage>) out.object().requireNoView();
    return out.object();
}

template <class T>
const LibraryOf<T>& inputOf(const Guarded<T>& in) {
    return in.object();
}

} // namespace TorvoPython
