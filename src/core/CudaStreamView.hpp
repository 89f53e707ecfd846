#pragma once

#include <cstdint>
#include <memory>

namespace Torvo {

/// Non-owning handle of a stream of a GPU: one machine word, 0 for the default stream.
struct CudaStreamView {
    std::uintptr_t value = 0;

    friend bool operator==(const CudaStreamView&, const CudaStreamView&) = default;
};

/// The view of value 0.
CudaStreamView getDefaultStream();

/// Owner of a stream: one heap word that holds the view's value, 0 in this build.
class CudaStream {
public:
    CudaStream() : value_(std::make_unique<std::uintptr_t>(0)) {}
    CudaStreamView view() const { return {*value_}; }

private:
    std::unique_ptr<std::uintptr_t> value_;
};

} // namespace Torvo
