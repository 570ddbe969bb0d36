#pragma once

#include <cmath>
#include <cstddef>
#include <ostream>

namespace agent::orvi::remoting::test {

/// The straight line through what was measured after so much had been done. A value.
class Trend {
public:
    void add(double done, double value) {
        ++count;
        const double fromMeanDone = done - meanDone;
        const double fromMeanValue = value - meanValue;
        meanDone += fromMeanDone / static_cast<double>(count);
        meanValue += fromMeanValue / static_cast<double>(count);
        doneSquares += fromMeanDone * (done - meanDone);
        valueSquares += fromMeanValue * (value - meanValue);
        products += fromMeanDone * (value - meanValue);
    }

    /// Return by how much the value grows with each thing done.
    double slope() const noexcept { return doneSquares > 0 ? products / doneSquares : 0; }

    /// Return the standard error of the slope.
    double error() const noexcept {
        constexpr std::size_t unknowns = 2;
        if (count <= unknowns || doneSquares <= 0) {
            return 0;
        }
        const double rest = std::fmax(0, valueSquares - slope() * products);
        return std::sqrt(rest / static_cast<double>(count - unknowns) / doneSquares);
    }

    /// Say whether the value grows by more than `limit` each time, beyond what chance explains.
    bool exceeds(double limit) const noexcept { return slope() - 2 * error() > limit; }

    friend std::ostream& operator<<(std::ostream& out, const Trend& trend) {
        return out << trend.slope() << " +- " << 2 * trend.error();
    }

private:
    std::size_t count = 0;
    double meanDone = 0;
    double meanValue = 0;
    double doneSquares = 0;
    double valueSquares = 0;
    double products = 0;
};

} // namespace agent::orvi::remoting::test
