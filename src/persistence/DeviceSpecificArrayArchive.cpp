#include "core/DeviceSpecificArray.hpp"
#include "core/Failure.hpp"
#include "persistence/Archive.hpp"

#include <algorithm>

namespace Torvo {

namespace {

/// The type of the numbers in an element, which are swapped for an archive of the other byte order.
template <class T>
struct ScalarOf {
    using Type = T;
};
template <class T>
struct ScalarOf<std::complex<T>> {
    using Type = T;
};

} // namespace

template <class T>
void DeviceSpecificArray<T>::save(OutputArchive& archive) const {
    if (device_.type == DeviceType::GPU) {
        DeviceSpecificArray host(size_);
        host.copyDataFrom(*this);
        return host.save(archive);
    }
    if (device_.type != DeviceType::CPU) throwUnsupported("save");
    archive(static_cast<u64>(size_));
    archive.saveBinary<sizeof(typename ScalarOf<T>::Type)>(data_,
                                                           static_cast<std::streamsize>(sizeInBytes()));
}

template <class T>
void DeviceSpecificArray<T>::load(InputArchive& archive) {
    loadCounted(archive, [](u64) { return true; });
}

template <class T>
void DeviceSpecificArray<T>::loadSized(InputArchive& archive, std::initializer_list<u64> sizes) {
    loadCounted(archive, [&](u64 count) { return std::ranges::find(sizes, count) != sizes.end(); });
}

template <class T>
template <class IsTaken>
void DeviceSpecificArray<T>::loadCounted(InputArchive& archive, IsTaken&& isTaken) {
    if (device_.type == DeviceType::GPU) {
        DeviceSpecificArray host;
        host.loadCounted(archive, isTaken);
        host.to(device_, stream_);
        return swap(host);
    }
    if (device_.type != DeviceType::CPU) throwUnsupported("load");
    u64 count = 0;
    archive(count);
    verify(isTaken(count));
    resize(0);
    detail::readPieces<T, typename ScalarOf<T>::Type>(archive, count, [this](u64 size) {
        resize(size);
        return data_;
    });
}

template void DeviceSpecificArray<u64>::save(OutputArchive&) const;
template void DeviceSpecificArray<u64>::load(InputArchive&);
template void DeviceSpecificArray<u64>::loadSized(InputArchive&, std::initializer_list<u64>);
template void DeviceSpecificArray<int>::save(OutputArchive&) const;
template void DeviceSpecificArray<int>::load(InputArchive&);
template void DeviceSpecificArray<int>::loadSized(InputArchive&, std::initializer_list<u64>);
template void DeviceSpecificArray<std::complex<double>>::save(OutputArchive&) const;
template void DeviceSpecificArray<std::complex<double>>::load(InputArchive&);

} // namespace Torvo
