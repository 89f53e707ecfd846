#pragma once

#include <Torvo/Device.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/Pointer.hpp>

#include <complex>
#include <iosfwd>
#include <string>
#include <vector>

namespace Torvo {

class MessageImpl;

/// The user's data in the clear: a power-of-two vector of complex numbers, one per slot.
/// Copies copy the slots. One thread uses a message at a time.
class TORVO_API Message {
public:
    /// No slots, on the CPU.
    Message();
    /// `1 << log_slots` slots on the CPU, each 0.
    /// @throws std::bad_alloc for more slots than there is memory for, whatever the number
    explicit Message(unsigned long log_slots);
    /// `1 << log_slots` slots, each set to `value`.
    Message(unsigned long log_slots, std::complex<double> value);
    /// A copy of `values`, whose size is 0 or a power of two.
    /// @throws RuntimeException "[Message] The size of message must be a power of two"
    explicit Message(const std::vector<std::complex<double>>& values);

    Message(const Message& other);
    Message(Message&& other) noexcept;
    Message& operator=(const Message& other);
    Message& operator=(Message&& other) noexcept;
    ~Message();

    /// Slot `idx`, unchecked.
    std::complex<double>& operator[](unsigned long idx);
    const std::complex<double>& operator[](unsigned long idx) const;

    std::complex<double>* begin();
    std::complex<double>* end();
    const std::complex<double>* begin() const;
    const std::complex<double>* end() const;

    /// Changes the number of slots and keeps the leading ones; new slots are 0.
    /// @param size  a count, not a log2; not checked to be a power of two
    /// @throws std::bad_alloc for more slots than there is memory for; the message is unchanged
    void resize(unsigned long size);
    /// Number of slots.
    unsigned long getSize() const;
    bool isEmpty() const;
    /// log2 of the number of slots, rounded down; 0 for an empty message too.
    unsigned long getLogSlots() const;

    Device getDevice() const;
    /// Moves the slots to `device`.
    /// @throws RuntimeException as allocation on a device without backend does
    void to(const Device& device);
    /// Gives the message storage of the same size on `device`, each slot 0. Does nothing when it is already
    /// there.
    void allocate(const Device& device);

    /// Writes the slots (format: docs/files.md).
    /// @throws RuntimeException "Cannot open file " and the path; "Cannot finish writing file ", the path and
    ///         the reason; an existing file is then unchanged
    void save(const std::string& path) const;
    void save(std::ostream& stream) const;
    /// Replaces size and slots by the saved ones.
    /// @throws RuntimeException "Cannot open file " and the path; the archive's exception on a short read
    void load(const std::string& path);
    void load(std::istream& stream);

    MessageImpl& impl() { return *impl_; }
    const MessageImpl& impl() const { return *impl_; }

private:
    Pointer<MessageImpl> impl_;
};

} // namespace Torvo
