#pragma once

#include "soak/Trend.hpp"

#include "remoting/processes/ProcessFigures.hpp"

#include <sys/types.h>

namespace agent::orvi::remoting::test {

// More than this in a minute is a leak. Pools of threads grow by one now and then, to their limits,
// whereas some fifteen publishers are killed and a thousand connections made in a minute: what each
// of these left behind would be more.
inline constexpr double memoryLimit = 512; // KiB
inline constexpr double descriptorLimit = 3;
inline constexpr double threadLimit = 3;

/// How a process that lives as long as the run has developed.
struct Observed {
    const char* name;
    pid_t process;
    Trend memory;
    Trend descriptors;
    Trend threads;

    void sample(double minutes) {
        const ProcessFigures figures = figuresOf(process);
        memory.add(minutes, static_cast<double>(figures.memory) / 1024);
        descriptors.add(minutes, static_cast<double>(figures.descriptors));
        threads.add(minutes, static_cast<double>(figures.threads));
    }

    bool isFlat() const {
        return !memory.exceeds(memoryLimit) && !descriptors.exceeds(descriptorLimit) &&
               !threads.exceeds(threadLimit);
    }
};

} // namespace agent::orvi::remoting::test
