#pragma once

#include "Guarded.hpp"

#include <Torvo/Message.hpp>

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

} // namespace TorvoPython
