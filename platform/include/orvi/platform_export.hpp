#pragma once

/// Marks what the platform library exports; everything else stays hidden.
#define ORVI_PLATFORM_EXPORT __attribute__((visibility("default")))
