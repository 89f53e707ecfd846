#pragma once

#include <Torvo/Device.hpp>
#include <Torvo/Export.hpp>
#include <Torvo/Pointer.hpp>

#include <complex>
#include <concepts>
#include <initializer_list>
#include <iosfwd>
#include <iterator>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Torvo {

class Message;
class MessageImpl;

/// @cond inner
namespace detail {

template <class T>
inline constexpr bool isComplex = false;
template <class T>
inline constexpr bool isComplex<std::complex<T>> = true;

/// What a slot can be made of. Characters and truth values are numbers to the language alone.
template <class T>
concept Number =
    (std::is_arithmetic_v<T> && !std::same_as<T, bool> && !std::same_as<T, char>) || isComplex<T>;

/// Numbers one after the other that are neither a message nor what it takes as it stands.
template <class T, class Message>
concept NumberRange =
    !std::derived_from<std::remove_cvref_t<T>, Message> &&
    !std::same_as<std::remove_cvref_t<T>, std::vector<std::complex<double>>> && requires(T & values) {
    std::end(values);
    requires Number<std::remove_cvref_t<decltype(*std::begin(values))>>;
};

template <class T, class U>
concept OneIsInteger = std::integral<T> || std::integral<U>;

} // namespace detail
/// @endcond

/// The user's data in the clear: a power-of-two vector of complex numbers, one per slot.
///
/// In parentheses stands how many slots there are, in braces what they hold: `Message(3)` has 8 slots of 0,
/// `Message(3, 0.5)` 8 slots of 0.5, `Message({0.5, 1.5})` the two slots 0.5 and 1.5. Braces around an
/// integer could mean either, so they do not compile: write `Message(3)`, or `Message({3.0})`.
///
/// A number may be infinite or NaN: a message keeps it as it is, and encoding refuses it.
/// Copies copy the slots. One thread uses a message at a time.
class TORVO_API Message {
public:
    /// One of several values in braces that are not all of one real type: real, or complex as such or as
    /// `{real, imaginary}`. No integer, see above.
    class Value {
    public:
        template <std::floating_point Real>
        Value(Real real) : number_(static_cast<double>(real)) {}
        template <std::floating_point Real>
        Value(std::complex<Real> number) : number_(number) {}
        template <std::floating_point Real, std::floating_point Imaginary>
        Value(Real real, Imaginary imaginary)
            : number_(static_cast<double>(real), static_cast<double>(imaginary)) {}
        template <std::integral Integer>
        Value(Integer) = delete;
        template <class Real, detail::OneIsInteger<Real> Imaginary>
        Value(Real, Imaginary) = delete;

        explicit operator std::complex<double>() const { return number_; }

    private:
        std::complex<double> number_;
    };

    /// No slots, on the CPU.
    Message();
    /// `1 << log_slots` slots on the CPU, each 0.
    /// @throws RuntimeException "[Message] No memory holds the slots of log slots <log_slots>; give log slots
    ///         below 60"
    /// @throws std::bad_alloc for more than there is memory for
    explicit Message(unsigned long log_slots);
    /// `1 << log_slots` slots, each set to `value`.
    Message(unsigned long log_slots, std::complex<double> value);
    /// A copy of `values`, whose size is 0 or a power of two.
    /// @throws RuntimeException "[Message] The size of message must be a power of two"
    explicit Message(const std::vector<std::complex<double>>& values);
    /// The same of real and complex values in braces. Braces around nothing give no slots.
    template <std::floating_point Real>
    explicit Message(std::initializer_list<Real> values) : Message(numbersOf(values)) {}
    explicit Message(std::initializer_list<Value> values) : Message(numbersOf(values)) {}
    template <std::integral Integer>
    Message(std::initializer_list<Integer>) = delete;
    /// The same of any range of numbers, real, complex or integers: a vector, an array, a span, a view.
    template <detail::NumberRange<Message> Range>
    explicit Message(Range&& values) : Message(numbersOf(values)) {}

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
    /// The bytes that `save` writes to a stream, and to a file. They are counted field by field; the data are
    /// neither read nor copied, so the time does not depend on their length. Every object with a `save` has
    /// this.
    /// @throws what `save` to a stream throws for data on a device without backend
    unsigned long savedSize() const;
    /// Replaces size and slots by the saved ones.
    /// @throws RuntimeException "Cannot open file " and the path; the archive's exception on a short read
    void load(const std::string& path);
    void load(std::istream& stream);

    MessageImpl& impl() { return *impl_; }
    const MessageImpl& impl() const { return *impl_; }

private:
    template <class Values>
    static std::vector<std::complex<double>> numbersOf(Values& values) {
        std::vector<std::complex<double>> numbers;
        for (const auto& value : values) {
            if constexpr (std::is_arithmetic_v<std::remove_cvref_t<decltype(value)>>)
                numbers.emplace_back(static_cast<double>(value));
            else
                numbers.push_back(static_cast<std::complex<double>>(value));
        }
        return numbers;
    }

    Pointer<MessageImpl> impl_;
};

} // namespace Torvo
