#pragma once

#include <cmath>
#include <cstddef>

namespace agent::orvi::remoting::test {

/// The straight line through what was measured over time. A value.
class Trend {
public:
    void add(double minutes, double value) {
        ++count;
        const double fromMeanTime = minutes - meanTime;
        const double fromMeanValue = value - meanValue;
        meanTime += fromMeanTime / static_cast<double>(count);
        meanValue += fromMeanValue / static_cast<double>(count);
        timeSquares += fromMeanTime * (minutes - meanTime);
        valueSquares += fromMeanValue * (value - meanValue);
        products += fromMeanTime * (value - meanValue);
    }

    std::size_t samples() const noexcept { return count; }

    /// Return by how much the value grows in a minute.
    double slope() const noexcept { return timeSquares > 0 ? products / timeSquares : 0; }

    /// Return the standard error of the slope.
    double error() const noexcept {
        constexpr std::size_t unknowns = 2;
        if (count <= unknowns || timeSquares <= 0) {
            return 0;
        }
        const double rest = std::fmax(0, valueSquares - slope() * products);
        return std::sqrt(rest / static_cast<double>(count - unknowns) / timeSquares);
    }

    /// Say whether the value grows by more than `limit` in a minute, beyond what chance explains.
    bool exceeds(double limit) const noexcept { return slope() - 2 * error() > limit; }

private:
    std::size_t count = 0;
    double meanTime = 0;
    double meanValue = 0;
    double timeSquares = 0;
    double valueSquares = 0;
    double products = 0;
};

} // namespace agent::orvi::remoting::test
