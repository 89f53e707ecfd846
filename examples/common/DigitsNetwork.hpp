#pragma once

#include <complex>
#include <cstddef>
#include <string>
#include <vector>

namespace example {

/// An image of 8 by 8 pixels, row by row, from 0 (white) to 1 (black), and the digit that it shows.
struct Digit {
    std::vector<double> pixels;
    std::size_t label = 0;
};

/// The images of a file of examples/data, in a random order from a fixed seed.
std::vector<Digit> readDigits(const std::string& path);

/// out = weights in + biases, where entries that share a parameter are equal and the others 0: a convolution has few
/// parameters, a dense layer one for each entry.
struct Layer {
    static constexpr std::size_t none = ~std::size_t{0};

    /// `maps` of 4 by 4 numbers from an image of 8 by 8: 3 by 3 windows at every second pixel.
    static Layer convolution(std::size_t maps);
    static Layer dense(std::size_t outputs, std::size_t inputs);

    std::vector<double> operator()(const std::vector<double>& in) const;
    /// The weights as rows of complex numbers.
    std::vector<std::vector<std::complex<double>>> matrix() const;

    std::size_t outputs, inputs;
    std::vector<std::size_t> weights; ///< the parameter of each entry, row by row
    std::vector<std::size_t> biases;  ///< the parameter of each output
    std::vector<double> parameters{};
};

/// Layers with squares between them.
struct Network {
    std::vector<Layer> layers;

    /// The logits of the ten digits.
    std::vector<double> operator()(std::vector<double> in) const;
    /// Minimises the cross entropy of the softmax of the logits by the Adam method (Kingma and Ba, 2015).
    void train(const std::vector<Digit>& digits, int epochs);
};

/// The place of the largest of ten numbers.
std::size_t largest(const std::vector<double>& logits);

} // namespace example
