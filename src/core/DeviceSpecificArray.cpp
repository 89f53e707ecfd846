#include "core/DeviceSpecificArray.hpp"

#include "core/Failure.hpp"
#include "core/Messages.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace Torvo {

namespace {

/// Makes the GPU of `device` the current one during its lifetime; does nothing for other kinds of device.
class GpuScope {
public:
    explicit GpuScope(const Device& device) : isGpu_(device.type == DeviceType::GPU) {
        if (!isGpu_) return;
        previous_ = getCurrentCudaDevice();
        setCurrentCudaDevice(device.id);
    }
    ~GpuScope() {
        if (isGpu_) setCurrentCudaDevice(previous_.id);
    }
    GpuScope(const GpuScope&) = delete;
    GpuScope& operator=(const GpuScope&) = delete;

private:
    bool isGpu_;
    Device previous_;
};

/// The size in bytes of a huge count must not wrap around to a small allocation.
template <class T>
std::size_t byteCount(std::size_t size) {
    if (size > std::numeric_limits<std::size_t>::max() / sizeof(T)) throw std::bad_array_new_length();
    return size * sizeof(T);
}

/// Stands for the allocator of one borrowed array, whose release lets the owner go.
class Borrowed final : public MemoryResource {
public:
    explicit Borrowed(std::shared_ptr<const void> owner) : owner_(std::move(owner)) {}

    void* doAllocate(std::size_t, CudaStreamView) override { throw std::bad_alloc(); }
    void doDeallocate(void*, std::size_t, CudaStreamView) override { delete this; }

private:
    std::shared_ptr<const void> owner_;
};

void copyWithoutBackend(const Device& device) {
    const GpuScope scope(device);
    throw RuntimeException(message::copyWithoutBackend);
}

} // namespace

template <class T>
DeviceSpecificArray<T>::DeviceSpecificArray(std::size_t size, const Device& device,
                                            const CudaStreamView& stream)
    : device_(device), stream_(stream) {
    const GpuScope scope(device);
    resource_ = &getPerDeviceMemoryResource(device);
    const std::size_t bytes = byteCount<T>(size);
    if (bytes != 0) data_ = static_cast<T*>(resource_->doAllocate(bytes, stream));
    capacityInBytes_ = bytes;
    size_ = size;
}

template <class T>
DeviceSpecificArray<T> DeviceSpecificArray<T>::borrowed(std::shared_ptr<const void> owner, const T* data,
                                                        std::size_t size) {
    DeviceSpecificArray array;
    if (size == 0) return array;
    array.resource_ = new Borrowed(std::move(owner));
    array.data_ = const_cast<T*>(data); // no member writes without a capacity
    array.size_ = size;
    return array;
}

template <class T>
DeviceSpecificArray<T>::DeviceSpecificArray(const DeviceSpecificArray& other)
    : DeviceSpecificArray(other.size_, other.device_, other.stream_) {
    copyDataFrom(other, other.stream_);
}

template <class T>
DeviceSpecificArray<T>::DeviceSpecificArray(DeviceSpecificArray&& other) noexcept : DeviceSpecificArray() {
    swap(other);
}

template <class T>
DeviceSpecificArray<T>& DeviceSpecificArray<T>::operator=(const DeviceSpecificArray& other) {
    if (this == &other) return *this;
    if (other.size_ <= capacity() && device_ == other.device_ && stream_ == other.stream_) {
        copyDataFrom(other);
        size_ = other.size_;
    } else {
        DeviceSpecificArray copy(other);
        swap(copy);
    }
    return *this;
}

template <class T>
DeviceSpecificArray<T>& DeviceSpecificArray<T>::operator=(DeviceSpecificArray&& other) noexcept {
    if (this != &other) swap(other);
    return *this;
}

template <class T>
DeviceSpecificArray<T>::~DeviceSpecificArray() {
    if (data_ != nullptr) resource_->doDeallocate(data_, capacityInBytes_, stream_);
}

template <class T>
void DeviceSpecificArray<T>::copyDataFrom(const DeviceSpecificArray& source, CudaStreamView) {
    if (device_.type != DeviceType::CPU) copyWithoutBackend(device_);
    if (source.device_.type != DeviceType::CPU) copyWithoutBackend(source.device_);
    if (source.size_ != 0) std::memmove(static_cast<void*>(data_), source.data_, source.size_ * sizeof(T));
}

template <class T>
void DeviceSpecificArray<T>::resize(std::size_t size) {
    if (std::max(capacity(), size_) < size) {
        DeviceSpecificArray larger(size, device_, stream_);
        larger.copyDataFrom(*this);
        swap(larger);
    } else {
        size_ = size;
    }
}

template <class T>
void DeviceSpecificArray<T>::clear(std::size_t first) {
    if (device_.type != DeviceType::CPU || first >= size_) return;
    std::fill(begin() + first, end(), T{});
}

template <class T>
void DeviceSpecificArray<T>::to(const Device& device, const CudaStreamView& stream) {
    if (device == device_) {
        stream_ = stream;
        return;
    }
    DeviceSpecificArray moved(size_, device, stream);
    moved.copyDataFrom(*this, stream);
    swap(moved);
}

template <class T>
void DeviceSpecificArray<T>::swap(DeviceSpecificArray& other) noexcept {
    std::swap(device_, other.device_);
    std::swap(capacityInBytes_, other.capacityInBytes_);
    std::swap(resource_, other.resource_);
    std::swap(stream_, other.stream_);
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
}

template class DeviceSpecificArray<u64>;
template class DeviceSpecificArray<u64*>;
template class DeviceSpecificArray<double>;
template class DeviceSpecificArray<std::complex<double>>;
template class DeviceSpecificArray<int>;
template class DeviceSpecificArray<bool>;
template class DeviceSpecificArray<u128>;
template class DeviceSpecificArray<i128>;

} // namespace Torvo
