#pragma once

/// The exact texts of this layer's exceptions.
namespace Torvo::message {

inline constexpr const char* invalidLogDegree = "[Parameter] Invalid log_degree";
inline constexpr const char* invalidChainLength = "[Parameter] Invalid chain_length";
inline constexpr const char* invalidDimension = "[Parameter] Invalid dimension: it should be at least 1";
inline constexpr const char* gadgetRankMustDivide = "[Parameter] gadget_rank should divide chain_length";
inline constexpr const char* customRankAboveOne =
    "[Parameter] custom parameter with rank > 1 is not supported.";
inline constexpr const char* customNeedsParameters =
    "Need to specify some parameters in order to use CUSTOM parameters.";
inline constexpr const char* presetNotSupported = "The input parameter preset is not yet supported.";
inline constexpr const char* noRotationsForBootstrap = "The parameter dose not support bootstrap.";
inline constexpr const char* logSlotsTooLarge = "log_slots should not exceed "; ///< the number follows
inline constexpr const char* noSparsePreset =
    "This parameter preset does not have corresponding sparse parameter preset";
inline constexpr const char* incompatibleContexts = "The given two contexts are not compatible at any level";
inline constexpr const char* invalidCudaDevice = "Invalid CUDA device ID: "; ///< the number follows

} // namespace Torvo::message
