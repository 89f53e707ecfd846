#pragma once

#include <string>
#include <vector>

namespace example {

/// One patient: the measured features and the diagnosis, 1 for benign and 0 for malignant.
struct Patient {
    std::vector<double> features;
    double benign = 0;
};

/// The patients of a file of examples/data.
std::vector<Patient> readPatients(const std::string& path);

/// Shuffles with a fixed seed and cuts after `fraction` of the patients.
struct Split {
    std::vector<Patient> training;
    std::vector<Patient> test;
};
Split split(std::vector<Patient> patients, double fraction);

/// Mean and standard deviation of every feature, by which data is brought to mean 0 and deviation 1.
struct Standardiser {
    explicit Standardiser(const std::vector<Patient>& patients);
    std::vector<double> operator()(const std::vector<double>& features) const;
    std::vector<double> mean, deviation;
};

/// A logistic regression: the chance of "benign" is sigmoid(weights . x + bias) for a standardised x.
struct LogisticModel {
    std::vector<double> weights;
    double bias = 0;

    double score(const std::vector<double>& x) const;
};

/// Fits by Nesterov's accelerated gradient descent with ridge penalty `lambda`.
LogisticModel fit(const std::vector<std::vector<double>>& rows, const std::vector<double>& labels,
                  double lambda, int iterations);

double sigmoid(double z);

/// Coefficients t[k], k odd up to 7, of the Chebyshev series of sigmoid(bound * y) - 1/2 on [-1, 1], which is
/// odd: least squares on the Chebyshev points, by the discrete orthogonality of Chebyshev polynomials.
std::vector<double> chebyshevOfSigmoid(double bound);

/// Coefficients c1, c3, c5, c7 with sigmoid(bound * y) ~ 0.5 + c1 y + c3 y^3 + c5 y^5 + c7 y^7 on [-1, 1].
std::vector<double> fitSigmoid(double bound);

} // namespace example
