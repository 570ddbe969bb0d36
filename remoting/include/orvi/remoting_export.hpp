#pragma once

/// Marks what the remoting library exports; everything else stays hidden.
#define ORVI_REMOTING_EXPORT __attribute__((visibility("default")))
