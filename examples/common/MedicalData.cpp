#include "MedicalData.hpp"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <numbers>
#include <numeric>
#include <random>
#include <sstream>
#include <stdexcept>

namespace example {

std::vector<Patient> readPatients(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("cannot open " + path);
    std::string line;
    std::getline(file, line); // counts and names
    std::vector<Patient> patients;
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        Patient patient;
        for (std::string field; std::getline(fields, field, ',');)
            patient.features.push_back(std::stod(field));
        if (patient.features.empty()) continue;
        patient.benign = patient.features.back();
        patient.features.pop_back();
        patients.push_back(std::move(patient));
    }
    return patients;
}

Split split(std::vector<Patient> patients, double fraction) {
    std::mt19937_64 random(20); // NOLINT(bugprone-random-generator-seed): the same split in every run
    for (std::size_t i = patients.size(); i > 1; --i) std::swap(patients[i - 1], patients[random() % i]);
    const auto cut = patients.begin() + std::lround(fraction * static_cast<double>(patients.size()));
    return {{patients.begin(), cut}, {cut, patients.end()}};
}

Standardiser::Standardiser(const std::vector<Patient>& patients)
    : mean(patients.front().features.size()), deviation(mean.size()) {
    const auto count = static_cast<double>(patients.size());
    for (std::size_t f = 0; f < mean.size(); ++f) {
        for (const auto& p : patients) mean[f] += p.features[f] / count;
        for (const auto& p : patients) deviation[f] += std::pow(p.features[f] - mean[f], 2) / count;
        deviation[f] = std::sqrt(deviation[f]);
    }
}

std::vector<double> Standardiser::operator()(const std::vector<double>& features) const {
    std::vector<double> x(features.size());
    for (std::size_t f = 0; f < x.size(); ++f) x[f] = (features[f] - mean[f]) / deviation[f];
    return x;
}

double sigmoid(double z) {
    return 1.0 / (1.0 + std::exp(-z));
}

double LogisticModel::score(const std::vector<double>& x) const {
    return std::inner_product(x.begin(), x.end(), weights.begin(), bias);
}

LogisticModel fit(const std::vector<std::vector<double>>& rows, const std::vector<double>& labels,
                  double lambda, int iterations) {
    const std::size_t features = rows.front().size();
    const auto count = static_cast<double>(rows.size());
    // The curvature of the mean loss is at most a quarter of the mean squared length of a row with its bias.
    double meanSquare = 1;
    for (const auto& row : rows)
        meanSquare += std::inner_product(row.begin(), row.end(), row.begin(), 0.0) / count;
    const double step = 1.0 / (meanSquare / 4 + lambda);

    LogisticModel model{std::vector<double>(features), 0}, ahead = model;
    for (int iteration = 0; iteration < iterations; ++iteration) {
        std::vector<double> gradient(features);
        double biasGradient = 0;
        for (std::size_t i = 0; i < rows.size(); ++i) {
            const double residual = (sigmoid(ahead.score(rows[i])) - labels[i]) / count;
            for (std::size_t f = 0; f < features; ++f) gradient[f] += residual * rows[i][f];
            biasGradient += residual;
        }
        const LogisticModel previous = model;
        const double momentum = iteration / (iteration + 3.0);
        for (std::size_t f = 0; f < features; ++f) {
            model.weights[f] = ahead.weights[f] - step * (gradient[f] + lambda * ahead.weights[f]);
            ahead.weights[f] = model.weights[f] + momentum * (model.weights[f] - previous.weights[f]);
        }
        model.bias = ahead.bias - step * biasGradient;
        ahead.bias = model.bias + momentum * (model.bias - previous.bias);
    }
    return model;
}

std::vector<double> chebyshevOfSigmoid(double bound) {
    constexpr int points = 64;
    std::vector<double> t(8);
    for (int k = 1; k < 8; k += 2)
        for (int j = 0; j < points; ++j) {
            const double angle = std::numbers::pi * (j + 0.5) / points;
            t[k] += 2 * (sigmoid(bound * std::cos(angle)) - 0.5) * std::cos(k * angle) / points;
        }
    return t;
}

std::vector<double> fitSigmoid(double bound) {
    const std::vector<double> t = chebyshevOfSigmoid(bound);
    // T3 = 4y^3 - 3y, T5 = 16y^5 - 20y^3 + 5y, T7 = 64y^7 - 112y^5 + 56y^3 - 7y.
    return {t[1] - 3 * t[3] + 5 * t[5] - 7 * t[7], 4 * t[3] - 20 * t[5] + 56 * t[7], 16 * t[5] - 112 * t[7],
            64 * t[7]};
}

} // namespace example
