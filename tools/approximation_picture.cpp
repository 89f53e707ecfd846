// Usage: approximation_picture > docs/approximation.svg
//
// Draws the sigmoid on [-8, 8] with its best polynomial of degree 15, and below that the error of the polynomial, which
// swings between two bounds 17 times; and the error of the interpolation of the same degree.

#include <Torvo/ChebyshevSeries.hpp>

#include <cmath>
#include <cstdio>
#include <functional>

namespace {

using Torvo::ChebyshevSeries;

constexpr double left = -8, right = 8;
constexpr int width = 640, height = 240, points = 640;

long double sigmoid(long double x) {
    return 1 / (1 + std::exp(-x));
}

/// A curve in a field whose upper edge is at `top`, for values from `low` to `high`.
void curve(int top, double low, double high, const char* style, const std::function<double(double)>& f) {
    std::printf("<polyline fill=\"none\" %s points=\"", style);
    for (int i = 0; i <= points; ++i) {
        const double x = left + (right - left) * i / points;
        std::printf("%d,%.1f ", width * i / points, top + height * (high - f(x)) / (high - low));
    }
    std::puts("\"/>");
}

void field(int top, const char* text) {
    std::printf("<rect x=\"0\" y=\"%d\" width=\"%d\" height=\"%d\" fill=\"white\" stroke=\"#999\"/>\n", top, width,
                height);
    std::printf("<text x=\"8\" y=\"%d\" font-family=\"sans-serif\" font-size=\"13\">%s</text>\n", top + 18, text);
}

} // namespace

int main() {
    const auto value = [](double x) { return static_cast<double>(sigmoid(x)); };
    const ChebyshevSeries best = ChebyshevSeries::minimax(sigmoid, 15, left, right);
    const ChebyshevSeries interpolation = ChebyshevSeries::interpolate(value, 15, left, right);
    const double largest = interpolation.largestError(value);
    std::printf("<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %d\">\n", width, 2 * height + 10);
    field(0, "sigmoid on [-8, 8] and its best polynomial of degree 15");
    curve(0, -0.1, 1.1, "stroke=\"#bbb\" stroke-width=\"5\"", value);
    curve(0, -0.1, 1.1, "stroke=\"#036\" stroke-width=\"1.5\"", [&](double x) { return best.evaluate(x).real(); });
    char text[160];
    std::snprintf(text, sizeof text, "errors: at most %.1e of the best one (dark), %.1e of the interpolation (light)",
                  best.largestError(value), largest);
    field(height + 10, text);
    const double range = 1.3 * largest;
    curve(height + 10, -range, range, "stroke=\"#c80\" stroke-width=\"1\"",
          [&](double x) { return interpolation.evaluate(x).real() - value(x); });
    curve(height + 10, -range, range, "stroke=\"#036\" stroke-width=\"1.5\"",
          [&](double x) { return best.evaluate(x).real() - value(x); });
    std::puts("</svg>");
    return 0;
}
