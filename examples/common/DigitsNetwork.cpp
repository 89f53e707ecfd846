#include "DigitsNetwork.hpp"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <numeric>
#include <random>
#include <sstream>
#include <stdexcept>

namespace example {

std::vector<Digit> readDigits(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("Cannot open " + path);
    std::vector<Digit> digits;
    for (std::string line; std::getline(file, line);) {
        std::istringstream numbers(line);
        Digit digit;
        std::string field;
        while (std::getline(numbers, field, ',')) digit.pixels.push_back(std::stod(field) / 16);
        if (digit.pixels.size() != 65) throw std::runtime_error(path + " has a line of another length");
        digit.label = static_cast<std::size_t>(std::lround(16 * digit.pixels.back()));
        digit.pixels.pop_back();
        digits.push_back(std::move(digit));
    }
    std::mt19937 random(1);
    for (std::size_t i = digits.size(); i > 1; --i) std::swap(digits[i - 1], digits[random() % i]);
    return digits;
}

std::size_t largest(const std::vector<double>& logits) {
    return static_cast<std::size_t>(std::max_element(logits.begin(), logits.begin() + 10) - logits.begin());
}

// ---- layers

namespace {

/// Small random parameters for so many inputs of an output that the sum is about as large as one of them.
std::vector<double> randomParameters(std::size_t count, std::size_t biases, double inputs) {
    static std::mt19937 random(2);
    std::normal_distribution<double> normal(0, 1 / std::sqrt(inputs));
    std::vector<double> parameters(count + biases);
    for (std::size_t k = 0; k < count; ++k) parameters[k] = normal(random);
    return parameters;
}

} // namespace

Layer Layer::convolution(std::size_t maps) {
    constexpr std::size_t side = 8, half = 4, window = 3;
    Layer layer{maps * half * half, side * side, {}, {}};
    layer.weights.assign(layer.outputs * layer.inputs, none);
    for (std::size_t o = 0; o < layer.outputs; ++o) {
        const std::size_t map = o / (half * half), row = o / half % half, column = o % half;
        layer.biases.push_back(maps * window * window + map);
        for (std::size_t dy = 0; dy < window; ++dy)
            for (std::size_t dx = 0; dx < window; ++dx) {
                const std::size_t y = 2 * row + dy,
                                  x = 2 * column + dx; // of an image with a border above and left
                if (y == 0 || x == 0) continue;
                layer.weights[o * layer.inputs + (y - 1) * side + x - 1] = (map * window + dy) * window + dx;
            }
    }
    layer.parameters = randomParameters(maps * window * window, maps, window * window);
    return layer;
}

Layer Layer::dense(std::size_t outputs, std::size_t inputs) {
    Layer layer{outputs, inputs, std::vector<std::size_t>(outputs * inputs),
                std::vector<std::size_t>(outputs)};
    std::iota(layer.weights.begin(), layer.weights.end(), std::size_t{0});
    std::iota(layer.biases.begin(), layer.biases.end(), outputs * inputs);
    layer.parameters = randomParameters(outputs * inputs, outputs, static_cast<double>(inputs));
    return layer;
}

std::vector<double> Layer::operator()(const std::vector<double>& in) const {
    std::vector<double> out(outputs);
    for (std::size_t o = 0; o < outputs; ++o) {
        out[o] = parameters[biases[o]];
        for (std::size_t i = 0; i < inputs; ++i)
            if (const std::size_t k = weights[o * inputs + i]; k != none) out[o] += parameters[k] * in[i];
    }
    return out;
}

std::vector<std::vector<std::complex<double>>> Layer::matrix() const {
    std::vector<std::vector<std::complex<double>>> rows(outputs, std::vector<std::complex<double>>(inputs));
    for (std::size_t o = 0; o < outputs; ++o)
        for (std::size_t i = 0; i < inputs; ++i)
            if (const std::size_t k = weights[o * inputs + i]; k != none) rows[o][i] = parameters[k];
    return rows;
}

// ---- the network

std::vector<double> Network::operator()(std::vector<double> in) const {
    for (std::size_t l = 0; l < layers.size(); ++l) {
        if (l > 0)
            for (double& x : in) x *= x;
        in = layers[l](in);
    }
    return in;
}

namespace {

/// The moving averages of Adam for one layer.
struct Moments {
    std::vector<double> gradient, mean, square;

    explicit Moments(const Layer& layer)
        : gradient(layer.parameters.size()), mean(gradient), square(gradient) {}

    void step(std::vector<double>& parameters, double images, int t) {
        constexpr double rate = 0.003, keepMean = 0.9, keepSquare = 0.999;
        for (std::size_t k = 0; k < parameters.size(); ++k) {
            const double g = gradient[k] / images + 1e-4 * parameters[k]; // with a little weight decay
            mean[k] = keepMean * mean[k] + (1 - keepMean) * g;
            square[k] = keepSquare * square[k] + (1 - keepSquare) * g * g;
            const double m = mean[k] / (1 - std::pow(keepMean, t)),
                         s = square[k] / (1 - std::pow(keepSquare, t));
            parameters[k] -= rate * m / (std::sqrt(s) + 1e-8);
            gradient[k] = 0;
        }
    }
};

/// Adds the gradient of one image.
void propagate(const Network& network, const Digit& digit, std::vector<Moments>& moments) {
    const std::size_t depth = network.layers.size();
    std::vector<std::vector<double>> inputs{digit.pixels}, sums;
    for (const Layer& layer : network.layers) {
        sums.push_back(layer(inputs.back()));
        inputs.push_back(sums.back());
        for (double& x : inputs.back()) x *= x;
    }
    std::vector<double> delta = sums.back();
    const double top = *std::max_element(delta.begin(), delta.end());
    double total = 0;
    for (double& x : delta) total += x = std::exp(x - top);
    for (double& x : delta) x /= total;
    delta[digit.label] -= 1;
    for (std::size_t l = depth; l-- > 0;) {
        const Layer& layer = network.layers[l];
        std::vector<double> below(layer.inputs);
        for (std::size_t o = 0; o < layer.outputs; ++o) {
            moments[l].gradient[layer.biases[o]] += delta[o];
            for (std::size_t i = 0; i < layer.inputs; ++i)
                if (const std::size_t k = layer.weights[o * layer.inputs + i]; k != Layer::none) {
                    moments[l].gradient[k] += delta[o] * inputs[l][i];
                    below[i] += delta[o] * layer.parameters[k];
                }
        }
        if (l == 0) break;
        for (std::size_t i = 0; i < below.size(); ++i) below[i] *= 2 * sums[l - 1][i];
        delta = std::move(below);
    }
}

} // namespace

void Network::train(const std::vector<Digit>& digits, int epochs) {
    constexpr std::size_t batch = 32;
    std::vector<Moments> moments(layers.begin(), layers.end());
    std::vector<std::size_t> order(digits.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::mt19937 random(3);
    int t = 0;
    for (int epoch = 0; epoch < epochs; ++epoch) {
        for (std::size_t i = order.size(); i > 1; --i) std::swap(order[i - 1], order[random() % i]);
        for (std::size_t begin = 0; begin < order.size(); begin += batch) {
            const std::size_t end = std::min(begin + batch, order.size());
            for (std::size_t i = begin; i < end; ++i) propagate(*this, digits[order[i]], moments);
            ++t;
            for (std::size_t l = 0; l < layers.size(); ++l)
                moments[l].step(layers[l].parameters, static_cast<double>(end - begin), t);
        }
    }
}

} // namespace example
