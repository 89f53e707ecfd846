#pragma once

#include "core/CudaStreamView.hpp"
#include "core/Integers.hpp"
#include "core/MemoryResource.hpp"
#include "persistence/ArchiveForward.hpp"

#include <Torvo/Device.hpp>

#include <complex>
#include <cstddef>
#include <initializer_list>
#include <memory>

namespace Torvo {

/// An owned array that knows on which device it lives. Element storage is never initialised; a shrink keeps
/// the allocation, and later growth up to the capacity reuses it. Host arrays are aligned to 64 bytes.
///
/// Invariants: size * sizeof(T) <= capacityInBytes, and the resource is the registry's resource of the device; or
/// the elements are borrowed, and the capacity is 0.
/// After a failed `resize`, `to` or copy assignment the array is unchanged. Not synchronised.
///
/// Instantiated for u64, u64*, double, std::complex<double>, int, bool, u128 and i128.
template <class T>
class DeviceSpecificArray {
public:
    /// Empty, on the CPU.
    DeviceSpecificArray() : DeviceSpecificArray(0, Device{}, getDefaultStream()) {}
    /// @throws RuntimeException of `getPerDeviceMemoryResource` and of the resource's `doAllocate`
    DeviceSpecificArray(std::size_t size, const Device& device, const CudaStreamView& stream);
    /// On the CPU.
    explicit DeviceSpecificArray(std::size_t size)
        : DeviceSpecificArray(size, Device{}, getDefaultStream()) {}

    /// On the CPU, over memory that `owner` keeps: the array reads it and holds the owner as long. It has no capacity,
    /// so an assignment and a growing `resize` take memory of the array's own, and a copy is an array like any other.
    /// Elements of a borrowed array must not be written.
    static DeviceSpecificArray borrowed(std::shared_ptr<const void> owner, const T* data, std::size_t size);

    DeviceSpecificArray(const DeviceSpecificArray& other);
    // An empty array on the CPU asks for no memory, so nothing throws here.
    // NOLINTNEXTLINE(bugprone-exception-escape)
    DeviceSpecificArray(DeviceSpecificArray&& other) noexcept;
    /// Reuses the allocation when it suffices and device and stream agree.
    DeviceSpecificArray& operator=(const DeviceSpecificArray& other);
    DeviceSpecificArray& operator=(DeviceSpecificArray&& other) noexcept;
    ~DeviceSpecificArray();

    const Device& getDevice() const { return device_; }
    const CudaStreamView& getStream() const { return stream_; }
    T* getData() { return data_; }
    const T* getData() const { return data_; }
    std::size_t size() const { return size_; }
    std::size_t sizeInBytes() const { return size_ * sizeof(T); }
    std::size_t capacity() const { return capacityInBytes_ / sizeof(T); }
    std::size_t capacityInBytes() const { return capacityInBytes_; }

    /// Unchecked.
    T& operator[](std::size_t i) { return data_[i]; }
    const T& operator[](std::size_t i) const { return data_[i]; }

    T* begin() { return data_; }
    T* end() { return data_ + size_; }
    const T* begin() const { return data_; }
    const T* end() const { return data_ + size_; }

    /// Copies the elements of `source` to the front of this array, which the caller has made large enough.
    /// @throws RuntimeException "Not supported. Build with TORVO_CUDA flag." unless both are on the CPU
    void copyDataFrom(const DeviceSpecificArray& source, CudaStreamView stream);
    void copyDataFrom(const DeviceSpecificArray& source) { copyDataFrom(source, stream_); }

    /// New elements are unset.
    void resize(std::size_t size);
    /// Sets the elements from `first` on to zero. Does nothing to an array that the host cannot write.
    void clear(std::size_t first = 0);

    /// Moves the elements to `device`; on the array's own device only the stream is replaced.
    void to(const Device& device, const CudaStreamView& stream);
    void to(const Device& device) { to(device, getDefaultStream()); }

    /// u64 count, then the raw elements (int, u64 and std::complex<double> only).
    void save(OutputArchive& archive) const;
    /// Reads in bounded pieces: allocates no more memory than the stream has bytes for.
    void load(InputArchive& archive);
    /// The same, but accepts only a count that is one of `sizes`: any other is refused before an element is
    /// read.
    /// @throws RuntimeException "[Verifier::load] Validation failed during deserializing objects."
    void loadSized(InputArchive& archive, std::initializer_list<u64> sizes);

private:
    template <class IsTaken>
    void loadCounted(InputArchive& archive, IsTaken&& isTaken);
    void swap(DeviceSpecificArray& other) noexcept;

    Device device_;
    std::size_t capacityInBytes_ = 0;
    MemoryResource* resource_ = nullptr;
    CudaStreamView stream_;
    T* data_ = nullptr;
    std::size_t size_ = 0;
};

extern template class DeviceSpecificArray<u64>;
extern template class DeviceSpecificArray<u64*>;
extern template class DeviceSpecificArray<double>;
extern template class DeviceSpecificArray<std::complex<double>>;
extern template class DeviceSpecificArray<int>;
extern template class DeviceSpecificArray<bool>;
extern template class DeviceSpecificArray<u128>;
extern template class DeviceSpecificArray<i128>;

/// A table of `rows` x `columns` elements, row after row.
template <class T>
class DeviceSpecificArray2D : public DeviceSpecificArray<T> {
public:
    DeviceSpecificArray2D() = default;
    DeviceSpecificArray2D(std::size_t rows, std::size_t columns)
        : DeviceSpecificArray<T>(rows * columns), rows_(rows), columns_(columns) {}

    std::size_t rows() const { return rows_; }
    std::size_t columns() const { return columns_; }
    T* row(std::size_t i) { return this->getData() + i * columns_; }
    const T* row(std::size_t i) const { return this->getData() + i * columns_; }

private:
    std::size_t rows_ = 0;
    std::size_t columns_ = 0;
};

} // namespace Torvo
